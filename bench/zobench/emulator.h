// The emulated sensor of tools/zosensor in a child process.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>

#include "bench/zobench/child.h"

namespace ZoBench {

class Emulator {
 public:
  // A resource file's text; see docs/zosensor.md.
  explicit Emulator(const std::string& resources);

  std::uint16_t Port() const { return port; }
  pid_t Pid() const { return child.Pid(); }
  void Kill() { child.Kill(); }
  void Freeze() { child.Freeze(); }

 private:
  Child child;
  std::uint16_t port = 0;
};

// resources times items ramps, all of them new with each sample: /r000#/v000 and so on.
std::string MovingResources(int resources, int items, double rate);

}  // namespace ZoBench
