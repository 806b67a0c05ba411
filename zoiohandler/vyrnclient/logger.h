// The way to the host's log.
//
// Threads: any, at once; nothing serialises the lines of different threads. Owner: shared by an instance and
// everything it owns. Immutable after construction; no lock.
#pragma once

#include <cstdint>
#include <memory>
#include <string_view>
#include <utility>

#include "xhmi/iohandler.h"
#include "zoiohandler/vyrnclient/callbackgate.h"

namespace ZoIO {

// The levels in use. The host gets the number unchanged; nothing is filtered here.
enum LogLevel : std::int32_t {
  LogLevel_Info = 2,      // normal progress
  LogLevel_Notice = 3,    // lifecycle of instances and threads
  LogLevel_Warning = 4,   // an operation refused or skipped
  LogLevel_Error = 5,     // the text of an exception that was caught
  LogLevel_Critical = 6,  // the text of an exception that was caught while an instance is being destroyed
};

class Logger {
 public:
  // context goes back to the callback untouched. Without a callback, messages go to standard output. After
  // gate is closed (it may be null) nothing is delivered any more.
  Logger(void* context, ioLogCallback callback, std::shared_ptr<CallbackGate> gate = nullptr)
      : context(context), callback(callback), gate(std::move(gate)) {}

  void* Context() const { return context; }
  ioLogCallback Callback() const { return callback; }
  CallbackGate* Gate() const { return gate.get(); }

 private:
  void* context;
  ioLogCallback callback;
  std::shared_ptr<CallbackGate> gate;
};

// Writes one line, "[function](thread id)message\n", in one callback; or, without a callback, the bare
// message to standard output. function is the fully qualified name. Failures to deliver are not reported: the
// callers are handlers of other failures, and worker threads that must not end.
void WriteLog(const Logger& logger, std::string_view message, std::int32_t level,
              const char* function) noexcept;

}  // namespace ZoIO
