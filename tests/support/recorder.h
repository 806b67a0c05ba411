// A host that only listens: its record of callbacks keeps a copy of everything that arrives, in order of
// arrival.
//
// Threads: the callbacks may come from any number of threads at once; every operation may be called from any
// thread. The recorder must outlive every callback that was made with its Param().
// Invariants: an entry is complete and in the list before its hook runs; a hook runs without the recorder's
// lock, on the thread of the callback, so that a test can block in it or look at the recorder from it.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/deadline.h"
#include "xhmi/iohandler.h"

namespace ZoTest {

// One callback as it came.
struct Entry {
  enum class Kind : std::uint8_t { Value, Result, Log };

  Kind kind = Kind::Log;
  std::uint64_t thread = 0;  // the operating system's number of the calling thread
  Clock::time_point time;
  std::size_t index = 0;  // 0 for the first entry since the start or the last Clear

  // Value
  std::string item;
  ioDataValue value{};           // as it came, except that a pointer in it is replaced by null
  const void* record = nullptr;  // where the record lay, not to be followed
  std::string valueText;         // the text of kinds 0 and 5

  // Result
  const void* token = nullptr;
  std::string response;

  // Log
  int level = 0;
  std::string text;        // the whole line
  std::string function;    // what stands in the square brackets
  std::string threadText;  // what stands in the parentheses
  std::string message;     // what follows, without the final newline; the whole text if it has another form

  bool IsValue(std::string_view name) const { return kind == Kind::Value && item == name; }
  bool IsLog(std::string_view text_) const { return kind == Kind::Log && message == text_; }
};

class Recorder {
 public:
  using Entries = std::vector<Entry>;
  using Predicate = std::function<bool(const Entries&)>;
  using Matcher = std::function<bool(const Entry&)>;
  using Hook = std::function<void(const Entry&)>;

  Recorder() = default;
  Recorder(const Recorder&) = delete;
  Recorder& operator=(const Recorder&) = delete;

  // A record whose context is this recorder. Words that the plug-in has no use for are filled with a pattern.
  ioHandlerParam Param();

  // True once predicate holds; it is evaluated under the lock, at once and after every entry. False at the
  // limit.
  bool WaitFor(const Predicate& predicate, Clock::duration limit = kLimit) const;
  // True once count entries have matched; looks at every entry once.
  bool WaitForEntry(const Matcher& matcher, std::size_t count = 1, Clock::duration limit = kLimit) const;
  bool WaitForValue(std::string_view item, std::size_t count = 1, Clock::duration limit = kLimit) const;
  bool WaitForMessage(std::string_view message, std::size_t count = 1, Clock::duration limit = kLimit) const;

  Entries All() const;
  std::size_t Size() const;
  std::size_t Count(const Matcher& matcher) const;
  std::size_t CountValues(std::string_view item) const;
  std::size_t CountMessages(std::string_view message) const;
  Entries Values(std::string_view item) const;
  Entries Results() const;
  Entries Logs() const;
  // "level function: message" of every log line, in order.
  std::vector<std::string> LogLines() const;
  void Clear();

  // Replace the hook of one kind of callback; an empty function removes it. A hook that runs meanwhile is not
  // waited for.
  void OnValue(Hook hook) { SetHook(Entry::Kind::Value, std::move(hook)); }
  void OnResult(Hook hook) { SetHook(Entry::Kind::Result, std::move(hook)); }
  void OnLog(Hook hook) { SetHook(Entry::Kind::Log, std::move(hook)); }

  // The callbacks themselves, for tests that build a record of their own. context is the recorder.
  static void HandleValue(const char* itemName, const ioDataValue* value, void* context);
  static void HandleResult(const void* callToken, const char* response, void* context);
  static void HandleLog(void* context, std::int32_t level, const char* text);

 private:
  void SetHook(Entry::Kind kind, Hook hook);
  void Record(Entry entry);

  mutable std::mutex mutex;
  mutable std::condition_variable arrived;
  Entries entries;                       // guarded by mutex
  std::shared_ptr<const Hook> hooks[3];  // guarded by mutex, by kind
};

// "level function: message".
std::string LogLine(int level, std::string_view function, std::string_view message);

// A door that hooks wait at until a test opens it. Opening it again, or destroying it while nobody waits, is
// fine.
class Gate {
 public:
  void Open();
  bool IsOpen() const;
  // Notes the arrival, then waits until the gate is open. False at the limit.
  bool Wait(Clock::duration limit = std::chrono::seconds(120));
  // True once count threads have come to the gate.
  bool WaitForArrivals(std::size_t count = 1, Clock::duration limit = kLimit) const;
  // True once nobody stands at the gate.
  bool WaitUntilEmpty(Clock::duration limit = kLimit) const;

 private:
  mutable std::mutex mutex;
  mutable std::condition_variable changed;
  bool open = false;  // guarded by mutex, like the two below
  std::size_t arrivals = 0;
  std::size_t waiting = 0;
};

}  // namespace ZoTest
