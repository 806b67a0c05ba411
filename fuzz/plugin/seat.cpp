#include "fuzz/plugin/seat.h"

#include <algorithm>
#include <cstddef>

#include "fuzz/json/require.h"
#include "fuzz/plugin/namemodel.h"
#include "xhmi/iohandler.h"

namespace ZoFuzz {

namespace {

constexpr int untouched = -77;
constexpr int failed = 6;

const char* PointerTo(const Seat::Name& name) {
  return name ? name->c_str() : nullptr;
}

// One word longer than the batch, so that it is never null and has something behind it that must stay.
std::vector<const char*> PointersTo(const std::vector<Seat::Name>& names) {
  std::vector<const char*> pointers(names.size() + 1);
  std::transform(names.begin(), names.end(), pointers.begin(), PointerTo);
  return pointers;
}

bool IsWritable(const ioDataValue& value) {
  return value.type < enumtype_invalid && (value.type != enumtype_string || value.value.text != nullptr);
}

ZoJson JsonOf(const ioDataValue& value) {
  switch (value.type) {
    case enumtype_string:
      return ZoJson::Of(value.value.text);
    case enumtype_bool:
      return ZoJson::Of(value.value.uint64 != 0);
    case enumtype_int64:
      return ZoJson::Of(value.value.int64);
    case enumtype_double:
      return ZoJson::Of(value.value.float64);
    default:
      return ZoJson::Of(value.value.uint64);
  }
}

}  // namespace

void Seat::Create(Hosted::Kind kind, bool hasValues, bool hasResponses) {
  if (!IsTaken()) {
    hosted = std::make_unique<Hosted>(kind, hasValues, hasResponses);
    connected = true;
    groups.clear();
    users.clear();
  }
}

void Seat::Destroy() {
  if (!IsTaken()) {
    Require(DestroyIoInstance(nullptr) == 1, "a null handle is refused");
  }
  hosted.reset();
}

bool Seat::IsValid(const std::string& name) const {
  const ZoIO::ItemInfo* const record = hosted == nullptr ? nullptr : hosted->Known(name);
  return record != nullptr && record->valid;
}

void Seat::Begin() {
  if (IsTaken()) {
    hosted->Listener().TakeValues();
    hosted->Listener().TakeResponses();
    hosted->Listener().TakeLines();
  }
  if (Fake() != nullptr) {
    Fake()->ClearCalls();
  }
}

void Seat::CheckRefused(int result) {
  Require(result == 1, "what cannot be done is refused");
  if (IsTaken()) {
    CheckNoValues();
    CheckNoResponses();
    Require(hosted->Listener().TakeLines() == 0, "a refusal is silent");
  }
  Require(Fake() == nullptr || Fake()->Calls().empty(), "what is refused does not reach the sensor");
}

void Seat::CheckNoValues() {
  Require(hosted->Listener().TakeValues().empty(), "no value comes but in a read or a pass");
}

void Seat::CheckNoResponses() {
  Require(hosted->Listener().TakeResponses().empty(), "no response comes but in a call");
}

void Seat::Read(const Name& name) {
  Begin();
  const int result = ReadItem(PointerTo(name), Handle());
  if (!name || !IsConnected()) {
    CheckRefused(result);
    return;
  }
  const auto values = hosted->Listener().TakeValues();
  Require(result == (IsValid(*name) ? 0 : 1), "what is there is read");
  Require(values.size() == (result == 0 && hosted->Listener().HasValues() ? 1 : 0),
          "a read delivers one value, a refused one none");
  for (const Host::Value& value : values) {
    Require(value.item == *name, "a value bears the host's name");
    CheckValue(value);
  }
  CheckNoResponses();
}

void Seat::Write(const Name& name, const ioDataValue* value) {
  Begin();
  const bool wasValid = name && IsValid(*name);
  const int result = WriteItem(PointerTo(name), value, 7, Handle());
  if (!name || value == nullptr || !IsConnected()) {
    CheckRefused(result);
    return;
  }
  Require(result == 0 || result == 1, "a result is 0 or 1");
  Require(result == 1 || (IsWritable(*value) && IsValid(*name)), "what cannot be written is refused");
  CheckUpdate(*name, *value, wasValid, result);
  CheckNoValues();
  CheckNoResponses();
}

void Seat::CheckUpdate(const std::string& name, const ioDataValue& value, bool wasValid, int result) const {
  if (Fake() == nullptr) {
    return;
  }
  const NameModel model(name);
  std::size_t updates = 0;
  for (const auto& request : Fake()->Calls()) {
    if (request.verb == "Update") {
      ++updates;
      Require(request.uri == model.uri, "a write goes to the item's resource");
      Require(request.payload == model.Body(JsonOf(value)), "a write sends the value in the item's place");
    } else {
      Require(request.Text() == "Read " + model.uri, "a write asks for nothing but the item's resource");
    }
  }
  Require(updates <= 1 && (result == 1 || updates == 1), "a write is sent once");
  Require(updates == 1 || !wasValid || !IsWritable(value), "what can be written is sent");
}

void Seat::Subscribe(long long interval, const std::vector<Name>& names, Batch batch) {
  Begin();
  const auto pointers = PointersTo(names);
  std::vector<int> results(pointers.size(), untouched);
  const int count = batch == Batch::Negative ? -1 : static_cast<int>(names.size());
  const int result = SubscribeItems(interval, count, batch == Batch::NoNames ? nullptr : pointers.data(),
                                    batch == Batch::NoResults ? nullptr : results.data(), Handle());
  if (batch == Batch::NoNames || batch == Batch::NoResults || !IsConnected()) {
    CheckRefused(result);
    CheckBatch(interval, {}, results, 0);
    return;
  }
  CheckBatch(interval, batch == Batch::Negative ? std::vector<Name>() : names, results, result);
  CheckNoValues();
  CheckNoResponses();
}

void Seat::CheckBatch(long long interval, const std::vector<Name>& names, const std::vector<int>& results,
                      int result) {
  std::size_t done = 0;
  std::vector<std::string> started;
  for (; done < names.size() && names[done]; ++done) {
    // Nothing that the sensor answers makes a name fail; only a fault in here would.
    Require(results[done] >= 0 && results[done] < failed, "a subscribed name has a kind");
    groups[interval].try_emplace(*names[done], false);
    const std::string uri = NameModel(*names[done]).uri;
    if (users[uri]++ == 0) {
      started.push_back(uri);
    }
  }
  CheckStreams("Stream", started);
  Require(result == (done < names.size() ? 1 : 0), "a batch fails at a null name alone");
  Require(std::all_of(results.begin() + static_cast<std::ptrdiff_t>(done), results.end(),
                      [](int word) { return word == untouched; }),
          "results behind the end of a batch stay as they are");
}

void Seat::CheckStreams(const char* verb, const std::vector<std::string>& resources) const {
  if (Fake() == nullptr) {
    return;
  }
  std::vector<std::string> asked;
  for (const auto& request : Fake()->Calls()) {
    if (request.verb == verb) {
      asked.push_back(request.uri);
    }
  }
  Require(asked == resources, "a stream goes from a resource's first subscription to its last");
}

void Seat::Unsubscribe(const std::vector<Name>& names, Batch batch) {
  Begin();
  const auto pointers = PointersTo(names);
  const int count = batch == Batch::Negative ? -1 : static_cast<int>(names.size());
  const int result = UnsubscribeItems(count, batch == Batch::NoNames ? nullptr : pointers.data(), Handle());
  const bool hasNull = count > 0 && std::find(names.begin(), names.end(), std::nullopt) != names.end();
  if (batch == Batch::NoNames || hasNull || !IsConnected()) {
    CheckRefused(result);
    return;
  }
  Require(result == 0, "unsubscribing fails for no name");
  std::vector<std::string> stopped;
  for (int i = 0; i < count; ++i) {
    const std::string& name = *names[static_cast<std::size_t>(i)];
    for (auto& [interval, subscribed] : groups) {
      subscribed.erase(name);
    }
    const std::string uri = NameModel(name).uri;
    users[uri] = std::max(users[uri] - 1, 0);
    if (users[uri] == 0) {
      stopped.push_back(uri);
    }
  }
  CheckStreams("StopStream", stopped);
  CheckNoValues();
  CheckNoResponses();
}

void Seat::Call(const Name& method, const Name& arguments) {
  Begin();
  const int result = CallMethod(this, nullptr, PointerTo(method), PointerTo(arguments), Handle());
  if (!method || !arguments || !IsConnected()) {
    CheckRefused(result);
    return;
  }
  Require(result == 0 || result == 1, "a result is 0 or 1");
  const auto responses = hosted->Listener().TakeResponses();
  Require(responses.size() == (result == 0 && hosted->Listener().HasResponses() ? 1 : 0),
          "one response for the result 0, else none");
  for (const Host::Response& response : responses) {
    Require(response.token == this, "the token is handed back");
  }
  CheckNoValues();
}

}  // namespace ZoFuzz
