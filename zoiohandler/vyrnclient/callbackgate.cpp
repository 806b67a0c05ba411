#include "zoiohandler/vyrnclient/callbackgate.h"

#include "qapi/thread.h"

namespace ZoIO {

void CallbackGate::Close() noexcept {
  constexpr int patience = 200;  // ms
  constexpr std::uint64_t millisecond = 1000;
  state.fetch_or(closed, std::memory_order_acq_rel);
  for (int waited = 0; waited < patience && state.load(std::memory_order_acquire) != closed; ++waited) {
    qThread_Sleep(millisecond);
  }
}

}  // namespace ZoIO
