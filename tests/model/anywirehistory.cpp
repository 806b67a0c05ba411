#include "tests/model/anywirehistory.h"

#include <algorithm>
#include <cstddef>

#include "tests/model/anyparts.h"

namespace ZoModel {

namespace {

// Of what there is more in a history. A session may break only so often in one, and some things take several breaks in
// the right places.
enum class Emphasis { None, LostStarts, UnusableMessages };

// Mostly those whose streams and subscriptions meet.
std::string AnyWireName(Dice& dice) {
  return dice.OnceIn(4)
             ? AnyName(dice)
             : dice.Of<const char*>({"/r/x#/a", "/r/x#/b", "/r/y#/a", "/r#/a", "r#/a", "/list#/1"});
}

// A call that the sensor may answer by ending the session.
WireStep AnyRiskyCall(Dice& dice, Emphasis emphasis) {
  const std::string name = dice.Of<const char*>({"/r/x#/a", "/r/x#/b", "/r/y#/a"});
  if (dice.OnceIn(2)) {
    return Subscribe{100, {name}, true};
  }
  if (emphasis == Emphasis::LostStarts) {
    return Unsubscribe{{name}};
  }
  return dice.OnceIn(2) ? WireStep(Read{name}) : WireStep(Call{"Read", std::nullopt, "/r/x", std::nullopt});
}

WireStep AnyHostStep(Dice& dice, Emphasis emphasis) {
  if (emphasis != Emphasis::None && dice.OnceIn(2)) {
    return AnyRiskyCall(dice, emphasis);
  }
  switch (dice.Weighted<int>({{10, 0}, {5, 1}, {6, 2}, {5, 3}, {4, 4}})) {
    case 0: {
      Subscribe step = AnySubscribe(dice);
      // Only where there is one name can the answer to a start be lost.
      step.names.resize(dice.OnceIn(2) ? std::min<std::size_t>(step.names.size(), 1) : step.names.size());
      for (auto& name : step.names) {
        name = name ? std::optional<std::string>(AnyWireName(dice)) : name;
      }
      return step;
    }
    case 1: {
      Unsubscribe step;
      for (std::size_t count = dice.Below(4); count > 0; --count) {
        step.names.push_back(AnyWireName(dice));
      }
      return step;
    }
    case 2:
      return Read{AnyWireName(dice)};
    case 3: {
      Write step = AnyWrite(dice);
      step.name = AnyWireName(dice);
      return step;
    }
    default: {
      Call step = AnyCall(dice);
      step.method =
          dice.OnceIn(3) ? step.method : dice.Of<const char*>({"RunSensor", "StopSensor", "Call", "Read"});
      return step;
    }
  }
}

WireStep AnyOwnStep(Dice& dice) {
  return dice.Weighted<WireStep>(
      {{10, MonitorPass{}}, {7, RetryPass{}}, {2, Trim{}}, {1, LookUp{AnyName(dice)}}});
}

WireStep AnySensorStep(Dice& dice) {
  switch (dice.Weighted<int>({{12, 0}, {3, 1}, {3, 2}})) {
    case 0:
      return AnyHold(dice);
    case 1: {
      const bool stream = dice.OnceIn(2);
      const std::string uri = AnyUri(dice);
      return StrayPush{stream, uri, AnyPayload(dice)};
    }
    default: {
      Answers step = AnyAnswers(dice);
      step.verb = dice.OnceIn(2) ? step.verb : dice.Of<const char*>({"Read", "Stream", "Subscribe", "Call"});
      // No sensor can make the other end raise.
      step.mood = step.mood == Mood::Raises ? Mood::Mumbles : step.mood;
      return step;
    }
  }
}

WireStep AnyUnusable(Dice& dice) {
  const Unusable how = dice.Of({Unusable::Broken, Unusable::Deep, Unusable::List});
  // Mostly of one resource, since it takes several messages about it.
  const std::string uri = dice.OnceIn(3) ? AnyUri(dice) : "/r/x";
  if (dice.OnceIn(2)) {
    const bool stream = dice.OnceIn(2);
    return UnusablePush{stream, uri, how};
  }
  return Spoil{uri, dice.OnceIn(6) ? std::nullopt : std::optional<Unusable>(how)};
}

WireStep AnyBreak(Dice& dice, Emphasis emphasis) {
  if (emphasis == Emphasis::LostStarts && !dice.OnceIn(4)) {
    return LoseStart{!dice.OnceIn(3)};
  }
  if (emphasis == Emphasis::UnusableMessages ? !dice.OnceIn(6) : dice.OnceIn(5)) {
    return AnyUnusable(dice);
  }
  return dice.Weighted<WireStep>({{1, Cut{}},
                                  {1, Restart{}},
                                  {2, LoseAnswer{}},
                                  {4, LoseStart{true}},
                                  {3, LoseStart{false}},
                                  {8, LeaveUnanswered{false}},
                                  {4, LeaveUnanswered{true}},
                                  {1, Connection{false}},
                                  {4, Connection{true}}});
}

WireStep AnyWireStep(Dice& dice, Emphasis emphasis) {
  switch (dice.Weighted<int>({{26, 0}, {18, 1}, {20, 2}, {9, 3}, {14, 4}})) {
    case 0:
      return AnyHostStep(dice, emphasis);
    case 1:
      return AnyOwnStep(dice);
    case 2:
      return AnySensorStep(dice);
    case 3:
      return AnyBreak(dice, emphasis);
    default:
      return AnyClock(dice, Clocks::OnlyForwards);
  }
}

}  // namespace

rc::Gen<WireHistory> AnyWireHistory(int steps) {
  return {[steps](const rc::Random& random, int size) {
    rc::Random rest = random;
    Dice first(rest.split());
    const Emphasis emphasis =
        first.Of({Emphasis::None, Emphasis::None, Emphasis::LostStarts, Emphasis::UnusableMessages});
    const rc::Gen<WireStep> step([emphasis](const rc::Random& own, int /*size*/) {
      Dice dice(own);
      return rc::shrinkable::shrinkRecur(AnyWireStep(dice, emphasis), &Smaller<WireStep>);
    });
    return rc::gen::scale(steps / 100.0, rc::gen::container<WireHistory>(step))(rest, size);
  }};
}

}  // namespace ZoModel
