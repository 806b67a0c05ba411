// What drives one member of a resource: a value for each sample.
//
// A waveform is a function of the acquisition time and the seed alone (only Follow also remembers where it
// was), so samples that nobody looked at need not be computed, and one seed gives one run. Threads: the I/O
// thread alone. Owner: the resource that it drives.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "zovyrnsdk/json/zojson.h"
#include "zovyrnsdk/json/zojsonpointer.h"

namespace ZoSensor {

// The moment that is asked for.
struct SampleMoment {
  double seconds = 0;       // acquisition time
  std::uint64_t index = 0;  // number of the sample since acquisition first started
  std::uint64_t seed = 0;
  // The number at a member of another resource; nothing when there is none.
  const std::function<std::optional<double>(const std::string& path, const ZoJsonPointer& at)>* lookup =
      nullptr;
};

class Waveform {
 public:
  virtual ~Waveform() = default;
  virtual ZoJson Sample(const SampleMoment& moment) = 0;
  // The path of the resource whose content the samples depend on; empty for none.
  virtual std::string Source() const { return {}; }
};

// Where a follower looks in its source when its description does not say.
inline constexpr const char* FollowedByDefault = "/value";

// Reads the description of a waveform. DescriptionError names the place of what is wrong.
std::unique_ptr<Waveform> MakeWaveform(const ZoJson& description, const ZoJsonPointer& where);

// A well-mixed number from a seed and a position, the same on every machine.
std::uint64_t MixBits(std::uint64_t seed, std::uint64_t position);
// The same as a number from 0 to below 1.
double MixUnit(std::uint64_t seed, std::uint64_t position);

}  // namespace ZoSensor
