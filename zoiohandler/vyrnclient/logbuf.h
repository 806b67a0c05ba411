// The buffer behind one log line: gathers characters and hands them to the host's log callback in one piece.
//
// It has no put area, so every character that is written to it goes through overflow and is safe there; only sync
// delivers. Append takes whole texts at once. Lives for one log write. Threads: any; in practice the one that writes
// the line. Lock: mutex, rank LogBuffer, held during the callback.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <sstream>
#include <streambuf>
#include <string>
#include <string_view>
#include <utility>

#include "xhmi/iohandler.h"
#include "zoapi/threads/lockranks.h"
#include "zoiohandler/vyrnclient/callbackgate.h"

namespace ZoIO {

template <typename Char, typename Traits = std::char_traits<Char>>
class LogBuf : public std::basic_streambuf<Char, Traits> {
 public:
  using int_type = typename Traits::int_type;

  // gate may be null. What is passed must outlive the buffer.
  LogBuf(void* context, ioLogCallback callback, std::int32_t level, CallbackGate* gate)
      : context(context), callback(callback), level(level), gate(gate) {}
  // Does not deliver what is left: that is the stream's business.
  ~LogBuf() override = default;

  // The same as writing each of the characters, but takes the lock once and not a hundred times a line.
  void Append(std::initializer_list<std::basic_string_view<Char, Traits>> parts) {
    Zo::MutexLock held(mutex);
    std::basic_string<Char, Traits> whole = std::move(text).str();
    std::size_t size = whole.size();
    for (const auto& part : parts) {
      size += part.size();
    }
    whole.reserve(size);
    for (const auto& part : parts) {
      whole += part;
    }
    text.str(std::move(whole));
  }

 protected:
  int_type overflow(int_type character) override {
    Zo::MutexLock held(mutex);
    if (Traits::eq_int_type(character, Traits::eof())) {
      return Traits::eof();
    }
    return text.sputc(Traits::to_char_type(character));
  }

  int sync() override {
    Zo::MutexLock held(mutex);
    // Taken out before the callback: one that raises must not get the line a second time.
    const std::basic_string<Char, Traits> line = std::move(text).str();
    if (!line.empty()) {
      const CallbackGate::Entry entry(gate);
      if (callback != nullptr && entry) {
        callback(context, level, line.c_str());
      }
    }
    return 0;
  }

 private:
  Zo::Mutex mutex{"LogBuf", Zo::LockRank_LogBuffer};
  void* const context;
  const ioLogCallback callback;
  const std::int32_t level;
  CallbackGate* const gate;
  std::basic_stringbuf<Char, Traits> text Q_GUARDED_BY(mutex){std::ios_base::out | std::ios_base::ate};
};

}  // namespace ZoIO
