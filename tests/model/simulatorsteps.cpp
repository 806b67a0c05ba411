#include "tests/model/simulatorsteps.h"

#include <limits>
#include <utility>

namespace ZoModel::Simulator {

namespace {

using Limits = std::numeric_limits<long long>;
using Unsigneds = std::numeric_limits<unsigned long long>;

struct Teller {
  std::string operator()(const NewItem& step) const { return "new item " + Quote(step.name); }
  std::string operator()(const Verb& step) const {
    return step.name + " " + Quote(step.uri) + " " + step.payload.Text();
  }
  std::string operator()(const Pass& step) const { return step.slow ? "slow pass" : "pass"; }
  std::string operator()(const Wait& step) const { return "wait " + std::to_string(step.by) + " µs"; }
};

}  // namespace

// Few, so that they meet: places below places, places in arrays, one place by two names.
std::string AnyItemName(Dice& dice) {
  if (dice.OnceIn(2)) {
    return dice.Of<const char*>({"/a#/int", "/a#/float", "/a#/string", "/a#/bool", "/a#/b/int", "/a/b#/int",
                                 "/a/b#/float", "/a#/b", "/a/b#", "/list#/1", "/list/0#/string"});
  }
  if (dice.OnceIn(4)) {
    // Those that cannot be once there is an array end every pass, so there are not many of them.
    return dice.Of<const char*>({"/list#/-",
                                 "/list#/-/int",
                                 "/list/-#/int",
                                 "/list/x#/int",
                                 "/list#/01",
                                 "/list#/x",
                                 "/a#/list/x/y",
                                 "/list/0#/-",
                                 "",
                                 "#",
                                 "/",
                                 "/#",
                                 "#/int",
                                 "/#/int",
                                 "//#/bool",
                                 "a/b",
                                 "/a##",
                                 "/a#/~1b/int",
                                 "/a~1b#/float",
                                 "/a b#/string",
                                 "/a#/an%20int",
                                 "~0#~0/bool",
                                 "/float/bool#/v",
                                 "/bool/string#",
                                 "/string/float#/b",
                                 "/a#/stringint"});
  }
  return dice.Of<const char*>(
      {"/a#/int",       "/a#/b/int",    "/a/b#/int",    "a/b#int",         "/a/b#",          "/a#",
       "/a#/b",         "/a#/uint",     "/a#/b/uint",   "/a#/float",       "/a/b#/float",    "/a#/b/double",
       "/a#/string",    "/a/b#/string", "/a/b/string#", "/a#/bool",        "/a/b#/bool",     "/a#/b/c/bool",
       "/list#/0",      "/list#/1/int", "/list#/2",     "/list/0#/string", "/list/1#/float", "/list#",
       "/list#/0/bool", "/int",         "/a#/list/0",   "/a#/list/1/uint", "/a/list#/1",     "/float#/v",
       "/string#/v",    "/bool#"});
}

std::string AnyResourceUri(Dice& dice) {
  if (dice.OnceIn(2)) {
    return dice.Of<const char*>({"/a", "/a", "/a/b", "/list", "/list", "/list/-"});
  }
  if (dice.OnceIn(5)) {
    return dice.Of<const char*>({"", "/", "a", "list/1", "/list/-", "/list/3", "/list/01", "/list/x",
                                 "/list/x/y", "/a/list/-", "/a~1b", "/a b", "/nothing", "/odd ~ %20 #"});
  }
  return dice.Of<const char*>({"/a", "/a/b", "/a/b/string", "/a/int", "/list", "/list", "/list/0", "/list/1",
                               "/a/list", "/float", "/string", "/bool", "/int"});
}

namespace {

Document AnyScalar(Dice& dice) {
  switch (dice.Below(6)) {
    case 0:
      return Document(dice.Of<long long>({0, 1, 99, 100, 101, -1, -2'147'483'648, 2'147'483'647,
                                          2'147'483'648, Limits::min(), Limits::max()}));
    case 1:
      return Document(dice.Of<unsigned long long>({1ull << 63, Unsigneds::max()}));
    case 2:
      return Document(dice.Of({0.0, 0.1, 2.5, -0.05, 99.95, 100.85, 100.89, 100.9, 100.8, 100.95, 101.0,
                               16'777'217.5, -3.75, 1e-300, 1e300, -1e39}));
    case 3:
      return Document(dice.OnceIn(2));
    case 4:
      return Document(std::string(dice.Of<const char*>(
          {"", "Hello World", "x", "azAZ", "@[`{ 0", "tab\there", "with \"quotes\"", "é", "ÄÖß"})));
    default:
      return {};
  }
}

}  // namespace

Document AnyPayload(Dice& dice, int depth) {
  if (depth == 0 || dice.OnceIn(3)) {
    return AnyScalar(dice);
  }
  if (dice.OnceIn(3)) {
    Document::Elements elements;
    for (std::size_t count = dice.Below(4); count > 0; --count) {
      elements.push_back(AnyPayload(dice, depth - 1));
    }
    return Document(elements);
  }
  Document::Members members;
  for (std::size_t count = dice.Below(5); count > 0; --count) {
    const std::string name = dice.Of<const char*>(
        {"b", "b", "int", "uint", "float", "string", "bool", "list", "v", "c", "", "a b", "/b"});
    if (Document(members).Find({name}) == nullptr) {
      members.emplace_back(name, AnyPayload(dice, depth - 1));
    }
  }
  return Document(members);
}

namespace {

// What the items of a resource are likely to find.
Document AnyResource(Dice& dice) {
  Document::Members members;
  if (dice.OnceIn(2)) {
    members.emplace_back("int", Document(dice.Of({98LL, 99LL, 100LL})));
  }
  for (const char* name : {"float", "string", "bool", "b"}) {
    if (dice.OnceIn(2)) {
      members.emplace_back(name, AnyScalar(dice));
    }
  }
  return Document(members);
}

Verb AnyVerb(Dice& dice) {
  const char* name = dice.Weighted<const char*>({{16, "Update"},
                                                 {5, "Read"},
                                                 {3, "Create"},
                                                 {5, "Delete"},
                                                 {1, "Call"},
                                                 {1, "Stream"},
                                                 {1, "StopStream"},
                                                 {1, "Subscribe"},
                                                 {1, "Unsubscribe"},
                                                 {1, "Start"},
                                                 {1, "Stop"},
                                                 {2, "IsRunning"},
                                                 {1, "IsConnected"}});
  const std::string uri = AnyResourceUri(dice);
  if (uri == "/list" && dice.OnceIn(2)) {
    return Verb{name, uri, Document(Document::Elements{AnyPayload(dice, 1), AnyPayload(dice, 1)})};
  }
  return Verb{name, uri, dice.OnceIn(2) ? AnyResource(dice) : AnyPayload(dice, 3)};
}

Step AnyStep(Dice& dice) {
  switch (dice.Weighted<int>({{8, 0}, {10, 1}, {9, 2}, {2, 3}})) {
    case 0:
      return NewItem{AnyItemName(dice)};
    case 1:
      return AnyVerb(dice);
    case 2:
      return Pass{!dice.OnceIn(3)};
    default:
      return Wait{dice.Of<long long>({0, 400, 1000, 1'000'000})};
  }
}

// A step in simpler words, for a history that fails.
rc::Seq<Step> Simpler(const Step& step) {
  std::vector<Step> simpler;
  if (const auto* verb = std::get_if<Verb>(&step); verb != nullptr && !verb->payload.IsNull()) {
    simpler.emplace_back(Verb{verb->name, verb->uri, {}});
    if (const auto* members = std::get_if<Document::Members>(&verb->payload.content)) {
      for (std::size_t i = 0; i < members->size(); ++i) {
        Document::Members fewer = *members;
        fewer.erase(fewer.begin() + static_cast<std::ptrdiff_t>(i));
        simpler.emplace_back(Verb{verb->name, verb->uri, Document(fewer)});
      }
    }
  }
  return rc::seq::fromContainer(std::move(simpler));
}

}  // namespace

std::string Describe(const Step& step) {
  return std::visit(Teller(), step);
}

void showValue(const History& history, std::ostream& out) {
  out << history.size() << " steps\n";
  for (const Step& step : history) {
    out << "  " << Describe(step) << "\n";
  }
}

rc::Gen<History> AnyHistory(int steps) {
  const rc::Gen<Step> step([](const rc::Random& random, int /*size*/) {
    Dice dice(random);
    return rc::shrinkable::shrinkRecur(AnyStep(dice), &Simpler);
  });
  return rc::gen::scale(steps / 100.0, rc::gen::container<History>(step));
}

}  // namespace ZoModel::Simulator
