// One request under way.
#pragma once

#include <cstdint>
#include <memory>

#include "zovyrnsdk/zorequest.h"
#include "zovyrnsdk/zoresponse.h"

struct ZoPendingRequest;  // the link's side of a request

// A handle of a request that was handed to the link; copies share it. Any thread may ask.
class ZoTransaction {
 public:
  ZoTransaction(ZoRequest request, std::shared_ptr<ZoPendingRequest> pending);

  // Waits for the answer, at most timeout microseconds from this call on. Returns it when the sensor granted the
  // request, raises ZoRequestError when it refused, std::runtime_error with a sentence that names the cause when there
  // is no answer: time is up, the link broke after the request was sent, or the system was disconnected. An answer
  // that comes later is dropped. Asking again gives the same result, and when several threads wait the first of them
  // whose time is up ends it for all.
  ZoRequestResponse GetResponse(std::uint64_t timeout);

  // Waits at most timeout microseconds and tells whether GetResponse would return at once. Unlike that it ends nothing:
  // an answer that comes later still counts.
  bool Wait(std::uint64_t timeout);

  // Without an answer by now, ends the request as a GetResponse that has waited for so long, in microseconds.
  void EndUnanswered(std::uint64_t waited);

  // Ends a GetResponse that waits, and every later one, with an exception. Never blocks. For an owner who gives up.
  void Cancel();

  const ZoRequest& GetRequest() const noexcept { return request; }

 private:
  ZoRequest request;
  std::shared_ptr<ZoPendingRequest> pending;
};
