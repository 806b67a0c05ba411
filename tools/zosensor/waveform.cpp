#include "tools/zosensor/waveform.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "tools/zosensor/memberreader.h"
#include "tools/zosensor/uri.h"
#include "zovyrnsdk/json/zojsoniterator.h"

namespace ZoSensor {
namespace {

constexpr double ShortestPeriod = 1e-6;
constexpr double LongestPeriod = 1e9;

// Where in its period a moment lies, from 0 to below 1.
double Phase(double seconds, double period, double phase) {
  const double turns = seconds / period + phase;
  return turns - std::floor(turns);
}

// How a numeric waveform becomes a JSON value: rounded, as an integer, or as an array of values one after the
// other.
struct Presentation {
  bool integer = false;
  int digits = -1;  // after the point; -1: as they are
  std::uint64_t count = 0;
  double spacing = 0;

  explicit Presentation(MemberReader& reader)
      : integer(reader.Flag("integer", false)),
        digits(reader.Has("digits") ? static_cast<int>(reader.Unsigned("digits", 0, 15)) : -1),
        count(reader.Unsigned("count", 0, 65536)),
        spacing(reader.Number("spacing_s", 0.001, 0)) {}

  ZoJson Value(double number) const {
    if (integer) {
      return ZoJson::Of(ZoJson::Of(std::round(number)).Get<long long>());
    }
    if (digits >= 0) {
      const double scale = std::pow(10.0, digits);
      const double rounded = std::round(number * scale) / scale;
      return ZoJson::Of(std::isfinite(rounded) ? rounded : number);
    }
    return ZoJson::Of(number);
  }
};

// Base of the waveforms that are a number at any time.
class NumericWave : public Waveform {
 public:
  explicit NumericWave(MemberReader& reader) : presentation(reader) {}

  ZoJson Sample(const SampleMoment& moment) override {
    if (presentation.count == 0) {
      return presentation.Value(Finite(moment));
    }
    ZoJson list = ZoJson::EmptyArray();
    SampleMoment each = moment;
    for (std::uint64_t i = 0; i < presentation.count; ++i) {
      each.seconds = moment.seconds + static_cast<double>(i) * presentation.spacing;
      list.Set("-", presentation.Value(Finite(each)));
    }
    return list;
  }

 protected:
  virtual double Number(const SampleMoment& moment) = 0;

 private:
  // JSON has no infinities; absurd parameters end at the largest number.
  double Finite(const SampleMoment& moment) {
    const double number = Number(moment);
    constexpr double Largest = std::numeric_limits<double>::max();
    return std::isnan(number) ? 0.0 : std::clamp(number, -Largest, Largest);
  }

  Presentation presentation;
};

class SineWave final : public NumericWave {
 public:
  explicit SineWave(MemberReader& reader)
      : NumericWave(reader),
        amplitude(reader.Number("amplitude", 1)),
        offset(reader.Number("offset", 0)),
        period(reader.Number("period_s", 10, ShortestPeriod, LongestPeriod)),
        phase(reader.Number("phase", 0)) {}

 protected:
  double Number(const SampleMoment& moment) override {
    return offset + amplitude * std::sin(2 * std::numbers::pi * Phase(moment.seconds, period, phase));
  }

 private:
  double amplitude, offset, period, phase;
};

// Base of those that run between two numbers.
class SpanWave : public NumericWave {
 public:
  explicit SpanWave(MemberReader& reader)
      : NumericWave(reader), from(reader.Number("from", 0)), to(reader.Number("to", 1)) {}

 protected:
  // 0 at from, 1 at to.
  virtual double Share(const SampleMoment& moment) = 0;
  double Number(const SampleMoment& moment) override {
    const double share = Share(moment);
    return from * (1 - share) + to * share;
  }

 private:
  double from, to;
};

// Of these, base of those that do so again and again.
class PeriodicWave : public SpanWave {
 public:
  explicit PeriodicWave(MemberReader& reader)
      : SpanWave(reader),
        period(reader.Number("period_s", 10, ShortestPeriod, LongestPeriod)),
        phase(reader.Number("phase", 0)) {}

 protected:
  double PhaseOf(const SampleMoment& moment) const { return Phase(moment.seconds, period, phase); }

 private:
  double period, phase;
};

class RampWave final : public PeriodicWave {
  using PeriodicWave::PeriodicWave;
  double Share(const SampleMoment& moment) override { return PhaseOf(moment); }
};

class TriangleWave final : public PeriodicWave {
  using PeriodicWave::PeriodicWave;
  double Share(const SampleMoment& moment) override { return 1 - std::abs(2 * PhaseOf(moment) - 1); }
};

class SquareWave final : public PeriodicWave {
 public:
  explicit SquareWave(MemberReader& reader) : PeriodicWave(reader), duty(reader.Number("duty", 0.5, 0, 1)) {}

 private:
  double Share(const SampleMoment& moment) override { return PhaseOf(moment) < duty ? 1 : 0; }
  double duty;
};

// Wanders between its bounds. The sum of three layers of interpolated random points: it looks like a random
// walk, is a function of time, and cannot drift away.
class WalkWave final : public SpanWave {
 public:
  explicit WalkWave(MemberReader& reader)
      : SpanWave(reader), period(reader.Number("period_s", 10, ShortestPeriod, LongestPeriod)) {}

