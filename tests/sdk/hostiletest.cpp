// Peers that misbehave: each ends in a clear error and a restored link, and none costs memory without bound.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <future>
#include <ostream>
#include <string>
#include <type_traits>

#include "tests/sdk/linkfixture.h"
#include "tests/support/memorynow.h"

namespace ZoTest {
namespace {

using testing::HasSubstr;

// Of /proc/self/status, in bytes.
struct Hostility {
  const char* name;
  std::function<void(FakePeer&)> act;
};

template <typename Kind>
requires std::is_base_of_v<Hostility, Kind>
void PrintTo(const Kind& hostility, std::ostream* out) {
  *out << hostility.name;
}

// Before the session: what Connect says.
struct Rudeness : Hostility {
  const char* complaint;
};

class HostileHandshake : public LinkTest, public testing::WithParamInterface<Rudeness> {};

TEST_P(HostileHandshake, MakesConnectFailWithAClearSentence) {
  sensor.SetScript(GetParam().act);
  const std::size_t before = MemoryNow();
  std::string text;
  try {
    system.Connect();
  } catch (const std::runtime_error& error) {
    text = error.what();
  }
  EXPECT_THAT(text, HasSubstr("Cannot connect to the sensor at 127.0.0.1, port "));
  EXPECT_THAT(text, HasSubstr(GetParam().complaint));
  EXPECT_LT(MemoryNow(), before + (std::size_t{64} << 20));
  EXPECT_FALSE(system.IsConnected());
  sensor.SetScript({});
  sensor.DropAll();
  system.Connect();
  EXPECT_EQ(FailureOf(Read("/res")), "");
}

INSTANTIATE_TEST_SUITE_P(
    All, HostileHandshake,
    testing::Values(
        Rudeness{{"hangs_up_at_once", [](FakePeer& peer) { peer.Drop(); }}, "handshake failed"},
        Rudeness{{"speaks_garbage",
                  [](FakePeer& peer) {
                    peer.ReadUpgrade();
                    peer.SendBytes(std::string(100, '\xEE') + "\r\n\r\n");
                  }},
                 "handshake failed"},
        Rudeness{{"stops_in_the_middle",
                  [](FakePeer& peer) {
                    peer.ReadUpgrade();
                    peer.SendBytes("HTTP/1.1 101 Switching Proto");
                  }},
                 "handshake failed"},
        Rudeness{{"sends_a_wrong_key",
                  [](FakePeer& peer) {
                    peer.ReadUpgrade();
                    peer.SendBytes(
                        "HTTP/1.1 101 Switching Protocols\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
                        "Sec-WebSocket-Accept: s3pPLMBiTxaQ9kYGzzhZRbK+xOo=\r\n\r\n");
                    peer.Swallow();
                  }},
                 "handshake failed"},
        Rudeness{{"redirects",
                  [](FakePeer& peer) {
                    peer.ReadUpgrade();
                    peer.SendBytes(
                        "HTTP/1.1 302 Found\r\nLocation: http://127.0.0.1:9/\r\nContent-Length: 0\r\n\r\n");
                    peer.Swallow();
                  }},
                 "HTTP status 302"},
        Rudeness{{"finds_nothing",
                  [](FakePeer& peer) {
                    peer.ReadUpgrade();
                    peer.SendBytes("HTTP/1.1 404 Not Found\r\nContent-Length: 5\r\n\r\nnope!");
                    peer.Swallow();
                  }},
                 "HTTP status 404"},
        Rudeness{{"fails_with_an_endless_body",
                  [](FakePeer& peer) {
                    peer.ReadUpgrade();
                    peer.SendBytes("HTTP/1.1 500 Oops\r\nContent-Length: 99999999999\r\n\r\n");
                    while (peer.SendBytes(std::string(65536, 'x'))) {
                    }
                  }},
                 "handshake failed"},
        Rudeness{{"sends_endless_headers",
                  [](FakePeer& peer) {
                    peer.ReadUpgrade();
                    peer.SendBytes("HTTP/1.1 101 Switching Protocols\r\n");
                    while (peer.SendBytes("X-More: " + std::string(1000, 'x') + "\r\n")) {
                    }
                  }},
                 "handshake failed"}),
    [](const auto& instance) { return std::string(instance.param.name); });

// Inside the session: the link comes back by itself, and whoever waited is told the cause.
struct Breach : Hostility {
  const char* cause;
};

class HostileSession : public LinkTest, public testing::WithParamInterface<Breach> {};

TEST_P(HostileSession, EndsInAClearErrorAndARestoredLink) {
  sensor.SetScript([this](FakePeer& peer) {
    if (!peer.ReadUpgrade() || !peer.AcceptUpgrade()) {
      return;
    }
    if (peer.number > 1) {
      sensor.ServeSession(peer);
      return;
    }
    // The first request meets the misbehaviour.
    while (const auto frame = peer.Receive()) {
      if (frame->opcode == FakePeer::Text) {
        break;
      }
    }
    GetParam().act(peer);
    peer.Swallow();
  });
  system.Connect();
  const std::size_t before = MemoryNow();
  const std::string failure = FailureOf(Read("/res"));
  EXPECT_THAT(failure, testing::StartsWith("The link to the sensor broke before the answer came: "));
  EXPECT_THAT(failure, HasSubstr(GetParam().cause));
  if (!kSanitized) {  // sanitizers keep freed memory
    EXPECT_LT(MemoryNow(), before + (std::size_t{256} << 20));
  }
  EXPECT_EQ(FailureOf(Read("/res")), "");
  EXPECT_TRUE(system.IsConnected());
  EXPECT_EQ(sensor.ConnectionCount(), 2U);
}

// Each costs a trip through the loop, which takes ten times as long in builds without optimisation or with
// sanitizers.
#if defined(NDEBUG) && defined(__OPTIMIZE__)
constexpr int tinyFragments = 1000000;
#else
constexpr int tinyFragments = 100000;
#endif

void SendFragments(FakePeer& peer, int count, std::string_view each) {
  peer.SendFrame(FakePeer::Text, "{\"a\":\"", false);
  std::string batch;
  for (int i = 0; i < 1000; ++i) {
    batch += FakePeer::FrameBytes(FakePeer::Continuation, each, false);
  }
  for (int i = 0; i < count && peer.SendBytes(batch); i += 1000) {
  }
}

INSTANTIATE_TEST_SUITE_P(
    All, HostileSession,
    testing::Values(
        Breach{{"text_that_is_no_json", [](FakePeer& peer) { peer.Send("hello"); }},
               "no JSON object (JSON text, byte 0 (line 1, column 1): unexpected 'h')"},
        Breach{{"json_that_is_no_object", [](FakePeer& peer) { peer.Send("[1,2,3]"); }},
               "no JSON object (the JSON is another value)"},
        Breach{{"empty_message", [](FakePeer& peer) { peer.Send(""); }},
               "no JSON object (JSON text, byte 0 (line 1, column 1): the text ends too early)"},
        Breach{{"truncated_json", [](FakePeer& peer) { peer.Send("{\"id\":1,\"status\":1,\"pay"); }},
               "the text ends too early)"},
        Breach{{"binary_frame",
                [](FakePeer& peer) { peer.SendFrame(FakePeer::Binary, "{\"id\":1,\"status\":1}"); }},
               "no JSON object (it is binary)"},
        Breach{{"invalid_utf8",
                [](FakePeer& peer) { peer.Send("{\"id\":1,\"status\":1,\"payload\":\"\xC3(\"}"); }},
               "The WebSocket frame payload was not valid utf8."},
        Breach{{"text_that_ends_inside_a_character_before_an_empty_fragment",
                [](FakePeer& peer) {
                  peer.SendFrame(FakePeer::Text, "{}\xE2\x82", false);
                  peer.SendFrame(FakePeer::Continuation, "");
                }},
               "the sensor sent a text that is no UTF-8."},
        Breach{{"nesting_of_100000",
                [](FakePeer& peer) {
                  peer.Send("{\"id\":1,\"payload\":" + std::string(100000, '[') + std::string(100000, ']') +
                            "}");
                }},
               "nested deeper than 256 levels)"},
        Breach{{"reserved_bits", [](FakePeer& peer) { peer.SendBytes("\xF1\x02{}"); }},
               "The WebSocket frame contained illegal reserved bits."},
        Breach{{"masked_frame", [](FakePeer& peer) { peer.SendBytes(std::string("\x81\x82\0\0\0\0{}", 8)); }},
               "The WebSocket frame was masked."},
        Breach{{"unknown_opcode", [](FakePeer& peer) { peer.SendBytes(std::string("\x83\x00", 2)); }},
               "The WebSocket frame contained an illegal opcode."},
        Breach{
            {"continuation_of_nothing", [](FakePeer& peer) { peer.SendFrame(FakePeer::Continuation, "x"); }},
            "The WebSocket continuation frame was unexpected."},
        Breach{{"fragmented_ping", [](FakePeer& peer) { peer.SendFrame(FakePeer::Ping, "x", false); }},
               "The WebSocket control frame was fragmented."},
        Breach{{"large_ping", [](FakePeer& peer) { peer.SendFrame(FakePeer::Ping, std::string(200, 'x')); }},
               "The WebSocket control frame size was invalid."},
        Breach{{"truncated_frame",
                [](FakePeer& peer) {
                  peer.SendBytes("\x81\x7E\x10");
                  peer.Drop();
                }},
               "the sensor ended the connection."},
        Breach{{"reset_in_a_message",
                [](FakePeer& peer) {
                  peer.SendBytes("\x81\x20{\"id\":1,");
                  peer.Drop();
                }},
               "the sensor ended the connection."},
        Breach{{"close_frame", [](FakePeer& peer) { peer.SendFrame(FakePeer::Close, "\x03\xE9"); }},
               "the sensor closed the session."},
        Breach{{"broken_close_frame", [](FakePeer& peer) { peer.SendFrame(FakePeer::Close, "x"); }},
               "The WebSocket close frame payload size was invalid."},
        Breach{{"claims_a_frame_of_2_to_the_62",
                [](FakePeer& peer) { peer.SendBytes(std::string("\x81\x7F\x40\0\0\0\0\0\0\0{\"", 12)); }},
               "the sensor sent a message larger than 64 MiB."},
        Breach{{"frame_of_65_mib",
                [](FakePeer& peer) {
                  peer.SendBytes(std::string("\x81\x7F\0\0\0\0\x04\x10\0\0", 10));
                  for (int i = 0; i < 65 && peer.SendBytes(std::string(1 << 20, ' ')); ++i) {
                  }
                }},
               "the sensor sent a message larger than 64 MiB."},
        Breach{{"fragments_of_65_mib",
                [](FakePeer& peer) { SendFragments(peer, 66000, std::string(1024, ' ')); }},
               "the sensor sent a message larger than 64 MiB."},
        Breach{{"very_many_tiny_fragments",
                [](FakePeer& peer) {
                  SendFragments(peer, tinyFragments, "x");
                  peer.SendFrame(FakePeer::Continuation, "}", true);
                }},
               "the text ends too early)"},
        Breach{{"very_many_empty_fragments",
                [](FakePeer& peer) {
                  SendFragments(peer, tinyFragments, "");
                  peer.Drop();
                }},
               "the sensor ended the connection."},
        Breach{{"garbage_after_the_handshake",
                [](FakePeer& peer) {
                  std::string bytes;
                  for (unsigned i = 0; i < 10000; ++i) {
                    bytes += static_cast<char>(i * 2654435761U >> 13);
                  }
                  peer.SendBytes(bytes);
                }},
               "The WebSocket continuation frame was unexpected."}),
    [](const auto& instance) { return std::string(instance.param.name); });

class Hostile : public LinkTest {};

TEST_F(Hostile, BadMessageIsAnsweredByTheFittingCloseCode) {
  system.Connect();
  EXPECT_EQ(FailureOf(Read("/res")), "");
  sensor.Push("no object");
  EXPECT_TRUE(sensor.WaitForClose(1007));
  EXPECT_EQ(FailureOf(Read("/res")), "");
  sensor.SetResponder([](FakePeer& peer, const FakeRequest& request) {
    if (request.method == "update") {
      peer.SendBytes(std::string("\x81\x7F\0\0\0\0\x04\0\0\x01{\"id\"", 15));  // one byte more than 64 MiB
    } else {
      FakeSensor::Grant(peer, request);
    }
  });
  system.Client().Update("/res", ZoJson::Of(1), ZoJson());
  EXPECT_TRUE(sensor.WaitForClose(1009));
}

// Small texts of documents that are many times their size.
struct Bloat {
  const char* name;
  const char* element;
};

class HostileBloat : public Hostile, public testing::WithParamInterface<Bloat> {};

TEST_P(HostileBloat, EndsTheSessionBeforeItFillsTheMemory) {
  std::string text = "{\"event\":\"stream\",\"uri\":\"/s\",\"payload\":[";
  while (text.size() < (std::size_t{60} << 20)) {
    text += GetParam().element;
    text += ',';
  }
  text += "0]}";
  system.Connect();
  EXPECT_EQ(FailureOf(StartStream("/s")), "");
  const std::size_t before = MemoryNow();
  std::atomic<std::size_t> peak{0};
  std::atomic<bool> ends{false};
  std::thread watcher([&] {
    while (!ends) {
      peak = std::max(peak.load(), MemoryNow());
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
  });
  sensor.Push(text);
  EXPECT_TRUE(sensor.WaitForClose(1009));
  EXPECT_EQ(FailureOf(Read("/res")), "");
  ends = true;
  watcher.join();
  if (!kSanitized) {  // sanitizers keep freed memory
    EXPECT_LT(peak.load(), before + (std::size_t{256} << 20));
    EXPECT_LT(MemoryNow(), before + (std::size_t{64} << 20)) << "it is given back";
  }
}

INSTANTIATE_TEST_SUITE_P(All, HostileBloat,
                         testing::Values(Bloat{"numbers", "0"}, Bloat{"empty_objects", "{}"},
                                         Bloat{"arrays", "[1]"}, Bloat{"objects", "{\"\":1}"},
                                         Bloat{"texts", "\"\""}),
                         [](const auto& each) { return std::string(each.param.name); });

TEST_F(Hostile, PingFloodIsAnsweredAndStarvesNobody) {
  std::atomic<bool> ends{false};
  std::thread flood;
  sensor.SetResponder([&](FakePeer& peer, const FakeRequest& request) {
    if (request.uri == "/flood") {
      flood = std::thread([&] {
        std::string pings;
        for (int i = 0; i < 100; ++i) {
          pings += FakePeer::FrameBytes(FakePeer::Ping, "12345678");
        }
        for (int i = 0; i < 500 && !ends && peer.SendBytes(pings); ++i) {
        }
      });
    }
    FakeSensor::Grant(peer, request);
  });
  system.Connect();
  const std::size_t before = MemoryNow();
  EXPECT_EQ(FailureOf(Read("/flood")), "");
  for (int i = 0; i < 5; ++i) {
    EXPECT_EQ(FailureOf(Read("/res")), "");
  }
  if (!kSanitized) {
    EXPECT_LT(MemoryNow(), before + (std::size_t{64} << 20));
  }
  ends = true;
  sensor.DropAll();
  flood.join();
}

TEST_F(Hostile, PushesOfEndlesslyManyResourcesCostBoundedMemoryWhileAHandlerBlocks) {
  std::promise<void> leave;
  auto left = leave.get_future().share();
  std::atomic<bool> blocked{false};
  const EndFirst endFirst(*this);
  pushes.SetHook([&](const Arrival&) {
    if (!blocked.exchange(true)) {
      left.wait();
    }
  });
  system.Connect();
  EXPECT_EQ(FailureOf(Sub("*")), "");
  const std::size_t before = MemoryNow();
  constexpr int all = 2000;
  std::atomic<int> sent{0};
  std::thread flood([&] {
    const std::string payload = "\"" + std::string(100000, 'x') + "\"";
    while (sent < all && sensor.Push(PushText("stream", "/s" + std::to_string(sent), payload))) {
      ++sent;
    }
  });
  // Callers drive meanwhile, so that the pushes are read although the own thread is blocked; and then not any more.
  EXPECT_EQ(FailureOf(Read("/in_the_flood")), "");
  int earlier = 0;
  std::string failure;
  const Deadline deadline;
  do {
    earlier = sent;
    failure = FailureOf(Read("/behind_the_flood"), second / 2);
  } while ((failure.empty() || earlier != sent) && !deadline.Expired());
  EXPECT_THAT(failure, HasSubstr("within 0.5 s"));
  EXPECT_LT(sent, all) << "reading waits for the handler";
  if (!kSanitized) {
    EXPECT_LT(MemoryNow(), before + (std::size_t{128} << 20));  // of the 191 MiB that are to come
  }
  leave.set_value();
  flood.join();
  EXPECT_EQ(sent, all);
  EXPECT_TRUE(pushes.WaitForCount(all)) << "reading goes on once the handler does";
}

TEST_F(Hostile, PushesThatNobodyAskedForReachNoHandler) {
  system.Connect();
  EXPECT_EQ(FailureOf(StartStream("/asked")), "");
  for (int i = 0; i < 1000; ++i) {
    sensor.Push(PushText("stream", "/unasked" + std::to_string(i), "1"));
    sensor.Push(PushText("notification", "/asked/below", "1"));
  }
  sensor.Push(PushText("stream", "/asked", "2"));
  ASSERT_TRUE(pushes.WaitForCount(1));
  EXPECT_EQ(pushes.All()[0].uri, "/asked");
  EXPECT_EQ(FailureOf(Read("/res")), "");
  EXPECT_EQ(pushes.Count(), 1U);
}

TEST_F(Hostile, PeerThatSendsPushesButReadsNothingIsLost) {
  std::atomic<bool> stop{false};
  const EndFirst endFirst(*this);
  sensor.SetScript([&](FakePeer& peer) {
    if (peer.ReadUpgrade() && peer.AcceptUpgrade()) {
      if (peer.number > 1) {
        sensor.ServeSession(peer);
        return;
      }
      while (!stop && peer.Send("{\"event\":\"stream\",\"uri\":\"/s\",\"payload\":1}")) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));  // the peer's own pace
      }
    }
  });
  system.Connect();
  EXPECT_NE(FailureOf(Read("/a"), second / 10), "");
  EXPECT_NE(FailureOf(Read("/b"), second / 10), "");
  EXPECT_TRUE(sensor.WaitForConnections(2));
  EXPECT_EQ(FailureOf(Read("/c")), "");
  stop = true;
}

