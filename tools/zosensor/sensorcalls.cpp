// The calls of a sensor's methods, slow ones among them.
#include "tools/zosensor/sensor.h"

#include <utility>

#include <fmt/format.h>

namespace ZoSensor {
namespace {

// Each holds its argument until it is due.
constexpr std::size_t MostPendingCalls = 1000;

}  // namespace

Answer Sensor::Call(const std::string& path, const ZoJson& argument, Time now) {
  const auto resource = store.Find(path);
  if (resource == nullptr) {
    return Answer::NoResource(path);
  }
  if (resource->callHook) {
    return resource->callHook(argument, now);
  }
  if (resource->call) {
    return Behave(*resource, argument, now);
  }
  return Answer::Failure(Status::NotAllowed, fmt::format("{} cannot be called", path));
}

Answer Sensor::Behave(const Resource& method, const ZoJson& argument, Time now) {
  const CallBehaviour& behaviour = *method.call;
  Answer answer = Answer::Success(behaviour.echo ? argument : behaviour.result);
  if (auto refusal = RefuseSize(method.Path(), *answer.payload)) {
    return *std::move(refusal);
  }
  Patches patches = behaviour.set;
  if (!behaviour.mergeInto.empty()) {
    patches.emplace_back(behaviour.mergeInto, argument);
  }
  const bool slow = behaviour.delay > Duration::zero();
  if (slow && pendingCalls >= MostPendingCalls) {
    return Answer::Failure(Status::Busy, fmt::format("{} slow calls are under way already", pendingCalls));
  }
  if (!slow) {
    RefreshAll(patches, now);
  }
  // All results are made before the first is put in place: a call that fails has changed nothing.
  auto merged = MergeAll(patches);
  if (auto* failure = std::get_if<Answer>(&merged)) {
    return std::move(*failure);
  }
  answer.delay = behaviour.delay;
  if (!slow) {
    ChangeAll(std::get<0>(std::move(merged)), now);
  } else if (!patches.empty()) {
    // The contents may be others by then, so all is merged anew; what no longer can be done is not done.
    answer.completion = [this, later = std::move(patches)](Time then) {
      RefreshAll(later, then);
      auto contents = MergeAll(later);
      if (contents.index() == 0) {
        ChangeAll(std::get<0>(std::move(contents)), then);
      }
    };
  }
  return answer;
}

std::variant<std::map<std::string, ZoJson>, Answer> Sensor::MergeAll(const Patches& patches) {
  std::map<std::string, ZoJson> results;
  for (const auto& [path, patch] : patches) {
    const auto target = store.Find(path);
    if (target == nullptr) {
      return Answer::NoResource(path);
    }
    WriteRules rules = target->rules;
    rules.everything = true;
    const auto earlier = results.find(path);
    auto merged = Merge(earlier == results.end() ? target->Content() : earlier->second, patch, rules);
    if (const auto* refusal = std::get_if<Refusal>(&merged)) {
      return Answer::Failure(refusal->status, fmt::format("{}: {}", path, refusal->reason));
    }
    if (auto refusal = RefuseSize(path, std::get<ZoJson>(merged).ToString(), *target->Text())) {
      return *std::move(refusal);
    }
    results[path] = std::get<ZoJson>(std::move(merged));
  }
  return results;
}

void Sensor::RefreshAll(const Patches& patches, Time now) {
  for (const auto& patch : patches) {
    if (const auto target = store.Find(patch.first)) {
      Refresh(*target, now);
    }
  }
}

void Sensor::ChangeAll(std::map<std::string, ZoJson>&& contents, Time now) {
  for (auto& [path, content] : contents) {
    Change(*store.Find(path), std::move(content), now);
  }
}

void Sensor::CompleteAt(Time due, Answer& answer) {
  if (!answer.completion) {
    return;
  }
  ++pendingCalls;
  lifeEvents.emplace(due, [this, complete = std::exchange(answer.completion, nullptr)](Time then) {
    --pendingCalls;
    complete(then);
  });
}

}  // namespace ZoSensor
