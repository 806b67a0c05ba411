#include "zovyrnsdk/zoresponse.h"

ZoJson ZoResponse::Payload() const {
  return raw.HasKey("/payload") ? raw.At("/payload") : ZoJson();
}

std::string ZoResponse::Path() const {
  const ZoJson uri = raw.HasKey("/uri") ? raw.At("/uri") : ZoJson();
  return uri.IsString() ? uri.Get<std::string>() : std::string();
}
