#include "tools/zohost/inbox.h"

#include <utility>

namespace zohost {
namespace {

std::size_t Footprint(const Update& update) {
  return sizeof(Update) + update.item.capacity() + update.value.Footprint();
}

}  // namespace

// Counts a callback in and out, so that the plug-in is never unloaded under a running one.
class Inbox::Visit {
 public:
  explicit Visit(void* context) : inbox_(*static_cast<Inbox*>(context)) {
    const std::lock_guard lock(inbox_.mutex_);
    ++inbox_.visitors_;
  }
  Visit(const Visit&) = delete;
  Visit& operator=(const Visit&) = delete;
  ~Visit() {
    inbox_.wakeUp_.Set();
    const std::lock_guard lock(inbox_.mutex_);
    if (--inbox_.visitors_ == 0) {
      inbox_.idle_.notify_all();
    }
  }
  Inbox* operator->() const { return &inbox_; }

 private:
  Inbox& inbox_;
};

ioHandlerParam Inbox::Callbacks() {
  ioHandlerParam param = {};
  param.context = this;
  param.itemValue = &Inbox::OnValue;
  param.methodResult = &Inbox::OnResult;
  param.log = &Inbox::OnLog;
  return param;
}

Delivery Inbox::Take() {
  wakeUp_.Clear();  // first: what comes from here on sets it again
  Delivery taken;
  const std::lock_guard lock(mutex_);
  std::swap(taken, pending_);
  pendingBytes_ = 0;
  return taken;
}

void Inbox::WaitUntilIdle() {
  std::unique_lock lock(mutex_);
  idle_.wait(lock, [this] { return visitors_ == 0; });
}

// No exception may reach the plug-in. The only one here is a lack of memory, and then the update is lost and
// counted.
void Inbox::OnValue(const char* itemName, const ioDataValue* value, void* context) {
  const Visit inbox(context);
  try {
    if (itemName != nullptr && value != nullptr) {
      inbox->AddUpdate(itemName, *value);
    }
  } catch (const std::exception&) {
    const std::lock_guard lock(inbox->mutex_);
    ++inbox->pending_.lostUpdates;
  }
}

void Inbox::OnResult(const void* callToken, const char* response, void* context) {
  (void)callToken;  // a session has one call at a time
  const Visit inbox(context);
  try {
    std::string text(response == nullptr ? "" : response);
    const std::lock_guard lock(inbox->mutex_);
    inbox->pending_.responses.push_back(std::move(text));
  } catch (const std::exception&) {
    // The call then has no response, and is reported so.
  }
}

void Inbox::OnLog(void* context, int32_t level, const char* text) {
  const Visit inbox(context);
  try {
    inbox->AddLogLine(level, text);
  } catch (const std::exception&) {
    const std::lock_guard lock(inbox->mutex_);
    ++inbox->pending_.lostLogLines;
  }
}

void Inbox::AddUpdate(const char* itemName, const ioDataValue& value) {
  Update update{std::chrono::system_clock::now(), itemName, Value::FromRecord(value)};
  const std::size_t bytes = Footprint(update);
  std::deque<Update> leaving;  // freed after the lock is given back
  const std::lock_guard lock(mutex_);
  std::deque<Update>& updates = pending_.updates;
  while (!updates.empty() &&
         (updates.size() >= limits_.updates || pendingBytes_ + bytes > limits_.updateBytes)) {
    pendingBytes_ -= Footprint(updates.front());
    leaving.push_back(std::move(updates.front()));
    updates.pop_front();
    ++pending_.lostUpdates;
  }
  updates.push_back(std::move(update));
  pendingBytes_ += bytes;
}

void Inbox::AddLogLine(int32_t level, const char* text) {
  LogLine line{std::chrono::system_clock::now(), level, text == nullptr ? "" : text};
  const std::lock_guard lock(mutex_);
  if (pending_.log.size() >= limits_.logLines) {
    ++pending_.lostLogLines;
    return;
  }
  pending_.log.push_back(std::move(line));
}

}  // namespace zohost
