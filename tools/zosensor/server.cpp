#include "tools/zosensor/server.h"

#include <csignal>
#include <utility>
#include <vector>

#include <fmt/format.h>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/signal_set.hpp>

#include "tools/zosensor/host.h"
#include "tools/zosensor/httpconnection.h"
#include "tools/zosensor/site.h"

namespace ZoSensor {
namespace {

namespace asio = boost::asio;
using asio::ip::tcp;
using ErrorCode = boost::system::error_code;

// Sessions get this long to say good-bye.
constexpr auto FarewellTime = std::chrono::seconds(2);
// After an accept that failed, for want of file descriptors for example.
constexpr auto AcceptPause = std::chrono::milliseconds(100);

}  // namespace

class Server::Impl {
 public:
  Impl(ServerOptions serverOptions, SensorDescription description, Log& serverLog)
      : options(std::move(serverOptions)),
        log(serverLog),
        sensor(std::move(description), options.limits, options.seed, Clock::now()),
        faults(options.faults, options.seed, Clock::now()),
        site{io, sensor, faults, options.limits, log} {
    faults.Install(sensor, Clock::now());
    faults.cutAll = [this](Duration delay) { Later(delay, [this] { CutAll(); }); };
    faults.stallAll = [this](Duration delay, Duration length) { Stall(delay, length); };
    site.attend = [this] { Attend(); };
    site.connectionEnded = [this] {
      if (site.closing && site.connections.empty()) {
        farewellTimer.cancel();
      }
    };
  }

  // Handlers hold connections, and connections hold the site: they go before it.
  ~Impl() {
    site.attend = [] {};
    site.connectionEnded = [] {};
    site.connections.clear();
  }

  void Listen() {
    ErrorCode error;
    const auto address = asio::ip::make_address(options.address, error);
    const auto attempt = [&](auto step) {
      if (!error) {
        step();
      }
    };
    const tcp::endpoint endpoint(address, options.port);
    attempt([&] { acceptor.open(endpoint.protocol(), error); });
    attempt([&] { acceptor.set_option(TcpAcceptor::reuse_address(true), error); });
    attempt([&] { acceptor.bind(endpoint, error); });
    attempt([&] { acceptor.listen(asio::socket_base::max_listen_connections, error); });
    if (error) {
      throw ListenError(
          fmt::format("cannot listen on {} port {}: {}", options.address, options.port, error.message()));
    }
    site.onLoopback = IsLoopback(address);
    Accept();
    Attend();
  }

  tcp::endpoint Endpoint() const { return acceptor.local_endpoint(); }

  void StopOnSignals() {
    signals.add(SIGINT);
    signals.add(SIGTERM);
    signals.async_wait([this](ErrorCode error, int) {
      if (!error) {
        BeginStop();
      }
    });
  }

  void Run() { io.run(); }
  void Stop() {
    asio::post(io, [this] { BeginStop(); });
  }

 private:
  void Accept() {
    acceptor.async_accept([this](ErrorCode error, TcpSocket socket) {
      if (site.closing) {
        return;
      }
      if (error) {
        log.Error("a connection could not be taken: {}", error.message());
        Later(AcceptPause, [this] { Accept(); });
        return;
      }
      const std::size_t open = site.connections.size();
      const std::size_t most = options.limits.maxClients + options.limits.spareConnections;
      if (open >= most) {
        log.Warning("a connection is refused: {} are open already", open);
      }
      if (open < most + options.limits.spareConnections) {
        StartHttpConnection(site, std::move(socket), open < most);
      }
      Accept();
    });
  }

  // Keeps the timer at the next moment at which something is due.
  void Attend() {
    const Time due = std::min(sensor.NextDue(), faults.NextDue());
    if (site.closing || due >= dueTimerSet) {
      return;
    }
    dueTimerSet = due;
    dueTimer.expires_at(due);
    dueTimer.async_wait([this](ErrorCode error) {
      if (!error && !site.closing) {
        dueTimerSet = Never;
        const Time now = Clock::now();
        sensor.Step(now);
        faults.Step(now);
        Attend();
      }
    });
  }

  template <typename Action>
  void Later(Duration delay, Action action) {
    auto timer = std::make_shared<Timer>(io, delay);
    timer->async_wait([this, timer, action](ErrorCode error) {
      if (!error && !site.closing) {
        action();
      }
    });
  }

  std::vector<std::shared_ptr<Connection>> Connections() const {
    return {site.connections.begin(), site.connections.end()};
  }

  void CutAll() {
    log.Info("all connections are cut, on purpose");
    for (const auto& connection : Connections()) {
      connection->Cut("on purpose");
    }
  }

  void Stall(Duration delay, Duration length) {
    if (delay > Duration::zero()) {
      Later(delay, [this, length] { Stall(Duration::zero(), length); });
      return;
    }
    log.Info("stalls for {:.1f} s, on purpose", ToSeconds(length));
    site.gate.Close(length);
  }

  void BeginStop() {
    if (std::exchange(site.closing, true)) {
      return;
    }
    log.Info("ends");
    ErrorCode ignored;  // whatever happens, the port is given up
    acceptor.close(ignored);
    signals.cancel(ignored);
    dueTimer.cancel();
    site.gate.Open();
    for (const auto& connection : Connections()) {
      connection->Shutdown();
    }
    if (site.connections.empty()) {
      io.stop();
      return;
    }
    farewellTimer.expires_after(FarewellTime);
    farewellTimer.async_wait([this](ErrorCode) { io.stop(); });
  }

  const ServerOptions options;
  Log& log;
  Sensor sensor;
  FaultController faults;
  asio::io_context io{BOOST_ASIO_CONCURRENCY_HINT_UNSAFE_IO};  // others only post
  Site site;
  TcpAcceptor acceptor{io};
  asio::signal_set signals{io};
  Timer dueTimer{io};
  Timer farewellTimer{io};
  Time dueTimerSet = Never;
};

Server::Server(ServerOptions options, SensorDescription description, Log& log)
    : impl(std::make_unique<Impl>(std::move(options), std::move(description), log)) {}

Server::~Server() = default;

void Server::Listen() {
  impl->Listen();
}

std::string Server::Endpoint() const {
  const auto endpoint = impl->Endpoint();
  const std::string address = endpoint.address().to_string();
  return endpoint.address().is_v6() ? fmt::format("[{}]:{}", address, endpoint.port())
                                    : fmt::format("{}:{}", address, endpoint.port());
}

std::uint16_t Server::Port() const {
  return impl->Endpoint().port();
}
void Server::StopOnSignals() {
  impl->StopOnSignals();
}
void Server::Run() {
  impl->Run();
}
void Server::Stop() {
  impl->Stop();
}

}  // namespace ZoSensor