// A stream whose pushes end the session, each in its own way.
struct Poison {
  const char* name;
  std::uint8_t opcode;
  std::string message;
  std::string rest = {};  // in a second frame
};

class HostilePoison : public Hostile, public testing::WithParamInterface<Poison> {};

TEST_P(HostilePoison, StreamThatEndedTwoSessionsIsNotRestoredAtOnce) {
  sensor.SetResponder([](FakePeer& peer, const FakeRequest& request) {
    FakeSensor::Grant(peer, request);
    if (request.uri == "/poison") {
      const Poison& poison = GetParam();
      peer.SendFrame(poison.opcode, poison.message, poison.rest.empty());
      if (!poison.rest.empty()) {
        peer.SendFrame(FakePeer::Continuation, poison.rest);
      }
    }
  });
  system.Connect();
  EXPECT_EQ(FailureOf(StartStream("/fine")), "");
  EXPECT_EQ(FailureOf(StartStream("/poison")), "");
  ASSERT_TRUE(sensor.WaitForConnections(3));
  ASSERT_TRUE(sensor.WaitForRequest("startStream", "/fine", 3));
  EXPECT_EQ(FailureOf(Read("/res")), "");
  EXPECT_EQ(sensor.CountRequests("startStream", "/poison"), 2U);
  EXPECT_EQ(sensor.ConnectionCount(), 3U) << "the third session lasts";
}

