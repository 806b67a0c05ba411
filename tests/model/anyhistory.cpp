#include "tests/model/anyhistory.h"

#include <bit>
#include <limits>

#include "tests/model/item.h"

namespace ZoModel {

namespace {

using rc::Gen;
namespace gen = rc::gen;

// Few enough names to meet again and to share resources and patterns; and the odd ones.
Gen<std::string> AnyName() {
  static const std::vector<std::string> known = {
      "/r/x#/a", "/r/x#/b",    "/r/x#/c/d", "/r/x#", "/r/y#/a", "/r/y#/a b", "/r/y#/a%20b",
      "/r/y",    "/r/x#a",     "r#/a",      "/r#/a", "",        "/list#/1",  "/list#/b/0",
      "#/a",     "/r/y#/a~1b", "/r/x#//a",  "#",     "/q#/a",   "/r/x##",    "/r/y#/c/d/%20"};
  const auto odd = gen::mapcat(gen::inRange(1, 9), [](int length) {
    return gen::map(gen::container<std::vector<std::string>>(
                        static_cast<std::size_t>(length),
                        gen::element<std::string>("/", "#", "a", "b", "r", "x", "%20", " ", "~0", "~1", "~",
                                                  "0", "é", "\t")),
                    [](const std::vector<std::string>& parts) {
                      std::string name;
                      for (const std::string& part : parts) {
                        name += part;
                      }
                      return name;
                    });
  });
  return gen::weightedOneOf<std::string>({{12, gen::elementOf(known)}, {1, odd}});
}

Gen<std::string> AnyUri() {
  return gen::element<std::string>("/r/x", "/r/x", "/r/x", "/r/y", "/r/y", "r", "/r", "", "/list", "/q");
}

Gen<std::string> AnyText() {
  return gen::element<std::string>("", "text", "another", "INVALID", "0", "with \"quotes\"", "é");
}

Gen<Document> AnyScalar() {
  using Unsigneds = std::numeric_limits<unsigned long long>;
  using Integers = std::numeric_limits<long long>;
  const auto of = [](auto values) { return gen::map(values, [](const auto& v) { return Document(v); }); };
  return gen::weightedOneOf<Document>(
      {{4, of(gen::element<long long>(0, 1, 5, -3, Integers::min(), Integers::max()))},
       {1, of(gen::element<unsigned long long>(1ull << 63, Unsigneds::max()))},
       {2, of(gen::element<double>(0.1, 2.5, -0.75, 3.0, 1e300, -1e39))},
       {2, of(gen::arbitrary<bool>())},
       {3, of(AnyText())},
       {1, gen::just(Document())}});
}

Gen<Document> AnyContainer() {
  return gen::element<Document>(Document(Document::Elements{}), Document(Document::Members{}),
                                Nest({"d"}, Document(4LL)),
                                Document(Document::Elements{Document(true), Document(6LL)}),
                                Nest({"d"}, Document(std::string("deep"))));
}

Gen<Document> AnyPart() {
  return gen::weightedOneOf<Document>({{5, AnyScalar()}, {1, AnyContainer()}});
}

// Mostly an object with the members that the names lead to.
Gen<Document> AnyPayload() {
  using Members = std::vector<std::pair<std::string, Document>>;
  const auto member =
      gen::pair(gen::element<std::string>("a", "a", "b", "c", "a b", "a/b", "", "r"), AnyPart());
  const auto members = gen::map(gen::resize(6, gen::container<Members>(member)), [](const Members& all) {
    Document::Members unique;
    for (const auto& one : all) {
      if (Document(unique).Find({one.first}) == nullptr) {
        unique.push_back(one);
      }
    }
    return Document(unique);
  });
  const auto nested = gen::map(AnyPart(), [](const Document& part) { return Nest({"r", "y"}, part); });
  return gen::weightedOneOf<Document>({{8, members}, {1, nested}, {2, AnyPart()}});
}

// One value in so many is missing.
template <typename T>
Gen<std::optional<T>> MissingOnceIn(std::size_t times, Gen<T> value) {
  return gen::weightedOneOf<std::optional<T>>(
      {{times - 1, gen::map(std::move(value), [](const T& one) { return std::optional<T>(one); })},
       {1, gen::just(std::optional<T>())}});
}

Step AnySubscribe() {
  using Limits = std::numeric_limits<long long>;
  const auto interval = gen::weightedElement<long long>({{6, 100},
                                                         {4, 250},
                                                         {4, 1000},
                                                         {1, 0},
                                                         {1, -100},
                                                         {1, 86'400'000},
                                                         {1, Limits::max()},
                                                         {1, Limits::min()}});
  const auto names = gen::resize(
      4, gen::container<std::vector<std::optional<std::string>>>(MissingOnceIn<std::string>(25, AnyName())));
  return Subscribe{*interval, *names, *gen::inRange(0, 30) != 29};
}

Step AnyUnsubscribe() {
  return Unsubscribe{*gen::resize(3, gen::container<std::vector<std::string>>(AnyName()))};
}

Step AnyWrite() {
  const auto type = *gen::weightedElement<unsigned>(
      {{4, Text}, {4, Boolean}, {6, Signed}, {4, Float}, {4, Unsigned}, {1, Invalid}, {1, 77}});
  if (type == Text) {
    return Write{*AnyName(), type, 0, *MissingOnceIn<std::string>(10, AnyText())};
  }
  const auto number = type == Float
                          ? gen::map(gen::element(0.1, -2.0, 0.0, 1e300),
                                     [](double value) { return std::bit_cast<unsigned long long>(value); })
                          : gen::element<unsigned long long>(0, 1, 256, 7, 1ull << 63,
                                                             std::numeric_limits<unsigned long long>::max());
  return Write{*AnyName(), type, *number, std::nullopt};
}

Step AnyCall() {
  const auto method = gen::element<std::string>("RunSensor", "StopSensor", "Read", "Create", "Update",
                                                "Delete", "Call", "read", "");
  const auto body = gen::element<std::string>("{\"x\":1}", "5", "null", "[", "", "\"text\"");
  return Call{*method, *MissingOnceIn<long long>(3, gen::element<long long>(0, 7, -1)),
              *MissingOnceIn<std::string>(6, AnyUri()), *MissingOnceIn<std::string>(6, body)};
}

Step AnyPush() {
  return Push{*AnyUri(), *AnyPayload()};
}

Step AnyHold() {
  return Hold{*AnyUri(), *MissingOnceIn<Document>(5, AnyPayload())};
}

Step AnyAnswers() {
  return Answers{
      *gen::element<std::string>("Read", "Read", "Stream", "Stream", "StopStream", "Subscribe", "Unsubscribe",
                                 "Update", "Call", "Start", "Stop", "Create", "Delete"),
      *gen::weightedElement<Mood>({{5, Mood::Obeys},
                                   {2, Mood::Acknowledges},
                                   {2, Mood::Refuses},
                                   {3, Mood::Silent},
                                   {1, Mood::Mumbles},
                                   {1, Mood::Payloads},
                                   {1, Mood::Raises}})};
}

Gen<Step> AnyClock(Clocks clocks) {
  const auto forwards = gen::weightedElement<long long>({{3, 400},
                                                         {4, 1000},
                                                         {8, 100'000},
                                                         {3, 1'000'000},
                                                         {1, 4'900'000},
                                                         {3, 5'000'000},
                                                         {1, 5'001'000},
                                                         {1, 90'000'000'000}});
  const auto backwards = gen::element<long long>(-1000, -100'000, -3'000'000);
  const std::size_t often = clocks == Clocks::AlsoBackwards ? 1 : 0;
  return gen::map(gen::weightedOneOf<long long>({{4, forwards}, {often, backwards}}),
                  [](long long by) { return Step(Clock{by}); });
}

Gen<Step> AnyStep(Clocks clocks) {
  const auto by = [](Step (*make)()) { return gen::exec([make] { return make(); }); };
  return gen::weightedOneOf<Step>(
      {{8, by(AnySubscribe)},
       {4, by(AnyUnsubscribe)},
       {6, gen::map(AnyName(), [](const std::string& name) { return Step(Read{name}); })},
       {6, by(AnyWrite)},
       {2, by(AnyCall)},
       {12, gen::just(Step(MonitorPass{}))},
       {4, gen::just(Step(RetryPass{}))},
       {2, gen::just(Step(Trim{}))},
       {1, gen::map(AnyName(), [](const std::string& name) { return Step(LookUp{name}); })},
       {1, gen::just(Step(Recreate{}))},
       {10, by(AnyPush)},
       {6, by(AnyHold)},
       {3, by(AnyAnswers)},
       {1, gen::map(gen::weightedElement<bool>({{3, true}, {1, false}}),
                    [](bool up) { return Step(Connection{up}); })},
       {10, AnyClock(clocks)}});
}

}  // namespace

Gen<History> AnyHistory(Clocks clocks, int steps) {
  return gen::scale(steps / 100.0, gen::container<History>(AnyStep(clocks)));
}

}  // namespace ZoModel
