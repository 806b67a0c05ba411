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

bool ZoTransaction::Wait(std::uint64_t timeout) {
  if (pending && pending->connection) {
    pending->connection->AwaitOutcome(*pending, timeout);
  }
  return !pending || pending->Settled();
}

void ZoTransaction::EndUnanswered(std::uint64_t waited) {
  if (pending && pending->connection) {
    pending->connection->EndUnanswered(pending, waited);
  }
}

void ZoTransaction::Cancel() {
  if (pending && pending->connection) {
    pending->connection->Cancel(pending);
  }
}
