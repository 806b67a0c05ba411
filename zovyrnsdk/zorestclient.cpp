#include "zovyrnsdk/zorestclient.h"

#include "zovyrnsdk/link/zolink.h"

ZoTransaction ZoRestClient::Read(const std::string& uri, const ZoJson&, const ZoJson& options) noexcept {
  return link->Request(ZoRequestMethod_Read, uri, nullptr, options);
}

ZoTransaction ZoRestClient::Create(const std::string& uri, const ZoJson& payload,
                                   const ZoJson& options) noexcept {
  return link->Request(ZoRequestMethod_Create, uri, &payload, options);
}

ZoTransaction ZoRestClient::Update(const std::string& uri, const ZoJson& payload,
                                   const ZoJson& options) noexcept {
  return link->Request(ZoRequestMethod_Update, uri, &payload, options);
}

ZoTransaction ZoRestClient::Delete(const std::string& uri, const ZoJson&, const ZoJson& options) noexcept {
  return link->Request(ZoRequestMethod_Delete, uri, nullptr, options);
}

ZoTransaction ZoRestClient::Call(const std::string& uri, const ZoJson& payload,
                                 const ZoJson& options) noexcept {
  // A call without arguments carries no payload.
  return link->Request(ZoRequestMethod_Call, uri, payload.IsNull() ? nullptr : &payload, options);
}

ZoTransaction ZoRestClient::Sub(const std::string& uri, const ZoJson&, const ZoJson& options) noexcept {
  return link->Request(ZoRequestMethod_Sub, uri, nullptr, options);
}

ZoTransaction ZoRestClient::UnSub(const std::string& uri, const ZoJson&, const ZoJson& options) noexcept {
  return link->Request(ZoRequestMethod_UnSub, uri, nullptr, options);
}

ZoTransaction ZoRestClient::StartStream(const std::string& uri, const ZoJson&,
                                        const ZoJson& options) noexcept {
  return link->Request(ZoRequestMethod_StartStream, uri, nullptr, options);
}

ZoTransaction ZoRestClient::StopStream(const std::string& uri, const ZoJson&,
                                       const ZoJson& options) noexcept {
  return link->Request(ZoRequestMethod_StopStream, uri, nullptr, options);
}

void ZoRestClient::SetStreamHandler(
    const std::function<void(const std::shared_ptr<ZoStreamResponse>&)>& handler) {
  link->SetStreamHandler(handler);
}

void ZoRestClient::SetSubHandler(
    const std::function<void(const std::shared_ptr<ZoNotificationResponse>&)>& handler) {
  link->SetSubHandler(handler);
}
