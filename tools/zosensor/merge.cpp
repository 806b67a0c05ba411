#include "tools/zosensor/merge.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <optional>
#include <string_view>
#include <utility>

#include <fmt/format.h>

#include "zovyrnsdk/json/zojsoniterator.h"

namespace ZoSensor {
namespace {

using Path = std::vector<std::string>;

bool LiesAtOrBelow(const Path& path, const ZoJsonPointer& top) {
  const auto& segments = top.Segments();
  return segments.size() <= path.size() &&
         std::equal(segments.begin(), segments.end(), path.begin(),
                    [](const ZoJsonPointer::Segment& segment, const std::string& name) {
                      return segment.name == name;
                    });
}

bool LiesAbove(const Path& path, const ZoJsonPointer& lower) {
  const auto& segments = lower.Segments();
  return path.size() < segments.size() &&
         std::equal(path.begin(), path.end(), segments.begin(),
                    [](const std::string& name, const ZoJsonPointer::Segment& segment) {
                      return segment.name == name;
                    });
}

// "5", not "05" nor "+5": the index below size that the name is, if it is one.
bool IsElement(std::string_view name, std::size_t size) {
  if (name.empty() || (name.size() > 1 && name.front() == '0')) {
    return false;
  }
  std::size_t index = 0;
  const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), index);
  return error == std::errc() && end == name.data() + name.size() && index < size;
}

std::string_view KindName(const ZoJson& value) {
  switch (value.GetKind()) {
    case ZoJson::Kind::Null:
      return "null";
    case ZoJson::Kind::Boolean:
      return "a boolean";
    case ZoJson::Kind::Integer:
    case ZoJson::Kind::Unsigned:
    case ZoJson::Kind::Float:
      return "a number";
    case ZoJson::Kind::String:
      return "a text";
    case ZoJson::Kind::Array:
      return "an array";
    case ZoJson::Kind::Object:
      return "an object";
  }
  return "a value";
}

bool SameKind(const ZoJson& a, const ZoJson& b) {
  return a.IsNumber() ? b.IsNumber() : a.GetKind() == b.GetKind();
}

// A whole float as the integer that it is; nothing for a fraction or what no 64-bit integer holds.
std::optional<ZoJson> AsInteger(const ZoJson& value) {
  if (!value.IsFloat()) {
    return value;
  }
  const double number = value.Get<double>();
  if (std::trunc(number) != number || number < -9223372036854775808.0 || number >= 18446744073709551616.0) {
    return std::nullopt;
  }
  if (number < 0) {
    return ZoJson::Of(static_cast<std::int64_t>(number));
  }
  return ZoJson::Of(static_cast<std::uint64_t>(number));
}

// One update on its way through the content. Refusals travel as exceptions inside this file alone: they end a
// recursion of any depth at once.
class Merger {
 public:
  explicit Merger(const WriteRules& writeRules) : rules(writeRules) {}

  ZoJson Meet(const ZoJson& content, const ZoJson& patch) {
    if (patch.IsObject() && (content.IsObject() || content.IsArray())) {
      return MeetContainer(content, patch);
    }
    RequireWritable();
    if (!content.IsNull() && !SameKind(content, patch)) {
      Refuse(Status::WrongKind, fmt::format("{} cannot take the place of {} at {}", KindName(patch),
                                            KindName(content), PathText()));
    }
    return Conform(patch);
  }

 private:
  ZoJson MeetContainer(const ZoJson& content, const ZoJson& patch) {
    ZoJson result = content;
    for (ZoJsonIterator it(patch); it.Valid(); it.Next()) {
      path.emplace_back(it.Key());
      const ZoJsonPointer member = ZoJsonPointer::Member(it.Key());
      const ZoJson* const old =
          content.IsArray() && !IsElement(it.Key(), content.Size()) ? nullptr : content.Find(member);
      if (old == nullptr) {
        Refuse(Status::NotFound,
               fmt::format("there is no {} at {}", content.IsArray() ? "element" : "member", PathText()));
      }
      result.Set(member, Meet(*old, it.Value()));
      path.pop_back();
    }
    return result;
  }

