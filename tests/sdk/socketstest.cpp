// What the link's socket means to the rest of the process, and to a peer that is busy.
#include <arpa/inet.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <filesystem>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include "qapi/testing.h"
#include "tests/sdk/linkfixture.h"

namespace ZoTest {
namespace {

using testing::HasSubstr;

// The descriptors of this process that are connected to the port.
std::vector<int> DescriptorsTo(std::uint16_t port) {
  std::vector<int> found;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    const int descriptor = std::stoi(entry.path().filename());
    sockaddr_in peer{};
    socklen_t size = sizeof peer;
    if (getpeername(descriptor, reinterpret_cast<sockaddr*>(&peer), &size) == 0 &&
        peer.sin_family == AF_INET && ntohs(peer.sin_port) == port) {
      found.push_back(descriptor);
    }
  }
  return found;
}

class Sockets : public LinkTest {
 protected:
  void TearDown() override { qTest_Reset(); }
};

TEST_F(Sockets, AreNotInheritedByProgramsThatTheHostStarts) {
  system.Connect();
  const std::vector<int> descriptors = DescriptorsTo(sensor.Port());
  ASSERT_EQ(descriptors.size(), 1U);
  EXPECT_NE(fcntl(descriptors[0], F_GETFD) & FD_CLOEXEC, 0);
}

TEST_F(Sockets, EndForThePeerAlsoWhenSomebodyElseHoldsThem) {
  std::promise<void> ended;
  const EndFirst endFirst(*this);
  sensor.SetScript([&](FakePeer& peer) {
    if (peer.ReadUpgrade() && peer.AcceptUpgrade()) {
      while (peer.Receive()) {
      }
      ended.set_value();
    }
  });
  system.Connect();
  const std::vector<int> descriptors = DescriptorsTo(sensor.Port());
  ASSERT_EQ(descriptors.size(), 1U);
  const int copy = dup(descriptors[0]);  // as a forked child has it
  system.Disconnect();
  EXPECT_EQ(ended.get_future().wait_for(kLimit), std::future_status::ready);
  close(copy);
}

TEST_F(Sockets, OfWhichNoneCanBeHadGiveAClearError) {
  qTest_FailOperation(qOperation::SocketOpen, 1, qStatus_System);
  try {
    system.Connect();
    ADD_FAILURE();
  } catch (const std::runtime_error& error) {
    EXPECT_THAT(error.what(), HasSubstr("Too many open files"));
  }
  EXPECT_TRUE(DescriptorsTo(sensor.Port()).empty());
  system.Connect();
  EXPECT_EQ(FailureOf(Read("/res")), "");
}

TEST_F(Sockets, OfWhichNoneCanBeHadForAWhileAreTriedAgain) {
  system.Connect();
  EXPECT_EQ(FailureOf(StartStream("/s")), "");
  qTest_FailOperation(qOperation::SocketOpen, 1, qStatus_System, 3);
  sensor.DropAll();
  ASSERT_TRUE(sensor.WaitForRequest("startStream", "/s", 2));
  EXPECT_EQ(qTest_FailureCount(), 3U);
}

TEST_F(Sockets, ConnectFromManyThreadsMakesOneConnection) {
  std::vector<std::future<void>> connects;
  for (int i = 0; i < 4; ++i) {
    connects.push_back(std::async(std::launch::async, [this] { system.Connect(); }));
  }
  for (auto& connect : connects) {
    EXPECT_NO_THROW(connect.get());
  }
  EXPECT_EQ(sensor.ConnectionCount(), 1U);
  EXPECT_EQ(FailureOf(Read("/res")), "");
}

// A peer that takes 3 s over a large request would be given up, were its pings to wait behind it.
TEST_F(Sockets, PingsPassBetweenThePiecesOfALargeRequest) {
  constexpr std::size_t large = std::size_t{16} << 20;  // more than the system's buffers take
  std::atomic<bool> pongBeforeTheEnd{false};
  const EndFirst endFirst(*this);
  sensor.SetScript([&](FakePeer& peer) {
    if (!peer.ReadUpgrade() || !peer.AcceptUpgrade()) {
      return;
    }
    std::size_t taken = 0;
    bool pinged = false;
    while (const auto frame = peer.Receive()) {
      if (frame->opcode == FakePeer::Pong) {
        pongBeforeTheEnd = taken < large;
      } else if (frame->opcode == FakePeer::Ping) {
        // On a slow machine this takes longer than a peer may be silent.
        peer.SendFrame(FakePeer::Pong, frame->payload);
      } else if (frame->opcode == FakePeer::Text || frame->opcode == FakePeer::Continuation) {
        taken += frame->payload.size();
        if (!std::exchange(pinged, true)) {
          peer.SendFrame(FakePeer::Ping, "now");
        }
        if (frame->fin) {
          peer.Send("{\"id\":1,\"status\":1}");
        }
      }
    }
  });
  system.Connect();
  // Under a sanitizer, beside others, it takes its time to print, mask and copy so much.
  EXPECT_EQ(
      FailureOf(system.Client().Update("/res", ZoJson::Of(std::string(large, 'x')), ZoJson()), 4 * patience),
      "");
  EXPECT_TRUE(pongBeforeTheEnd);
}

}  // namespace
}  // namespace ZoTest
