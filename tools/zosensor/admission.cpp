#include "tools/zosensor/admission.h"

#include <algorithm>
#include <string_view>
#include <utility>
#include <vector>

#include <fmt/format.h>
#include <boost/beast/http/rfc7230.hpp>

#include "tools/zosensor/host.h"
#include "tools/zosensor/origin.h"
#include "tools/zosensor/websession.h"

namespace ZoSensor {
namespace {

namespace http = boost::beast::http;

std::string_view View(boost::beast::string_view text) {
  return {text.data(), text.size()};
}

// Of a target that is a whole URL: a client that names a host there means that one.
std::optional<std::string_view> AuthorityOf(std::string_view target) {
  const auto scheme = target.find("://");
  if (target.starts_with('/') || scheme == std::string_view::npos) {
    return std::nullopt;
  }
  const std::string_view rest = target.substr(scheme + 3);
  return rest.substr(0, rest.find_first_of("/?"));
}

RestAnswer Refuse(const Site& site, const std::string& peer, unsigned status, std::string reason) {
  site.log.Warning("{} -> {}: {}", peer, status, reason);
  return RestDoor::Refuse(status, "", std::move(reason));
}

std::optional<RestAnswer> RefuseHost(std::string_view named, const Site& site, const std::string& peer) {
  const auto host = HostOf(named);
  if (!host) {
    return Refuse(site, peer, 400, "the request names no host that there could be");
  }
  if (IsHostAllowed(*host, site.onLoopback, site.limits.allowedOrigins)) {
    return std::nullopt;
  }
  site.log.Warning("{} asks for the host {}, which is refused", peer, named);
  return RestDoor::Refuse(403, "",
                          site.onLoopback
                              ? "this host is not served; ask for 127.0.0.1, or see --allow-origin"
                              : "this host is not served; ask for an IP address, or see --allow-origin");
}

std::optional<RestAnswer> RefuseHosts(const RequestHeader& header, const Site& site,
                                      const std::string& peer) {
  const auto count = header.count(http::field::host);
  if (count > 1 || (count == 0 && header.version() >= 11)) {  // the first version of HTTP did not know it
    return Refuse(site, peer, 400, "a request has one Host header");
  }
  std::optional<RestAnswer> refusal;
  if (count == 1) {
    refusal = RefuseHost(View(header[http::field::host]), site, peer);
  }
  if (const auto authority = AuthorityOf(View(header.target())); authority && !refusal) {
    refusal = RefuseHost(*authority, site, peer);
  }
  return refusal;
}

// What a page requests without saying where it comes from, as for an image, a browser marks by another header.
bool IsHiddenPage(const RequestHeader& header, const std::vector<std::string>& allowed) {
  const std::string_view site = View(header["Sec-Fetch-Site"]);
  return header.count(http::field::origin) == 0 && (site == "cross-site" || site == "same-site") &&
         std::find(allowed.begin(), allowed.end(), "*") == allowed.end();
}

}  // namespace

std::optional<RestAnswer> RefuseRequest(const RequestHeader& header, const Site& site,
                                        const boost::asio::ip::tcp::endpoint& local,
                                        const std::string& peer) {
  if (auto refusal = RefuseHosts(header, site, peer)) {
    return refusal;
  }
  const std::string_view origin = View(header[http::field::origin]);
  if (!IsOriginAllowed(origin, Unmapped(local.address()).to_string(), local.port(),
                       site.limits.allowedOrigins)) {
    site.log.Warning("{} comes from a page of {}, which is refused", peer, origin);
    return RestDoor::Refuse(403, "", "this origin is not allowed; see --allow-origin");
  }
  if (IsHiddenPage(header, site.limits.allowedOrigins)) {
    site.log.Warning("{} comes from a page that does not say its origin, which is refused", peer);
    return RestDoor::Refuse(403, "", "this page does not say its origin; see --allow-origin");
  }
  return std::nullopt;
}

SessionEntry JudgeUpgrade(const RequestHeader& header, const Site& site, const std::string& peer) {
  const std::string_view target = View(header.target());
  if (RestDoor::TargetPath(target) != SessionTarget) {
    return {Refuse(site, peer, 404, fmt::format("sessions are opened at {}", SessionTarget))};
  }
  if (View(header[http::field::sec_websocket_version]) != "13") {
    return {Refuse(site, peer, 426, "sessions speak WebSocket, version 13")};
  }
  // A client may spread its offer over several lines.
  const auto [firstLine, lastLine] = header.equal_range(http::field::sec_websocket_protocol);
  const bool offers = firstLine != lastLine;
  bool known = false;
  for (auto line = firstLine; line != lastLine; ++line) {
    for (const auto& protocol : http::token_list(line->value())) {
      known = known || View(protocol) == SessionProtocol;
    }
  }
  if (offers && !known) {
    return {Refuse(site, peer, 400, fmt::format("the subprotocol here is {}", SessionProtocol))};
  }
  if (site.sessions >= site.limits.maxClients) {
    site.log.Warning("{} is refused: {} sessions are open already", peer, site.sessions);
    return {RestDoor::Refuse(503, "", fmt::format("at most {} sessions at once", site.limits.maxClients))};
  }
  return {std::nullopt, known};
}

}  // namespace ZoSensor
