#include "zovyrnsdk/link/requesttable.h"

#include <algorithm>
#include <utility>

#include "zovyrnsdk/link/limits.h"
#include "zovyrnsdk/link/outgoing.h"

namespace ZoSdk {

namespace {

constexpr std::chrono::seconds forgottenAfter{60};  // sent requests whose transactions are gone

bool IsStale(const RequestTable::Entry& entry, Time now) {
  if (entry.role != RequestRole::Caller) {
    return now >= entry.since + requestPatience;
  }
  const std::shared_ptr<ZoPendingRequest> pending = entry.pending.lock();
  if (entry.sent) {
    return (!pending || pending->Settled()) && now >= entry.since + forgottenAfter;
  }
  return !entry.ends && (!pending || pending->waiters == 0) && now >= entry.since + requestPatience;
}

}  // namespace

std::uint64_t RequestTable::Add(Entry entry) {
  const std::uint64_t id = lastId + 1;
  // The queue forgets ids that are gone, so that an outage does not make it grow.
  if (queue.size() > 2 * unsent + 64) {
    std::erase_if(queue, [&](std::uint64_t queued) { return !entries.contains(queued); });
  }
  lastId = id;  // first: whatever fails below, the id is not used again
  queue.push_back(id);
  const bool restore = entry.role == RequestRole::Restore;
  entries.emplace(id, std::move(entry));  // the queue skips an id that has no entry
  ++unsent;
  restoring += restore ? 1 : 0;
  return id;
}

std::optional<std::string> RequestTable::NextMessage(Time now) {
  while (!queue.empty()) {
    const std::uint64_t id = queue.front();
    const auto found = entries.find(id);
    if (found == entries.end()) {
      queue.pop_front();
      continue;
    }
    Entry& entry = found->second;
    std::string message = FinishRequest(id, entry.tail);
    queue.pop_front();
    std::string().swap(entry.tail);
    entry.sent = true;
    entry.since = now;
    --unsent;
    return message;
  }
  return std::nullopt;
}

std::optional<RequestTable::Entry> RequestTable::Take(std::uint64_t id) {
  const auto found = entries.find(id);
  if (found == entries.end()) {
    return std::nullopt;
  }
  Entry entry = std::move(found->second);
  entries.erase(found);
  NoteGone(entry);
  return entry;
}

void RequestTable::MarkEnds(std::uint64_t id) {
  if (const auto found = entries.find(id); found != entries.end()) {
    found->second.ends = true;
  }
}

const RequestTable::Entry* RequestTable::Find(std::uint64_t id) const {
  const auto found = entries.find(id);
  return found == entries.end() ? nullptr : &found->second;
}

std::vector<RequestTable::Entry> RequestTable::TakeSessionBound() {
  return TakeIf(
      [](const Entry& entry) { return entry.sent || entry.ends || entry.role != RequestRole::Caller; });
}

std::vector<RequestTable::Entry> RequestTable::TakeStale(Time now) {
  return TakeIf([&](const Entry& entry) { return IsStale(entry, now); });
}

std::size_t RequestTable::Count(RequestRole role) const {
  if (role == RequestRole::Restore) {
    return restoring;
  }
  return static_cast<std::size_t>(std::count_if(
      entries.begin(), entries.end(), [&](const auto& entry) { return entry.second.role == role; }));
}

void RequestTable::Supersede(ZoRequestMethod method, const std::string& uri) {
  for (auto& [id, entry] : entries) {
    if (entry.role == RequestRole::Caller && entry.method == method && entry.uri == uri) {
      entry.superseded = true;
    }
  }
}

bool RequestTable::Has(ZoRequestMethod method, const std::string& uri) const {
  return std::any_of(entries.begin(), entries.end(), [&](const auto& entry) {
    return entry.second.role == RequestRole::Caller && entry.second.method == method &&
           entry.second.uri == uri && !entry.second.superseded;
  });
}

template <typename Predicate>
std::vector<RequestTable::Entry> RequestTable::TakeIf(Predicate predicate) {
  std::vector<Entry> taken;
  // First, so that nothing is lost halfway for want of memory.
  taken.reserve(static_cast<std::size_t>(std::count_if(
      entries.begin(), entries.end(), [&](const auto& entry) { return predicate(entry.second); })));
  for (auto it = entries.begin(); it != entries.end();) {
    if (predicate(it->second)) {
      taken.push_back(std::move(it->second));
      it = entries.erase(it);
      NoteGone(taken.back());
    } else {
      ++it;
    }
  }
  return taken;
}

void RequestTable::NoteGone(const Entry& entry) {
  unsent -= entry.sent ? 0 : 1;
  restoring -= entry.role == RequestRole::Restore ? 1 : 0;
}

}  // namespace ZoSdk