TEST_P(HostilePoison, ReadWhoseAnswersEndedTwoSessionsIsAnsweredHere) {
  sensor.SetResponder([](FakePeer& peer, const FakeRequest& request) {
    if (request.uri != "/poison") {
      FakeSensor::Grant(peer, request);
      return;
    }
    Poison poison = GetParam();
    const std::string event = "\"event\":\"stream\"";
    poison.message.replace(poison.message.find(event), event.size(),
                           "\"id\":" + std::to_string(request.id) + ",\"status\":1");
    peer.SendFrame(poison.opcode, poison.message, poison.rest.empty());
    if (!poison.rest.empty()) {
      peer.SendFrame(FakePeer::Continuation, poison.rest);
    }
  });
  system.Connect();
  EXPECT_THAT(FailureOf(Read("/poison")), HasSubstr("broke before the answer came"));
  EXPECT_THAT(FailureOf(Read("/poison")), HasSubstr("broke before the answer came"));
  ASSERT_TRUE(sensor.WaitForConnections(3));
  const Stopwatch watch;
  for (int i = 0; i < 100; ++i) {
    EXPECT_EQ(RefusalOf(Read("/poison")), -599);
  }
  EXPECT_LT(watch.Milliseconds().count(), 2000);
  EXPECT_EQ(FailureOf(Read("/res")), "");
  EXPECT_EQ(sensor.CountRequests("read", "/poison"), 2U);
  EXPECT_EQ(sensor.ConnectionCount(), 3U);
}

INSTANTIATE_TEST_SUITE_P(
    All, HostilePoison,
    testing::Values(
        Poison{"too_deep", FakePeer::Text,
               "{\"event\":\"stream\",\"uri\":\"/poison\",\"payload\":" + std::string(300, '[') +
                   std::string(300, ']') + "}"},
        Poison{"uri_behind_the_payload", FakePeer::Text,
               "{\"event\":\"stream\",\"payload\":" + std::string(9000, '[') + std::string(9000, ']') +
                   ",\"uri\":\"/poison\"}"},
        Poison{"binary", FakePeer::Binary, "{\"event\":\"stream\",\"uri\":\"/poison\",\"payload\":1}"},
        Poison{"no_utf8", FakePeer::Text, "{\"event\":\"stream\",\"uri\":\"/poison\",\"payload\":\"\xFF\"}"},
        Poison{"no_utf8_in_a_later_piece", FakePeer::Text,
               "{\"event\":\"stream\",\"uri\":\"/poison\",\"payload\":\"", "\xFF\"}"}),
    [](const auto& each) { return std::string(each.param.name); });

}  // namespace
}  // namespace ZoTest
