// The texts of the wire: requests taken apart, responses and pushes put together. Functions without state.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "tools/zosensor/answer.h"
#include "tools/zosensor/limits.h"

namespace ZoSensor {

enum class Method { Read = 1, Create, Update, Delete, Call, Subscribe, Unsubscribe, StartStream, StopStream };

std::optional<Method> MethodByName(std::string_view name);
std::string_view MethodName(Method method);

struct Request {
  std::string idText = "null";  // the id as JSON text, to be echoed
  std::optional<Method> method;
  std::string uri;
  std::optional<ZoJson> payload;
  std::string fault;  // why the request is refused as it is; empty when it is not
  Status faultStatus = Status::Malformed;
};

// Nothing when the message is no JSON object, or nests deeper than allowed: the session is over then. Of one that holds
// more values than allowed only the outermost object is read, and refused.
std::optional<Request> ParseRequest(std::string_view message, const Limits& limits);

// A text as a JSON string, with its quotes.
std::string Quote(std::string_view text);

// {"id": ..., "status": ..., "uri": ..., "payload": ...}; without the id for the REST door (an empty idText).
std::string ResponseText(std::string_view idText, std::string_view uri, const Answer& answer);

// {"event": ..., "uri": ..., "payload": ...}
std::string PushText(std::string_view event, std::string_view uri, std::string_view payload);

}  // namespace ZoSensor
