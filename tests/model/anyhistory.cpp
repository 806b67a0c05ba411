#include "tests/model/anyhistory.h"

#include <bit>
#include <initializer_list>
#include <limits>
#include <utility>

#include "tests/model/item.h"

namespace ZoModel {

namespace {

using Limits = std::numeric_limits<long long>;
using Unsigneds = std::numeric_limits<unsigned long long>;

// A step is rolled from one random number. RapidCheck's own generators would carry the ways to shrink every part of
// every step, and take most of the time with it.
class Dice {
 public:
  explicit Dice(const rc::Random& random) : random(random) {}

  std::size_t Below(std::size_t count) { return static_cast<std::size_t>(random.next() % count); }
  bool OnceIn(std::size_t times) { return Below(times) == 0; }
  template <typename T>
  T Of(std::initializer_list<T> choices) {
    return choices.begin()[Below(choices.size())];
  }
  // Each as likely as its weight says.
  template <typename T>
  T Weighted(std::initializer_list<std::pair<std::size_t, T>> choices) {
    std::size_t sum = 0;
    for (const auto& choice : choices) {
      sum += choice.first;
    }
    std::size_t roll = Below(sum);
    const auto* chosen = choices.begin();
    for (; roll >= chosen->first; ++chosen) {
      roll -= chosen->first;
    }
    return chosen->second;
  }

