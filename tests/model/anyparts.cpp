#include "tests/model/anyparts.h"

#include <bit>
#include <limits>

#include "tests/model/item.h"

namespace ZoModel {

namespace {

using Limits = std::numeric_limits<long long>;
using Unsigneds = std::numeric_limits<unsigned long long>;

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

}  // namespace

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

Subscribe AnySubscribe(Dice& dice) {
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

Unsubscribe AnyUnsubscribe(Dice& dice) {
  Unsubscribe step;
  for (std::size_t count = dice.Below(4); count > 0; --count) {
    step.names.push_back(AnyName(dice));
  }
  return step;
}

Write AnyWrite(Dice& dice) {
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

Call AnyCall(Dice& dice) {
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

Hold AnyHold(Dice& dice) {
  const std::string uri = AnyUri(dice);
  return Hold{uri, dice.OnceIn(5) ? std::nullopt : std::optional<Document>(AnyPayload(dice))};
}

Answers AnyAnswers(Dice& dice) {
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

Clock AnyClock(Dice& dice, Clocks clocks) {
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

}  // namespace ZoModel
