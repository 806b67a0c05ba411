// Inside the base library only: the threads that nobody waits for any more. They are joined when they are
// found to have ended, at the latest by a static destructor at unload or exit, and never detached: a detached
// thread could run on in code that is no longer mapped.
//
// Threads: any. Lock: one of its own, a leaf, never held while waiting for a thread.
#pragma once

#include <cstdint>

struct qThreadObject;

namespace qApi {

// Makes the static object whose destructor joins the stragglers, if there is none yet. Everything that makes
// an object calls it, so that objects with static duration made later are destroyed earlier.
void InitialiseRuntime();

// Takes over one reference of a thread that was not joined. Once the static destructor has run there is
// nobody left to join it later: then this waits for the thread.
void KeepStraggler(qThreadObject* thread);

// Joins those that have ended; does not wait.
void ReapStragglers();

// The number of this process, also in a forked child.
std::uint64_t ProcessNumber();

// The calling thread has another number from now on (it is the one thread of a forked child).
void ForgetThreadNumber() noexcept;

}  // namespace qApi
