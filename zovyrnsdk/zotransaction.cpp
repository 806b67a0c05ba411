#include "zovyrnsdk/zotransaction.h"

#include <stdexcept>
#include <utility>

#include "zovyrnsdk/link/connection.h"
#include "zovyrnsdk/link/pendingrequest.h"

ZoTransaction::ZoTransaction(ZoRequest request, std::shared_ptr<ZoPendingRequest> pending)
    : request(std::move(request)), pending(std::move(pending)) {}

ZoRequestResponse ZoTransaction::GetResponse(std::uint64_t timeout) {
  if (!pending) {
    throw std::runtime_error("There was no memory for the request.");
  }
  if (pending->connection) {
    pending->connection->Await(pending, request, timeout);
  }
  return pending->Take();
}

void ZoTransaction::Cancel() {
  if (pending && pending->connection) {
    pending->connection->Cancel(pending);
  }
}
