#include "tools/zosensor/faults.h"

#include <array>
#include <memory>
#include <utility>

#include <fmt/format.h>

#include "tools/zosensor/waveform.h"

namespace ZoSensor {
namespace {

constexpr const char* FaultsPath = "/faults";
constexpr double LongestLatencyMs = 60000;
constexpr double LongestSeconds = 86400;
// The answer of a method that disturbs all connections shall get through.
constexpr Duration AnswerFirst = std::chrono::milliseconds(50);

struct NumberMember {
  const char* name;
  double FaultSettings::*member;
  double highest;
};
constexpr std::array NumberMembers = {
    NumberMember{"latency_ms", &FaultSettings::latencyMs, LongestLatencyMs},
    NumberMember{"jitter_ms", &FaultSettings::jitterMs, LongestLatencyMs},
    NumberMember{"lose", &FaultSettings::lose, 1},
    NumberMember{"error", &FaultSettings::error, 1},
    NumberMember{"garbage", &FaultSettings::garbage, 1},
    NumberMember{"truncate", &FaultSettings::truncate, 1},
    NumberMember{"duplicate", &FaultSettings::duplicate, 1},
    NumberMember{"reorder", &FaultSettings::reorder, 1},
    NumberMember{"cut_every_s", &FaultSettings::cutEveryS, LongestSeconds},
    NumberMember{"stall_every_s", &FaultSettings::stallEveryS, LongestSeconds},
    NumberMember{"stall_s", &FaultSettings::stallS, LongestSeconds},
};

struct CountMember {
  const char* name;
  std::uint64_t FaultSettings::*member;
};
constexpr std::array CountMembers = {
    CountMember{"cut_every_requests", &FaultSettings::cutEveryRequests},
    CountMember{"stall_every_requests", &FaultSettings::stallEveryRequests},
};

WriteRules FaultRules() {
  WriteRules rules;
  rules.everything = true;
  for (const char* member : {"/error_status", "/cut_every_requests", "/stall_every_requests"}) {
    rules.integers.emplace_back(member);
  }
  return rules;
}

Time After(Time now, double seconds) {
  return seconds > 0 ? now + SecondsToDuration(seconds) : Never;
}

}  // namespace

ZoJson FaultSettings::ToJson() const {
  ZoJson document = ZoJson::EmptyObject();
  document.Set("only", only);
  for (const NumberMember& number : NumberMembers) {
    document.Set(number.name, this->*number.member);
  }
  for (const CountMember& count : CountMembers) {
    document.Set(count.name, this->*count.member);
  }
  document.Set("error_status", errorStatus);
  document.Set("mute_pushes", mutePushes);
  document.Set("refuse_start", refuseStart);
  return document;
}

std::optional<FaultSettings> FaultSettings::FromJson(const ZoJson& document, std::string& objection) {
  FaultSettings settings;
  settings.only = document.At("only").Get<std::string>();
  if (!Pattern::Parse(settings.only)) {
    objection = "\"only\" must be a pattern: a URI, or a URI followed by /*";
    return std::nullopt;
  }
  for (const NumberMember& number : NumberMembers) {
    const double value = document.At(number.name).Get<double>();
    if (!(value >= 0 && value <= number.highest)) {
      objection = fmt::format("\"{}\" must lie between 0 and {}", number.name, number.highest);
      return std::nullopt;
    }
    settings.*number.member = value;
  }
  for (const CountMember& count : CountMembers) {
    const ZoJson value = document.At(count.name);
    if (!value.IsUnsigned()) {
      objection = fmt::format("\"{}\" must not be negative", count.name);
      return std::nullopt;
    }
    settings.*count.member = value.Get<unsigned long long>();
  }
  settings.errorStatus = document.At("error_status").Get<long long>();
  if (settings.errorStatus > -400 || settings.errorStatus < -589) {
    objection = "\"error_status\" must lie between -589 and -400";
    return std::nullopt;
  }
  settings.mutePushes = document.At("mute_pushes").Get<bool>();
  settings.refuseStart = document.At("refuse_start").Get<bool>();
  return settings;
}

std::optional<FaultSettings> FaultSettings::With(std::string_view assignment, std::string& objection) const {
  const auto equals = assignment.find('=');
  if (equals == std::string_view::npos) {
    objection = fmt::format("\"{}\" is not of the form name=value", assignment);
    return std::nullopt;
  }
  const std::string_view value = assignment.substr(equals + 1);
  ZoJson patch = ZoJson::EmptyObject();
  try {
    patch.Set(ZoJsonPointer::Member(assignment.substr(0, equals)), ZoJson::ParseString(value));
  } catch (const ZoJsonError&) {  // a text without its quotes, as a pattern is written on a command line
    patch.Set(ZoJsonPointer::Member(assignment.substr(0, equals)), ZoJson::Of(value));
  }
  auto merged = Merge(ToJson(), patch, FaultRules());
  if (const auto* refusal = std::get_if<Refusal>(&merged)) {
    objection = refusal->reason;
    return std::nullopt;
  }
  return FromJson(std::get<ZoJson>(merged), objection);
}

FaultDice::FaultDice(std::uint64_t seed, std::uint64_t connection) : key(MixBits(seed, connection)) {}

FaultPlan FaultDice::Roll(const FaultSettings& settings) {
  constexpr std::uint64_t NumbersPerRoll = 8;
  std::uint64_t position = rolls++ * NumbersPerRoll;
  const auto hit = [&](double share) { return MixUnit(key, position++) < share; };
  FaultPlan plan;
  plan.error = hit(settings.error);
  plan.lose = hit(settings.lose);
  plan.garbage = hit(settings.garbage);
  plan.truncate = hit(settings.truncate);
  plan.duplicate = hit(settings.duplicate);
  plan.reorder = hit(settings.reorder);
  plan.latency = Latency(settings, MixUnit(key, position++));
  plan.flavour = MixBits(key, position++);
  return plan;
}

Duration FaultDice::RollPushLatency(const FaultSettings& settings) {
  // Numbers of their own: how many pushes come in between must not change what happens to requests.
  return Latency(settings, MixUnit(~key, pushRolls++));
}

Duration FaultDice::Latency(const FaultSettings& settings, double unit) {
  return SecondsToDuration((settings.latencyMs + settings.jitterMs * unit) / 1000);
}

FaultController::FaultController(const FaultSettings& initial, std::uint64_t diceSeed, Time now)
    : seed(diceSeed) {
  Apply(initial, now);
}

void FaultController::Install(Sensor& sensor, Time now) {
  auto faults = std::make_shared<Resource>(FaultsPath, settings.ToJson());
  faults->rules = FaultRules();
  faults->objection = [](const ZoJson& next) -> std::optional<std::string> {
    std::string objection;
    return FaultSettings::FromJson(next, objection) ? std::nullopt : std::optional(objection);
  };
  faults->written = [this, resource = faults.get()](Time then) {
    std::string none;
    Apply(*FaultSettings::FromJson(resource->Content(), none), then);
  };
  sensor.AddPermanent(faults, now);

  auto cut = MakeMethod("/faults/cut");
  cut->callHook = [this](const ZoJson&, Time) {
    cutAll(AnswerFirst);
    return Answer::Success(ZoJson());
  };
  sensor.AddPermanent(cut, now);

  auto stall = MakeMethod("/faults/stall");
  stall->callHook = [this](const ZoJson& argument, Time then) {
    double seconds = settings.stallS;
    if (argument.HasKey("seconds")) {
      const ZoJson value = argument.At("seconds");
      seconds = value.IsNumber() ? value.Get<double>() : -1;
    }
    if (!(seconds >= 0 && seconds <= LongestSeconds)) {
      return Answer::Failure(Status::WrongKind,
                             fmt::format("\"seconds\" must lie between 0 and {}", LongestSeconds));
    }
    Stall(AnswerFirst, SecondsToDuration(seconds), then);
    return Answer::Success(ZoJson());
  };
  sensor.AddPermanent(stall, now);

  auto reset = MakeMethod("/faults/reset");
  reset->callHook = [this, &sensor](const ZoJson&, Time then) {
    Apply(FaultSettings(), then);
    sensor.Overwrite(FaultsPath, settings.ToJson(), then);
    return Answer::Success(settings.ToJson());
  };
  sensor.AddPermanent(reset, now);

  sensor.startObjection = [this]() -> std::optional<std::string> {
    return settings.refuseStart ? std::optional<std::string>("the start is refused on purpose")
                                : std::nullopt;
  };
}

std::shared_ptr<Resource> FaultController::MakeMethod(const char* path) {
  auto method = std::make_shared<Resource>(path, ZoJson());
  method->hasContent = false;
  return method;
}

void FaultController::Apply(const FaultSettings& next, Time now) {
  const FaultSettings before = std::exchange(settings, next);
  only = Pattern::Parse(settings.only);
  if (settings.cutEveryS != before.cutEveryS) {
    nextCut = After(now, settings.cutEveryS);
  }
  if (settings.stallEveryS != before.stallEveryS) {
    nextStall = After(std::max(now, stallEnd), settings.stallEveryS);
  }
}

bool FaultController::Concerns(std::string_view path) const {
  static const Pattern own{FaultsPath, true, true};
  return !own.Matches(path) && only && only->Matches(path);
}

Disturbance FaultController::Count(std::uint64_t& requests) {
  ++requests;
  ++allRequests;
  if (settings.cutEveryRequests != 0 && requests % settings.cutEveryRequests == 0) {
    return Disturbance::Cut;
  }
  if (settings.stallEveryRequests != 0 && allRequests % settings.stallEveryRequests == 0) {
    return Disturbance::Stall;
  }
  return Disturbance::None;
}

void FaultController::Step(Time now) {
  if (nextCut <= now) {
    nextCut = After(now, settings.cutEveryS);
    cutAll(Duration::zero());
  }
  if (nextStall <= now) {
    Stall(Duration::zero(), StallTime(), now);
  }
}

void FaultController::Stall(Duration delay, Duration length, Time now) {
  stallEnd = std::max(stallEnd, now + delay + length);
  nextStall = After(stallEnd, settings.stallEveryS);
  stallAll(delay, length);
}

std::string_view Fate(const FaultPlan& plan) {
  return plan.lose       ? ", lost on purpose"
         : plan.garbage  ? ", garbled on purpose"
         : plan.truncate ? ", cut short on purpose"
                         : "";
}

}  // namespace ZoSensor
