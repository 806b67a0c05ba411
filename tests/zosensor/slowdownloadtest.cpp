// Clients of the REST door that fetch a large answer slowly, or stop.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <stdexcept>
#include <string>
#include <thread>

#include "tests/zosensor/serverfixture.h"

namespace ZoSensor {
namespace {

using namespace std::chrono_literals;

// A client whose system takes little on its own.
class Download {
 public:
  explicit Download(std::uint16_t port) : socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    const int few = 16384;
    ::setsockopt(socket, SOL_SOCKET, SO_RCVBUF, &few, sizeof few);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const std::string request =
        "GET /vyrn/v1/resources/large HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n";
    if (::connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        ::send(socket, request.data(), request.size(), MSG_NOSIGNAL) !=
            static_cast<ssize_t>(request.size())) {
      throw std::runtime_error("no connection");
    }
  }
  Download(const Download&) = delete;
  Download& operator=(const Download&) = delete;
  ~Download() { ::close(socket); }

  // Reads so many bytes, or to the end when that comes first; false then.
  bool Fetch(std::size_t count) {
    char scratch[16384];
    while (count != 0) {
      const ssize_t got = ::recv(socket, scratch, std::min(count, sizeof scratch), 0);
      if (got <= 0) {
        return false;
      }
      fetched += static_cast<std::size_t>(got);
      count -= static_cast<std::size_t>(got);
    }
    return true;
  }

  std::size_t Fetched() const { return fetched; }

 private:
  const int socket;
  std::size_t fetched = 0;
};

class SlowDownload : public ServerFixture {
 protected:
  void StartWithLarge(std::size_t size) {
    Start({}, R"({"resources": {"/large": {"content": ")" + std::string(size, 'x') + R"("}}})");
  }

  // Sockets of the server are among them.
  static std::ptrdiff_t OpenDescriptors() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                         std::filesystem::directory_iterator());
  }
};

TEST_F(SlowDownload, IsServedBeyondTheIdleTimeWhileBytesMove) {
  constexpr std::size_t size = 6000000;  // more than the systems at both ends take
  options.limits.idleTime = 1s;
  StartWithLarge(size);
  Download client(port);
  const ZoTest::Stopwatch watch;
  while (watch.Elapsed() < 7 * options.limits.idleTime / 2) {
    ASSERT_TRUE(client.Fetch(2000));
    std::this_thread::sleep_for(10ms);  // the client's own pace
  }
  EXPECT_LT(client.Fetched(), size / 2);
  EXPECT_FALSE(client.Fetch(2 * size));
  EXPECT_GT(client.Fetched(), size) << "all of it, with a header";
}

TEST_F(SlowDownload, ThatStopsIsDroppedAfterTheIdleTime) {
  constexpr std::size_t size = 32000000;  // more than the systems at both ends take
  options.limits.idleTime = 2s;
  StartWithLarge(size);
  Download client(port);
  const ZoTest::Stopwatch watch;
  ASSERT_TRUE(client.Fetch(20000));
  const std::ptrdiff_t before = OpenDescriptors();
  const ZoTest::Deadline deadline;
  while (OpenDescriptors() >= before && !deadline.Expired()) {
    std::this_thread::sleep_for(5ms);
  }
  EXPECT_LT(OpenDescriptors(), before) << "the server has ended the connection";
  EXPECT_GE(watch.Elapsed(), options.limits.idleTime / 2);
  EXPECT_FALSE(client.Fetch(size));
  EXPECT_LT(client.Fetched(), size);
}

}  // namespace
}  // namespace ZoSensor
