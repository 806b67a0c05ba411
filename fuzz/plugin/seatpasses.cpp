// What goes on beside the host's calls: passes, and what the sensor does.
#include <exception>
#include <memory>
#include <stdexcept>

#include "fuzz/json/require.h"
#include "fuzz/plugin/seat.h"
#include "zoiohandler/vyrnclient/sensormanagersimulator.h"

namespace ZoFuzz {

namespace {

enumtype TypeOf(const ZoJson& element) {
  switch (element.GetKind()) {
    case ZoJson::Kind::Boolean:
      return enumtype_bool;
    case ZoJson::Kind::Integer:
      return enumtype_int64;
    case ZoJson::Kind::Unsigned:
      return enumtype_uint64;
    case ZoJson::Kind::Float:
      return enumtype_double;
    case ZoJson::Kind::String:
      return enumtype_string;
    default:
      return enumtype_invalid;
  }
}

bool Holds(const Host::Value& value, const ZoJson& element) {
  switch (value.value.type) {
    case enumtype_string:
      return value.text == element.Get<std::string>().c_str();
    case enumtype_bool:
      return (value.value.value.boolean != 0) == element.Get<bool>();
    case enumtype_int64:
      return value.value.value.int64 == element.Get<std::int64_t>();
    case enumtype_double:
      return value.value.value.float64 == static_cast<double>(element.Get<float>());
    case enumtype_uint64:
      return value.value.value.uint64 == element.Get<std::uint64_t>();
    default:
      return true;
  }
}

// Whether all of some are there among others, in the same order.
bool AreAmong(const std::vector<std::string>& some, const std::vector<std::string>& others) {
  auto next = some.begin();
  for (const std::string& other : others) {
    next += next != some.end() && *next == other ? 1 : 0;
  }
  return next == some.end();
}

}  // namespace

// A value is what the cache's newest document holds in the item's place. With the simulator there may be a newer one by
// now; and for an object or an array the last value stands.
void Seat::CheckValue(const Host::Value& value) const {
  const ZoIO::ItemInfo* const record = hosted->Known(value.item);
  Require(record != nullptr, "a value is of a known item");
  ZoIO::CacheManager& cache = *hosted->Sensor().Cache();
  if (Fake() == nullptr) {
    return;
  }
  if (cache.SizeAt(record->uri) == 0) {
    Require(value.value.type == enumtype_invalid, "without a document a value is invalid");
    return;
  }
  const ZoJson document = cache.Get(record->uri, 0);
  const ZoJson* const element = document.Find(record->pointer);
  if (element == nullptr || element->IsPrimitive()) {
    const ZoJson found = element == nullptr ? ZoJson() : *element;
    Require(value.value.type == static_cast<std::uint32_t>(TypeOf(found)), "a type is the document's");
    Require(Holds(value, found), "a value is the document's");
  }
}

void Seat::Pass() {
  if (!IsTaken()) {
    return;
  }
  Begin();
  std::vector<std::string> possible;
  std::vector<std::string> valid;
  std::vector<std::string> certain;  // what is valid or new
  for (auto& [interval, names] : groups) {
    for (auto& [name, shown] : names) {
      const bool isValid = IsValid(name);
      possible.push_back(name);
      if (isValid) {
        valid.push_back(name);
      }
      if (isValid || !shown) {
        certain.push_back(name);
      }
      shown = true;
    }
  }
  hosted->Pass();
  std::vector<std::string> delivered;
  for (const Host::Value& value : hosted->Listener().TakeValues()) {
    CheckValue(value);
    delivered.push_back(value.item);
  }
  Require(AreAmong(delivered, possible), "a pass delivers what is subscribed alone, in order");
  if (hosted->Listener().HasValues()) {
    Require(AreAmong(valid, delivered), "a pass delivers each valid item");
    // The monitor's thread may have been there first.
    Require(AreAmong(certain, delivered) || hosted->Listener().HadValuesElsewhere(),
            "a pass delivers each new item");
  }
  Require(Fake() == nullptr || Fake()->Calls().empty(), "a pass asks nothing of the sensor");
  CheckNoResponses();
}

void Seat::Retry() {
  if (!IsTaken()) {
    return;
  }
  *readsLeft = 3;
  try {
    hosted->Sensor().PLC()->RetryInvalidItems();
  } catch (const std::exception&) {
    // The reads that the pass may make were used up.
    Require(*readsLeft < 0, "a pass of the registry ends with the sensor's fault alone");
  }
}

void Seat::Trim() {
  if (IsTaken()) {
    hosted->Sensor().Cache()->TrimAt(ZoIO::CacheManager::TimeInMills() + 60'000);
  }
}

void Seat::Simulate() {
  if (IsTaken() && Fake() == nullptr) {
    dynamic_cast<ZoIO::SensorManagerSimulator&>(hosted->Sensor()).Pass();
  }
}

void Seat::SetConnected(bool value) {
  if (Fake() != nullptr) {
    connected = value;
    Fake()->SetConnected(value);
  }
}

void Seat::SetContent(const std::string& uri, const ZoJson& payload) {
  if (Fake() != nullptr) {
    Fake()->SetResource(uri, payload.ToString());
  }
}

void Seat::SetAnswer(const std::string& verb, const ZoJson& answer) {
  if (Fake() != nullptr) {
    Fake()->SetScript(verb, [answer, left = readsLeft](const auto& request) {
      // The registry's worker asks again for as long as an answer has no payload.
      if (request.verb == "Read" && !request.logFailure && --*left < 0) {
        throw std::runtime_error("The sensor is away.");
      }
      return answer;
    });
  }
}

void Seat::Push(const std::string& uri, const ZoJson& payload) {
  if (Fake() != nullptr) {
    Fake()->Cache()->Add(uri, payload);
  }
}

}  // namespace ZoFuzz
