#include "tools/zosensor/watchindex.h"

#include <algorithm>
#include <functional>
#include <utility>

namespace ZoSensor {

bool WatchIndex::Subscribe(Watcher& watcher, const std::string& text, const Pattern& pattern) {
  if (!holdings[&watcher].subscriptions.emplace(text, pattern).second) {
    return false;
  }
  (pattern.subtree ? subtrees : exact)[pattern.path].push_back({&watcher, pattern.slash});
  return true;
}

bool WatchIndex::Unsubscribe(Watcher& watcher, const std::string& text) {
  auto& held = holdings[&watcher].subscriptions;
  const auto found = held.find(text);
  if (found == held.end()) {
    return false;
  }
  const Pattern pattern = std::move(found->second);
  held.erase(found);
  Erase(pattern.subtree ? subtrees : exact, pattern.path, {&watcher, pattern.slash});
  return true;
}

bool WatchIndex::StartStream(Watcher& watcher, const Uri& uri) {
  if (!holdings[&watcher].streams.emplace(Spell(uri.path, uri.slash), uri).second) {
    return false;
  }
  streams[uri.path].push_back({&watcher, uri.slash});
  return true;
}

bool WatchIndex::StopStream(Watcher& watcher, const Uri& uri) {
  if (holdings[&watcher].streams.erase(Spell(uri.path, uri.slash)) == 0) {
    return false;
  }
  Erase(streams, uri.path, {&watcher, uri.slash});
  return true;
}

bool WatchIndex::HasStream(const Watcher& watcher, const Uri& uri) const {
  const auto found = holdings.find(&watcher);
  return found != holdings.end() && found->second.streams.contains(Spell(uri.path, uri.slash));
}

void WatchIndex::EndStreams(std::string_view path) {
  const auto found = streams.find(std::string(path));
  if (found == streams.end()) {
    return;
  }
  for (const Interest& interest : found->second) {
    holdings[interest.watcher].streams.erase(Spell(path, interest.slash));
  }
  streams.erase(found);
}

void WatchIndex::Leave(Watcher& watcher) {
  const auto found = holdings.find(&watcher);
  if (found == holdings.end()) {
    return;
  }
  for (const auto& [text, pattern] : found->second.subscriptions) {
    Erase(pattern.subtree ? subtrees : exact, pattern.path, {&watcher, pattern.slash});
  }
  for (const auto& [spelled, uri] : found->second.streams) {
    Erase(streams, uri.path, {&watcher, uri.slash});
  }
  holdings.erase(found);
}

std::vector<Interest> WatchIndex::Subscribers(std::string_view path) const {
  std::vector<Interest> found;
  VisitMatching(path, [&](const std::vector<Interest>& interests) {
    found.insert(found.end(), interests.begin(), interests.end());
  });
  const auto order = [](const Interest& a, const Interest& b) {
    return a.watcher == b.watcher ? a.slash < b.slash : std::less<>()(a.watcher, b.watcher);
  };
  std::sort(found.begin(), found.end(), order);
  found.erase(std::unique(found.begin(), found.end()), found.end());
  return found;
}

const std::vector<Interest>* WatchIndex::Streamers(const std::string& path) const {
  const auto found = streams.find(path);
  return found == streams.end() ? nullptr : &found->second;
}

bool WatchIndex::HasWatchers(const std::string& path) const {
  bool any = Streamers(path) != nullptr;
  if (!any) {
    VisitMatching(path, [&](const std::vector<Interest>&) { any = true; });
  }
  return any;
}

std::size_t WatchIndex::Count(const Watcher& watcher) const {
  const auto found = holdings.find(&watcher);
  return found == holdings.end() ? 0 : found->second.subscriptions.size() + found->second.streams.size();
}

void WatchIndex::Erase(Interests& interests, const std::string& path, const Interest& interest) {
  const auto found = interests.find(path);
  auto& list = found->second;
  // One entry only: "*" and "/*" of one watcher are two equal entries.
  list.erase(std::find(list.begin(), list.end(), interest));
  if (list.empty()) {
    interests.erase(found);
  }
}

template <typename Visit>
void WatchIndex::VisitMatching(std::string_view path, Visit visit) const {
  if (const auto found = exact.find(std::string(path)); found != exact.end()) {
    visit(found->second);
  }
  if (subtrees.empty()) {
    return;
  }
  std::string top(path);
  while (true) {
    if (const auto found = subtrees.find(top); found != subtrees.end()) {
      visit(found->second);
    }
    if (top.empty()) {
      return;
    }
    top.resize(top.rfind('/'));
  }
}

}  // namespace ZoSensor
