#include <cmath>
#include <cstdint>
#include <vector>

#include "zovyrnsdk/json/zojson.h"
#include "zovyrnsdk/json/zojsonnode.h"

namespace {

using Access = ZoJsonAccess;

// Two containers of one kind and size whose members are being compared.
struct Pair {
  const ZoJson* a;
  const ZoJson* b;
  std::uint32_t next;
};

// NaN equals itself here, so that a value equals its copies.
bool SameNumber(double a, double b) noexcept {
  return a == b || (std::isnan(a) && std::isnan(b));
}

bool SameScalar(const ZoJson& a, const ZoJson& b) noexcept {
  switch (a.GetKind()) {
    case ZoJson::Kind::Null:
      return true;
    case ZoJson::Kind::Boolean:
      return Access::Boolean(a) == Access::Boolean(b);
    case ZoJson::Kind::Integer:
      return Access::Integer(a) == Access::Integer(b);
    case ZoJson::Kind::Unsigned:
      return Access::Natural(a) == Access::Natural(b);
    case ZoJson::Kind::Float:
      return SameNumber(Access::Number(a), Access::Number(b));
    default:
      return Access::Text(a) == Access::Text(b);
  }
}

// Compares what needs no descent, and leaves the rest on the list.
bool Compare(const ZoJson& a, const ZoJson& b, std::vector<Pair>& open) {
  if (a.GetKind() != b.GetKind()) {
    return false;
  }
  if (a.IsPrimitive()) {
    return SameScalar(a, b);
  }
  if (a.Size() != b.Size()) {
    return false;
  }
  if (a.Size() > 0 && Access::NodeOf(a) != Access::NodeOf(b)) {
    open.push_back({&a, &b, 0});
  }
  return true;
}

bool CompareNext(std::vector<Pair>& open) {
  Pair& pair = open.back();
  if (pair.a->IsArray()) {
    auto& array = Access::Array(*pair.a);
    if (pair.next == array.size) {
      open.pop_back();
      return true;
    }
    const std::uint32_t index = pair.next++;
    return Compare(array.Elements()[index], Access::Array(*pair.b).Elements()[index], open);
  }
  auto& object = Access::Object(*pair.a);
  const std::uint32_t slot = object.Living(pair.next);
  if (slot == object.used) {
    open.pop_back();
    return true;
  }
  pair.next = slot + 1;
  const auto& member = object.Slots()[slot];
  auto& other = Access::Object(*pair.b);
  const std::uint32_t found = other.Find(object.Key(member), member.hash);
  return found != Access::ObjectNode::none && Compare(member.value, other.Slots()[found].value, open);
}

}  // namespace

bool operator==(const ZoJson& a, const ZoJson& b) {
  std::vector<Pair> open;
  if (!Compare(a, b, open)) {
    return false;
  }
  while (!open.empty()) {
    if (!CompareNext(open)) {
      return false;
    }
  }
  return true;
}
