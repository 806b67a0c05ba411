// Handles of base-library objects. An object is reference-counted inside the library: a handle is one
// reference, and a running thread holds another on itself, so destroying a handle never pulls an object from
// under a thread.
#pragma once

struct qApiLibObject;
struct qLockObject;
struct qThreadObject;

using qApiLib = qApiLibObject*;
using qLock = qLockObject*;
using qThread = qThreadObject*;

// Release one handle. Null is allowed and does nothing. Any thread. Never blocks, except for a thread that
// runs on after the library's static destructor: nobody is left to join it later.
//
// A lock must not be held by anybody who will still leave it through this handle. A thread that is still
// running goes on and is joined when the library is unloaded (or earlier, when it is found to have ended); it
// is never detached. Destroying the library's handle leaves every other object usable.
void qObject_Destroy(qApiLib library);
void qObject_Destroy(qLock lock);
void qObject_Destroy(qThread thread);
