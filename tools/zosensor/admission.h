// Who is served at all, judged by the header of a request before anything of it is done.
//
// Functions without state. Threads: the I/O thread alone.
#pragma once

#include <optional>
#include <string>

#include <boost/beast/http/message.hpp>

#include "tools/zosensor/restdoor.h"
#include "tools/zosensor/site.h"

namespace ZoSensor {

using RequestHeader = boost::beast::http::request_header<>;

// Why a request is turned away, whatever it asks for: it means another host, or a page of a foreign origin
// sends it. Nothing for a welcome one. local: where it arrived.
std::optional<RestAnswer> RefuseRequest(const RequestHeader& header, const Site& site,
                                        const boost::asio::ip::tcp::endpoint& local, const std::string& peer);

// What an upgrade may find: a session, whose answer names the subprotocol or does not, or a refusal.
struct SessionEntry {
  std::optional<RestAnswer> refusal;
  bool namesProtocol = false;
};
SessionEntry JudgeUpgrade(const RequestHeader& header, const Site& site, const std::string& peer);

}  // namespace ZoSensor
