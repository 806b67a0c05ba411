#include "bench/json/documents.h"

std::string NestedText() {
  std::string text = "{";
  for (const char* group : {"limits", "measurement", "statistics", "temperatures"}) {
    text += std::string(text.size() == 1 ? "\"" : ",\"") + group + "\":{";
    for (int channel = 0; channel < 8; ++channel) {
      text += (channel == 0 ? "\"channel" : ",\"channel") + std::to_string(channel) +
              "\":{\"value\":" + std::to_string(channel) + ".5,\"unit\":\"mm\"}";
    }
    text += "}";
  }
  return text + "}";
}

std::string WideText(std::size_t members) {
  std::string text = "{";
  for (std::size_t i = 0; i < members; ++i) {
    text += (i == 0 ? "\"member_" : ",\"member_") + std::to_string(i) + "\":" + std::to_string(i);
  }
  return text + "}";
}
