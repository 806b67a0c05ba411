// Standard output, written whole and at once: nothing waits in a buffer, and every failure is noticed.
//
// Threads: main thread only.
// Invariant: what was not written is either reported by an OutputError or counted.
#pragma once

#include <cerrno>
#include <cstddef>
#include <stdexcept>
#include <string_view>
#include <system_error>

namespace zohost {

// The output takes no more; what() says why. `closed`: the reader has gone, which is no fault.
class OutputError : public std::runtime_error {
 public:
  // error: as errno names it.
  explicit OutputError(int error)
      : std::runtime_error(std::generic_category().message(error)), closed(error == EPIPE) {}
  bool closed;
};

class Output {
 public:
  // interrupt: a descriptor that is readable when waiting for a slow reader should end, or -1. It is only
  // looked at while the reader keeps the output waiting.
  explicit Output(int number, int interrupt = -1) : number_(number), interrupt_(interrupt) {}

  // Raises OutputError. Returns early when interrupted, and counts the rest as abandoned.
  void Write(std::string_view text);
  std::size_t Abandoned() const { return abandoned_; }
  // Whether the reader has gone, asked without writing.
  void CheckReader();
  bool IsTerminal() const;
  int Number() const { return number_; }

 private:
  bool WaitUntilWritable() const;

  int number_;
  int interrupt_;
  std::size_t abandoned_ = 0;
};

}  // namespace zohost
