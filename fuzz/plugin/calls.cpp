#include "fuzz/plugin/calls.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdlib>
#include <optional>
#include <string>
#include <vector>

#include "fuzz/json/require.h"
#include "fuzz/plugin/seat.h"

namespace ZoFuzz {

namespace {

constexpr int mostSteps = 300;
// Making an instance takes longest, and a simulator has a thread of its own.
constexpr int mostInstances = 6;
constexpr int mostSimulators = 1;

// Up to the divider, which is taken off too; all that is left without one.
std::string_view Take(std::string_view& text, char divider) {
  const std::size_t end = std::min(text.find(divider), text.size());
  const std::string_view part = text.substr(0, end);
  text.remove_prefix(std::min(end + 1, text.size()));
  return part;
}

Seat::Name NameOf(std::string_view field) {
  // A host's texts end with their first zero byte.
  return field == "?" ? Seat::Name() : Seat::Name(std::string(field).c_str());
}

std::vector<Seat::Name> NamesOf(std::string_view fields) {
  std::vector<Seat::Name> names;
  while (!fields.empty()) {
    names.push_back(NameOf(Take(fields, '|')));
  }
  return names;
}

std::optional<ZoJson> Parsed(std::string_view text) {
  try {
    return ZoJson::ParseString(text);
  } catch (const ZoJsonError&) {
    return std::nullopt;
  }
}

template <typename Number>
Number NumberOf(std::string_view& text) {
  Number number{};
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  return number;
}

Seat::Batch BatchOf(std::string_view letter) {
  return letter == "n"   ? Seat::Batch::NoNames
         : letter == "r" ? Seat::Batch::NoResults
         : letter == "-" ? Seat::Batch::Negative
                         : Seat::Batch::Whole;
}

void RefuseCreation(std::string_view what) {
  const ioHandlerParam param{};
  int marker = 0;
  void* handle = &marker;
  const int result = CreateIoInstance(what == "a" ? nullptr : "simulator", 1, what == "p" ? nullptr : &param,
                                      what == "a" || what == "p" ? &handle : nullptr);
  Require(result == 1, "an instance is not made of a null pointer");
  Require(handle == &marker, "a refused creation writes no handle");
}

class Play {
 public:
  void Line(std::string_view line) {
    if (line.size() < 2 || (line[1] != '0' && line[1] != '1')) {
      return;
    }
    Seat& seat = line[1] == '0' ? seats[0] : seats[1];
    const char step = line[0];
    line.remove_prefix(std::min<std::size_t>(3, line.size()));
    if (!HostsStep(seat, step, line) && !Pass(seat, step)) {
      SensorsStep(seat, step, line);
    }
  }

 private:
  bool HostsStep(Seat& seat, char step, std::string_view rest) {
    switch (step) {
      case 'c':
        return Create(seat, rest), true;
      case 'd':
        return seat.Destroy(), true;
      case 'x':
        return RefuseCreation(rest), true;
      case 'r':
        return seat.Read(NameOf(rest)), true;
      case 'w':
        return Write(seat, rest), true;
      case 's': {
        std::string_view first = Take(rest, '|');
        const auto interval = NumberOf<long long>(first);
        return seat.Subscribe(interval, NamesOf(rest), BatchOf(first)), true;
      }
      case 'u': {
        const std::string_view first = Take(rest, '|');
        return seat.Unsubscribe(NamesOf(rest), BatchOf(first)), true;
      }
      case 'm': {
        const std::string_view method = Take(rest, '|');
        return seat.Call(NameOf(method), NameOf(rest)), true;
      }
      default:
        return false;
    }
  }

  static bool Pass(Seat& seat, char step) {
    switch (step) {
      case 'p':
        return seat.Pass(), true;
      case 'i':
        return seat.Retry(), true;
      case 't':
        return seat.Trim(), true;
      case 'v':
        return seat.Simulate(), true;
      default:
        return false;
    }
  }

  static void SensorsStep(Seat& seat, char step, std::string_view rest) {
    if (step == 'n') {
      seat.SetConnected(rest != "0");
      return;
    }
    const std::string first(Take(rest, '|'));
    const std::optional<ZoJson> document = Parsed(rest);
    if (step == 'a') {
      seat.SetAnswer(first, document.value_or(ZoJson()));
    } else if (step == '=' && document) {
      seat.SetContent(first, *document);
    } else if (step == 'k' && document) {
      seat.Push(first, *document);
    }
  }

  void Create(Seat& seat, std::string_view flags) {
    const auto has = [flags](char flag) { return flags.find(flag) != std::string_view::npos; };
    const bool simulated = has('s');
    int& made = simulated ? simulators : instances;
    if (!seat.IsTaken() && made < (simulated ? mostSimulators : mostInstances)) {
      ++made;
      seat.Create(simulated ? Hosted::Kind::Simulator : Hosted::Kind::Fake, !has('v'), !has('m'));
    }
  }

  static void Write(Seat& seat, std::string_view rest) {
    std::string_view type = Take(rest, '|');
    const Seat::Name name = NameOf(Take(rest, '|'));
    const Seat::Name text = NameOf(rest);
    if (type.empty()) {
      seat.Write(name, nullptr);
      return;
    }
    ioDataValue value{};
    value.type = NumberOf<std::uint32_t>(type);
    if (value.type == enumtype_string) {
      value.value.text = text ? text->c_str() : nullptr;
    } else if (value.type == enumtype_double) {
      value.value.float64 = std::strtod(std::string(rest).c_str(), nullptr);
    } else if (rest.starts_with('-')) {
      value.value.int64 = NumberOf<std::int64_t>(rest);
    } else {
      value.value.uint64 = NumberOf<std::uint64_t>(rest);
    }
    seat.Write(name, &value);
  }

  std::array<Seat, 2> seats;
  int instances = 0;  // on fake sensors
  int simulators = 0;
};

}  // namespace

void PlayCalls(std::string_view script) {
  Play play;
  for (int steps = 0; !script.empty() && steps < mostSteps; ++steps) {
    play.Line(Take(script, '\n'));
  }
}

}  // namespace ZoFuzz
