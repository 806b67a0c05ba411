// The sensor itself, without any socket: its resources, the nine verbs, and what it pushes.
//
// Every operation is told the time, and Step does whatever is due by then: tests choose the clock.
// Threads: the I/O thread alone. Owns: resources, watch index, schedule. Borrows: watchers, until they Leave.
// Invariants: (1) a watched resource that needs ticks is in the schedule whenever it may tick; (2) a change
// is notified in the operation that makes it, once for each watcher and spelling; but for the list of all
// resources, which Step notifies, and seldom: when thousands appear at once, each list names them all.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <variant>
#include <vector>

#include "tools/zosensor/answer.h"
#include "tools/zosensor/clock.h"
#include "tools/zosensor/limits.h"
#include "tools/zosensor/schedule.h"
#include "tools/zosensor/store.h"
#include "tools/zosensor/watchindex.h"

namespace ZoSensor {

// A resource and when it exists, counted from the start of the emulator.
struct PlannedResource {
  std::shared_ptr<Resource> resource;
  Duration appears{};
  std::optional<Duration> vanishes;
};

struct SensorDescription {
  std::string name = "zosensor";
  bool running = true;
  std::vector<PlannedResource> resources;
};

class Sensor {
 public:
  Sensor(SensorDescription description, const Limits& limits, std::uint64_t seed, Time now);

  Answer Read(const std::string& path, Time now);
  Answer Create(const std::string& path, ZoJson content, Time now);
  Answer Update(const std::string& path, const ZoJson& patch, Time now);
  Answer Delete(const std::string& path, Time now);
  Answer Call(const std::string& path, const ZoJson& argument, Time now);

  // A watcher's streams and subscriptions; text is the URI or pattern as it was asked. First contents are
  // pushed before these return.
  Answer Subscribe(Watcher& watcher, const std::string& text, Time now);
  Answer Unsubscribe(Watcher& watcher, const std::string& text);
  Answer StartStream(Watcher& watcher, const std::string& text, Time now);
  Answer StopStream(Watcher& watcher, const std::string& text);
  void Leave(Watcher& watcher);

  // Lets happen at that time what the answer of a slow call leaves to be done.
  void CompleteAt(Time due, Answer& answer);

  // Samples, pushes, appearances and disappearances that are due.
  void Step(Time now);
  Time NextDue() const;

  bool Running() const { return running; }
  std::size_t ResourceCount() const { return store.Size(); }

  // For those who add resources of their own to every sensor.
  void AddPermanent(const std::shared_ptr<Resource>& resource, Time now);
  // Puts a content in place and notifies of the change.
  void Overwrite(const std::string& path, ZoJson content, Time now);
  // Asked whenever acquisition shall start, also while it runs; a sentence refuses.
  std::function<std::optional<std::string>()> startObjection;

 private:
  void AddSystemResources(Time now);
  Answer SetRunning(bool run, Time now);
  void Insert(const std::shared_ptr<Resource>& resource, Time now);
  void Take(const std::string& path, Time now);
  void NotifyDirectoryLater(Time now);
  void NotifyDirectory(Time now);
  using Patches = std::vector<std::pair<std::string, ZoJson>>;
  Answer Behave(const Resource& method, const ZoJson& argument, Time now);
  // The contents that patches make, or why they cannot be made.
  std::variant<std::map<std::string, ZoJson>, Answer> MergeAll(const Patches& patches);
  void RefreshAll(const Patches& patches, Time now);
  void ChangeAll(std::map<std::string, ZoJson>&& contents, Time now);

  Answer TooManyWatches() const;
  // Why a text may not become the content of a resource, or the result of a call, if it may not.
  // held: what the resource holds now; one that has too many values already, from its file, stays writable.
  std::optional<Answer> RefuseSize(const std::string& path, std::string_view text,
                                   std::string_view held = {}) const;

  // Brings a content up to now; Refresh also notifies of the change.
  bool Resample(Resource& resource, Time now);
  void Refresh(Resource& resource, Time now);
  void RefreshFollowers(const std::string& path, Time now);
  // text: the content's, when it has been printed already.
  void Change(Resource& resource, ZoJson content, Time now, SharedText text = nullptr);
  void Notify(Resource& resource, const SharedText& payload, Time now);
  void PushStreams(Resource& resource, Time now);
  void Tick(const std::shared_ptr<Resource>& resource, Time now);
  void ScheduleIfWatched(const std::shared_ptr<Resource>& resource, Time now);
  Duration Acquired(Time now) const;
  std::optional<double> Lookup(const std::string& path, const ZoJsonPointer& at);

  const Limits& limits;
  const std::string name;
  const std::uint64_t seed;
  const Time born;
  ResourceStore store;
  WatchIndex watches;
  Schedule schedule;
  std::multimap<Time, std::function<void(Time)>> lifeEvents;
  Time directoryDue = Never;
  Time directoryNotified{};
  std::size_t pendingCalls = 0;                                                     // among the life events
  std::unordered_map<std::string, std::vector<std::weak_ptr<Resource>>> followers;  // by the path they follow
  const std::function<std::optional<double>(const std::string&, const ZoJsonPointer&)> lookup;
  Time sampledAt{};     // the moment of the sample that is being made
  int lookupDepth = 0;  // of samples that wait for those that they follow
  bool running = false;
  Time runningSince;
  Duration acquiredBefore{};
};

}  // namespace ZoSensor
