// The process-wide owner of the instances.
//
// Threads and lock: none of its own; every call is made under the entry lock. Owner: a static of the library,
// so it lives from the first export that is called until the library is unloaded.
#pragma once

#include <cstdint>
#include <map>
#include <memory>

#include "qapi/object.h"
#include "xhmi/iohandler.h"
#include "zoiohandler/vyrnclient/zovyrnclient.h"

namespace ZoIO {

class IoHandler {
 public:
  // Made on first use. In a forked child what was made before is the parent's, and so are its threads and connections:
  // nothing of it is touched, and the child starts anew. The caller holds the entry lock.
  static IoHandler& Instance();

  IoHandler();
  IoHandler(const IoHandler&) = delete;
  IoHandler& operator=(const IoHandler&) = delete;
  // Destroys the base library's handle first, then every instance that the host left behind.
  ~IoHandler();

  const ioInfo& Info() const { return info; }

  // The instance behind a handle, or null.
  ZoVyrnClient* Find(const void* handle) const;
  void Insert(std::unique_ptr<ZoVyrnClient> client);
  void Erase(const void* handle);

  // Whether a handle is of an instance that the parent made before this process was forked.
  static bool IsParents(const void* handle);

 private:
  using Instances =
      std::map<std::uint64_t, std::unique_ptr<ZoVyrnClient>>;  // by address, which is the handle

  void LeaveToParent() noexcept;

  // Never destroyed, made without memory, and where a leak checker finds what is in it.
  static Instances& Parents();

  std::uint64_t process;
  qApiLib library = nullptr;
  ioInfo info;
  Instances instances;
};

}  // namespace ZoIO
