// One session with its WebSocket: reads messages for its core, and writes what the core sends, in bounds.
//
// Threads: the I/O thread alone. Owner: the site, and the operations under way.
#pragma once

#include <string>

#include <boost/beast/http/message.hpp>
#include <boost/beast/http/string_body.hpp>

#include "tools/zosensor/site.h"

namespace ZoSensor {

inline constexpr const char* SessionTarget = "/vyrn/v1";
inline constexpr const char* SessionProtocol = "vyrn.v1.json";

using UpgradeRequest = boost::beast::http::request<boost::beast::http::string_body>;

// namesProtocol: whether the client offered the subprotocol, so that the answer may name it.
void StartWebSession(Site& site, GatedSocket socket, UpgradeRequest request, bool namesProtocol,
                     std::string peer);

}  // namespace ZoSensor
