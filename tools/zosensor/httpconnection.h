// One TCP connection at the REST door; becomes a session when the client asks for the upgrade.
//
// Threads: the I/O thread alone. Owner: the site, and the operations under way.
#pragma once

#include "tools/zosensor/site.h"

namespace ZoSensor {

// welcome: otherwise its first request is answered by 503, and it ends.
void StartHttpConnection(Site& site, GatedSocket::Socket socket, bool welcome);

}  // namespace ZoSensor
