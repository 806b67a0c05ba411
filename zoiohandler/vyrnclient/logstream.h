// The stream that assembles one log line; std::endl delivers it.
//
// Threads: one. Lives for one log write.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <new>
#include <ostream>
#include <string>
#include <string_view>

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

  // The same as inserting the texts one after another, at once. Like an inserter it does not raise: a stream that could
  // not take everything is bad and delivers nothing.
  void Append(std::initializer_list<std::basic_string_view<Char, Traits>> parts) {
    try {
      buffer.Append(parts);
    } catch (const std::bad_alloc&) {
      this->setstate(std::ios_base::badbit);
    }
  }

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
