// One TCP connection at the REST door; becomes a session when the client asks for the upgrade.
//
// Threads: the I/O thread alone. Owner: the site, and the operations under way.
#pragma once

#include "tools/zosensor/site.h"

namespace ZoSensor {

void StartHttpConnection(Site& site, GatedSocket::Socket socket);

}  // namespace ZoSensor
