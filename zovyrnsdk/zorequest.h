// A request as it was sent.
#pragma once

#include <cstdint>
#include <string>
#include <utility>

#include "zovyrnsdk/json/zojson.h"

// What a request asks for.
enum ZoRequestMethod : std::int32_t {
  ZoRequestMethod_Read = 1,
  ZoRequestMethod_Create = 2,
  ZoRequestMethod_Update = 3,
  ZoRequestMethod_Delete = 4,
  ZoRequestMethod_Call = 5,
  ZoRequestMethod_Sub = 6,
  ZoRequestMethod_UnSub = 7,
  ZoRequestMethod_StartStream = 8,
  ZoRequestMethod_StopStream = 9
};

// A plain value; any thread.
class ZoRequest {
 public:
  ZoRequest(ZoRequestMethod method, std::string uri) : method(method), uri(std::move(uri)) {}

  ZoRequestMethod Method() const noexcept { return method; }
  const std::string& Uri() const noexcept { return uri; }

 private:
  ZoRequestMethod method;
  std::string uri;
};
