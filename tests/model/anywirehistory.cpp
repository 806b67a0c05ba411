#include "tests/model/anywirehistory.h"

#include "tests/model/anyparts.h"

namespace ZoModel {

namespace {

// Mostly those whose streams and subscriptions meet.
std::string AnyWireName(Dice& dice) {
  return dice.OnceIn(4)
             ? AnyName(dice)
             : dice.Of<const char*>({"/r/x#/a", "/r/x#/b", "/r/y#/a", "/r#/a", "r#/a", "/list#/1"});
}

WireStep AnyHostStep(Dice& dice) {
  switch (dice.Weighted<int>({{10, 0}, {5, 1}, {6, 2}, {5, 3}, {4, 4}})) {
    case 0: {
      Subscribe step = AnySubscribe(dice);
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
      step.method = dice.OnceIn(3) ? step.method : dice.Of<const char*>({"RunSensor", "StopSensor", "Call"});
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
  if (dice.OnceIn(3)) {
    const bool stream = dice.OnceIn(2);
    return UnusablePush{stream, AnyUri(dice), how};
  }
  // Mostly of one resource, since it takes several answers about it.
  const std::string uri = dice.OnceIn(3) ? AnyUri(dice) : "/r/x";
  return Spoil{uri, dice.OnceIn(6) ? std::nullopt : std::optional<Unusable>(how)};
}

WireStep AnyBreak(Dice& dice) {
  if (dice.OnceIn(3)) {
    return AnyUnusable(dice);
  }
  return dice.Weighted<WireStep>({{2, Cut{}},
                                  {1, Restart{}},
                                  {3, LoseAnswer{}},
                                  {3, LoseStart{true}},
                                  {2, LoseStart{false}},
                                  {5, LeaveUnanswered{false}},
                                  {2, LeaveUnanswered{true}},
                                  {2, Connection{false}},
                                  {6, Connection{true}}});
}

WireStep AnyWireStep(Dice& dice) {
  switch (dice.Weighted<int>({{26, 0}, {18, 1}, {20, 2}, {9, 3}, {14, 4}})) {
    case 0:
      return AnyHostStep(dice);
    case 1:
      return AnyOwnStep(dice);
    case 2:
      return AnySensorStep(dice);
    case 3:
      return AnyBreak(dice);
    default:
      return AnyClock(dice, Clocks::OnlyForwards);
  }
}

}  // namespace

rc::Gen<WireHistory> AnyWireHistory(int steps) {
  const rc::Gen<WireStep> step([](const rc::Random& random, int /*size*/) {
    Dice dice(random);
    return rc::shrinkable::shrinkRecur(AnyWireStep(dice), &Smaller<WireStep>);
  });
  return rc::gen::scale(steps / 100.0, rc::gen::container<WireHistory>(step));
}

}  // namespace ZoModel
