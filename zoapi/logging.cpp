#include "zoapi/logging.h"

#include <cinttypes>
#include <cstdio>
#include <memory>
#include <utility>

#include "zoapi/threads/lockranks.h"

namespace Zo::Logging {

namespace {

// Unranked: faults are reported under locks of every rank, and nothing is entered under this one.
constinit Mutex logMutex{"Zo debug log", LockRank_None};

// Never destroyed, so that static destructors can still report.
constinit DebugLogSink* logSink Q_GUARDED_BY(logMutex) = nullptr;

const char* OrEmpty(const char* text) {
  return text != nullptr ? text : "";
}

void WriteToStandardError(const DebugLogEntry& entry) {
  std::fprintf(stderr, "[%s](%s:%d) %s (flags 0x%" PRIx64 ")\n", entry.function, entry.source, entry.line,
               entry.text, entry.flags);
}

}  // namespace

void Zo_Debug_Log(int line, const char* source, std::uint64_t flags, const char* function,
                  const char* text) noexcept {
  const DebugLogEntry entry{line, OrEmpty(source), flags, OrEmpty(function), OrEmpty(text)};
  const MutexLock lock(logMutex);
  if (logSink != nullptr) {
    try {
      (*logSink)(entry);
      return;
    } catch (...) {
      // Whatever a sink throws, nobody above could take it: faults are reported from destructors. The entry
      // goes to standard error instead.
    }
  }
  WriteToStandardError(entry);
}

DebugLogSink SetDebugLogSink(DebugLogSink sink) {
  auto replacement = sink ? std::make_unique<DebugLogSink>(std::move(sink)) : nullptr;
  {
    const MutexLock lock(logMutex);
    replacement.reset(std::exchange(logSink, replacement.release()));
  }
  return replacement ? std::move(*replacement) : DebugLogSink{};
}

}  // namespace Zo::Logging
