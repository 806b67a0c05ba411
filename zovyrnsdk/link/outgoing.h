// The text of a request, checked before it is sent: one odd tag must not cost the session.
#pragma once

#include <string>
#include <string_view>

#include "zovyrnsdk/json/zojson.h"
#include "zovyrnsdk/zorequest.h"

namespace ZoSdk {

// What follows {"id":17 in the message, or why there is none.
struct OutgoingText {
  std::string tail;
  int status = 1;     // 1, or the status of the local answer: -400, -413
  std::string error;  // a sentence, when status is not 1
};

// payload may be null for none. Raises std::bad_alloc alone.
OutgoingText ComposeRequest(ZoRequestMethod method, const std::string& uri, const ZoJson* payload);

// The whole message.
std::string FinishRequest(unsigned long long id, std::string_view tail);

bool IsUtf8(std::string_view text) noexcept;

// An answer that the link gives in the sensor's place.
ZoJson LocalAnswer(int status, const std::string& uri, const std::string& error);

}  // namespace ZoSdk
