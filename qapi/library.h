// The base library as a whole.
#pragma once

#include <cstdint>

#include "qapi/object.h"
#include "qapi/status.h"

// Makes a handle of the library (null on failure) and initialises it on first use. Everything else in qapi
// also works without such a handle, before it is made and after it is destroyed.
//
// Threads that outlived their owner's patience are joined by the library's own static destructor, which
// blocks until they end. Call this before constructing any static object whose destructor uses threads:
// statics are destroyed in reverse, so the library is then the last to go.
qStatus qApiLib_Construct(qApiLib* out);

// The operating system's number of this process. It differs in a forked child, which has none of the threads that its
// parent had.
std::uint64_t qApiLib_ProcessId();
