#include "zovyrnsdk/link/pendingrequest.h"

#include <stdexcept>
#include <utility>

#include "zovyrnsdk/link/members.h"
#include "zovyrnsdk/zorequesterror.h"

bool ZoPendingRequest::Answer(ZoRequestResponse answer) {
  Zo::MutexLock lock(mutex);
  if (Settled()) {
    return false;
  }
  response.emplace(std::move(answer));
  settled.store(true, std::memory_order_release);
  return true;
}

bool ZoPendingRequest::Fail(std::string cause) {
  Zo::MutexLock lock(mutex);
  if (Settled()) {
    return false;
  }
  failure = std::move(cause);
  settled.store(true, std::memory_order_release);
  return true;
}

bool ZoPendingRequest::Fail(const char* cause) noexcept {
  Zo::MutexLock lock(mutex);
  if (Settled()) {
    return false;
  }
  lastingFailure = cause;
  settled.store(true, std::memory_order_release);
  return true;
}

ZoRequestResponse ZoPendingRequest::Take() const {
  if (!response) {
    throw std::runtime_error(lastingFailure != nullptr ? lastingFailure : failure.c_str());
  }
  const ZoJson* const status = response->Raw().Find(ZoSdk::statusMember);
  if (status != nullptr && status->IsInteger() && status->Get<long long>() < 0) {
    throw ZoRequestError(*response);
  }
  return *response;
}
