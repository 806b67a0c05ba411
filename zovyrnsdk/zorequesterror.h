// A sensor's refusal of a request.
#pragma once

#include <memory>
#include <stdexcept>
#include <string>

#include "zovyrnsdk/zoresponse.h"

// Raised by ZoTransaction::GetResponse when the sensor answered with a negative status. A plain value; any thread.
class ZoRequestError : public std::runtime_error {
 public:
  explicit ZoRequestError(ZoRequestResponse answer);

  // The error answer: its Raw() carries "status", "payload": null and "error".
  const ZoRequestResponse& GetResponse() const noexcept { return *response; }

 private:
  std::shared_ptr<const ZoRequestResponse> response;  // shared, so that copying the exception cannot raise
};
