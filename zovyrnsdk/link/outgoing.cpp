#include "zovyrnsdk/link/outgoing.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "zovyrnsdk/json/zojsonerror.h"
#include "zovyrnsdk/json/zojsonnesting.h"
#include "zovyrnsdk/link/limits.h"

namespace ZoSdk {

namespace {

constexpr std::size_t idRoom = 32;     // for {"id": and 20 digits
constexpr std::size_t frameRoom = 64;  // for method, names and punctuation

const char* MethodName(ZoRequestMethod method) {
  switch (method) {
    case ZoRequestMethod_Read:
      return "read";
    case ZoRequestMethod_Create:
      return "create";
    case ZoRequestMethod_Update:
      return "update";
    case ZoRequestMethod_Delete:
      return "delete";
    case ZoRequestMethod_Call:
      return "call";
    case ZoRequestMethod_Sub:
      return "sub";
    case ZoRequestMethod_UnSub:
      return "unsub";
    case ZoRequestMethod_StartStream:
      return "startStream";
    case ZoRequestMethod_StopStream:
      return "stopStream";
  }
  return "read";
}

OutgoingText Refuse(int status, std::string error) {
  return {std::string(), status, std::move(error)};
}

// The number of bytes of the UTF-8 sequence at the start of text, 0 when it is none.
std::size_t SequenceLength(std::string_view text) noexcept {
  const auto byte = [&](std::size_t i) { return static_cast<std::uint8_t>(text[i]); };
  const auto follows = [&](std::size_t i, unsigned low, unsigned high) {
    return i < text.size() && byte(i) >= low && byte(i) <= high;
  };
  const unsigned lead = byte(0);
  if (lead < 0x80) {
    return 1;
  }
  if (lead >= 0xC2 && lead <= 0xDF) {
    return follows(1, 0x80, 0xBF) ? 2 : 0;
  }
  if (lead >= 0xE0 && lead <= 0xEF) {
    const unsigned low = lead == 0xE0 ? 0xA0 : 0x80;   // no overlong forms
    const unsigned high = lead == 0xED ? 0x9F : 0xBF;  // no surrogates
    return follows(1, low, high) && follows(2, 0x80, 0xBF) ? 3 : 0;
  }
  if (lead >= 0xF0 && lead <= 0xF4) {
    const unsigned low = lead == 0xF0 ? 0x90 : 0x80;
    const unsigned high = lead == 0xF4 ? 0x8F : 0xBF;  // nothing above U+10FFFF
    return follows(1, low, high) && follows(2, 0x80, 0xBF) && follows(3, 0x80, 0xBF) ? 4 : 0;
  }
  return 0;
}

// What stands in a JSON string as it is, whatever comes next to it.
bool IsPlain(std::string_view text) noexcept {
  return std::all_of(text.begin(), text.end(),
                     [](char c) { return c >= ' ' && c <= '~' && c != '"' && c != '\\'; });
}

}  // namespace

OutgoingText ComposeRequest(ZoRequestMethod method, const std::string& uri, const ZoJson* payload) {
  const bool plain = IsPlain(uri);
  if (!plain && !IsUtf8(uri)) {
    return Refuse(-400, "The URI is not valid UTF-8.");
  }
  OutgoingText out;
  out.tail.reserve(uri.size() + frameRoom);
  out.tail.append(R"(,"method":")").append(MethodName(method)).append(R"(","uri":)");
  if (plain) {
    out.tail.append(1, '"').append(uri).append(1, '"');
  } else {
    out.tail += ZoJson::Of(uri).ToString();
  }
  if (payload != nullptr) {
    try {
      out.tail += ",\"payload\":" + payload->ToString();
    } catch (const ZoJsonError& error) {
      return Refuse(-400, std::string("The payload cannot be written as JSON: ") + error.what());
    }
  }
  out.tail += '}';
  if (out.tail.size() + idRoom > messageLimit) {
    return Refuse(-413, "The request is larger than 64 MiB.");
  }
  if (payload != nullptr && !IsUtf8(out.tail)) {
    return Refuse(-400, "The payload is not valid UTF-8.");
  }
  // The tail's closing brace belongs to the one that opens before the id.
  if (payload != nullptr && JsonNesting(out.tail) + 1 > depthLimit) {
    return Refuse(-400, "The payload is nested too deeply.");
  }
  return out;
}

std::string FinishRequest(unsigned long long id, std::string_view tail) {
  std::string text;
  text.reserve(tail.size() + idRoom);
  text += "{\"id\":";
  text += std::to_string(id);
  text += tail;
  return text;
}

bool IsUtf8(std::string_view text) noexcept {
  while (!text.empty()) {
    const std::size_t length = SequenceLength(text);
    if (length == 0) {
      return false;
    }
    text.remove_prefix(length);
  }
  return true;
}

ZoJson LocalAnswer(int status, const std::string& uri, const std::string& error) {
  ZoJson answer = ZoJson::EmptyObject();
  answer.Set("status", status);
  if (IsUtf8(uri)) {
    answer.Set("uri", uri);
  }
  if (status < 0) {
    answer.Set("payload", ZoJson());
    answer.Set("error", error);
  }
  return answer;
}

}  // namespace ZoSdk