 private:
  rc::Random random;
};

// Few enough names to meet again and to share resources and patterns; and the odd ones.
std::string AnyName(Dice& dice) {
  if (!dice.OnceIn(13)) {
    return dice.Of<const char*>({"/r/x#/a",     "/r/x#/b", "/r/x#/c/d",    "/r/x#",  "/r/y#/a", "/r/y#/a b",
                                 "/r/y#/a%20b", "/r/y",    "r#/a",         "/r#/a",  "",        "/list#/1",
                                 "/list#/b/0",  "#/a",     "/r/y#/a~1b",   "/r/x#a", "#",       "/q#/a",
                                 "/r/x#//a",    "/r/x##",  "/r/y#/c/d/%20"});
  }
  std::string name;
  for (std::size_t parts = 1 + dice.Below(8); parts > 0; --parts) {
    name += dice.Of({"/", "#", "a", "b", "r", "x", "%20", " ", "~0", "~1", "~", "0", "é", "\t"});
  }
  return name;
}

std::string AnyUri(Dice& dice) {
  return dice.Weighted<const char*>(
      {{3, "/r/x"}, {2, "/r/y"}, {1, "r"}, {1, "/r"}, {1, ""}, {1, "/list"}, {1, "/q"}});
}

std::string AnyText(Dice& dice) {
  return dice.Of<const char*>({"", "text", "another", "INVALID", "0", "with \"quotes\"", "é"});
}

Document AnyScalar(Dice& dice) {
  switch (dice.Weighted<unsigned>(
      {{4, Signed}, {1, Unsigned}, {2, Float}, {2, Boolean}, {3, Text}, {1, Invalid}})) {
    case Signed:
      return Document(dice.Of<long long>({0, 1, 5, -3, Limits::min(), Limits::max()}));
    case Unsigned:
      return Document(dice.Of<unsigned long long>({1ull << 63, Unsigneds::max()}));
    case Float:
      return Document(dice.Of({0.1, 2.5, -0.75, 3.0, 1e300, -1e39}));
    case Boolean:
      return Document(dice.OnceIn(2));
    case Text:
      return Document(AnyText(dice));
    default:
      return {};
  }
}

Document AnyContainer(Dice& dice) {
  return dice.Of({Document(Document::Elements{}), Document(Document::Members{}), Nest({"d"}, Document(4LL)),
                  Document(Document::Elements{Document(true), Document(6LL)}),
                  Nest({"d"}, Document(std::string("deep")))});
}

Document AnyPart(Dice& dice) {
  return dice.OnceIn(6) ? AnyContainer(dice) : AnyScalar(dice);
}

// Mostly an object with the members that the names lead to.
Document AnyPayload(Dice& dice) {
  if (dice.OnceIn(5)) {
    return AnyPart(dice);
  }
  if (dice.OnceIn(9)) {
    return Nest({"r", "y"}, AnyPart(dice));
  }
  Document::Members members;
  for (std::size_t count = dice.Below(6); count > 0; --count) {
    const std::string name = dice.Of<const char*>({"a", "a", "b", "c", "a b", "a/b", "", "r"});
    if (Document(members).Find({name}) == nullptr) {
      members.emplace_back(name, AnyPart(dice));
    }
  }
  return Document(members);
}

Step AnySubscribe(Dice& dice) {
  Subscribe step{dice.Weighted<long long>({{6, 100},
                                           {4, 250},
                                           {4, 1000},
                                           {1, 0},
                                           {1, -100},
                                           {1, 86'400'000},
                                           {1, Limits::max()},
                                           {1, Limits::min()}}),
                 {},
                 !dice.OnceIn(30)};
  for (std::size_t count = dice.Below(5); count > 0; --count) {
    step.names.push_back(dice.OnceIn(25) ? std::nullopt : std::optional<std::string>(AnyName(dice)));
  }
  return step;
}

Step AnyUnsubscribe(Dice& dice) {
  Unsubscribe step;
  for (std::size_t count = dice.Below(4); count > 0; --count) {
    step.names.push_back(AnyName(dice));
  }
  return step;
}

Step AnyWrite(Dice& dice) {
  Write step{AnyName(dice), 0, 0, std::nullopt};
  step.type = dice.Weighted<unsigned>(
      {{4, Text}, {4, Boolean}, {6, Signed}, {4, Float}, {4, Unsigned}, {1, Invalid}, {1, 77}});
  if (step.type == Text && !dice.OnceIn(10)) {
    step.text = AnyText(dice);
  } else if (step.type == Float) {
    step.bits = std::bit_cast<unsigned long long>(dice.Of({0.1, -2.0, 0.0, 1e300}));
  } else {
    step.bits = dice.Of<unsigned long long>({0, 1, 256, 7, 1ull << 63, Unsigneds::max()});
  }
  return step;
}

Step AnyCall(Dice& dice) {
  Call step{dice.Of<const char*>(
                {"RunSensor", "StopSensor", "Read", "Create", "Update", "Delete", "Call", "read", ""}),
            std::nullopt, std::nullopt, std::nullopt};
  if (!dice.OnceIn(3)) {
    step.id = dice.Of<long long>({0, 7, -1});
  }
  if (!dice.OnceIn(6)) {
    step.uri = AnyUri(dice);
  }
  if (!dice.OnceIn(6)) {
    step.args = dice.Of<const char*>({"{\"x\":1}", "5", "null", "[", "", "\"text\""});
  }
  return step;
}

Step AnyHold(Dice& dice) {
  const std::string uri = AnyUri(dice);
  return Hold{uri, dice.OnceIn(5) ? std::nullopt : std::optional<Document>(AnyPayload(dice))};
}

Step AnyAnswers(Dice& dice) {
  const char* verb =
      dice.Of<const char*>({"Read", "Read", "Stream", "Stream", "StopStream", "Subscribe", "Unsubscribe",
                            "Update", "Call", "Start", "Stop", "Create", "Delete"});
  return Answers{verb, dice.Weighted<Mood>({{5, Mood::Obeys},
                                            {2, Mood::Acknowledges},
                                            {2, Mood::Refuses},
                                            {3, Mood::Silent},
                                            {1, Mood::Mumbles},
                                            {1, Mood::Payloads},
                                            {1, Mood::Raises}})};
}

Step AnyClock(Dice& dice, Clocks clocks) {
  if (clocks == Clocks::AlsoBackwards && dice.OnceIn(5)) {
    return Clock{dice.Of<long long>({-1000, -100'000, -3'000'000})};
  }
  return Clock{dice.Weighted<long long>({{3, 400},
                                         {4, 1000},
                                         {8, 100'000},
                                         {3, 1'000'000},
                                         {1, 4'900'000},
                                         {3, 5'000'000},
                                         {1, 5'001'000},
                                         {1, 90'000'000'000}})};
}

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

// The same batch with one name less, for each name.
template <typename Batch>
std::vector<Step> WithOneNameLess(const Batch& batch) {
  std::vector<Step> smaller;
  for (std::size_t i = 0; i < batch.names.size(); ++i) {
    Batch less = batch;
    less.names.erase(less.names.begin() + static_cast<std::ptrdiff_t>(i));
    smaller.push_back(less);
  }
  return smaller;
}

// Shrinking is mostly a matter of leaving out steps; a batch also loses names.
rc::Seq<Step> Smaller(const Step& step) {
  std::vector<Step> smaller;
  if (const auto* subscribe = std::get_if<Subscribe>(&step)) {
    smaller = WithOneNameLess(*subscribe);
  } else if (const auto* unsubscribe = std::get_if<Unsubscribe>(&step)) {
    smaller = WithOneNameLess(*unsubscribe);
  }
  return rc::seq::fromContainer(std::move(smaller));
}

}  // namespace

rc::Gen<History> AnyHistory(Clocks clocks, int steps) {
  const rc::Gen<Step> step([clocks](const rc::Random& random, int /*size*/) {
    Dice dice(random);
    return rc::shrinkable::shrinkRecur(AnyStep(dice, clocks), &Smaller);
  });
  return rc::gen::scale(steps / 100.0, rc::gen::container<History>(step));
}

}  // namespace ZoModel
