#include "zovyrnsdk/link/session.h"

#include <algorithm>
#include <array>
#include <boost/asio/bind_executor.hpp>
#include <boost/asio/buffer.hpp>
#include <boost/asio/error.hpp>
#include <boost/asio/post.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http/field.hpp>
#include <boost/beast/websocket/error.hpp>
#include <boost/beast/websocket/rfc6455.hpp>
#include <boost/beast/websocket/stream.hpp>
#include <boost/beast/websocket/stream_base.hpp>
#include <cerrno>
#include <cstring>
#include <exception>
#include <optional>
#include <utility>

#include "qapi/memory.h"
#include "qapi/socket.h"
#include "zovyrnsdk/link/eventloopimpl.h"
#include "zovyrnsdk/link/limits.h"
#include "zovyrnsdk/link/outgoing.h"

namespace ZoSdk {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace websocket = boost::beast::websocket;
using boost::system::error_code;
using Tcp = asio::ip::tcp;

namespace {

constexpr const char* target = "/vyrn/v1";
constexpr const char* subprotocol = "vyrn.v1.json";
constexpr std::size_t readStep = 256 * 1024;     // a length that a peer only claims costs no more than this
constexpr std::size_t writeStep = 64 * 1024;     // one frame: pings and pongs go out between two of them
constexpr std::size_t glimpse = 512;             // of a refused message, enough to see what it is about
constexpr std::size_t keptBuffer = 1024 * 1024;  // a larger one is given back after the message
constexpr std::chrono::milliseconds lingerLimit{200};
constexpr std::chrono::milliseconds unhindered{5};  // a write into an empty buffer takes less
constexpr std::chrono::milliseconds longMessage{500};
// Of a long message within healthLimit: some 30 kbit/s. A peer that dawdles on purpose gives less.
constexpr std::size_t growth = 4096;

// A socket whose WebSocket teardown does not wait for the peer: the session does its own, bounded lingering.
class LinkSocket : public LoopSocket {
 public:
  using LoopSocket::LoopSocket;
};

template <typename Handler>
void async_teardown(beast::role_type, LinkSocket& socket, Handler&& handler) {
  error_code ignored;
  socket.shutdown(LinkSocket::shutdown_send, ignored);
  asio::post(socket.get_executor(),
             [handler = std::forward<Handler>(handler)]() mutable { handler(error_code()); });
}

Tcp::endpoint ToEndpoint(const Endpoint& endpoint) {
  const auto port = static_cast<std::uint16_t>(endpoint.port);
  if (endpoint.address.family == qIpFamily::V4) {
    asio::ip::address_v4::bytes_type bytes{};
    std::copy_n(endpoint.address.bytes.begin(), bytes.size(), bytes.begin());
    return {asio::ip::address_v4(bytes), port};
  }
  asio::ip::address_v6::bytes_type bytes{};
  std::copy_n(endpoint.address.bytes.begin(), bytes.size(), bytes.begin());
  return {asio::ip::address_v6(bytes, endpoint.address.scope), port};
}

std::string HostField(const Endpoint& endpoint) {
  qIpAddress plain = endpoint.address;
  plain.scope = 0;  // a zone means nothing to the peer
  const std::string text = qIpAddress_Text(plain);
  return (plain.family == qIpFamily::V6 ? '[' + text + ']' : text) + ':' + std::to_string(endpoint.port);
}

}  // namespace

struct Session::Impl : std::enable_shared_from_this<Impl> {
  enum class State { Connecting, Handshake, Open, Closing, Gone };

  Impl(EventLoop& loop, const Endpoint& endpoint, SessionEvents& events)
      : endpoint(endpoint), events(&events), stream(loop.Inside().context), linger(loop.Inside().context) {}

