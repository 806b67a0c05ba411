#include "zovyrnsdk/link/connection.h"

#include <algorithm>
#include <exception>
#include <limits>
#include <random>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "qapi/memory.h"
#include "qapi/thread.h"
#include "zoapi/logging.h"
#include "zovyrnsdk/link/incoming.h"
#include "zovyrnsdk/link/limits.h"
#include "zovyrnsdk/link/outgoing.h"

namespace ZoSdk {

namespace {

constexpr std::chrono::milliseconds goodbyeLimit{10};  // for the closing handshake, of which nothing depends
constexpr std::chrono::milliseconds joinLimit{1000};   // then the own thread goes on alone
constexpr std::chrono::milliseconds firstAttemptSlack{
    50};                                                // so that its cause is known before Connect gives up
constexpr std::chrono::milliseconds attemptAgain{100};  // after one that could not begin
constexpr std::chrono::milliseconds faultPause{10};  // so that a lasting want of memory does not make it spin
constexpr std::size_t hugeMessage = std::size_t{4} << 20;
constexpr std::size_t smallMessage = std::size_t{64} << 10;
constexpr std::size_t deliverAtOnce = 64;
constexpr std::chrono::milliseconds lateAlarm{250};
constexpr const char* disconnected = "The system was disconnected.";

Time DeadlineAfter(std::uint64_t microseconds) {
  constexpr std::uint64_t year = std::uint64_t{365} * 24 * 3600 * 1000000;
  return Clock::now() + std::chrono::microseconds(std::min(microseconds, year));
}

// Counts a thread that waits for a request, for as long as it does.
class WaiterCount {
 public:
  explicit WaiterCount(ZoPendingRequest& pending) : waiters(pending.waiters) { ++waiters; }
  WaiterCount(const WaiterCount&) = delete;
  WaiterCount& operator=(const WaiterCount&) = delete;
  ~WaiterCount() { --waiters; }