  void RequireWritable() const {
    const bool open =
        rules.everything || std::any_of(rules.writable.begin(), rules.writable.end(),
                                        [&](const auto& top) { return LiesAtOrBelow(path, top); });
    const bool driven = std::any_of(rules.driven.begin(), rules.driven.end(), [&](const auto& top) {
      return LiesAtOrBelow(path, top) || LiesAbove(path, top);
    });
    if (!open || driven) {
      Refuse(Status::NotAllowed, fmt::format("{} is read-only", PathText()));
    }
  }

  // The value with integers where they are declared.
  ZoJson Conform(const ZoJson& value) {
    ZoJson result = value;
    for (const ZoJsonPointer& top : rules.integers) {
      if (LiesAtOrBelow(path, top)) {
        return Integers(value).value_or(value);
      }
      if (!LiesAbove(path, top)) {
        continue;
      }
      const std::size_t depth = path.size();
      ZoJsonPointer below;
      for (std::size_t i = depth; i < top.Segments().size(); ++i) {
        path.push_back(top.Segments()[i].name);
        below = ZoJsonPointer::Combine(below, ZoJsonPointer::Member(path.back()));
      }
      if (const ZoJson* const part = result.Find(below)) {
        if (auto whole = Integers(*part)) {
          result.Set(below, *std::move(whole));
        }
      }
      path.resize(depth);
    }
    return result;
  }

  // The value with its whole floats as integers; nothing where there are none, which costs the look at each part alone.
  std::optional<ZoJson> Integers(const ZoJson& value) {
    if (value.IsFloat()) {
      return Integer(value);
    }
    std::optional<ZoJson> result;
    std::size_t index = 0;
    for (ZoJsonIterator it(value); it.Valid(); it.Next(), ++index) {
      if (it.Value().IsPrimitive() && !it.Value().IsFloat()) {
        continue;
      }
      inside.push_back({it.Key(), index, value.IsArray()});
      if (auto part = Integers(it.Value())) {
        result = result ? std::move(result) : value;
        result->Set(ZoJsonPointer::Member(inside.back().Name()), *std::move(part));
      }
      inside.pop_back();
    }
    return result;
  }

  ZoJson Integer(const ZoJson& value) const {
    std::optional<ZoJson> whole = AsInteger(value);
    if (!whole) {
      Refuse(Status::WrongKind, fmt::format("{} holds an integer, {} is none", PathText(), value.ToString()));
    }
    return *std::move(whole);
  }

  [[noreturn]] static void Refuse(Status status, std::string reason) {
    throw Refusal{status, std::move(reason)};
  }

  std::string PathText() const {
    if (path.empty() && inside.empty()) {
      return "the resource itself";
    }
    std::string text = "\"";
    for (const std::string& name : path) {
      text += "/" + name;
    }
    for (const Step& step : inside) {
      text += "/" + step.Name();
    }
    return text + "\"";
  }

  // One level down, its name made only when somebody asks.
  struct Step {
    std::string_view key;
    std::size_t index;
    bool element;
    std::string Name() const { return element ? std::to_string(index) : std::string(key); }
  };

  const WriteRules& rules;
  Path path;
  std::vector<Step> inside;  // of the value that replaces what is at the path
};

}  // namespace

std::variant<ZoJson, Refusal> Merge(const ZoJson& content, const ZoJson& patch, const WriteRules& rules) {
  if (rules.ReadOnly()) {
    return Refusal{Status::NotAllowed, "the resource is read-only"};
  }
  try {
    return Merger(rules).Meet(content, patch);
  } catch (const Refusal& refusal) {
    return refusal;
  }
}

}  // namespace ZoSensor
