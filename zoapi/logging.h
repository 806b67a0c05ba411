// The helper library's own debug log: for faults that have no other way out, such as a lock that cannot be
// left.
#pragma once

#include <cstdint>
#include <functional>

namespace Zo::Logging {

// One entry. flags are the log's own (0x8000000000000002 marks a fault in a destructor). Goes to stderr as
// one line unless a sink is set. Never raises. Any thread.
void Zo_Debug_Log(int line, const char* source, std::uint64_t flags, const char* function,
                  const char* text) noexcept;

struct DebugLogEntry {
  int line;
  const char* source;
  std::uint64_t flags;
  const char* function;
  const char* text;
};

// Replaces stderr by sink (empty: stderr again) and returns the old one. The sink is called under the log's
// own lock: it must not log. For tests and for hosts that link the library statically.
using DebugLogSink = std::function<void(const DebugLogEntry&)>;
DebugLogSink SetDebugLogSink(DebugLogSink sink);

}  // namespace Zo::Logging
