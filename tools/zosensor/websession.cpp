#include "tools/zosensor/websession.h"

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include <boost/asio/buffer.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core/buffers_to_string.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/websocket/rfc6455.hpp>
#include <boost/beast/websocket/stream.hpp>

#include "tools/zosensor/sendqueue.h"
#include "tools/zosensor/sessioncore.h"

namespace ZoSensor {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
namespace websocket = beast::websocket;
using ErrorCode = boost::system::error_code;

// Beast finds these by name: how its WebSocket stream ends the connection below it.
template <typename Handler>
void async_teardown(beast::role_type, GatedSocket& socket, Handler&& handler) {
  socket.AsyncLinger(std::forward<Handler>(handler));
}
inline void teardown(beast::role_type role, GatedSocket& socket, ErrorCode& error) {
  websocket::teardown(role, socket.Tcp(), error);
}
inline void beast_close_socket(GatedSocket& socket) {
  socket.Close();
}

namespace {

constexpr auto HandshakeTime = std::chrono::seconds(10);
// For a client to take notice of the end, and to finish what it is sending; less when the sensor itself ends.
constexpr auto ClosingTime = std::chrono::seconds(10);
constexpr auto FarewellTime = std::chrono::milliseconds(1500);
constexpr auto PingInterval = std::chrono::seconds(20);
constexpr std::size_t FragmentSize = 65536;

class WebSession final : public Connection, public Outlet, public std::enable_shared_from_this<WebSession> {
 public:
  WebSession(Site& sessionSite, GatedSocket socket, std::string peerName)
      : site(sessionSite),
        peer(std::move(peerName)),
        stream(std::move(socket)),
        queue(site.limits.maxQueue),
        wakeTimer(site.io),
        closeTimer(site.io),
        pingTimer(site.io) {}

  void Start(UpgradeRequest upgrade, bool namesProtocol) {
    request = std::move(upgrade);
    stream.read_message_max(
        0);  // TakePart counts: a message that is too large is still read, and thrown away
    // In fragments, so that a pong need not wait until the client has fetched a large answer.
    stream.auto_fragment(true);
    stream.write_buffer_bytes(FragmentSize);
    websocket::stream_base::timeout times{};
    times.handshake_timeout = HandshakeTime;
    times.idle_timeout = websocket::stream_base::none();  // a stall must not look like a dead client
    times.keep_alive_pings = false;
    stream.set_option(times);
    stream.set_option(websocket::stream_base::decorator([namesProtocol](websocket::response_type& response) {
      response.set(http::field::server, "zosensor");
      if (namesProtocol) {
        response.set(http::field::sec_websocket_protocol, SessionProtocol);
      }
    }));
    stream.control_callback([this](websocket::frame_type, beast::string_view) { heard = true; });
    site.connections.insert(shared_from_this());
    ++site.sessions;
    stream.async_accept(request, [self = shared_from_this()](ErrorCode error) { self->Accepted(error); });
  }

  // Connection
  void Shutdown() override { Close(CloseCode::GoingAway, "the sensor ends"); }

  void Cut(std::string_view reason) override {
    ending = true;
    KeepReason(reason);
    stream.next_layer().Close();
    // Not from here: the sensor may be walking over its watchers, of which the core is one.
    asio::post(site.io, [self = shared_from_this()] { self->End("cut"); });
  }

  // Outlet
  void Send(Outgoing item) override {
    if (ending) {
      return;
    }
    if (!queue.Add(std::move(item), Clock::now())) {
      Cut("it does not read what it is sent");
      return;
    }
    WriteNext();
  }

  void Close(CloseCode code, std::string_view reason) override {
    if (!started) {
      Cut(reason);
      return;
    }
    if (std::exchange(ending, true)) {
      return;
    }
    KeepReason(reason);
    closing = true;
    queue.Clear();
    closeTimer.expires_after(site.closing ? FarewellTime : ClosingTime);
    closeTimer.async_wait([self = shared_from_this()](ErrorCode error) {
      if (!error) {
        self->stream.next_layer().Close();
      }
    });
    const websocket::close_reason why(static_cast<websocket::close_code>(code),
                                      beast::string_view(reason.data(), reason.size()));
    stream.async_close(why, [self = shared_from_this()](ErrorCode) { self->End("closed"); });
    // A client that reads only when it has sent everything must get that far, or it never sees the close.
    asio::post(site.io, [self = shared_from_this()] { self->ReadOn(); });
  }

  void WakeAt(Time time) override {
    if (ended || time >= wakeDue) {
      return;
    }
    wakeDue = time;
    wakeTimer.expires_at(time);
    wakeTimer.async_wait([self = shared_from_this()](ErrorCode error) {
      if (!error && self->core != nullptr) {
        self->wakeDue = Never;
        self->core->Step(Clock::now());
      }
    });
  }

