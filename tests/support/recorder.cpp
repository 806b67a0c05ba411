#include "tests/support/recorder.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

namespace ZoTest {
namespace {

Entry NewEntry(Entry::Kind kind) {
  Entry entry;
  entry.kind = kind;
  entry.thread = static_cast<std::uint64_t>(::syscall(SYS_gettid));
  entry.time = Clock::now();
  return entry;
}

// Takes "[function](thread)message\n" apart. A line of another form stays whole in message.
void Dissect(Entry& entry) {
  const std::string& text = entry.text;
  entry.message = text;
  const auto functionEnd = text.find("](");
  if (text.empty() || text.front() != '[' || text.back() != '\n' || functionEnd == std::string::npos) {
    return;
  }
  const auto threadEnd = text.find(')', functionEnd);
  if (threadEnd == std::string::npos) {
    return;
  }
  entry.function = text.substr(1, functionEnd - 1);
  entry.threadText = text.substr(functionEnd + 2, threadEnd - functionEnd - 2);
  entry.message = text.substr(threadEnd + 1, text.size() - threadEnd - 2);
}

}  // namespace

ioHandlerParam Recorder::Param() {
  ioHandlerParam param{};
  param.reserved0 = 0xA5A5A5A5A5A5A5A5u;
  std::fill(std::begin(param.reserved4), std::end(param.reserved4), 0xA5A5A5A5A5A5A5A5u);
  param.reserved16 = 0xA5A5A5A5A5A5A5A5u;
  param.context = this;
  param.itemValue = &Recorder::HandleValue;
  param.methodResult = &Recorder::HandleResult;
  param.log = &Recorder::HandleLog;
  return param;
}

bool Recorder::WaitFor(const Predicate& predicate, Clock::duration limit) const {
  std::unique_lock lock(mutex);
  return arrived.wait_until(lock, Clock::now() + limit, [&] { return predicate(entries); });
}

bool Recorder::WaitForEntry(const Matcher& matcher, std::size_t count, Clock::duration limit) const {
  std::size_t seen = 0;
  std::size_t matched = 0;
  return WaitFor(
      [&](const Entries& all) {
        if (all.size() < seen) {  // cleared meanwhile
          seen = 0;
          matched = 0;
        }
        for (; seen < all.size(); ++seen) {
          matched += matcher(all[seen]) ? 1 : 0;
        }
        return matched >= count;
      },
      limit);
}

bool Recorder::WaitForValue(std::string_view item, std::size_t count, Clock::duration limit) const {
  return WaitForEntry([item](const Entry& entry) { return entry.IsValue(item); }, count, limit);
}

bool Recorder::WaitForMessage(std::string_view message, std::size_t count, Clock::duration limit) const {
  return WaitForEntry([message](const Entry& entry) { return entry.IsLog(message); }, count, limit);
}

Recorder::Entries Recorder::All() const {
  std::lock_guard lock(mutex);
  return entries;
}

std::size_t Recorder::Size() const {
  std::lock_guard lock(mutex);
  return entries.size();
}

std::size_t Recorder::Count(const Matcher& matcher) const {
  std::lock_guard lock(mutex);
  return static_cast<std::size_t>(std::count_if(entries.begin(), entries.end(), matcher));
}

std::size_t Recorder::CountValues(std::string_view item) const {
  return Count([item](const Entry& entry) { return entry.IsValue(item); });
}

std::size_t Recorder::CountMessages(std::string_view message) const {
  return Count([message](const Entry& entry) { return entry.IsLog(message); });
}

Recorder::Entries Recorder::Values(std::string_view item) const {
  std::lock_guard lock(mutex);
  Entries found;
  std::copy_if(entries.begin(), entries.end(), std::back_inserter(found),
               [item](const Entry& entry) { return entry.IsValue(item); });
  return found;
}

Recorder::Entries Recorder::Results() const {
  std::lock_guard lock(mutex);
  Entries found;
  std::copy_if(entries.begin(), entries.end(), std::back_inserter(found),
               [](const Entry& entry) { return entry.kind == Entry::Kind::Result; });
  return found;
}

Recorder::Entries Recorder::Logs() const {
  std::lock_guard lock(mutex);
  Entries found;
  std::copy_if(entries.begin(), entries.end(), std::back_inserter(found),
               [](const Entry& entry) { return entry.kind == Entry::Kind::Log; });
  return found;
}

std::vector<std::string> Recorder::LogLines() const {
  std::vector<std::string> lines;
  for (const Entry& entry : Logs()) {
    lines.push_back(LogLine(entry.level, entry.function, entry.message));
  }
  return lines;
}

void Recorder::Clear() {
  std::lock_guard lock(mutex);
  entries.clear();
}

void Recorder::SetHook(Entry::Kind kind, Hook hook) {
  std::shared_ptr<const Hook> made = hook ? std::make_shared<const Hook>(std::move(hook)) : nullptr;
  std::lock_guard lock(mutex);
  hooks[static_cast<std::size_t>(kind)].swap(made);
}

void Recorder::Record(Entry entry) {
  std::shared_ptr<const Hook> hook;
  {
    std::lock_guard lock(mutex);
    hook = hooks[static_cast<std::size_t>(entry.kind)];
    entry.index = entries.size();
    if (hook) {
      entries.push_back(entry);
    } else {
      entries.push_back(std::move(entry));
    }
    // Under the lock: a waiter may destroy the recorder as soon as it has seen the last entry.
    arrived.notify_all();
  }
  if (hook) {
    (*hook)(entry);
  }
}

void Recorder::HandleValue(const char* itemName, const ioDataValue* value, void* context) {
  Entry entry = NewEntry(Entry::Kind::Value);
  entry.item = itemName;
  entry.value = *value;
  entry.record = value;
  if (value->type == enumtype_string || value->type == enumtype_invalid) {
    entry.valueText = value->value.text;
    entry.value.value.text = nullptr;
  }
  static_cast<Recorder*>(context)->Record(std::move(entry));
}

void Recorder::HandleResult(const void* callToken, const char* response, void* context) {
  Entry entry = NewEntry(Entry::Kind::Result);
  entry.token = callToken;
  entry.response = response;
  static_cast<Recorder*>(context)->Record(std::move(entry));
}

void Recorder::HandleLog(void* context, std::int32_t level, const char* text) {
  Entry entry = NewEntry(Entry::Kind::Log);
  entry.level = level;
  entry.text = text;
  Dissect(entry);
  static_cast<Recorder*>(context)->Record(std::move(entry));
}

std::string LogLine(int level, std::string_view function, std::string_view message) {
  return std::to_string(level) + " " + std::string(function) + ": " + std::string(message);
}

void Gate::Open() {
  std::lock_guard lock(mutex);
  open = true;
  changed.notify_all();
}

bool Gate::IsOpen() const {
  std::lock_guard lock(mutex);
  return open;
}

bool Gate::Wait(Clock::duration limit) {
  std::unique_lock lock(mutex);
  ++arrivals;
  ++waiting;
  changed.notify_all();
  const bool opened = changed.wait_until(lock, Clock::now() + limit, [this] { return open; });
  --waiting;
  changed.notify_all();
  return opened;
}

bool Gate::WaitForArrivals(std::size_t count, Clock::duration limit) const {
  std::unique_lock lock(mutex);
  return changed.wait_until(lock, Clock::now() + limit, [this, count] { return arrivals >= count; });
}

bool Gate::WaitUntilEmpty(Clock::duration limit) const {
  std::unique_lock lock(mutex);
  return changed.wait_until(lock, Clock::now() + limit, [this] { return waiting == 0; });
}

}  // namespace ZoTest
