#include "zovyrnsdk/zoresponse.h"

ZoJson ZoResponse::Payload() const {
  return raw.HasKey("/payload") ? raw.At("/payload") : ZoJson();
}

std::string ZoResponse::Path() const {
  return raw.HasKey("/uri") ? raw.At("/uri").Get<std::string>() : std::string();
}
