// The commands that ask once and end: info, read, write and call.
//
// Threads: main thread only. All of them may raise OutputError, PluginError and InstanceRefused.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/zohost/console.h"
#include "tools/zohost/plugin.h"
#include "tools/zohost/session.h"
#include "tools/zohost/value.h"

namespace zohost {

Status RunInfo(const Plugin& plugin, Console& console);
Status RunRead(Session& session, Console& console, const std::vector<std::string>& items);
Status RunWrite(Session& session, Console& console, const std::string& item, const Value& value);
Status RunCall(Session& session, Console& console, const std::string& method, const std::string& arguments);

}  // namespace zohost
