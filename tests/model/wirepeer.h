// The sensor's end of the wire: a real socket of 127.0.0.1, and a WireSensor behind it.
//
// Threads: a test's one, and those of the connections. Owner: the instance under test, which it must outlive; ends all
// connections when it is destroyed. Lock: mutex, over the sensor and what is known of sessions.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "tests/model/wiresensor.h"
#include "tests/model/wiresteps.h"
#include "tests/sdk/fakesensor.h"
#include "tests/support/deadline.h"

namespace ZoModel {

class WirePeer {
 public:
  using Listener = std::function<void(const std::string&)>;

  // note: is told each request before it is answered: "request sub /r/* "; noteUnanswered: each that is not: "6 /r/*".
  // mostBreaks: as for the sensor.
  WirePeer(Listener note, Listener noteUnanswered, int mostBreaks);
  WirePeer(const WirePeer&) = delete;
  WirePeer& operator=(const WirePeer&) = delete;
  ~WirePeer();

  std::uint16_t Port() const { return door.Port(); }
  // Ends all connections; what they had received has then been noted.
  void End();

  // Tells the sensor something, or asks it.
  template <typename Work>
  auto With(const Work& work) {
    const std::lock_guard lock(mutex);
    return work(sensor);
  }

  // While it is closed, whoever comes is kept waiting.
  void SetOpen(bool open);
  // Ends the session, or has it ended by what is sent.
  void Cut();
  void EndBy(const std::string& message);
  // One of the next requests may be answered by ending the session and closing the door. Tells whether that has come
  // about.
  void SetMayEnd(MayEnd mayEnd);
  bool HasLost() const;
  // The next request (but one about the sensor itself) is not answered yet. Tells whether that has come about.
  void SetSilent(std::optional<LeaveUnanswered> silence);
  bool HasLeftUnanswered() const;
  // Late answers come, as far as they do.
  void SendLate();

  // Each true once, false at the limit: as many requests have come since the last ClearCount; the link has lost its
  // session and asks for another; it has the next one and listens; it has read all that was sent to it.
  bool WaitForRequests(std::size_t count, ZoTest::Clock::duration limit);
  bool WaitUntilAway(ZoTest::Clock::duration limit);
  bool WaitUntilBack(ZoTest::Clock::duration limit);
  bool WaitUntilRead(ZoTest::Clock::duration limit);
  void ClearCount();

  void Send(const std::string& message);

 private:
  void Serve(ZoTest::FakePeer& peer);
  void Answer(ZoTest::FakePeer& peer, const std::string& text);
  void NotePong(const ZoTest::FakePeer& peer, const std::string& payload);
  bool WaitFor(ZoTest::Clock::duration limit, const std::function<bool()>& predicate);

  const Listener note;
  const Listener noteUnanswered;

  mutable std::mutex mutex;
  std::condition_variable changed;
  WireSensor sensor;  // guarded by mutex, like all below but the door
  bool open = true;
  bool ended = false;
  MayEnd mayEnd = MayEnd::AtNothing;
  bool lost = false;  // an answer
  std::optional<LeaveUnanswered> silence;
  bool unanswered = false;  // a request, since the last SetSilent
  std::string late;         // an answer; empty for none
  std::size_t requests = 0;
  unsigned asking = 0;     // the latest connection that asked for a session, by number
  unsigned listening = 0;  // the latest whose far end has answered a ping
  unsigned gone = 0;       // the latest that was ended from here
  ZoTest::FakePeer* current = nullptr;
  std::uint64_t pings = 0;
  std::uint64_t pongs = 0;

  ZoTest::FakeSensor door;  // last: its threads use all the rest
};

}  // namespace ZoModel
