#include "tests/model/anyhistory.h"

#include <utility>

#include "tests/model/anyparts.h"

namespace ZoModel {

namespace {

Step AnyStep(Dice& dice, Clocks clocks) {
  enum Kind { Host, Own, World };
  switch (dice.Weighted<Kind>({{26, Host}, {20, Own}, {30, World}})) {
    case Host:
      switch (dice.Weighted<int>({{8, 0}, {4, 1}, {6, 2}, {6, 3}, {2, 4}})) {
        case 0:
          return AnySubscribe(dice);
        case 1:
          return AnyUnsubscribe(dice);
        case 2:
          return Read{AnyName(dice)};
        case 3:
          return AnyWrite(dice);
        default:
          return AnyCall(dice);
      }
    case Own:
      return dice.Weighted<Step>(
          {{12, MonitorPass{}}, {4, RetryPass{}}, {2, Trim{}}, {1, LookUp{AnyName(dice)}}, {1, Recreate{}}});
    case World:
      break;
  }
  switch (dice.Weighted<int>({{10, 0}, {6, 1}, {3, 2}, {1, 3}, {10, 4}})) {
    case 0: {
      const std::string uri = AnyUri(dice);
      return Push{uri, AnyPayload(dice)};
    }
    case 1:
      return AnyHold(dice);
    case 2:
      return AnyAnswers(dice);
    case 3:
      return Connection{!dice.OnceIn(4)};
    default:
      return AnyClock(dice, clocks);
  }
}

}  // namespace

rc::Gen<History> AnyHistory(Clocks clocks, int steps) {
  const rc::Gen<Step> step([clocks](const rc::Random& random, int /*size*/) {
    Dice dice(random);
    return rc::shrinkable::shrinkRecur(AnyStep(dice, clocks), &Smaller<Step>);
  });
  return rc::gen::scale(steps / 100.0, rc::gen::container<History>(step));
}

}  // namespace ZoModel
