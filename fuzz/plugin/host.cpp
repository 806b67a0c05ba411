#include "fuzz/plugin/host.h"

#include <string_view>
#include <utility>

#include "fuzz/json/require.h"

namespace ZoFuzz {

namespace {

// "[function](thread id)message\n"; the message may be anything that a name may be.
void CheckLine(std::string_view line) {
  Require(line.starts_with("[ZoIO::"), "a line begins with its function");
  const std::size_t bracket = line.find("](");
  Require(bracket != std::string_view::npos, "a line names its thread");
  std::string_view rest = line.substr(bracket + 2);
  const std::size_t digits = rest.find_first_not_of("0123456789");
  Require(digits != 0 && digits != std::string_view::npos && rest[digits] == ')', "a thread is a number");
  Require(line.ends_with('\n') && !line.ends_with("\n\n"), "a line ends with one newline");
}

ZoJson Parsed(std::string_view text, const char* promise) {
  try {
    return ZoJson::ParseString(text);
  } catch (const ZoJsonError&) {
    Require(false, promise);
    return {};
  }
}

ZoJson CheckedResponse(std::string_view text) {
  Require(text.starts_with("{\"id\":"), "a response begins with the id");
  ZoJson response = Parsed(text, "a response is JSON");
  Require(response.Size() == 3 && response.HasKey("/data"), "a response is id, errcode and data");
  Require(response.At("/id").IsPrimitive(), "an id is a primitive");
  Require(response.At("/errcode") == ZoJson::Of(0), "errcode is 0");
  Require(response.At("/data").IsString(), "data is a text");
  Parsed(response.At("/data").Get<std::string>(), "data holds JSON");
  return response;
}

}  // namespace

ioHandlerParam Host::Param() {
  ioHandlerParam param{};
  param.context = this;
  param.itemValue = hasValues ? &HandleValue : nullptr;
  param.methodResult = hasResponses ? &HandleResponse : nullptr;
  param.log = &HandleLog;
  return param;
}

std::vector<Host::Value> Host::TakeValues() {
  std::lock_guard held(mutex);
  return std::exchange(values, {});
}

std::vector<Host::Response> Host::TakeResponses() {
  std::lock_guard held(mutex);
  return std::exchange(responses, {});
}

std::size_t Host::TakeLines() {
  std::lock_guard held(mutex);
  return std::exchange(lines, 0);
}

Host& Host::Of(void* context) {
  Require(context != nullptr, "the context is handed back");
  Host& host = *static_cast<Host*>(context);
  Require(host.allowed, "callbacks come between create and destroy alone");
  return host;
}

void Host::HandleValue(const char* itemName, const ioDataValue* value, void* context) {
  Host& host = Of(context);
  Require(itemName != nullptr && value != nullptr, "a value has a name and a record");
  Require(value->type <= enumtype_invalid, "a type is 0 to 5");
  Require(value->status == 0 && value->padding == 0 && value->reserved == 0, "a record's other words are 0");
  Value entry{itemName, *value, {}};
  if (value->type == enumtype_string || value->type == enumtype_invalid) {
    Require(value->value.text != nullptr, "a text is there");
    entry.text = value->value.text;
    entry.value.value.text = nullptr;
  }
  Require(value->type != enumtype_invalid || entry.text == "INVALID", "what is invalid says so");
  Require(value->type != enumtype_bool || value->value.uint64 <= 1, "a boolean is 0 or 1");
  if (host.IsOwnThread()) {
    std::lock_guard held(host.mutex);
    host.values.push_back(std::move(entry));
  } else {
    host.valuesElsewhere = true;
  }
}

void Host::HandleResponse(const void* callToken, const char* response, void* context) {
  Host& host = Of(context);
  Require(response != nullptr, "a response has a text");
  Require(host.IsOwnThread(), "a response comes on the thread of the call");
  Response entry{callToken, CheckedResponse(response)};
  std::lock_guard held(host.mutex);
  host.responses.push_back(std::move(entry));
}

void Host::HandleLog(void* context, std::int32_t level, const char* text) {
  Host& host = Of(context);
  Require(level >= 2 && level <= 6, "a level is 2 to 6");
  Require(text != nullptr, "a line has a text");
  CheckLine(text);
  if (host.IsOwnThread()) {
    std::lock_guard held(host.mutex);
    ++host.lines;
  }
}

}  // namespace ZoFuzz