  void Start();
  void Connected(const error_code& error);
  void Shaken(const error_code& error);
  std::string HandshakeFault(const error_code& error) const;
  void Configure();
  void Read();
  void ReadSome(const error_code& error, std::size_t size);
  bool Deliver();
  void Write();
  void Written(const error_code& error);
  void End(const std::string& cause, std::string_view partial);
  std::string_view RefusedText();
  void NoteLongMessage();
  bool EndsInsideACharacter();
  bool TooLarge();
  void SayGoodbye(CloseCode code);
  void LimitLinger();
  void StartLinger();
  void Drain();
  void Drop();

  LinkSocket& Socket() { return stream.next_layer(); }

  const Endpoint endpoint;
  SessionEvents* events;  // null once no event may come any more
  State state = State::Connecting;
  websocket::stream<LinkSocket> stream;
  websocket::response_type response;
  beast::flat_buffer message{messageLimit + readStep};  // which keeps it from doubling beyond
  std::size_t noted = 0;      // of the message to come, when its growth was last told
  Time messageBegan = never;  // to come, as far as it is not there yet
  std::string outgoing;
  std::size_t written = 0;  // of outgoing
  Time writeBegan{};        // of the frame that is being written
  bool pinging = false;
  bool pauseAsked = false;
  LoopTimer linger;
  std::function<void()> whenGone;
  std::array<char, 4096> scratch{};
};

void Session::Impl::Start() {
  const Tcp::endpoint peer = ToEndpoint(endpoint);
  // Opened by the base library: one that the host's child programs inherited would outlive the session.
  int descriptor = -1;
  if (qSocket_OpenTcp(endpoint.address.family, &descriptor) != qStatus_Success) {
    const error_code error(errno, boost::system::system_category());
    asio::post(stream.get_executor(), [self = shared_from_this(), error] { self->Connected(error); });
    return;
  }
  try {
    Socket().assign(peer.protocol(), descriptor);
  } catch (...) {  // whoever catches it knows nothing of the descriptor
    qSocket_Close(descriptor);
    throw;
  }
  Socket().async_connect(peer,
                         [self = shared_from_this()](const error_code& result) { self->Connected(result); });
}

void Session::Impl::Connected(const error_code& error) {
  if (events == nullptr) {
    return;
  }
  if (error) {
    End(error.message(), {});
    return;
  }
  error_code ignored;
  // While nobody listens, the system may connect a local port to itself; that would even keep the sensor from
  // listening there again.
  if (Socket().local_endpoint(ignored) == Socket().remote_endpoint(ignored)) {
    Drop();
    End("nobody listens there", {});
    return;
  }
  Socket().set_option(Tcp::no_delay(true), ignored);
  state = State::Handshake;
  Configure();
  stream.async_handshake(response, HostField(endpoint), target,
                         [self = shared_from_this()](const error_code& result) { self->Shaken(result); });
}

void Session::Impl::Configure() {
  stream.set_option(websocket::stream_base::decorator([](websocket::request_type& request) {
    request.set(beast::http::field::sec_websocket_protocol, subprotocol);
  }));
  stream.read_message_max(0);   // judged here, where the start of the message is still at hand
  stream.auto_fragment(false);  // the session cuts its messages itself
  stream.write_buffer_bytes(64 * 1024);
  stream.text(true);
  stream.control_callback([this](websocket::frame_type type, beast::string_view) {
    if (events != nullptr) {
      events->OnBytes();
      if (type == websocket::frame_type::pong) {
        events->OnPong();
      }
    }
  });
}

void Session::Impl::Shaken(const error_code& error) {
  if (events == nullptr) {
    return;
  }
  if (error) {
    Drop();
    End(HandshakeFault(error), {});
    return;
  }
  const auto named = response.find(beast::http::field::sec_websocket_protocol);
  if (named != response.end() && named->value() != subprotocol) {
    Drop();
    End("it speaks another protocol than " + std::string(subprotocol), {});
    return;
  }
  response = {};
  state = State::Open;
  // cppcheck-suppress nullPointerRedundantCheck ; OnOpen may close the session
  events->OnOpen();
  if (events != nullptr) {
    Read();
  }
}

std::string Session::Impl::HandshakeFault(const error_code& error) const {
  if (error == websocket::error::upgrade_declined) {
    return "it declined the WebSocket with HTTP status " + std::to_string(response.result_int());
  }
  return "the WebSocket handshake failed: " + error.message();
}

void Session::Impl::Read() {
  if (message.size() == 0) {
    std::memset(message.prepare(readStep).data(), 0, glimpse);
  }
  stream.async_read_some(message, readStep,
                         [self = shared_from_this()](const error_code& error, std::size_t size) {
                           self->ReadSome(error, size);
                         });
}

void Session::Impl::ReadSome(const error_code& error, std::size_t size) {
  if (events == nullptr) {
    return;
  }
  if (error) {
    // The library has said good-bye with the fitting code; what the peer still sends is read away for a
    // moment, so that the good-bye is not lost to a reset.
    const bool noUtf8 = error == websocket::error::bad_frame_payload;
    End(error == websocket::error::closed ? "the sensor closed the session"
        : error == asio::error::eof       ? "the sensor ended the connection"
                                          : error.message(),
        noUtf8 ? RefusedText() : std::string_view());
    StartLinger();
    return;
  }
  events->OnBytes();
  NoteLongMessage();
  if (TooLarge()) {
    const auto data = message.cdata();
    End("the sensor sent a message larger than 64 MiB", {static_cast<const char*>(data.data()), data.size()});
    message = {};
    SayGoodbye(CloseCode_TooLarge);
    return;
  }
  if (size == 0 && EndsInsideACharacter()) {
    const auto data = message.cdata();
    End("the sensor sent a text that is no UTF-8", {static_cast<const char*>(data.data()), data.size()});
    message = {};
    SayGoodbye(CloseCode_BadMessage);
    return;
  }
  if (stream.is_message_done() && !Deliver()) {
    return;
  }
  if (events != nullptr) {
    Read();
  }
}

// What came of a message that the library refused for its bytes. It hands out no piece that it refused, but has read it
// into the space behind the accepted ones; Read has cleared the start of that.
std::string_view Session::Impl::RefusedText() {
  if (message.size() != 0) {
    return {static_cast<const char*>(message.cdata().data()), message.size()};
  }
  const char* const start = static_cast<const char*>(message.prepare(readStep).data());
  return {start, strnlen(start, glimpse)};
}

// A peer that sends a large message as one frame can send no pong before its end.
void Session::Impl::NoteLongMessage() {
  if (stream.is_message_done() && messageBegan == never) {
    return;  // it came at once
  }
  const Time now = Clock::now();
  messageBegan = std::min(messageBegan, now);
  if (now - messageBegan > longMessage) {
    events->OnHeard();
    if (message.size() >= noted + growth) {
      noted = message.size();
      events->OnMessageGrows();
    }
  }
  if (stream.is_message_done()) {
    messageBegan = never;
    noted = 0;
  }
}

// The library looks at the bytes of each frame; that a text ends in the middle of a character escapes it when the last
// frame holds none.
bool Session::Impl::EndsInsideACharacter() {
  const auto data = message.cdata();
  return stream.is_message_done() && !stream.got_binary() &&
         !IsUtf8({static_cast<const char*>(data.data()), data.size()});
}

// Also of a frame whose header claims more than may come.
bool Session::Impl::TooLarge() {
  const std::size_t toCome = stream.is_message_done() ? 0 : stream.read_size_hint(1);
  return message.size() > messageLimit || toCome > messageLimit - message.size();
}

// False when reading is not to go on.
bool Session::Impl::Deliver() {
  const auto data = message.cdata();
  const std::string_view text(static_cast<const char*>(data.data()), data.size());
  const bool goOn = events->OnMessage(text, stream.got_binary());
  message.clear();
  if (message.capacity() > keptBuffer) {
    const auto block = message.prepare(message.capacity());
    qMemory_Discard(block.data(), block.size());
    message.shrink_to_fit();
  }
  pauseAsked = !goOn && events != nullptr;
  return goOn;
}

// The next frame of the message.
void Session::Impl::Write() {
  const std::size_t size = std::min(writeStep, outgoing.size() - written);
  const bool last = written + size == outgoing.size();
  writeBegan = Clock::now();
  stream.async_write_some(last, asio::buffer(outgoing.data() + written, size),
                          [self = shared_from_this(), size](const error_code& error, std::size_t) {
                            self->written += size;
                            self->Written(error);
                          });
}

void Session::Impl::Written(const error_code& error) {
  // A failed write shows in the read as well, which tells why.
  if (!error && events != nullptr) {
    // That the system took bytes says nothing of the peer. That it took them only after a while does: somebody has
    // made room for them.
    if (outgoing.size() > writeStep && Clock::now() - writeBegan > unhindered) {
      events->OnBytes();
      events->OnHeard();
    }
    if (written < outgoing.size()) {
      Write();
      return;
    }
  }
  std::string().swap(outgoing);
  if (!error && events != nullptr) {
    events->OnSent();
  }
}

void Session::Impl::End(const std::string& cause, std::string_view partial) {
  state = State::Closing;
  SessionEvents* const listener = std::exchange(events, nullptr);
  if (!Socket().is_open()) {
    state = State::Gone;
  }
  listener->OnEnd({cause, partial});
}

void Session::Impl::StartLinger() {
  if (state == State::Gone) {
    return;
  }
  message = {};
  LimitLinger();
  Drain();
}

void Session::Impl::LimitLinger() {
  linger.expires_after(lingerLimit);
  linger.async_wait([self = shared_from_this()](const error_code& error) {
    if (!error) {
      self->Drop();
    }
  });
}

void Session::Impl::SayGoodbye(CloseCode code) {
  state = State::Closing;
  LimitLinger();
  stream.async_close(static_cast<websocket::close_code>(code),
                     [self = shared_from_this()](const error_code&) { self->Drop(); });
}

void Session::Impl::Drain() {
  Socket().async_read_some(asio::buffer(scratch),
                           [self = shared_from_this()](const error_code& error, std::size_t) {
                             if (error) {
                               self->Drop();
                             } else if (self->state != State::Gone) {
                               self->Drain();
                             }
                           });
}

void Session::Impl::Drop() {
  state = State::Gone;
  linger.cancel();
  error_code ignored;
  // A forked child may hold the socket too; the peer is to see the end all the same.
  Socket().shutdown(LinkSocket::shutdown_both, ignored);
  Socket().close(ignored);
  if (const auto call = std::exchange(whenGone, nullptr)) {
    call();
  }
}

Session::Session(EventLoop& loop, const Endpoint& endpoint, SessionEvents& events)
    : impl(std::make_shared<Impl>(loop, endpoint, events)) {
  impl->Start();
}

Session::~Session() {
  // One that says good-bye ends by itself.
  if (impl->state != Impl::State::Closing) {
    Abort();
  }
}

bool Session::IsOpen() const {
  return impl->state == Impl::State::Open;
}

std::string Session::Stage() const {
  return impl->state == Impl::State::Connecting ? "it does not answer"
                                                : "it does not answer the WebSocket handshake";
}

void Session::Send(std::string text) {
  impl->outgoing = std::move(text);
  impl->written = 0;
  impl->Write();
}

void Session::Ping() {
  // One that cannot even be written need not be joined by others.
  if (!std::exchange(impl->pinging, true)) {
    impl->stream.async_ping({}, [self = impl](const error_code&) { self->pinging = false; });
  }
}

void Session::ResumeReading() {
  if (impl->events != nullptr && std::exchange(impl->pauseAsked, false)) {
    impl->Read();
  }
}

void Session::Close(CloseCode code, std::function<void()> whenGone) {
  impl->events = nullptr;
  impl->whenGone = std::move(whenGone);
  if (impl->state == Impl::State::Open) {
    impl->SayGoodbye(code);
  } else if (impl->state != Impl::State::Closing) {
    impl->Drop();
  }
}

void Session::Abort() {
  impl->events = nullptr;
  impl->whenGone = nullptr;
  impl->Drop();
}

}  // namespace ZoSdk
