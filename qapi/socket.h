// Sockets, as far as whoever works with them cannot open them well enough by other means.
#pragma once

#include "qapi/address.h"
#include "qapi/status.h"

// Opens a TCP socket that is not connected yet and that programs started from this process do not inherit. *out is its
// descriptor, the caller's to close. On failure *out is -1 and errno tells the cause. Any thread.
qStatus qSocket_OpenTcp(qIpFamily family, int* out);

// Closes such a socket. Any thread.
void qSocket_Close(int descriptor) noexcept;
