// A TCP socket that can play dead: while its gate is closed, bytes that arrive are held back and nothing is
// written, but the connection stays open. That is what a hung device looks like to its clients.
//
// Threads: the I/O thread alone. Owner: the gate belongs to the server, the socket to its connection.
#pragma once

#include <linux/sockios.h>
#include <sys/ioctl.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <memory>
#include <utility>

#include <boost/asio/buffer.hpp>
#include <boost/asio/compose.hpp>
#include <boost/asio/error.hpp>

#include "tools/zosensor/clock.h"
#include "tools/zosensor/io.h"

namespace ZoSensor {

class StallGate {
 public:
  explicit StallGate(boost::asio::io_context& io) : timer(io, Clock::now()) {}

  bool Closed() const { return timer.expiry() > Clock::now(); }
  // A stall within a longer one does not shorten it.
  void Close(Duration length) {
    if (const Time end = Clock::now() + length; end > timer.expiry()) {
      timer.expires_at(end);
    }
  }
  void Open() { timer.expires_after(Duration::zero()); }
  // Lets those who wait look again, because a socket was closed.
  void Kick() { timer.cancel(); }

 private:
  friend class GatedSocket;
  Timer timer;
};

class GatedSocket {
 public:
  using Socket = TcpSocket;
  using executor_type = Socket::executor_type;
  using ErrorCode = boost::system::error_code;

  GatedSocket(Socket tcpSocket, StallGate& stallGate) : socket(std::move(tcpSocket)), gate(&stallGate) {}

  executor_type get_executor() { return socket.get_executor(); }
  Socket& Tcp() { return socket; }
  // Bytes that went through, in both directions: a transfer that stands still can be told from a slow one. What waits in
  // this system has not gone through; a slow client's share of that may stand there for long before more is written.
  std::size_t Transferred() {
    int waiting = 0;
    if (::ioctl(socket.native_handle(), SIOCOUTQ, &waiting) != 0) {
      waiting = 0;
    }
    return transferred - static_cast<std::size_t>(waiting);
  }

  void Close() {
    ErrorCode ignored;  // closing a socket that is closed already is no fault
    socket.close(ignored);
    gate->Kick();
  }

  // Ends the sending side, then throws away what comes until the other side ends as well, for a bounded time
  // and size. Closing under the hands of a client that still sends would reset the connection, and lose what
  // it was told last. Not held up by the gate.
  template <typename Token>
  auto AsyncLinger(Token&& token) {
    return boost::asio::async_compose<Token, void(ErrorCode)>(
        LingerOperation{*this, std::make_shared<Lingering>(socket.get_executor())}, token, socket);
  }

  template <typename Buffers, typename Token>
  auto async_read_some(const Buffers& buffers, Token&& token) {
    return boost::asio::async_compose<Token, void(ErrorCode, std::size_t)>(
        ReadOperation<Buffers>{*this, buffers}, token, socket);
  }

  template <typename Buffers, typename Token>
  auto async_write_some(const Buffers& buffers, Token&& token) {
    return boost::asio::async_compose<Token, void(ErrorCode, std::size_t)>(
        WriteOperation<Buffers>{*this, buffers}, token, socket);
  }

 private:
  bool MustWait() const { return gate->Closed() && socket.is_open(); }

  // Reads, and keeps what it read to itself until the gate is open.
  template <typename Buffers>
  struct ReadOperation {
    GatedSocket& owner;
    Buffers buffers;
    bool started = false;
    bool read = false;
    ErrorCode result{};
    std::size_t count = 0;

    template <typename Self>
    void operator()(Self& self, ErrorCode error = {}, std::size_t size = 0) {
      GatedSocket& gated = owner;
      if (!std::exchange(started, true)) {
        const Buffers target = buffers;
        gated.socket.async_read_some(target, std::move(self));
        return;
      }
      if (!std::exchange(read, true)) {
        result = error;
        count = size;
        gated.transferred += size;
      }
      if (!result && gated.MustWait()) {
        gated.gate->timer.async_wait(std::move(self));
        return;
      }
      self.complete(result, count);
    }
  };

  template <typename Buffers>
  struct WriteOperation {
    GatedSocket& owner;
    Buffers buffers;
    bool writing = false;

    template <typename Self>
    void operator()(Self& self, ErrorCode error = {}, std::size_t size = 0) {
      GatedSocket& gated = owner;
      if (writing) {
        gated.transferred += size;
        self.complete(error, size);
      } else if (gated.MustWait()) {
        gated.gate->timer.async_wait(std::move(self));
      } else {
        writing = true;
        const Buffers source = buffers;
        gated.socket.async_write_some(source, std::move(self));
      }
    }
  };

  struct Lingering {
    explicit Lingering(const executor_type& executor) : timer(executor) {}
    Timer timer;
    std::array<char, 65536> waste{};
    std::size_t count = 0;
    bool started = false;
    bool over = false;
  };

  struct LingerOperation {
    GatedSocket& owner;
    std::shared_ptr<Lingering> state;

    template <typename Self>
    void operator()(Self& self, ErrorCode error = {}, std::size_t size = 0) {
      constexpr auto LongestTime = std::chrono::seconds(10);
      constexpr std::size_t MostBytes = std::size_t{256} << 20;
      GatedSocket& gated = owner;
      const auto lingering = state;
      if (!std::exchange(lingering->started, true)) {
        gated.socket.shutdown(Socket::shutdown_send, error);
        lingering->timer.expires_after(LongestTime);
        lingering->timer.async_wait([lingering, &gated](ErrorCode stopped) {
          if (!stopped && !lingering->over) {
            gated.Close();
          }
        });
      }
      lingering->count += size;
      if (!error && lingering->count < MostBytes) {
        gated.socket.async_read_some(boost::asio::buffer(lingering->waste), std::move(self));
        return;
      }
      lingering->over = true;
      lingering->timer.cancel();
      gated.Close();
      self.complete(error == boost::asio::error::eof ? ErrorCode() : error);
    }
  };

  Socket socket;
  StallGate* gate;
  std::size_t transferred = 0;
};

}  // namespace ZoSensor
