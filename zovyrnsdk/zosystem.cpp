#include "zovyrnsdk/zosystem.h"

#include "zovyrnsdk/link/zolink.h"

namespace {

constexpr std::uint64_t answerLimit = 3000000;  // microseconds

}  // namespace

ZoSystem::ZoSystem() : ZoSystem(qIpAddress(), 0) {}

ZoSystem::ZoSystem(qIpAddress address, unsigned port)
    : link(std::make_shared<ZoLink>(address, port)), client(link) {}

void ZoSystem::Connect() {
  link->Connect();
}

void ZoSystem::Disconnect() noexcept {
  link->Disconnect();
}

bool ZoSystem::IsConnected() const noexcept {
  return link->IsConnected();
}

void ZoSystem::Start() {
  client.Call("/system/start", ZoJson(), ZoJson()).GetResponse(answerLimit);
}

void ZoSystem::Stop() {
  client.Call("/system/stop", ZoJson(), ZoJson()).GetResponse(answerLimit);
}

ZoSystem::State ZoSystem::RunningState() {
  const ZoJson payload = client.Read("/system", ZoJson(), ZoJson()).GetResponse(answerLimit).Payload();
  return payload.At("/state").Get<int>() == Running ? Running : Stopped;
}
