// What a sensor sends: answers to requests, stream data and notifications.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>

#include "zovyrnsdk/json/zojson.h"

// How a message arrived.
struct ZoArrival {
  // Rises from message to message in the order in which they arrived: answers are taken by those who asked, pushes by
  // handlers, and this tells which of them is the newer. 0 for an answer that is none of the sensor's.
  std::uint64_t order = 0;
  // Of memory that the document holds, about; 0 when that is not known.
  std::size_t bytes = 0;
  // Of an answer to a read: an older push of the same resource was handed on less than 2 ms before, or is just being.
  bool closeToPush = false;
};

// One message of the sensor. Immutable; copyable in O(1); any thread.
class ZoResponse {
 public:
  explicit ZoResponse(ZoJson document, ZoArrival arrival = {}) : raw(std::move(document)), arrival(arrival) {}

  // The whole document: for an answer "status", and "uri", "payload", "error" where the sensor sent them; for a push
  // "event", "uri", "payload". Empty for a bare acknowledgement.
  const ZoJson& Raw() const noexcept { return raw; }

  // The content of the resource, or the call's result; null when there is none.
  ZoJson Payload() const;

  // The URI of the resource, in the spelling that was asked for; empty when the sensor sent none.
  std::string Path() const;

  const ZoArrival& Arrival() const noexcept { return arrival; }

 private:
  ZoJson raw;
  ZoArrival arrival;
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
