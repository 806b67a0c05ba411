#include "zoiohandler/vyrnclient/logger.h"

#include <iostream>
#include <string>

#include "qapi/thread.h"
#include "zoiohandler/vyrnclient/logstream.h"

namespace ZoIO {

namespace {

void Write(const Logger& logger, std::string_view message, std::int32_t level, const char* function) {
  if (logger.Callback() == nullptr) {
    const CallbackGate::Entry entry(logger.Gate());
    if (entry) {
      std::cout << message << std::endl;
    }
    return;
  }
  LogStream<char> stream(logger.Context(), logger.Callback(), level, logger.Gate());
  stream.Append({"[", function, "](", std::to_string(qThread_CurrentId()), ")", message, "\n"});
  stream.flush();
}

}  // namespace

void WriteLog(const Logger& logger, std::string_view message, std::int32_t level,
              const char* function) noexcept {
  try {
    Write(logger, message, level, function);
  } catch (...) {
    // Without the memory for a line, or with a standard output that raises, there is nobody left to tell.
  }
}

}  // namespace ZoIO
