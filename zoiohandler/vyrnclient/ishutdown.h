// An orderly end that does not wait for the last owner.
#pragma once

namespace ZoIO {

// A worker that outlived its join may still hold a reference to a manager, and would otherwise be the one to
// destroy it, log lines, joins and all. So whoever destroys an instance calls Shutdown, and only the memory
// waits for the worker. Shutdown does what the destructor would do, once; it never raises.
class IShutdown {
 public:
  // Ends, without a word, whatever a worker waits for at the sensor, so that nobody waits for that worker in
  // turn. The first step of an end; never raises.
  virtual void GiveUp() noexcept = 0;

  virtual void Shutdown() noexcept = 0;

 protected:
  ~IShutdown() = default;
};

}  // namespace ZoIO
