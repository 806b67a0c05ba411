// What the command line asks for. A plain value, made once at the start.
#pragma once

#include <chrono>
#include <cstdint>
#include <iosfwd>
#include <string>
#include <variant>

namespace ZoSoak {

struct Options {
  std::chrono::seconds duration{60};
  std::uint64_t seed = 0;
  int sensors = 3;
  int instances = 6;  // slots for instances of sensors
  int simulators = 2;
  int threads = 4;
  std::string plant;  // a wrong observation that the soak makes up, to show that it would notice; empty: none
};

// Or the exit status, when everything has been said (help, or what is wrong with the command line).
std::variant<Options, int> ParseCommandLine(int argc, const char* const* argv, std::ostream& out,
                                            std::ostream& err);

}  // namespace ZoSoak
