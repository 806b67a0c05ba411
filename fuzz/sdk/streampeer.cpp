#include "fuzz/sdk/streampeer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>

#include "fuzz/json/require.h"
#include "tests/support/acceptkey.h"

namespace ZoFuzz {

namespace {

constexpr std::string_view headEnd = "\r\n\r\n";
constexpr std::string_view keyPlace = "$KEY";
constexpr std::size_t mostPieces = 64;
constexpr unsigned mostTurnsWaited = 16;  // for the session to open

struct Listener {
  Listener() {
    descriptor = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    const bool listens = ::bind(descriptor, reinterpret_cast<const sockaddr*>(&address), size) == 0 &&
                         ::listen(descriptor, 16) == 0 &&
                         ::getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &size) == 0;
    Require(listens, "there is a port to listen on");
    port = ntohs(address.sin_port);
  }
  Listener(const Listener&) = delete;
  Listener& operator=(const Listener&) = delete;
  ~Listener() { ::close(descriptor); }

  int descriptor = -1;
  std::uint16_t port = 0;
};

Listener& TheListener() {
  static Listener listener;
  return listener;
}

}  // namespace

StreamInput::StreamInput(std::string_view input) : bytes(input) {
  const auto next = [this] {
    const unsigned byte = bytes.empty() ? 0 : static_cast<unsigned char>(bytes.front());
    bytes.remove_prefix(bytes.empty() ? 0 : 1);
    return byte;
  };
  switches = next();
  for (unsigned count = next() & 7U; count != 0; --count) {
    sizes.push_back(next() + std::size_t{1});
  }
}

std::uint16_t StreamPeer::Port() {
  return TheListener().port;
}

StreamPeer::~StreamPeer() {
  if (socket != -1) {
    ::close(socket);
  }
}

void StreamPeer::Turn(bool opened) {
  if (socket == -1 && (ended || !Accept())) {
    return;
  }
  const bool alive = Receive();
  if (!answered && received.find(headEnd) != std::string::npos) {
    Answer();
  }
  // A session that is refused may wait for the rest of the refusal.
  const bool waiting = sent == whole && sent < toSend.size() && !opened &&
                       !input.Has(StreamInput::Together) && ++turnsWaited < mostTurnsWaited;
  if (!answered || ended || waiting) {
    if (!alive) {
      End();
    }
    return;
  }
  if (!alive || sent == toSend.size() || !SendPiece()) {
    End();
  }
}

bool StreamPeer::Accept() {
  socket = ::accept4(TheListener().descriptor, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
  if (socket == -1) {
    return false;
  }
  const int on = 1;
  ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  return true;
}

// False once the link has ended its side.
bool StreamPeer::Receive() {
  char scratch[4096];
  ssize_t got = 0;
  while ((got = ::recv(socket, scratch, sizeof scratch, 0)) > 0) {
    received.append(scratch, static_cast<std::size_t>(got));
  }
  return got < 0 && errno == EAGAIN;
}

void StreamPeer::Answer() {
  answered = true;
  acceptKey = ZoTest::AcceptKey(received);
  Require(!acceptKey.empty(), "an upgrade brings a key");
  const std::string proper =
      "HTTP/1.1 101 Switching Protocols\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
      "Sec-WebSocket-Accept: $KEY\r\nSec-WebSocket-Protocol: vyrn.v1.json\r\n\r\n";
  toSend = input.Has(StreamInput::OwnHandshake) ? std::string() : proper;
  toSend += input.bytes;
  const std::size_t place = toSend.find(keyPlace);
  if (place < toSend.find(headEnd)) {
    toSend.replace(place, keyPlace.size(), acceptKey);
  }
  const std::size_t end =
      std::min(toSend.find(headEnd), toSend.size() - std::min(toSend.size(), headEnd.size()));
  whole = input.Has(StreamInput::Together) ? 0 : std::min(end + headEnd.size(), toSend.size());
}

// False when nothing more can be sent.
bool StreamPeer::SendPiece() {
  std::size_t size = toSend.size() - sent;
  if (sent < whole) {
    size = whole - sent;
  } else if (!input.sizes.empty() && pieces < mostPieces) {
    size = std::min(size, input.sizes[pieces++ % input.sizes.size()]);
  }
  const ssize_t taken = ::send(socket, toSend.data() + sent, size, MSG_NOSIGNAL);
  sent += static_cast<std::size_t>(std::max<ssize_t>(taken, 0));
  return taken > 0 || errno == EAGAIN;
}

void StreamPeer::End() {
  if (ended) {
    return;
  }
  ended = true;
  if (input.Has(StreamInput::Reset)) {
    const linger none{1, 0};
    ::setsockopt(socket, SOL_SOCKET, SO_LINGER, &none, sizeof none);
    ::close(socket);
    socket = -1;
  } else {
    ::shutdown(socket, SHUT_WR);
  }
}

std::string_view StreamPeer::SentFrames() const {
  const std::string_view all = std::string_view(toSend).substr(0, sent);
  const std::size_t end = all.find(headEnd);
  return end == std::string_view::npos ? std::string_view() : all.substr(end + headEnd.size());
}

std::string_view StreamPeer::ReceivedFrames() const {
  const std::size_t end = received.find(headEnd);
  return end == std::string::npos ? std::string_view()
                                  : std::string_view(received).substr(end + headEnd.size());
}

bool StreamPeer::KeyShown() const {
  const std::size_t at = toSend.find(acceptKey);
  return answered && at < toSend.find(headEnd);
}

}  // namespace ZoFuzz
