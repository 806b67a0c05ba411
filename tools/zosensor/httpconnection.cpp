#include "tools/zosensor/httpconnection.h"

#include <algorithm>
#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include <fmt/format.h>
#include <boost/asio/buffer.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/read.hpp>
#include <boost/beast/http/string_body.hpp>
#include <boost/beast/http/write.hpp>
#include <boost/beast/websocket/rfc6455.hpp>

#include "tools/zosensor/admission.h"
#include "tools/zosensor/restdoor.h"
#include "tools/zosensor/websession.h"

namespace ZoSensor {
namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
using ErrorCode = boost::system::error_code;

constexpr std::size_t LargestHeader = 16384;

std::string_view View(beast::string_view text) {
  return {text.data(), text.size()};
}

class HttpConnection final : public Connection, public std::enable_shared_from_this<HttpConnection> {
 public:
  HttpConnection(Site& connectionSite, GatedSocket::Socket tcpSocket, std::string peerName, bool isWelcome)
      : site(connectionSite),
        peer(std::move(peerName)),
        welcome(isWelcome),
        socket(std::in_place, std::move(tcpSocket), site.gate),
        idleTimer(site.io),
        delayTimer(site.io),
        door(site.sensor, site.faults, site.limits, site.log) {}

  void Start() {
    site.connections.insert(shared_from_this());
    ReadHeader();
  }

  void Shutdown() override { Cut("the sensor ends"); }
  void Cut(std::string_view reason) override {
    site.log.Debug("{} is cut: {}", peer, reason);
    CloseSocket();
  }

 private:
  void ReadHeader() {
    // What a refusal of the next request says must not depend on the one before it.
    version = 11;
    head = false;
    origin.clear();
    parser.emplace();
    parser->header_limit(LargestHeader);
    parser->body_limit(site.limits.maxMessage);
    transferring = false;
    AwaitIdleness();
    http::async_read_header(
        *socket, buffer, *parser,
        [self = shared_from_this()](ErrorCode error, std::size_t) { self->TakeHeader(error); });
  }

  void TakeHeader(ErrorCode error) {
    if (error) {
      RefuseUnreadable(error);
      return;
    }
    const auto& header = parser->get();
    version = header.version();
    head = header.method() == http::verb::head;
    first = false;
    if (!welcome) {
      Finish(RestDoor::Refuse(503, "", "too many connections are open"), false);
      return;
    }
    const auto local = socket->Tcp().local_endpoint(error);
    if (error) {
      End();
      return;
    }
    if (auto refusal = RefuseRequest(header, site, local, peer)) {
      Finish(*std::move(refusal), false);
      return;
    }
    if (beast::websocket::is_upgrade(header)) {
      Upgrade();
      return;
    }
    // A client of HTTP/1.0 knows no answer before the answer.
    if (version >= 11 && beast::iequals(header[http::field::expect], "100-continue")) {
      static constexpr std::string_view Continue = "HTTP/1.1 100 Continue\r\n\r\n";
      asio::async_write(*socket, asio::buffer(Continue),
                        [self = shared_from_this()](ErrorCode written, std::size_t) {
                          if (written) {
                            self->End();
                          } else {
                            self->ReadBody();
                          }
                        });
      return;
    }
    ReadBody();
  }

  void ReadBody() {
    transferring = true;
    AwaitIdleness();
    http::async_read(*socket, buffer, *parser, [self = shared_from_this()](ErrorCode error, std::size_t) {
      if (error) {
        self->RefuseUnreadable(error);
      } else {
        self->Serve();
      }
    });
  }

  void RefuseUnreadable(ErrorCode error) {
    if (error == http::error::body_limit || error == http::error::buffer_overflow) {
      RefuseBroken(413, fmt::format("a body holds at most {} bytes", site.limits.maxMessage));
    } else if (error == http::error::header_limit) {
      RefuseBroken(431, "the header is too large");
    } else if (error.category() == make_error_code(http::error::bad_method).category() &&
               error != http::error::end_of_stream && error != http::error::partial_message) {
      RefuseBroken(400, fmt::format("this is no HTTP: {}", error.message()));
    } else {
      End();
    }
  }

