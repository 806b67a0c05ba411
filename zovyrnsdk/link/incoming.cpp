#include "zovyrnsdk/link/incoming.h"
#include "zovyrnsdk/link/members.h"

#include <algorithm>
#include <charconv>
#include <new>

#include "zovyrnsdk/json/zojsonerror.h"
#include "zovyrnsdk/link/limits.h"

namespace ZoSdk {

namespace {

constexpr std::size_t searched = 4096;  // at either end of a message that is unreadable

// The text behind "name": at this place of a message that need not be valid.
std::optional<std::string_view> ValueAt(std::string_view text, std::size_t at, std::string_view quoted) {
  if (at == std::string_view::npos) {
    return std::nullopt;
  }
  text.remove_prefix(at + quoted.size());
  const std::size_t value = text.find_first_not_of(" \t\r\n:");
  if (value == std::string_view::npos) {
    return std::nullopt;
  }
  return text.substr(value);
}

// The value of the member near the start, else the one nearest to the end, where it stands when the payload
// comes first.
std::optional<std::string_view> AfterMember(std::string_view text, std::string_view name) {
  const std::string quoted = '"' + std::string(name) + '"';
  const std::string_view head = text.substr(0, searched);
  if (const auto value = ValueAt(head, head.find(quoted), quoted)) {
    return value;
  }
  const std::string_view tail = text.substr(text.size() - std::min(text.size(), searched));
  return ValueAt(tail, tail.rfind(quoted), quoted);
}

Incoming ReadPush(Incoming message, std::string_view event) {
  const ZoJson* const uri = message.document.Find(uriMember);
  if (uri == nullptr || !uri->IsString() || !message.document.HasKey(payloadMember)) {
    return message;
  }
  if (event == "stream") {
    message.kind = Incoming::Kind::Stream;
  } else if (event == "notification") {
    message.kind = Incoming::Kind::Notification;
  } else {
    return message;
  }
  message.uri = uri->Get<std::string>();
  return message;
}

}  // namespace

Incoming Malformed(const char* fault) noexcept {
  Incoming message;
  message.kind = Incoming::Kind::Malformed;
  try {
    message.fault = fault;
  } catch (const std::bad_alloc&) {
    // That it is malformed matters more than why.
  }
  return message;
}

Incoming ReadIncoming(std::string_view text, ZoJsonShapes& shapes) {
  Incoming message;
  message.bytes = documentLimit;
  try {
    message.document = ZoJson::ParseString(text, message.bytes, shapes);
  } catch (const ZoJsonTooLarge&) {
    message.kind = Incoming::Kind::TooLarge;
    return message;
  } catch (const ZoJsonError& error) {
    return Malformed(error.what());
  }
  if (!message.document.IsObject()) {
    return Malformed("the JSON is another value");
  }
  if (const ZoJson* const id = message.document.Find(idMember)) {
    if (id->IsUnsigned()) {
      message.kind = Incoming::Kind::Answer;
      message.id = id->Get<unsigned long long>();
      message.document.Remove(idMember);
    }
    return message;
  }
  const ZoJson* const event = message.document.Find(eventMember);
  if (event != nullptr && event->IsString()) {
    const std::string kind = event->Get<std::string>();
    return ReadPush(std::move(message), kind);
  }
  return message;
}

Suspect SuspectOf(std::string_view text) {
  Suspect suspect;
  const auto event = AfterMember(text, "event");
  // What a push has behind its "event" is its content's.
  if (const auto id = AfterMember(text, "id"); id && !(event && event->data() < id->data())) {
    std::uint64_t value = 0;
    if (std::from_chars(id->data(), id->data() + id->size(), value).ec == std::errc()) {
      suspect.id = value;
    }
  }
  if (const auto uri = AfterMember(text, "uri"); uri && uri->starts_with('"')) {
    // Up to the next quote; an escaped one inside only makes the guess miss.
    const std::size_t end = uri->find('"', 1);
    if (end != std::string_view::npos) {
      suspect.uri = std::string(uri->substr(1, end - 1));
    }
  }
  return suspect;
}

}  // namespace ZoSdk
