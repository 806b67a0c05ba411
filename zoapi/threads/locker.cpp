#include "zoapi/threads/locker.h"

#include <cstdint>

#include "zoapi/exception.h"
#include "zoapi/logging.h"

namespace Zo {

namespace {

// The name and the lines under which faults of this class are reported. They are what one searches logs
// for, so they do not follow this file's own lines.
constexpr const char* source = "zoapi/zoapi/threads/locker";
constexpr const char* constructor = "Zo::Locker::Locker";
constexpr const char* destructor = "Zo::Locker::~Locker";
constexpr int enterLine = 36;
constexpr int enterExLine = 40;
constexpr int exitLine = 54;
constexpr int reportLine = 59;
constexpr std::uint64_t faultInDestructor = 0x8000000000000002;
constexpr long long withoutLimit = -1;

}  // namespace

Locker::Locker(Lock& lock, long long timeout) : Locker(lock.Get(), timeout) {}

Locker::Locker(qLock lock, long long timeout) : handle(lock) {
  if (timeout == withoutLimit) {
    Check(qLock_Enter(handle), enterLine, source, constructor);
  } else {
    Check(qLock_EnterEx(handle, static_cast<std::uint64_t>(timeout)), enterExLine, source, constructor);
  }
}

Locker::~Locker() {
  if (handle == nullptr) {
    return;
  }
  try {
    Check(qLock_Exit(handle), exitLine, source, destructor);
  } catch (const Exception& exception) {
    Logging::Zo_Debug_Log(reportLine, source, faultInDestructor, destructor,
                          "Exception thrown in destructor");
    Exception::LogException(exception, 0);
    Exception::LogBackTrace(exception);
  } catch (const std::exception&) {
    // No memory for the exception's texts. A destructor lets nothing out, so what is left is the line without
    // them.
    Logging::Zo_Debug_Log(reportLine, source, faultInDestructor, destructor,
                          "Exception thrown in destructor");
  }
}

}  // namespace Zo
