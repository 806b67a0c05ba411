// Where the plug-in's callbacks leave what they bring, until the main thread takes it.
//
// Threads: the three callbacks run on any thread, several at once, often with locks of the plug-in held: they
// copy, wake the main thread and return; they never print and never call an export. Take… and Discard belong
// to the main thread. Owner: the session, which keeps it until its instance is destroyed and WaitUntilIdle
// has returned. Invariants: 1. updates are taken in the order in which they came; 2. memory stays below the
// limits, the oldest updates and the newest log lines make room; 3. whatever was lost is counted and handed
// out. Lock: mutex_, held for moments; nothing is called while it is held.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <vector>

#include "tools/zohost/descriptor.h"
#include "tools/zohost/value.h"
#include "xhmi/iohandler.h"

namespace zohost {

struct Update {
  std::chrono::system_clock::time_point time;
  std::string item;
  Value value;
};

struct LogLine {
  std::chrono::system_clock::time_point time;
  int level = 0;
  std::string text;
};

// What the callbacks left since the last time.
struct Delivery {
  std::deque<Update> updates;
  std::vector<LogLine> log;
  std::vector<std::string> responses;
  std::uint64_t lostUpdates = 0;
  std::uint64_t lostLogLines = 0;
};

class Inbox {
 public:
  struct Limits {
    std::size_t updates = 200'000;
    std::size_t updateBytes = 128u << 20;
    std::size_t logLines = 20'000;
  };

  Inbox() : Inbox(Limits{}) {}
  explicit Inbox(Limits limits) : limits_(limits) {}
  Inbox(const Inbox&) = delete;
  Inbox& operator=(const Inbox&) = delete;

  // The record for CreateIoInstance; it points to this object.
  ioHandlerParam Callbacks();

  Delivery Take();
  // Readable as soon as there is something to take.
  int WakeUpNumber() const { return wakeUp_.Number(); }
  // Returns when no callback is inside. After DestroyIoInstance none begins, so then it is final.
  void WaitUntilIdle();

 private:
  class Visit;
  static void OnValue(const char* itemName, const ioDataValue* value, void* context);
  static void OnResult(const void* callToken, const char* response, void* context);
  static void OnLog(void* context, int32_t level, const char* text);

  void AddUpdate(const char* itemName, const ioDataValue& value);
  void AddLogLine(int32_t level, const char* text);

  const Limits limits_;
  WakeUp wakeUp_;

  std::mutex mutex_;
  std::condition_variable idle_;
  int visitors_ = 0;              // guarded by mutex_
  Delivery pending_;              // guarded by mutex_
  std::size_t pendingBytes_ = 0;  // guarded by mutex_
};

}  // namespace zohost
