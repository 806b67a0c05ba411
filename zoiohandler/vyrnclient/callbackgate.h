// The gate in front of a host's callbacks.
//
// A worker whose join ran out of time goes on for a while after its instance is gone. It may finish the
// callback that holds it up, but must not begin another one: so every callback is made inside an Entry, and
// destroying an instance closes the gate last of all.
//
// Threads: any. Owner: shared by the instance, its logger and its workers. No lock; the state is one atomic word.
// Invariant: once Close() has returned, no callback begins. (A thread that the system stops between its last look at the
// gate and calling, for longer than Close() waits, is beyond what a gate can see.)
#pragma once

#include <atomic>
#include <cstdint>

namespace ZoIO {

class CallbackGate {
 public:
  // Passes the gate for the duration of one callback, or of several in a row: whoever makes them asks before each whether the
  // gate is still open, which is cheaper by two atomic additions, and leaves when it is not. A null gate is always open.
  class Entry {
   public:
    explicit Entry(CallbackGate* gate) noexcept : gate(gate), open(gate == nullptr || gate->Enter()) {}
    Entry(const Entry&) = delete;
    Entry& operator=(const Entry&) = delete;
    ~Entry() {
      if (gate != nullptr && open) {
        gate->Leave();
      }
    }
    explicit operator bool() const noexcept { return open; }
    bool StillOpen() const noexcept { return gate == nullptr || (open && !gate->Closed()); }

   private:
    CallbackGate* gate;
    bool open;
  };

  // Lets nobody in any more. Callbacks that run are not waited for, except for a moment (about 200 ms at most) that
  // makes sure that whoever passed the gate, or found it open, just now has really begun.
  void Close() noexcept;

 private:
  bool Enter() noexcept;
  void Leave() noexcept;
  bool Closed() const noexcept { return (state.load(std::memory_order_acquire) & closed) != 0; }

  static constexpr std::uint64_t closed = 1;
  static constexpr std::uint64_t one = 2;
  std::atomic<std::uint64_t> state = 0;  // lowest bit: closed; above it: who is inside
};

inline bool CallbackGate::Enter() noexcept {
  if ((state.fetch_add(one, std::memory_order_acq_rel) & closed) != 0) {
    Leave();
    return false;
  }
  return true;
}

inline void CallbackGate::Leave() noexcept {
  state.fetch_sub(one, std::memory_order_acq_rel);
}

}  // namespace ZoIO
