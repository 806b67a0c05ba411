#include "tools/zosensor/resource.h"

#include <utility>

namespace ZoSensor {
namespace {

// FNV-1a: the same on every machine, unlike std::hash.
std::uint64_t HashText(const std::string& text) {
  std::uint64_t hash = 0xcbf29ce484222325U;
  for (const char c : text) {
    hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3U;
  }
  return hash;
}

}  // namespace

Resource::Resource(std::string resourcePath, ZoJson initial)
    : path(std::move(resourcePath)), content(std::move(initial)) {}

const SharedText& Resource::Text() {
  if (text == nullptr) {
    text = ShareText(content.ToString());
  }
  return text;
}

bool Resource::SetContent(ZoJson next, SharedText printed) {
  if (next == content) {
    return false;
  }
  content = std::move(next);
  text = std::move(printed);
  return true;
}

void Resource::AddDrive(ZoJsonPointer member, std::unique_ptr<Waveform> wave) {
  rules.driven.push_back(member);
  const std::uint64_t salt = HashText(path + "#" + member.ToString());
  drives.push_back({std::move(member), std::move(wave), salt});
}

bool Resource::Sample(const SampleMoment& moment) {
  if (drives.empty() || lastIndex == moment.index) {
    return false;
  }
  lastIndex = moment.index;
  ZoJson next = content;
  for (const Drive& drive : drives) {
    SampleMoment own = moment;
    own.seed ^= drive.salt;
    next.Set(drive.member, drive.wave->Sample(own));
  }
  return SetContent(std::move(next));
}

}  // namespace ZoSensor
