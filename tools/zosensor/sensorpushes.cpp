// What a sensor's watchers ask for and are pushed: subscriptions, streams, and the ticks that feed them.
#include "tools/zosensor/sensor.h"

#include <array>
#include <utility>

#include <fmt/format.h>

#include "tools/zosensor/wire.h"

namespace ZoSensor {
namespace {

// One message text for each of the two spellings, put together when first needed.
class PushTexts {
 public:
  PushTexts(std::string_view eventName, const std::string& resourcePath, const SharedText& content)
      : event(eventName), path(resourcePath), payload(content) {}

  void Send(PushKind kind, const Interest& interest, Time now) {
    auto& [uri, text] = texts[interest.slash ? 1 : 0];
    if (text == nullptr) {
      uri = Spell(path, interest.slash);
      text = ShareText(PushText(event, uri, *payload));
    }
    interest.watcher->Push(kind, uri, text, now);
  }

 private:
  std::string_view event;
  const std::string& path;
  const SharedText& payload;
  std::array<std::pair<std::string, SharedText>, 2> texts;
};

}  // namespace

Answer Sensor::Subscribe(Watcher& watcher, const std::string& text, Time now) {
  const auto pattern = Pattern::Parse(text);
  if (!pattern) {
    return Answer::Failure(Status::Malformed, "a pattern is a URI, or a URI followed by /*");
  }
  const auto matching = store.Matching(*pattern);
  for (const auto& resource : matching) {
    Refresh(*resource, now);  // while the new subscription does not yet hear of it
  }
  const bool full = watches.Count(watcher) >= limits.maxWatches;
  if (!watches.Subscribe(watcher, text, *pattern)) {
    return Answer::Success();
  }
  if (full) {
    watches.Unsubscribe(watcher, text);
    return TooManyWatches();
  }
  for (const auto& resource : matching) {
    if (resource->hasContent) {
      PushTexts texts("notification", resource->Path(), resource->Text());
      texts.Send(PushKind::Notification, {&watcher, pattern->slash}, now);
    }
    ScheduleIfWatched(resource, now);
  }
  return Answer::Success();
}

Answer Sensor::TooManyWatches() const {
  return Answer::Failure(
      Status::Busy, fmt::format("a session holds at most {} subscriptions and streams", limits.maxWatches));
}

Answer Sensor::Unsubscribe(Watcher& watcher, const std::string& text) {
  if (!watches.Unsubscribe(watcher, text)) {
    return Answer::Failure(Status::NotFound,
                           fmt::format("this session has no subscription of {}", Quote(text)));
  }
  return Answer::Success();
}

Answer Sensor::StartStream(Watcher& watcher, const std::string& text, Time now) {
  const Uri uri = Uri::Parse(text);
  const auto resource = store.Find(uri.path);
  if (resource == nullptr) {
    return Answer::NoResource(uri.path);
  }
  Refresh(*resource, now);
  if (watches.HasStream(watcher, uri)) {
    return Answer::Success(resource->Text());
  }
  if (!resource->hasContent || !resource->streamable) {
    return Answer::Failure(Status::NotAllowed, fmt::format("{} cannot be streamed", uri.path));
  }
  if (resource->Content().Empty()) {
    return Answer::Failure(Status::NotAllowed, fmt::format("{} has an empty content", uri.path));
  }
  const bool full = watches.Count(watcher) >= limits.maxWatches;
  if (watches.StartStream(watcher, uri)) {
    if (full) {
      watches.StopStream(watcher, uri);
      return TooManyWatches();
    }
    ScheduleIfWatched(resource, now);
  }
  return Answer::Success(resource->Text());
}

Answer Sensor::StopStream(Watcher& watcher, const std::string& text) {
  return watches.StopStream(watcher, Uri::Parse(text)) ? Answer::Success() : Answer::Bare();
}

void Sensor::Leave(Watcher& watcher) {
  watches.Leave(watcher);
}

void Sensor::Tick(const std::shared_ptr<Resource>& resource, Time now) {
  if (resource->measurement && !running) {
    return;  // the start of acquisition schedules it again
  }
  Refresh(*resource, now);
  PushStreams(*resource, now);
  ScheduleIfWatched(resource, now);
}

void Sensor::ScheduleIfWatched(const std::shared_ptr<Resource>& resource, Time now) {
  const bool canTick = !resource->measurement || running;
  const bool streamed = watches.Streamers(resource->Path()) != nullptr;
  if (!canTick || !(streamed || (!resource->Drives().empty() && watches.HasWatchers(resource->Path())))) {
    return;
  }
  // On the grid of the clock that its samples are counted on: each tick finds a new sample, and none drifts.
  const Duration elapsed = resource->measurement ? Acquired(now) : now - born;
  schedule.Add(resource, now + (resource->period - elapsed % resource->period));
}

void Sensor::Notify(Resource& resource, const SharedText& payload, Time now) {
  PushTexts texts("notification", resource.Path(), payload);
  for (const Interest& interest : watches.Subscribers(resource.Path())) {
    texts.Send(PushKind::Notification, interest, now);
  }
}

void Sensor::PushStreams(Resource& resource, Time now) {
  const auto* streamers = watches.Streamers(resource.Path());
  if (streamers == nullptr) {
    return;
  }
  PushTexts texts("stream", resource.Path(), resource.Text());
  for (const Interest& interest : *streamers) {
    texts.Send(PushKind::Stream, interest, now);
  }
}

}  // namespace ZoSensor
