// Who wants to hear of which resource. Finding the watchers of a change costs the depth of its path and the
// number of watchers found, however many clients, patterns and streams there are.
//
// Threads: the I/O thread alone. Owner: the sensor. Watchers are borrowed: they leave before they die.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "tools/zosensor/answer.h"
#include "tools/zosensor/uri.h"

namespace ZoSensor {

enum class PushKind { Stream, Notification };

// A session, as the sensor sees it.
class Watcher {
 public:
  virtual ~Watcher() = default;
  // uri: in the watcher's spelling; text: the whole message. Must not call the sensor.
  virtual void Push(PushKind kind, const std::string& uri, const SharedText& text, Time now) = 0;
};

// A watcher and the spelling in which it asked.
struct Interest {
  Watcher* watcher;
  bool slash;

  friend bool operator==(const Interest&, const Interest&) = default;
};

class WatchIndex {
 public:
  // False when the watcher has that subscription or stream already (or, for the ends, has it not).
  bool Subscribe(Watcher& watcher, const std::string& text, const Pattern& pattern);
  bool Unsubscribe(Watcher& watcher, const std::string& text);
  bool StartStream(Watcher& watcher, const Uri& uri);
  bool StopStream(Watcher& watcher, const Uri& uri);
  bool HasStream(const Watcher& watcher, const Uri& uri) const;
  // Ends every stream of a resource.
  void EndStreams(std::string_view path);
  void Leave(Watcher& watcher);

  // Each watcher at most once for each spelling, also when several of its patterns match.
  std::vector<Interest> Subscribers(std::string_view path) const;
  const std::vector<Interest>* Streamers(const std::string& path) const;
  bool HasWatchers(const std::string& path) const;
  // Streams and subscriptions of one watcher.
  std::size_t Count(const Watcher& watcher) const;

 private:
  using Interests = std::unordered_map<std::string, std::vector<Interest>>;
  struct Holdings {
    std::unordered_map<std::string, Pattern> subscriptions;  // by the text that was asked
    std::unordered_map<std::string, Uri> streams;            // by the spelled URI
  };

  static void Erase(Interests& interests, const std::string& path, const Interest& interest);
  template <typename Visit>
  void VisitMatching(std::string_view path, Visit visit) const;

  Interests exact, subtrees, streams;
  std::unordered_map<const Watcher*, Holdings> holdings;
};

}  // namespace ZoSensor