  void RefuseBroken(unsigned status, std::string reason) {
    site.log.Warning("{} -> {}: {}", peer, status, reason);
    Finish(RestDoor::Refuse(status, "", std::move(reason)), false);
  }

  void Upgrade() {
    SessionEntry entry = JudgeUpgrade(parser->get(), site, peer);
    if (entry.refusal) {
      Finish(*std::move(entry.refusal), false);
      return;
    }
    if (site.closing) {
      End();
      return;
    }
    EndIdleness();
    UpgradeRequest request;
    request.base() = parser->release().base();
    StartWebSession(site, std::move(*socket), std::move(request), entry.namesProtocol, peer);
    socket.reset();
    End();
  }

  void Serve() {
    EndIdleness();
    const auto request = parser->release();
    origin = View(request[http::field::origin]);
    if (request.method() == http::verb::options) {
      site.log.Debug("{} OPTIONS {} -> 204", peer, View(request.target()));
      RestAnswer answer;
      answer.status = 204;
      answer.allow = RestDoor::Methods;
      Finish(std::move(answer), request.keep_alive());
      return;
    }
    if (RestDoor::TargetPath(View(request.target())) == SessionTarget) {
      site.log.Debug("{} {} {} -> 426", peer, View(request.method_string()), View(request.target()));
      Finish(RestDoor::Refuse(426, "", "sessions speak WebSocket"), request.keep_alive());
      return;
    }
    RestAnswer answer = door.Handle(
        {std::string(View(request.method_string())), std::string(View(request.target())), request.body()},
        peer, Clock::now());
    site.attend();
    Disturb(std::move(answer), request.keep_alive());
  }

  // Lets happen to an answer what was rolled for it.
  void Disturb(RestAnswer answer, bool keepAlive) {
    if (answer.disturbance == Disturbance::Cut || answer.plan.lose) {
      Cut("on purpose");
      End();
      return;
    }
    if (answer.disturbance == Disturbance::Stall) {
      site.faults.Stall(Duration::zero(), site.faults.StallTime(), Clock::now());
    }
    if (answer.plan.latency <= Duration::zero()) {
      Finish(std::move(answer), keepAlive);
      return;
    }
    delayTimer.expires_after(answer.plan.latency);
    delayTimer.async_wait(
        [self = shared_from_this(), answer = std::move(answer), keepAlive](ErrorCode error) mutable {
          if (error) {
            self->End();
          } else {
            self->Finish(std::move(answer), keepAlive);
          }
        });
  }

  void Finish(RestAnswer answer, bool keepAlive) {
    transferring = true;
    AwaitIdleness();
    response = {};
    response.version(version);
    response.result(answer.status);
    response.set(http::field::server, "zosensor");
    if (answer.status != 204) {
      response.set(http::field::content_type, "application/json");
    }
    if (!answer.allow.empty()) {
      response.set(http::field::allow, answer.allow);
    }
    if (answer.status == 426) {
      response.set(http::field::upgrade, "websocket");
      response.set(http::field::sec_websocket_version, "13");
    }
    AddCrossOriginHeaders(answer.status == 204);
    const bool ends = !keepAlive || site.closing;
    response.keep_alive(!ends);
    const std::size_t size = answer.body.size();
    if (!head) {
      response.body() = std::move(answer.body);
    }
    if (answer.status != 204) {
      response.content_length(size);
    }
    if (answer.plan.garbage || answer.plan.truncate) {
      WriteBroken(answer.plan);
      return;
    }
    http::async_write(*socket, response, [self = shared_from_this(), ends](ErrorCode error, std::size_t) {
      if (ends || error) {
        self->EndGently(error);
      } else {
        self->ReadHeader();
      }
    });
  }

  void AddCrossOriginHeaders(bool preflight) {
    if (origin.empty()) {
      return;
    }
    response.set(http::field::access_control_allow_origin, origin);
    response.set(http::field::vary, "Origin");
    if (preflight) {
      response.set(http::field::access_control_allow_methods, RestDoor::Methods);
      response.set(http::field::access_control_allow_headers, "Content-Type");
    }
  }

