#include "bench/json/payload.h"

#include <cstddef>
#include <cstdint>
#include <random>

namespace {

std::string Leaf(std::size_t index, std::mt19937_64& random) {
  switch (index % 6) {
    case 0:
      return std::to_string(random() % 100000);
    case 1:
      return std::to_string(static_cast<double>(random() % 100000000) / 10000.0);
    case 2:
      return std::to_string(static_cast<double>(random() % 100000) / 7.0);
    case 3:
      return random() % 2 == 0 ? "true" : "false";
    case 4:
      return "\"running\"";
    default:
      return "\"2024-05-17T08:" + std::to_string(10 + random() % 50) + ":00Z\"";
  }
}

}  // namespace

std::string PayloadText() {
  std::mt19937_64 random(20240517);
  const char* groups[] = {"identification", "measurement", "statistics",
                          "temperatures",   "diagnosis",   "limits"};
  std::string text = "{";
  for (std::size_t group = 0; group < 6; ++group) {
    text += std::string(group == 0 ? "\"" : ",\"") + groups[group] + "\":{";
    for (std::size_t leaf = 0; leaf < 10; ++leaf) {
      text += (leaf == 0 ? "\"" : ",\"") + std::string(groups[(group + leaf) % 6]).substr(0, 6) + "_value_" +
              std::to_string(leaf) + "\":" + Leaf(group + leaf, random);
    }
    text += "}";
  }
  return text + "}";
}
