// Locks: plain mutual exclusion, not recursive, with a name and a rank.
//
// Ranks make deadlocks impossible rather than unlikely: a thread may only enter a lock whose rank is higher
// than that of every lock it holds. Builds without NDEBUG check this at every enter and abort with the names
// of both locks.
#pragma once

#include <cstdint>

#include "qapi/object.h"
#include "qapi/status.h"

// Makes a lock. name must outlive it (a literal); rank 0 means unranked, a negative one is invalid. On
// failure *out is null.
qStatus qLock_Construct(qLock* out, const char* name, int rank);

// Waits without limit. Entering a lock that the calling thread already holds gives qStatus_Deadlock.
qStatus qLock_Enter(qLock lock);

// Waits at most timeout microseconds (0 tries once); qStatus_TimeOut when the time is up.
qStatus qLock_EnterEx(qLock lock, std::uint64_t timeout);

// Leaves the lock; qStatus_WrongState when the calling thread does not hold it.
qStatus qLock_Exit(qLock lock);
