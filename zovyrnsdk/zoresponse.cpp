#include "zovyrnsdk/zoresponse.h"

#include "zovyrnsdk/link/members.h"

ZoJson ZoResponse::Payload() const {
  const ZoJson* const payload = raw.Find(ZoSdk::payloadMember);
  return payload != nullptr ? *payload : ZoJson();
}

std::string ZoResponse::Path() const {
  const ZoJson* const uri = raw.Find(ZoSdk::uriMember);
  return uri != nullptr && uri->IsString() ? uri->Get<std::string>() : std::string();
}
