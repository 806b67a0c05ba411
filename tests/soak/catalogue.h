// The items that the soak uses, and the sensor that has them. Numbers tell where they come from, so that any value can be
// judged by itself: counters carry sensor, start and sample, written values the sensor, the item and the write.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace ZoSoak {

enum class ItemKind {
  Counter,     // an integer that counts samples, over all starts of the sensor
  BigCounter,  // the same beyond 2^63
  Ramp,        // a float, 0 to 1
  Text,        // says which sensor and start it is from
  Flag,        // alternates
  Set,         // only host threads write it, each one its own
  Made,        // a resource that host threads create and delete
  Odd,         // a name that leads nowhere
  SimulatedInteger,
  SimulatedText,
  SimulatedFlag,
  SimulatedFloat,
};

struct Item {
  std::string name;
  std::string uri;
  ItemKind kind = ItemKind::Odd;
  bool changes = false;  // a healthy sensor changes it by itself, at least once a second
  int number = 0;        // for Set and Made: whose it is
  double rate = 0;       // samples a second
};

using Items = std::vector<Item>;

// Host threads that have a Set and a Made item.
inline constexpr int kMostThreads = 8;

const Items& SensorItems();
const Items& SimulatorItems();

// For the sensor with this number, counted from 0, at its so-manieth start, counted from 1.
std::string ResourceFile(int sensor, int start);

// The values of counters and of writes. A write's number is counted from 1.
std::int64_t CounterValue(int sensor, int start, std::int64_t sample);
std::int64_t WrittenValue(int sensor, int item, std::uint64_t write);
std::string TextValue(int sensor, int start, int which);
inline constexpr int kTexts = 3;
inline constexpr std::uint64_t kBigBase = std::uint64_t{1} << 63U;

}  // namespace ZoSoak
