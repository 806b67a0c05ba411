#include "qapi/library.h"

#include <new>

#include "qapi/faultswitch.h"
#include "qapi/libraryobject.h"
#include "qapi/stragglers.h"

qStatus qApiLib_Construct(qApiLib* out) {
  if (out == nullptr) {
    return qStatus_InvalidArgument;
  }
  *out = nullptr;
  if (qStatus status; qApi::Fails(qOperation::LibraryConstruct, status)) {
    return status;
  }
  qApi::InitialiseRuntime();
  *out = new (std::nothrow) qApiLibObject;
  if (*out == nullptr) {
    return qStatus_OutOfMemory;
  }
  qApi::AddLiveObject();
  return qStatus_Success;
}

std::uint64_t qApiLib_ProcessId() {
  return qApi::ProcessNumber();
}
