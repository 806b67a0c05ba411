#include <csignal>
#include <exception>
#include <iostream>
#include <variant>

#include "tests/soak/options.h"
#include "tests/soak/soak.h"

#if defined(__SANITIZE_ADDRESS__)
// Freed memory is kept for less long than by default: what is watched here is growth, too. The sanitizer's library looks
// for it, so it must be visible.
extern "C" __attribute__((visibility("default"))) const char* __asan_default_options() {
  return "quarantine_size_mb=16";
}
#endif

int main(int argc, char** argv) {
  std::signal(SIGPIPE, SIG_IGN);
  const auto parsed = ZoSoak::ParseCommandLine(argc, argv, std::cout, std::cerr);
  if (const int* status = std::get_if<int>(&parsed)) {
    return *status;
  }
  try {
    return ZoSoak::RunSoak(std::get<ZoSoak::Options>(parsed), std::cout);
  } catch (const std::exception& error) {
    std::cerr << "zosoak: " << error.what() << "\n";
    return 1;
  }
}
