#include "zovyrnsdk/link/zolink.h"

#include <exception>
#include <stdexcept>
#include <thread>
#include <utility>

#include "zovyrnsdk/link/connection.h"
#include "zovyrnsdk/link/limits.h"
#include "zovyrnsdk/link/outgoing.h"
#include "zovyrnsdk/link/pendingrequest.h"

namespace {

constexpr std::chrono::milliseconds lookAgain{5};  // while another thread connects

}  // namespace

ZoLink::ZoLink(qIpAddress address, unsigned port)
    : address(address), port(port), handlers(std::make_shared<ZoSdk::Handlers>()) {}

ZoLink::~ZoLink() {
  Disconnect();
}

void ZoLink::Connect() {
  const ZoSdk::Time deadline = ZoSdk::Clock::now() + ZoSdk::connectLimit;
  while (!connecting.try_lock()) {
    if (ZoSdk::Clock::now() >= deadline) {
      RaiseCannotConnect("another attempt to connect has not ended within 3 s");
    }
    std::this_thread::sleep_for(lookAgain);
  }
  try {
    ConnectUntil(deadline);
  } catch (...) {  // for the lock alone
    connecting.unlock();
    throw;
  }
  connecting.unlock();
}

void ZoLink::ConnectUntil(ZoSdk::Time deadline) {
  if (const auto connection = Current(); connection && !connection->IsClosed()) {
    if (!connection->AwaitRestored(deadline)) {
      RaiseCannotConnect(connection->IsClosed()
                             ? "the system was disconnected meanwhile"
                             : "the connection was lost and could not be restored within 3 s");
    }
    return;
  }
  if (address.family == qIpFamily::None) {
    RaiseCannotConnect("this is no IP address");
  }
  if (port == 0 || port > 65535) {
    RaiseCannotConnect("this is no port");
  }
  OpenConnection(deadline);
}

void ZoLink::OpenConnection(ZoSdk::Time deadline) {
  std::shared_ptr<ZoSdk::Connection> connection;
  try {
    connection = std::make_shared<ZoSdk::Connection>(ZoSdk::Endpoint{address, port}, handlers);
    Replace(connection);
    connection->Open(deadline);
  } catch (const std::exception& error) {
    if (connection) {
      connection->Close();
    }
    RaiseCannotConnect(error.what());
  }
}

void ZoLink::RaiseCannotConnect(const std::string& cause) const {
  const std::string text = qIpAddress_Text(address);
  throw std::runtime_error("Cannot connect to the sensor at " + (text.empty() ? "(no address)" : text) +
                           ", port " + std::to_string(port) + ": " + cause + ".");
}

void ZoLink::Disconnect() noexcept {
  // A closed connection stays until the next Connect: whoever disconnects a second time waits for its
  // handlers too.
  if (const auto connection = Current()) {
    connection->Close();
  }
}

bool ZoLink::IsConnected() const noexcept {
  const auto connection = Current();
  return connection && connection->IsOnline();
}

ZoTransaction ZoLink::Request(ZoRequestMethod method, const std::string& uri, const ZoJson* payload,
                              const ZoJson& options) noexcept {
  std::shared_ptr<ZoPendingRequest> pending;
  try {
    const auto connection = Current();
    pending = std::make_shared<ZoPendingRequest>(connection);
    ZoRequest request(method, uri);
    if (!connection) {
      pending->Fail("The system is not connected.");
    } else if (!options.Empty()) {
      pending->Answer(ZoRequestResponse(ZoSdk::LocalAnswer(-400, uri, "Options are reserved.")));
    } else {
      connection->Request(method, uri, payload, pending);
    }
    return ZoTransaction(std::move(request), std::move(pending));
  } catch (const std::exception&) {
    if (pending) {
      pending->Fail("There is no memory for the request.");
    }
    // Without memory there may be no outcome to share; the transaction then knows none.
    return ZoTransaction(ZoRequest(method, std::string()), std::move(pending));
  }
}

void ZoLink::SetStreamHandler(ZoSdk::StreamHandler handler) {
  handlers->Set(std::move(handler));
}

void ZoLink::SetSubHandler(ZoSdk::SubHandler handler) {
  handlers->Set(std::move(handler));
}

std::shared_ptr<ZoSdk::Connection> ZoLink::Current() const {
  Zo::MutexLock lock(mutex);
  return current;
}

std::shared_ptr<ZoSdk::Connection> ZoLink::Replace(std::shared_ptr<ZoSdk::Connection> next) {
  Zo::MutexLock lock(mutex);
  current.swap(next);
  return next;
}
