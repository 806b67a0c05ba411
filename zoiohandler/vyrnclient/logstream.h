// The stream that assembles one log line out of values of any kind; std::endl delivers it. (WriteLog has texts alone,
// and hands them to a LogBuf itself: making a stream costs more than the rest of a line.)
//
// Threads: one. Lives for one log write.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>

#include "zoiohandler/vyrnclient/logbuf.h"

namespace ZoIO {

template <typename Char, typename Traits = std::char_traits<Char>>
class LogStream : public std::basic_ostream<Char, Traits> {
 public:
  LogStream(void* context, ioLogCallback callback, std::int32_t level, CallbackGate* gate)
      : std::basic_ostream<Char, Traits>(nullptr), buffer(context, callback, level, gate) {
    this->rdbuf(&buffer);
  }
  LogStream(const LogStream&) = delete;
  LogStream& operator=(const LogStream&) = delete;

  ~LogStream() override {
    try {
      this->flush();
    } catch (...) {
      // A destructor must not raise, and a line that cannot be delivered has nowhere else to go.
    }
  }

 private:
  LogBuf<Char, Traits> buffer;
};

}  // namespace ZoIO
