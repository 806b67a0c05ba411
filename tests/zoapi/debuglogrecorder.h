// Records the debug log instead of writing it to standard error, for as long as it lives. One at a time.
#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "zoapi/logging.h"

namespace ZoTest {

struct RecordedEntry {
  int line;
  std::string source;
  std::uint64_t flags;
  std::string function;
  std::string text;
};

class DebugLogRecorder {
 public:
  DebugLogRecorder()
      : before(Zo::Logging::SetDebugLogSink([this](const Zo::Logging::DebugLogEntry& entry) {
          const std::lock_guard guard(mutex);
          entries.push_back({entry.line, entry.source, entry.flags, entry.function, entry.text});
        })) {}
  DebugLogRecorder(const DebugLogRecorder&) = delete;
  DebugLogRecorder& operator=(const DebugLogRecorder&) = delete;
  ~DebugLogRecorder() { Zo::Logging::SetDebugLogSink(std::move(before)); }

  std::vector<RecordedEntry> Entries() const {
    const std::lock_guard guard(mutex);
    return entries;
  }

 private:
  mutable std::mutex mutex;
  std::vector<RecordedEntry> entries;  // guarded by mutex
  Zo::Logging::DebugLogSink before;
};

}  // namespace ZoTest
