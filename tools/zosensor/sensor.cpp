#include "tools/zosensor/sensor.h"

#include <algorithm>
#include <utility>

#include <fmt/format.h>

#include "tools/zosensor/jsonvalues.h"

namespace ZoSensor {
namespace {

constexpr const char* Root = "/";
constexpr const char* System = "/system";
// Between two notifications of the list of all resources.
constexpr Duration DirectorySpacing = std::chrono::milliseconds(100);
// How long a chain of resources that follow each other is brought up to date in one go.
constexpr int DeepestLookup = 100;

}  // namespace

Sensor::Sensor(SensorDescription description, const Limits& sensorLimits, std::uint64_t waveSeed, Time now)
    : limits(sensorLimits),
      name(std::move(description.name)),
      seed(waveSeed),
      born(now),
      lookup([this](const std::string& path, const ZoJsonPointer& at) { return Lookup(path, at); }),
      running(description.running),
      runningSince(now) {
  AddSystemResources(now);
  for (PlannedResource& planned : description.resources) {
    const std::shared_ptr<Resource> resource = std::move(planned.resource);
    if (planned.appears == Duration::zero()) {
      Insert(resource, now);
    } else {
      lifeEvents.emplace(now + planned.appears, [this, resource](Time then) {
        if (store.Find(resource->Path()) == nullptr) {
          Insert(resource, then);
        }
      });
    }
    if (planned.vanishes) {
      lifeEvents.emplace(now + *planned.vanishes, [this, resource](Time then) {
        if (store.Find(resource->Path()) == resource) {  // a client may have put another in its place
          Take(resource->Path(), then);
        }
      });
    }
  }
}

void Sensor::AddSystemResources(Time now) {
  auto root = std::make_shared<Resource>(Root, ZoJson());
  root->produce = [this](Time) { return store.Directory(); };
  root->streamable = false;
  AddPermanent(root, now);

  auto system = std::make_shared<Resource>(System, ZoJson());
  system->period = std::chrono::seconds(1);
  system->produce = [this](Time then) {
    ZoJson state = ZoJson::EmptyObject();
    state.Set("state", running ? 1 : 0);
    state.Set("name", name);
    state.Set("version", ZOSENSOR_VERSION);
    state.Set("uptime_ms", std::chrono::duration_cast<std::chrono::milliseconds>(then - born).count());
    return state;
  };
  AddPermanent(system, now);

  for (const bool run : {true, false}) {
    auto method = std::make_shared<Resource>(run ? "/system/start" : "/system/stop", ZoJson());
    method->hasContent = false;
    method->callHook = [this, run](const ZoJson&, Time then) { return SetRunning(run, then); };
    AddPermanent(method, now);
  }
}

Answer Sensor::SetRunning(bool run, Time now) {
  if (run && startObjection) {
    if (auto objection = startObjection()) {
      return Answer::Failure(Status::Busy, *std::move(objection));
    }
  }
  if (run != running) {
    acquiredBefore = Acquired(now);
    runningSince = now;
    running = run;
    const auto system = store.Find(System);
    Refresh(*system, now);
    Notify(*system, system->Text(), now);
    if (running) {
      for (const auto& resource : store.Matching({"", true, true})) {
        ScheduleIfWatched(resource, now);
      }
    }
  }
  ZoJson result = ZoJson::EmptyObject();
  result.Set("state", running ? 1 : 0);
  return Answer::Success(result);
}

Answer Sensor::Read(const std::string& path, Time now) {
  const auto resource = store.Find(path);
  if (resource == nullptr) {
    return Answer::NoResource(path);
  }
  if (!resource->hasContent) {
    return Answer::Failure(Status::NotFound, fmt::format("{} is a method and has no content", path));
  }
  Refresh(*resource, now);
  return Answer::Success(resource->Text());
}

Answer Sensor::Create(const std::string& path, ZoJson content, Time now) {
  if (!IsPlainPath(path)) {
    return Answer::Failure(Status::Malformed, "the URI of a resource holds no *");
  }
  if (store.Find(path) != nullptr) {
    return Answer::Failure(Status::Conflict, fmt::format("{} exists", path));
  }
  if (store.Size() >= limits.maxResources) {
    return Answer::Failure(Status::Busy,
                           fmt::format("the sensor holds no more than {} resources", store.Size()));
  }
  auto resource = std::make_shared<Resource>(path, std::move(content));
  if (auto refusal = RefuseSize(path, *resource->Text())) {
    return *std::move(refusal);
  }
  resource->rules.everything = true;
  Insert(resource, now);
  return Answer::Success();
}

Answer Sensor::Update(const std::string& path, const ZoJson& patch, Time now) {
  const auto resource = store.Find(path);
  if (resource == nullptr) {
    return Answer::NoResource(path);
  }
  if (!resource->hasContent) {
    return Answer::Failure(Status::NotAllowed, fmt::format("{} is a method and has no content", path));
  }
  Refresh(*resource, now);
  auto merged = Merge(resource->Content(), patch, resource->rules);
  if (const auto* refusal = std::get_if<Refusal>(&merged)) {
    return Answer::Failure(refusal->status, fmt::format("{}: {}", path, refusal->reason));
  }
  ZoJson& content = std::get<ZoJson>(merged);
  SharedText text = ShareText(content.ToString());
  if (auto refusal = RefuseSize(path, *text, *resource->Text())) {
    return *std::move(refusal);
  }
  if (resource->objection) {
    if (auto objection = resource->objection(content)) {
      return Answer::Failure(Status::WrongKind, *std::move(objection));
    }
  }
  Change(*resource, std::move(content), now, std::move(text));
  if (resource->written) {
    resource->written(now);
  }
  return Answer::Success();
}

Answer Sensor::Delete(const std::string& path, Time now) {
  const auto resource = store.Find(path);
  if (resource == nullptr) {
    return Answer::NoResource(path);
  }
  if (resource->permanent) {
    return Answer::Failure(Status::NotAllowed, fmt::format("{} belongs to the sensor and stays", path));
  }
  Take(path, now);
  return Answer::Success();
}

void Sensor::Step(Time now) {
  while (!lifeEvents.empty() && lifeEvents.begin()->first <= now) {
    const auto event = lifeEvents.extract(lifeEvents.begin());
    event.mapped()(now);
  }
  while (const auto resource = schedule.Take(now)) {
    Tick(resource, now);
  }
  if (directoryDue <= now) {
    NotifyDirectory(now);
  }
}

Time Sensor::NextDue() const {
  return std::min({schedule.NextDue(), directoryDue, lifeEvents.empty() ? Never : lifeEvents.begin()->first});
}

void Sensor::AddPermanent(const std::shared_ptr<Resource>& resource, Time now) {
  resource->permanent = true;
  Insert(resource, now);
}

void Sensor::Overwrite(const std::string& path, ZoJson content, Time now) {
  if (const auto resource = store.Find(path)) {
    Change(*resource, std::move(content), now);
  }
}

void Sensor::Insert(const std::shared_ptr<Resource>& resource, Time now) {
  store.Add(resource);
  for (const Drive& drive : resource->Drives()) {
    if (const std::string source = drive.wave->Source(); !source.empty()) {
      followers[source].push_back(resource);
    }
  }
  if (resource->hasContent) {
    Resample(*resource, now);
    Notify(*resource, resource->Text(), now);
  }
  NotifyDirectoryLater(now);
  ScheduleIfWatched(resource, now);
}

void Sensor::Take(const std::string& path, Time now) {
  const auto resource = store.Remove(path);
  if (resource == nullptr) {
    return;
  }
  watches.EndStreams(path);
  Notify(*resource, ShareText("null"), now);
  NotifyDirectoryLater(now);
}

void Sensor::NotifyDirectoryLater(Time now) {
  if (directoryDue == Never && watches.HasWatchers(Root)) {
    directoryDue = std::max(now, directoryNotified + DirectorySpacing);
  }
}

void Sensor::NotifyDirectory(Time now) {
  directoryDue = Never;
  directoryNotified = now;
  const auto root = store.Find(Root);
  Refresh(*root, now);
  Notify(*root, root->Text(), now);
}

void Sensor::Refresh(Resource& resource, Time now) {
  if (Resample(resource, now)) {
    Notify(resource, resource.Text(), now);
  }
}

bool Sensor::Resample(Resource& resource, Time now) {
  if (resource.produce) {
    // Its changes are notified by whoever makes them: the uptime alone is none.
    resource.SetContent(resource.produce(now));
    return false;
  }
  if (resource.Drives().empty()) {
    return false;
  }
  const Duration elapsed = resource.measurement ? Acquired(now) : now - born;
  const auto index = static_cast<std::uint64_t>(elapsed / resource.period);
  sampledAt = now;
  const double seconds = ToSeconds(resource.period) * static_cast<double>(index);
  return resource.Sample({seconds, index, seed, &lookup});
}

void Sensor::RefreshFollowers(const std::string& path, Time now) {
  const auto found = followers.find(path);
  if (found == followers.end()) {
    return;
  }
  // What follows a set-point must have followed its old value up to now.
  std::erase_if(found->second, [&](const std::weak_ptr<Resource>& follower) {
    const auto resource = follower.lock();
    if (resource == nullptr || resource->removed) {
      return true;
    }
    Refresh(*resource, now);
    return false;
  });
}

std::optional<Answer> Sensor::RefuseSize(const std::string& path, std::string_view text,
                                         std::string_view held) const {
  if (text.size() > limits.maxContent) {
    return Answer::Failure(Status::TooLarge,
                           fmt::format("{} would hold more than {} bytes", path, limits.maxContent));
  }
  if (HoldsMoreValues(text, limits.maxValues) && !HoldsMoreValues(held, limits.maxValues)) {
    return Answer::Failure(Status::TooLarge,
                           fmt::format("{} would hold more than {} values", path, limits.maxValues));
  }
  return std::nullopt;
}

void Sensor::Change(Resource& resource, ZoJson content, Time now, SharedText text) {
  RefreshFollowers(resource.Path(), now);
  if (resource.SetContent(std::move(content), std::move(text))) {
    Notify(resource, resource.Text(), now);
  }
}

Duration Sensor::Acquired(Time now) const {
  return running ? acquiredBefore + (now - runningSince) : acquiredBefore;
}

// What is followed shall not depend on who else looks at it. A resource that is being sampled already, because it
// follows itself by way of others, stays as it is.
std::optional<double> Sensor::Lookup(const std::string& path, const ZoJsonPointer& at) {
  const auto source = store.Find(path);
  if (source == nullptr) {
    return std::nullopt;
  }
  if (lookupDepth < DeepestLookup) {
    ++lookupDepth;
    Refresh(*source, sampledAt);
    --lookupDepth;
  }
  const ZoJson* const value = source->Content().Find(at);
  return value != nullptr && (value->IsNumber() || value->IsBoolean()) ? std::optional(value->Get<double>())
                                                                       : std::nullopt;
}

}  // namespace ZoSensor
