// What a sensor sends: answers to requests, stream data and notifications.
#pragma once

#include <cstdint>
#include <string>
#include <utility>

#include "zovyrnsdk/json/zojson.h"

// One message of the sensor. Immutable; copyable in O(1); any thread.
class ZoResponse {
 public:
  explicit ZoResponse(ZoJson document, std::uint64_t order = 0) : raw(std::move(document)), order(order) {}

  // The whole document: for an answer "status", and "uri", "payload", "error" where the sensor sent them; for a push
  // "event", "uri", "payload". Empty for a bare acknowledgement.
  const ZoJson& Raw() const noexcept { return raw; }

  // The content of the resource, or the call's result; null when there is none.
  ZoJson Payload() const;

  // The URI of the resource, in the spelling that was asked for; empty when the sensor sent none.
  std::string Path() const;

  // Rises from message to message in the order in which they arrived: answers are taken by those who asked, pushes by
  // handlers, and this tells which of them is the newer. 0 for an answer that is none of the sensor's.
  std::uint64_t Order() const noexcept { return order; }

 private:
  ZoJson raw;
  std::uint64_t order;
};

// The answer to a request.
class ZoRequestResponse : public ZoResponse {
 public:
  using ZoResponse::ZoResponse;
};

// Data of a stream that StartStream started.
class ZoStreamResponse : public ZoResponse {
 public:
  using ZoResponse::ZoResponse;
};

// A change of a resource that Sub subscribed.
class ZoNotificationResponse : public ZoResponse {
 public:
  using ZoResponse::ZoResponse;
};