  void WriteBroken(const FaultPlan& plan) {
    if (plan.garbage) {
      broken = "HTTP/9.9 \x01\xff what?\r\n\r\n]}{";
    } else {
      broken = fmt::format("HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nContent-Length: {}\r\n\r\n",
                           response.body().size());
      broken += response.body().substr(0, response.body().size() / 2);
    }
    asio::async_write(*socket, asio::buffer(broken),
                      [self = shared_from_this()](ErrorCode, std::size_t) { self->End(); });
  }

  // A client may still be sending what was refused; closing under its hands would reset the connection and
  // lose the answer. So the sending side ends first, and what comes is thrown away for a moment.
  void EndGently(ErrorCode error) {
    if (!error) {
      ErrorCode ignored;
      socket->Tcp().shutdown(GatedSocket::Socket::shutdown_send, ignored);
      drained = 0;
      transferring = false;
      idleTimer.expires_after(std::chrono::seconds(2));
      AwaitExpiry();
      Drain();
      return;
    }
    End();
  }

  void Drain() {
    buffer.clear();
    socket->async_read_some(buffer.prepare(65536),
                            [self = shared_from_this()](ErrorCode error, std::size_t count) {
                              self->drained += count;
                              constexpr std::size_t Patience = std::size_t{64} << 20;
                              error || self->drained > Patience ? self->End() : self->Drain();
                            });
  }

  // Counts the time in which the client does nothing. What the sensor takes for an answer is not its fault.
  void AwaitIdleness() {
    bytesSeen = socket->Transferred();
    idleTimer.expires_after(first ? std::min(site.limits.firstRequestTime, site.limits.idleTime)
                                  : site.limits.idleTime);
    AwaitExpiry();
  }

  void AwaitExpiry() {
    counting = true;
    idleTimer.async_wait([self = shared_from_this()](ErrorCode error) {
      if (!error && self->counting && self->idleTimer.expiry() <= Clock::now()) {
        self->JudgeIdleness();
      }
    });
  }

  void JudgeIdleness() {
    const bool moves = transferring && socket && socket->Transferred() != bytesSeen;
    if (socket && (moves || site.gate.Closed())) {
      AwaitIdleness();  // a stall is no reason to close
    } else {
      CloseSocket();
    }
  }

  void EndIdleness() {
    counting = false;
    idleTimer.cancel();
  }

  void CloseSocket() {
    EndIdleness();
    delayTimer.cancel();
    if (socket) {
      socket->Close();
    }
  }

  void End() {
    CloseSocket();
    if (site.connections.erase(shared_from_this()) != 0) {
      site.connectionEnded();
    }
  }

  Site& site;
  const std::string peer;
  const bool welcome;                 // otherwise there are too many connections
  std::optional<GatedSocket> socket;  // gone once a session has it
  Timer idleTimer, delayTimer;
  RestDoor door;
  beast::flat_buffer buffer;
  std::optional<http::request_parser<http::string_body>> parser;
  http::response<http::string_body> response;
  std::string broken;
  std::string origin;
  std::size_t drained = 0;
  std::size_t bytesSeen = 0;  // when idleness was last judged
  bool counting = false;      // idle time; not while a request is served
  bool transferring = false;  // a body or an answer, which may take long as long as it moves
  unsigned version = 11;
  bool head = false;
  bool first = true;  // no request has come yet
};

}  // namespace

void StartHttpConnection(Site& site, GatedSocket::Socket socket, bool welcome) {
  ErrorCode error;
  socket.set_option(asio::ip::tcp::no_delay(true), error);
  const auto remote = socket.remote_endpoint(error);
  std::string peer = error ? "somebody" : fmt::format("{}:{}", remote.address().to_string(), remote.port());
  site.log.Debug("{} connects", peer);
  std::make_shared<HttpConnection>(site, std::move(socket), std::move(peer), welcome)->Start();
}

}  // namespace ZoSensor
