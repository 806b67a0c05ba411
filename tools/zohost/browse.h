// The browse command: every tag of a sensor, ready to paste, with its value.
//
// Threads: main thread only. May raise OutputError.
#pragma once

#include <string>

#include "tools/zohost/console.h"
#include "tools/zohost/session.h"

namespace zohost {

// uri: this resource and what lies below it; empty for all.
Status RunBrowse(Session& session, Console& console, const std::string& uri);

}  // namespace zohost
