// One session with a sensor: TCP connection, WebSocket handshake, messages, pings, until it ends.
//
// Threads: every operation and every event on the thread that drives the loop. Owner: the connection; what is
// under way inside the loop holds the rest alive until it has ended. Events come until OnEnd, or until Close
// or Abort was called.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "qapi/address.h"
#include "zovyrnsdk/link/eventloop.h"

namespace ZoSdk {

struct Endpoint {
  qIpAddress address;
  unsigned port = 0;
};

// Why a session ended.
struct SessionEnd {
  std::string cause;  // a clause: "connection refused"
  std::string_view
      partial;  // what was read of a message that is too large or no UTF-8; valid during the event
};

class SessionEvents {
 public:
  virtual void OnOpen() = 0;
  // binary: the peer did not send it as a text. false: read no further until ResumeReading.
  virtual bool OnMessage(std::string_view text, bool binary) = 0;
  // Bytes came, or the peer took some.
  virtual void OnBytes() = 0;
  // A ping was answered.
  virtual void OnPong() = 0;
  // Another sign that the peer takes what is sent, or a reason why it can give none: a long message of its own.
  virtual void OnHeard() = 0;
  // A long message goes on coming, so that no answer can.
  virtual void OnMessageGrows() = 0;
  // The message given to Send is out.
  virtual void OnSent() = 0;
  virtual void OnEnd(const SessionEnd& end) = 0;

 protected:
  ~SessionEvents() = default;
};

class Session {
 public:
  enum CloseCode : std::uint16_t {
    CloseCode_Normal = 1000,
    CloseCode_BadMessage = 1007,
    CloseCode_TooLarge = 1009
  };

  // Starts connecting. The events object must live until OnEnd, Close or Abort.
  Session(EventLoop& loop, const Endpoint& endpoint, SessionEvents& events);
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;
  // Aborts.
  ~Session();

  bool IsOpen() const;
  // What is being waited for, as a clause, for a session that did not open in time.
  std::string Stage() const;

  // One at a time: the next one after OnSent. Only while open.
  void Send(std::string text);
  void Ping();
  void ResumeReading();

  // Says good-bye in the background, for 200 ms at most. No event comes any more; whenGone, which may be
  // empty, is called once the connection is dropped.
  void Close(CloseCode code, std::function<void()> whenGone);
  // Drops the connection at once. No event comes any more.
  void Abort();

 private:
  struct Impl;
  std::shared_ptr<Impl> impl;
};

}  // namespace ZoSdk
