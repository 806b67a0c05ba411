// Threads. Durations are in microseconds.
#pragma once

#include <array>
#include <cstdint>
#include <thread>

#include "qapi/object.h"
#include "qapi/status.h"

using qThreadBody = int (*)(void* argument);

// Makes a thread object (null on failure); nothing runs yet.
qStatus qThread_Construct(qThread* out);

// Names the thread, as debuggers and logs of the operating system show it (cut to what the system allows: 15
// bytes on Linux, of which the first ones are kept). Before or after the start.
qStatus qThread_SetName(qThread thread, const char* name);

// Starts body(argument) on the thread. Once only; on failure body never runs and argument stays the caller's.
// body must not let an exception out. The thread takes no signals that are meant for the whole process: those
// are the host's.
qStatus qThread_Start(qThread thread, qThreadBody body, void* argument);

// Waits at most timeout microseconds for the thread to end. From the moment this is called, every
// qThread_Sleep of that thread, the current one included, returns at once with success. exitCode may be null.
// Joining a thread that never started, or was joined already, succeeds at once. qStatus_Deadlock from the
// thread itself.
qStatus qThread_Join(qThread thread, std::uint64_t timeout, int* exitCode);

// Suspends the calling thread. Ends early, with success, when the calling thread is being joined.
qStatus qThread_Sleep(std::uint64_t duration);

// The operating system's number of the calling thread.
std::uint64_t qThread_CurrentId();

// Names the calling thread, which need not be one of the library's.
void qThread_NameCurrent(const char* name);

// For the scope in which a std::thread is made: the new thread takes no signals that are meant for the process, so
// the host's handlers run on the host's threads only, and its waits are not interrupted. qThread_Start does so by
// itself.
class qSignalShield {
 public:
  qSignalShield();
  qSignalShield(const qSignalShield&) = delete;
  qSignalShield& operator=(const qSignalShield&) = delete;
  ~qSignalShield();

 private:
  alignas(8) std::array<unsigned char, 128> saved;
};

// Takes over a thread that its owner cannot wait for any longer; it is joined when the library is unloaded.
// Everything that the thread still touches must be owned by the thread. A thread that is not joinable is
// dropped.
void qThread_Adopt(std::thread thread);
