// One connection of a link, from Connect to Disconnect: the thread, the event loop and the session in front
// of the state that decides.
//
// Threads: callers (Request, Await, Close) enter from any thread; session events and the alarm run on
// whichever thread drives the loop; the own thread drives when nobody else does and calls the handlers.
// Owners: the link, the own thread, and every transaction handed out, so that a straggler never touches what
// is gone. After Close nothing happens in it any more. Lock: LockRank_Link over the state; no event, handler
// or wait happens with it held. Members without a lock belong to the thread that drives.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include "qapi/annotations.h"
#include "zoapi/threads/lockranks.h"
#include "zovyrnsdk/json/zojson.h"
#include "zovyrnsdk/json/zojsonshapes.h"
#include "zovyrnsdk/link/backoff.h"
#include "zovyrnsdk/link/driver.h"
#include "zovyrnsdk/link/eventloop.h"
#include "zovyrnsdk/link/handlergate.h"
#include "zovyrnsdk/link/linkstate.h"
#include "zovyrnsdk/link/session.h"
#include "zovyrnsdk/zorequest.h"

namespace ZoSdk {

class Connection final : public std::enable_shared_from_this<Connection>, public SessionEvents {
 public:
  Connection(const Endpoint& endpoint, std::shared_ptr<const Handlers> handlers);
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;
  ~Connection();

  // Starts the own thread and the first attempt, and waits for its outcome. Raises std::runtime_error with
  // the cause, a clause; the connection must then be closed.
  void Open(Time deadline);
  // Waits until a session that is being restored is back; false when it is not by then.
  bool AwaitRestored(Time deadline);

  // Ends everything: see ZoSystem::Disconnect.
  void Close() noexcept;

  bool IsOnline() const noexcept { return online; }
  bool IsClosed() const;

  void Request(ZoRequestMethod method, const std::string& uri, const ZoJson* payload,
               const std::shared_ptr<ZoPendingRequest>& pending);
  // Waits for the outcome; when it returns the request is settled.
  void Await(const std::shared_ptr<ZoPendingRequest>& pending, const ZoRequest& request, std::uint64_t limit);
  // The two halves of it.
  void AwaitOutcome(ZoPendingRequest& pending, std::uint64_t limit);
  void EndUnanswered(const std::shared_ptr<ZoPendingRequest>& pending, std::uint64_t waited);
  void Cancel(const std::shared_ptr<ZoPendingRequest>& pending);

 private:
  void OnOpen() override;
  bool OnMessage(std::string_view text, bool binary) override;
  void OnBytes() override;
  void OnHeard() override;
  void OnMessageGrows() override;
  void OnPong() override;
  void OnSent() override;
  void OnEnd(const SessionEnd& end) override;

  void Run() noexcept;
  Time DeliverDue();
  void ResumeReading();
  void Attempt();
  void HurryAttempt();
  void Pump();
  void KickPump();
  void Step();
  void TakeOver();
  bool CanSend() const { return session && session->IsOpen() && !writing; }
  void SetAlarm();
  void SetAlarm(Time due);
  void Lost(const std::string& cause);
  void FirstOutcome(std::string cause);
  void SayGoodbye() noexcept;
  void LetOwnThreadEnd() noexcept;

  const Endpoint endpoint;
  std::atomic<bool> online{false};

  // Of the thread that drives.
  EventLoop loop;
  std::unique_ptr<Session> session;
  Backoff backoff;
  bool writing = false;
  bool stopped = false;       // Close has taken the session down
  bool broken = false;        // what drove raised: nobody knows how far it came
  bool wasOpen = false;       // the session that is there
  Time openedAt{};            // likewise
  Time attemptedAt{};         // when the last attempt began
  Time attemptDue = never;    // when the next attempt begins
  Time attemptLimit = never;  // when the running attempt has failed
  Time alarmAt = never;
  Time heardAt{};       // bytes came last; told to the state when it looks at the clock
  Time peerHeardAt{};   // a sign came last that the peer takes what is sent; likewise
  bool pongs = false;   // the peer of this session has answered a ping
  ZoJsonShapes shapes;  // of what the sensor has sent

  Driver driver;
  HandlerGate gate;
  std::atomic<bool> firstSettled{false};
  std::atomic<bool> paused{false};   // reading, because too many pushes wait
  std::atomic<bool> hurried{false};  // the next attempt, because somebody asks

  mutable Zo::Mutex mutex{"ZoLink", Zo::LockRank_Link};
  LinkState state Q_GUARDED_BY(mutex);
  bool closed Q_GUARDED_BY(mutex) = false;
  std::string firstCause Q_GUARDED_BY(mutex);  // of the first attempt's failure; empty when it succeeded

  Zo::Mutex threadMutex{"ZoLink thread", Zo::LockRank_Link - 1};
  std::thread thread Q_GUARDED_BY(threadMutex);
  bool waitedInVain Q_GUARDED_BY(threadMutex) = false;  // for its end, once; nobody need do so again
};

}  // namespace ZoSdk