 private:
  std::atomic<unsigned>& waiters;
};

}  // namespace

Connection::Connection(const Endpoint& endpoint, std::shared_ptr<const Handlers> handlers)
    : endpoint(endpoint),
      backoff(std::random_device()()),
      driver(
          loop, [this] { TakeOver(); }, [this] { broken = true; }),
      gate(std::move(handlers)) {}

Connection::~Connection() {
  // All done, unless there was no memory for the good-bye. A stream that is still there when the loop goes would need
  // some then, and end the process without.
  stopped = true;
  session.reset();
  loop.Drain();
}

void Connection::Open(Time deadline) {
  loop.Post([this] { Attempt(); });
  {
    Zo::MutexLock lock(threadMutex);
    gate.Began();
    try {
      const qSignalShield shield;
      thread = std::thread([self = shared_from_this()] { self->Run(); });
    } catch (const std::exception& error) {
      gate.Ended();
      throw std::runtime_error(std::string("the link's thread cannot be started: ") + error.what());
    }
  }
  driver.Await(firstSettled, deadline);
  Zo::MutexLock lock(mutex);
  if (closed) {
    throw std::runtime_error("the system was disconnected meanwhile");
  }
  if (!firstSettled) {
    throw std::runtime_error("no answer within 3 s");
  }
  if (!firstCause.empty()) {
    throw std::runtime_error(firstCause);
  }
}

bool Connection::AwaitRestored(Time deadline) {
  driver.Await(online, deadline);
  return online;
}

bool Connection::IsClosed() const {
  Zo::MutexLock lock(mutex);
  return closed;
}

void Connection::Request(ZoRequestMethod method, const std::string& uri, const ZoJson* payload,
                         const std::shared_ptr<ZoPendingRequest>& pending) {
  OutgoingText text = ComposeRequest(method, uri, payload);
  bool toSend = false;
  {
    Zo::MutexLock lock(mutex);
    if (closed) {
      pending->Fail(disconnected);
      return;
    }
    toSend = state.Request(method, uri, std::move(text), pending, Clock::now());
  }
  try {
    if (toSend) {
      KickPump();
    } else if (!hurried.exchange(true)) {
      loop.Post([this] { HurryAttempt(); });
    }
  } catch (const std::bad_alloc&) {
    hurried = false;  // the request is in the table, where whoever drives next finds it
  }
}

void Connection::Await(const std::shared_ptr<ZoPendingRequest>& pending, const ZoRequest& request,
                       std::uint64_t limit) {
  AwaitOutcome(*pending, limit);
  EndUnanswered(pending, limit);
  Zo::MutexLock lock(mutex);
  state.Taken(*pending, request, Clock::now());
}

void Connection::AwaitOutcome(ZoPendingRequest& pending, std::uint64_t limit) {
  if (!pending.Settled()) {
    const WaiterCount waiting(pending);
    driver.Await(pending.settled, DeadlineAfter(limit));
  }
}

void Connection::EndUnanswered(const std::shared_ptr<ZoPendingRequest>& pending, std::uint64_t waited) {
  if (pending->Settled()) {
    return;
  }
  bool unanswered = false;
  {
    Zo::MutexLock lock(mutex);
    if (!pending->Settled()) {
      unanswered = true;
      if (closed) {
        pending->Fail(disconnected);
      } else {
        state.TimeOut(pending, waited, Clock::now());
      }
    }
  }
  if (unanswered) {
    driver.Notify();  // others may wait for the same request
    KickPump();       // the link may want to ask after the sensor
  }
}

void Connection::Cancel(const std::shared_ptr<ZoPendingRequest>& pending) {
  {
    Zo::MutexLock lock(mutex);
    state.Cancel(pending);
  }
  driver.Notify();
  loop.Poke();  // the one that drives may be the one that waits for it
}

void Connection::Close() noexcept {
  bool first = false;
  {
    Zo::MutexLock lock(mutex);
    first = !std::exchange(closed, true);
    online = false;
    state.Close();
  }
  gate.Shut();
  driver.Close();
  if (first) {
    SayGoodbye();
  }
  LetOwnThreadEnd();
}

// The session is closed politely when that takes no time, else dropped. Both happen inside the loop, driven
// from here.
void Connection::SayGoodbye() noexcept {
  struct Progress {
    std::atomic<bool> polite{false};
    std::atomic<bool> dropped{false};
  };
  try {
    const auto progress = std::make_shared<Progress>();
    loop.Post([this, progress] {
      stopped = true;
      loop.SetAlarm(never, nullptr);
      if (session) {
        session->Close(Session::CloseCode_Normal, [progress] { progress->polite = true; });
      } else {
        progress->polite = true;
      }
    });
    driver.AwaitClosing(progress->polite, Clock::now() + goodbyeLimit);
    loop.Post([this, progress] {
      if (session) {
        session->Abort();
        session.reset();
      }
      progress->dropped = true;
    });
    driver.AwaitClosing(progress->dropped, Clock::now() + goodbyeLimit);
  } catch (const std::exception& error) {
    // Without memory for the good-bye the connection goes when the last owner does.
    Zo::Logging::Zo_Debug_Log(__LINE__, __FILE__, 0, "ZoSdk::Connection::SayGoodbye", error.what());
  }
}

void Connection::LetOwnThreadEnd() noexcept {
  const bool inside = gate.InHandler();
  Time limit = Clock::now() + joinLimit;
  {
    Zo::MutexLock lock(threadMutex);
    limit = waitedInVain ? Time{} : limit;
  }
  const bool ended = !inside && gate.WaitEnded(limit);
  Zo::MutexLock lock(threadMutex);
  waitedInVain = waitedInVain || !(inside || ended);
  if (!thread.joinable()) {
    return;
  }
  if (ended) {
    thread.join();
  } else {
    // It is inside a handler, perhaps this very one; all that it still touches it owns with us.
    qThread_Adopt(std::move(thread));
  }
}

void Connection::Run() noexcept {
  qThread_NameCurrent("ZoLink::Thread");
  while (!driver.Closed()) {
    try {
      driver.Serve(DeliverDue());
    } catch (const std::exception& error) {
      // Out of memory; the thread must go on, and must not let an exception out.
      Zo::Logging::Zo_Debug_Log(__LINE__, __FILE__, 0, "ZoSdk::Connection::Run", error.what());
      std::this_thread::sleep_for(faultPause);
    }
  }
  gate.Ended();
}

// When the next push is due.
Time Connection::DeliverDue() {
  while (true) {
    std::vector<Push> due;
    Time next = never;
    bool full = false;
    {
      Zo::MutexLock lock(mutex);
      state.Pushes().Delivered(Clock::now());
      due = state.Pushes().TakeDue(Clock::now(), deliverAtOnce);
      next = state.Pushes().NextDue();
      full = state.Pushes().Full();
    }
    if (paused && !full) {
      try {
        loop.Post([this] { ResumeReading(); });
      } catch (const std::bad_alloc&) {
        // What was taken out must not be lost with it.
        next = Clock::now() + faultPause;
      }
    }
    if (due.empty()) {
      return next;
    }
    for (Push& push : due) {
      while (!gate.Deliver(push) && !driver.Closed()) {
        std::this_thread::sleep_for(faultPause);
      }
    }
  }
}

void Connection::ResumeReading() {
  if (paused.exchange(false) && session) {
    session->ResumeReading();
  }
}

void Connection::KickPump() {
  driver.Kick([this] { Pump(); });
}

void Connection::Attempt() {
  if (stopped) {
    return;
  }
  const Time now = Clock::now();
  attemptedAt = now;
  // Due again, should this one not even begin for want of memory.
  attemptDue = now + attemptAgain;
  session = std::make_unique<Session>(loop, endpoint, *this);
  attemptDue = never;
  attemptLimit = now + (firstSettled ? connectLimit : connectLimit - firstAttemptSlack);
  SetAlarm();
}

// Somebody wants the link, and has not got the patience of the back-off.
void Connection::HurryAttempt() {
  hurried = false;
  if (attemptDue != never) {
    attemptDue = std::min(attemptDue, std::max(Clock::now(), attemptedAt + hurriedPause));
    SetAlarm();
  }
}

void Connection::OnOpen() {
  const Time now = Clock::now();
  attemptLimit = never;
  wasOpen = true;
  openedAt = now;
  heardAt = now;
  pongs = false;
  {
    Zo::MutexLock lock(mutex);
    if (closed) {
      return;
    }
    state.SessionOpened(now);
    online = true;
  }
  FirstOutcome(std::string());
  driver.Notify();
  Pump();
}

bool Connection::OnMessage(std::string_view text, bool binary) {
  Incoming message;
  bool outOfMemory = false;
  try {
    if (binary) {
      message = Malformed("it is binary");  // whatever it holds, it is no JSON text
    } else {
      message = ReadIncoming(text, shapes);
    }
  } catch (const std::bad_alloc&) {
    message.kind = Incoming::Kind::TooLarge;
    outOfMemory = true;
  }
  const bool tooLarge = message.kind == Incoming::Kind::TooLarge;
  if (tooLarge || message.kind == Incoming::Kind::Malformed) {
    if (!outOfMemory || text.size() > smallMessage) {  // which is not to blame for a want of memory
      const Time now = Clock::now();
      Zo::MutexLock lock(mutex);
      const bool itself = !outOfMemory || text.size() > hugeMessage;
      state.MessageUnusable(text, itself, now);
    }
    session->Close(tooLarge ? Session::CloseCode_TooLarge : Session::CloseCode_BadMessage, nullptr);
    Lost(tooLarge ? "the sensor sent a message that is too large"
                  : "the sensor sent a message that is no JSON object" +
                        (message.fault.empty() ? "" : " (" + message.fault + ")"));
    if (text.size() > hugeMessage) {
      qMemory_GiveBack();  // what was read of the document lay in small pieces, which the process would keep
    }
    return false;
  }
  const bool answer = message.kind == Incoming::Kind::Answer;
  bool full = false;
  bool more = false;
  {
    const Time now = Clock::now();
    Zo::MutexLock lock(mutex);
    state.Receive(std::move(message), now);
    full = state.Pushes().Full();
    more = !writing && state.HasMessage(now);
    // Set before the own thread can see the queue full, so that it does not miss to take it back.
    paused = full;
  }
  if (answer) {
    driver.Notify();
  } else {
    driver.PushArrived();
  }
  if (more) {
    Pump();
  }
  return !full;
}

void Connection::OnBytes() {
  heardAt = Clock::now();
}

void Connection::OnHeard() {
  peerHeardAt = Clock::now();
}

void Connection::OnMessageGrows() {
  const Time now = Clock::now();
  Zo::MutexLock lock(mutex);
  state.MessageGrows(now);
}

void Connection::OnPong() {
  pongs = true;
  OnHeard();
}

void Connection::OnSent() {
  writing = false;
  Pump();
}

void Connection::OnEnd(const SessionEnd& end) {
  if (!end.partial.empty()) {
    const Time now = Clock::now();
    Zo::MutexLock lock(mutex);
    state.MessageUnusable(end.partial, true, now);
  }
  Lost(end.cause);
}

void Connection::Lost(const std::string& cause) {
  const Time now = Clock::now();
  writing = false;
  paused = false;
  attemptLimit = never;
  session.reset();
  {
    Zo::MutexLock lock(mutex);
    online = false;
    state.SessionLost(cause, now);
  }
  if (firstSettled) {
    if (std::exchange(wasOpen, false)) {
      backoff.SessionLasted(now - openedAt);
    }
    attemptDue = now + backoff.Next();
  } else {
    FirstOutcome(cause);
  }
  driver.Notify();
  SetAlarm();
}

void Connection::FirstOutcome(std::string cause) {
  if (!firstSettled) {
    Zo::MutexLock lock(mutex);
    firstCause = std::move(cause);
    firstSettled = true;
  }
}

// Sends the next message, if one can be sent.
void Connection::Pump() {
  if (stopped) {
    return;
  }
  const bool canSend = CanSend();
  std::optional<std::string> message;
  Time due = never;
  {
    Zo::MutexLock lock(mutex);
    if (canSend) {
      message = state.NextMessage(Clock::now());
    }
    due = state.NextDue(canSend && !message);
  }
  if (message) {
    writing = true;
    session->Send(std::move(*message));
  }
  SetAlarm(due);
}

void Connection::TakeOver() {
  if (broken && !stopped) {
    // Only a want of memory raises. What was under way may never go on, so a new session takes its place.
    if (session || attemptDue == never) {
      if (session) {
        session->Abort();
      }
      Lost("there was no memory to go on");
    }
    broken = false;
  }
  Pump();
}

// One look at the clock.
void Connection::Step() {
  const Time expected = std::exchange(alarmAt, never);
  if (stopped) {
    return;
  }
  const Time now = Clock::now();
  if (now >= attemptDue) {
    Attempt();
  } else if (now >= attemptLimit) {
    const std::string stage = session->Stage();
    session->Abort();
    Lost(stage);
  }
  Watchdog::Verdict verdict = Watchdog::Verdict::Healthy;
  {
    Zo::MutexLock lock(mutex);
    state.BytesArrived(heardAt);
    state.PeerHears(peerHeardAt);
    if (pongs) {
      state.AnswersPings();
    }
    if (paused) {
      state.Paused(now);  // it is we who do not listen
    } else if (now > expected + lateAlarm) {
      state.Deaf(now - expected, now);  // likewise: nobody drove
    }
    verdict = state.Step(now);
  }
  switch (verdict) {
    case Watchdog::Verdict::Healthy:
      break;
    case Watchdog::Verdict::Ping:
      session->Ping();
      break;
    case Watchdog::Verdict::Silent:
      session->Abort();
      Lost("the sensor has been silent for 3 s");
      break;
    case Watchdog::Verdict::Unheard:
      session->Abort();
      Lost("the sensor has answered no ping for 3 s");
      break;
    case Watchdog::Verdict::Mute:
      session->Close(Session::CloseCode_Normal, nullptr);
      Lost("the sensor leaves requests unanswered");
      break;
  }
  driver.Notify();
  Pump();
}

void Connection::SetAlarm() {
  Time due = never;
  {
    Zo::MutexLock lock(mutex);
    due = state.NextDue(CanSend());
  }
  SetAlarm(due);
}

// due: as the state has it.
void Connection::SetAlarm(Time due) {
  due = std::min({due, attemptDue, attemptLimit});
  if (due < alarmAt) {
    alarmAt = never;  // should the next line raise, none is set
    loop.SetAlarm(due, [this] { Step(); });
    alarmAt = due;
  }
}

}  // namespace ZoSdk
