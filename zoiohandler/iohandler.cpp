#include "zoiohandler/iohandler.h"

#include <cstddef>
#include <new>
#include <utility>

#include "qapi/library.h"

namespace ZoIO {

namespace {

constexpr ioParamInfo parameters[] = {
    {"Zomira Application ID (Optional)", "Zomira Application Identifier", 1}};

constexpr ioInfo description = {
    .word0 = 0,
    .word1 = 0x00010005,
    .word2 = 0,
    .word3 = 0x00010004,
    .name = "ZoIoHandler",
    .description = "ZoIoHandler Description",
    .word4 = 1,
    .word5 = 1,
    .params = parameters,
    .paramCount = 1,
};

std::uint64_t Key(const void* handle) {
  return reinterpret_cast<std::uintptr_t>(handle);
}

// Statics go in the reverse order of their making: by calling the base library first, what it keeps to join
// late threads outlives the instances.
qApiLib ConstructLibrary() {
  qApiLib library = nullptr;
  qApiLib_Construct(&library);
  return library;
}

}  // namespace

IoHandler& IoHandler::Instance() {
  struct LibraryFirst {
    LibraryFirst() { qObject_Destroy(ConstructLibrary()); }
  };
  static const LibraryFirst libraryFirst;
  static std::shared_ptr<IoHandler> handler;
  if (handler == nullptr) {
    handler = std::make_shared<IoHandler>();
  }
  handler->LeaveToParent();
  return *handler;
}

IoHandler::Instances& IoHandler::Parents() {
  alignas(Instances) static std::byte place[sizeof(Instances)];
  static Instances* const parents = new (place) Instances;
  return *parents;
}

IoHandler::IoHandler() : process(qApiLib_ProcessId()), library(ConstructLibrary()), info(description) {}

IoHandler::~IoHandler() {
  LeaveToParent();
  if (library != nullptr) {
    qObject_Destroy(library);
  }
  instances.clear();
}

void IoHandler::LeaveToParent() noexcept {
  if (process == qApiLib_ProcessId()) {
    return;
  }
  process = qApiLib_ProcessId();
  Parents().merge(instances);  // which needs no memory
}

bool IoHandler::IsParents(const void* handle) {
  return Parents().contains(Key(handle));
}

ZoVyrnClient* IoHandler::Find(const void* handle) const {
  const auto found = instances.find(Key(handle));
  return found == instances.end() ? nullptr : found->second.get();
}

void IoHandler::Insert(std::unique_ptr<ZoVyrnClient> client) {
  const std::uint64_t key = Key(client.get());
  instances.insert_or_assign(key, std::move(client));
}

void IoHandler::Erase(const void* handle) {
  instances.erase(Key(handle));
}

}  // namespace ZoIO