 private:
  double Share(const SampleMoment& moment) override {
    const double turns = moment.seconds / period;
    return (4 * Layer(moment.seed, turns, 1) + 2 * Layer(moment.seed, turns * 3, 2) +
            Layer(moment.seed, turns * 11, 3)) /
           7;
  }
  static double Layer(std::uint64_t seed, double position, std::uint64_t layer) {
    const double floor = std::floor(position);
    const std::uint64_t key = MixBits(seed, layer);
    const auto point = static_cast<std::uint64_t>(std::clamp(floor, 0.0, 9e18));
    const double blend = position - floor;
    const double smooth = blend * blend * (3 - 2 * blend);
    return MixUnit(key, point) * (1 - smooth) + MixUnit(key, point + 1) * smooth;
  }
  double period;
};

class NoiseWave final : public SpanWave {
  using SpanWave::SpanWave;
  double Share(const SampleMoment& moment) override {
    // The time's bits tell the elements of an array apart, which share one sample number.
    return MixUnit(MixBits(moment.seed, moment.index), static_cast<std::uint64_t>(moment.seconds * 1e6));
  }
};

// Counts samples, modulo 2^64 or the number given.
class CounterWave final : public Waveform {
 public:
  explicit CounterWave(MemberReader& reader)
      : start(reader.Unsigned("start", 0)),
        step(reader.Unsigned("step", 1)),
        modulo(reader.Unsigned("modulo", 0)) {}

  ZoJson Sample(const SampleMoment& moment) override {
    const std::uint64_t value = start + moment.index * step;
    return ZoJson::Of(modulo == 0 ? value : value % modulo);
  }

 private:
  std::uint64_t start, step, modulo;
};

// One value after the other, of any kind.
class CycleWave final : public Waveform {
 public:
  explicit CycleWave(MemberReader& reader) : each(reader.Number("each_s", 1, ShortestPeriod, LongestPeriod)) {
    const ZoJson list = reader.Any("values");
    if (!list.IsArray() || list.Size() == 0) {
      reader.Fail("values", "\"values\" must be an array of at least one value");
    }
    for (ZoJsonIterator it(list); it.Valid(); it.Next()) {
      values.push_back(it.Value());
    }
  }

  ZoJson Sample(const SampleMoment& moment) override {
    const double turn = std::fmod(std::floor(moment.seconds / each), static_cast<double>(values.size()));
    return values[static_cast<std::size_t>(turn)];
  }

 private:
  std::vector<ZoJson> values;
  double each;
};

// Approaches gain times a set-point plus offset, as a machine would.
class FollowWave final : public NumericWave {
 public:
  explicit FollowWave(MemberReader& reader)
      : NumericWave(reader),
        source(Uri::Parse(reader.RequiredText("source")).path),
        member(reader.Text("at", FollowedByDefault)),
        lag(reader.Number("lag_s", 1, 0, LongestPeriod)),
        gain(reader.Number("gain", 1)),
        offset(reader.Number("offset", 0)),
        ripple(reader.Number("ripple", 0)),
        value(reader.Number("start", 0)) {}

  std::string Source() const override { return source; }

 protected:
  double Number(const SampleMoment& moment) override {
    if (moment.lookup != nullptr) {
      if (const auto found = (*moment.lookup)(source, member)) {
        target = gain * *found + offset;
      }
    }
    const double passed = std::max(0.0, moment.seconds - last);
    last = std::max(last, moment.seconds);
    const double aim = target.value_or(value);
    value = lag > 0 ? aim + (value - aim) * std::exp(-passed / lag) : aim;
    return value + ripple * (2 * MixUnit(moment.seed, moment.index) - 1);
  }

 private:
  std::string source;
  ZoJsonPointer member;
  double lag, gain, offset, ripple, value;
  double last = 0;
  std::optional<double> target;
};

template <typename Wave>
std::unique_ptr<Waveform> Make(MemberReader& reader) {
  return std::make_unique<Wave>(reader);
}

struct Maker {
  std::string_view name;
  std::unique_ptr<Waveform> (*make)(MemberReader&);
};

constexpr Maker Makers[] = {
    {"sine", Make<SineWave>},     {"ramp", Make<RampWave>},       {"triangle", Make<TriangleWave>},
    {"square", Make<SquareWave>}, {"walk", Make<WalkWave>},       {"noise", Make<NoiseWave>},
    {"cycle", Make<CycleWave>},   {"counter", Make<CounterWave>}, {"follow", Make<FollowWave>},
};

}  // namespace

std::unique_ptr<Waveform> MakeWaveform(const ZoJson& description, const ZoJsonPointer& where) {
  MemberReader reader(description, where, "a waveform");
  const std::string name = reader.RequiredText("wave");
  std::string names;
  for (const Maker& maker : Makers) {
    if (maker.name == name) {
      auto wave = maker.make(reader);
      reader.Finish();
      return wave;
    }
    names += fmt::format("{}{}", names.empty() ? "" : ", ", maker.name);
  }
  reader.Fail("wave", fmt::format("there is no waveform \"{}\"; there are {}", name, names));
}

std::uint64_t MixBits(std::uint64_t seed, std::uint64_t position) {
  std::uint64_t bits = seed + 0x9e3779b97f4a7c15U * (position + 1);
  bits = (bits ^ (bits >> 30)) * 0xbf58476d1ce4e5b9U;
  bits = (bits ^ (bits >> 27)) * 0x94d049bb133111ebU;
  return bits ^ (bits >> 31);
}

double MixUnit(std::uint64_t seed, std::uint64_t position) {
  return static_cast<double>(MixBits(seed, position) >> 11) * 0x1.0p-53;
}

}  // namespace ZoSensor