 private:
  void Accepted(ErrorCode error) {
    started = true;
    if (error || ending) {
      End(error ? error.message() : "the sensor ends");
      return;
    }
    site.log.Info("{} opens a session", peer);
    stream.text(true);
    core = std::make_unique<SessionCore>(site.sensor, site.faults, site.limits, site.log, *this, peer);
    AwaitSilence();
    Read();
  }

  void Read() {
    reading = true;
    stream.async_read_some(buffer, 0, [self = shared_from_this()](ErrorCode error, std::size_t) {
      self->reading = false;
      self->TakePart(error);
    });
  }

  void TakePart(ErrorCode error) {
    if (error) {
      if (!closing) {  // else the end comes when the close is over
        End(error == websocket::error::closed ? "closed by the client" : error.message());
      }
      return;
    }
    heard = true;
    if (ending) {
      buffer.consume(buffer.size());
    } else if (buffer.size() > site.limits.maxMessage) {
      site.log.Warning("{} sent more than {} bytes at once", peer, site.limits.maxMessage);
      buffer.consume(buffer.size());
      Close(CloseCode::TooBig, "too large a message");
    } else if (stream.is_message_done()) {
      const auto data = buffer.cdata();
      core->Receive({static_cast<const char*>(data.data()), data.size()}, stream.got_text(), Clock::now());
      site.attend();
      buffer.consume(buffer.size());
    }
    ReadOn();
  }

  // A client that does not fetch its answers is not read from until it does.
  void ReadOn() {
    if (!reading && !ended && (closing || (!ending && !queue.Congested()))) {
      Read();
    }
  }

  void WriteNext() {
    if (writing || queue.Empty() || ending) {
      return;
    }
    writing = true;
    current = queue.Take();
    const auto done = [self = shared_from_this()](ErrorCode error, std::size_t) { self->Written(error); };
    if (current.framing == Outgoing::Framing::Message) {
      stream.async_write(asio::buffer(*current.text), done);
    } else {
      asio::async_write(stream.next_layer(), asio::buffer(*current.text), done);
    }
  }

  void Written(ErrorCode error) {
    writing = false;
    queue.Written();
    if (ending) {
      return;
    }
    if (error || current.framing == Outgoing::Framing::BytesThenCut) {
      Cut(error ? error.message() : "after half an answer, on purpose");
      return;
    }
    ReadOn();
    WriteNext();
  }

  // A client that is silent for three rounds, in spite of the pings that end the first two, is gone.
  void AwaitSilence() {
    pingTimer.expires_after(PingInterval);
    pingTimer.async_wait([self = shared_from_this()](ErrorCode error) {
      if (!error && !self->ended && !self->ending) {
        self->CheckSilence();
      }
    });
  }

  void CheckSilence() {
    // During a stall, and while a slow client is left waiting, nothing is read: silence means nothing then.
    const bool deaf = site.gate.Closed() || !reading;
    silentRounds = deaf || std::exchange(heard, false) ? 0 : silentRounds + 1;
    if (silentRounds >= 3) {
      Cut("silent in spite of pings");
      return;
    }
    if (silentRounds > 0 && !pinging) {
      pinging = true;
      stream.async_ping({}, [self = shared_from_this()](ErrorCode) { self->pinging = false; });
    }
    AwaitSilence();
  }

  // What ends the session; what happens after it is a consequence.
  void KeepReason(std::string_view reason) {
    if (firstReason.empty()) {
      firstReason = reason;
    }
  }

  void End(std::string_view reason) {
    if (std::exchange(ended, true)) {
      return;
    }
    ending = true;
    KeepReason(reason);
    site.log.Info("{} ends its session: {}", peer, firstReason);
    wakeTimer.cancel();
    closeTimer.cancel();
    pingTimer.cancel();
    stream.next_layer().Close();
    core.reset();
    --site.sessions;
    site.connections.erase(shared_from_this());
    site.connectionEnded();
  }

  Site& site;
  const std::string peer;
  websocket::stream<GatedSocket> stream;
  UpgradeRequest request;
  SendQueue queue;
  Timer wakeTimer, closeTimer, pingTimer;
  std::unique_ptr<SessionCore> core;
  beast::flat_buffer buffer;
  Outgoing current;
  Time wakeDue = Never;
  std::string firstReason;
  int silentRounds = 0;
  bool started = false;  // the handshake is over
  bool reading = false;
  bool writing = false;
  bool pinging = false;
  bool heard = false;
  bool ending = false;   // nothing more is answered or sent
  bool closing = false;  // what comes is thrown away until the client has taken notice
  bool ended = false;    // the site has forgotten it
};

}  // namespace

void StartWebSession(Site& site, GatedSocket socket, UpgradeRequest request, bool namesProtocol,
                     std::string peer) {
  std::make_shared<WebSession>(site, std::move(socket), std::move(peer))
      ->Start(std::move(request), namesProtocol);
}

}  // namespace ZoSensor
