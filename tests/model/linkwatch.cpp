#include "tests/model/linkwatch.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <utility>

#include "zovyrnsdk/link/handlergate.h"
#include "zovyrnsdk/link/pushqueue.h"
#include "zovyrnsdk/link/readbrake.h"
#include "zovyrnsdk/link/restorer.h"
#include "zovyrnsdk/zotransaction.h"

// The linker's names, as in stoppedtime.cpp. An operation takes its object as if that were its first argument.
#define ZOIO_OFFER                                                                      \
  "_ZN5ZoSdk9PushQueue5OfferERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEENS_" \
  "4PushENSt6chrono10time_"                                                             \
  "pointINSA_3_V212steady_clockENSA_8durationIlSt5ratioILl1ELl1000000000EEEEEE"
#define ZOIO_REFUSED                                                                    \
  "_ZN5ZoSdk8Restorer7RefusedERKSt4pairINS0_4KindENSt7__cxx1112basic_stringIcSt11char_" \
  "traitsIcESaIcEEEENSt6chrono"                                                         \
  "10time_pointINSC_3_V212steady_clockENSC_8durationIlSt5ratioILl1ELl1000000000EEEEEE"
#define ZOIO_READ                                                                                    \
  "_ZN5ZoSdk9ReadBrake4ReadERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEENSt6chrono10time_" \
  "pointINS9_3_V2"                                                                                   \
  "12steady_clockENS9_8durationIlSt5ratioILl1ELl1000000000EEEEEE"
#define ZOIO_ENDED                                                                  \
  "_ZN5ZoSdk9ReadBrake19ReadEndedTheSessionERKNSt7__cxx1112basic_stringIcSt11char_" \
  "traitsIcESaIcEEENSt6chrono10time_"                                               \
  "pointINS9_3_V212steady_clockENS9_8durationIlSt5ratioILl1ELl1000000000EEEEEE"
using ZoSdk::PushQueue;
using ZoSdk::Restorer;
// The linker's name does not tell.
using RefusedResult =
    decltype(std::declval<Restorer&>().Refused(std::declval<const Restorer::Key&>(), ZoSdk::Time()));
void RealOffer(PushQueue* queue, const std::string& uri, ZoSdk::Push push,
               ZoSdk::Time now) __asm__("__real_" ZOIO_OFFER);
void WrappedOffer(PushQueue* queue, const std::string& uri, ZoSdk::Push push,
                  ZoSdk::Time now) __asm__("__wrap_" ZOIO_OFFER);
bool RealDeliver(ZoSdk::HandlerGate* gate,
                 ZoSdk::Push& push) __asm__("__real__ZN5ZoSdk11HandlerGate7DeliverERNS_4PushE");
bool WrappedDeliver(ZoSdk::HandlerGate* gate,
                    ZoSdk::Push& push) __asm__("__wrap__ZN5ZoSdk11HandlerGate7DeliverERNS_4PushE");
RefusedResult RealRefused(Restorer* restorer, const Restorer::Key& key,
                          ZoSdk::Time now) __asm__("__real_" ZOIO_REFUSED);
RefusedResult WrappedRefused(Restorer* restorer, const Restorer::Key& key,
                             ZoSdk::Time now) __asm__("__wrap_" ZOIO_REFUSED);
ZoSdk::ReadBrake::Ruling RealRead(ZoSdk::ReadBrake* brake, const std::string& uri,
                                  ZoSdk::Time now) __asm__("__real_" ZOIO_READ);
ZoSdk::ReadBrake::Ruling WrappedRead(ZoSdk::ReadBrake* brake, const std::string& uri,
                                     ZoSdk::Time now) __asm__("__wrap_" ZOIO_READ);
void RealEnded(ZoSdk::ReadBrake* brake, const std::string& uri,
               ZoSdk::Time now) __asm__("__real_" ZOIO_ENDED);
void WrappedEnded(ZoSdk::ReadBrake* brake, const std::string& uri,
                  ZoSdk::Time now) __asm__("__wrap_" ZOIO_ENDED);
ZoRequestResponse RealGetResponse(ZoTransaction* transaction,
                                  std::uint64_t timeout) __asm__("__real__ZN13ZoTransaction11GetResponseEm");
ZoRequestResponse WrappedGetResponse(ZoTransaction* transaction, std::uint64_t timeout) __asm__(
    "__wrap__ZN13ZoTransaction11GetResponseEm");
bool RealWait(ZoTransaction* transaction, std::uint64_t timeout) __asm__("__real__ZN13ZoTransaction4WaitEm");
bool WrappedWait(ZoTransaction* transaction,
                 std::uint64_t timeout) __asm__("__wrap__ZN13ZoTransaction4WaitEm");

namespace ZoModel {

namespace {

constexpr std::chrono::hours tooLongForAnyTest{24};
constexpr std::uint64_t untilAnswered = 10'000'000;  // µs; there is always an answer, or the link breaks

constexpr std::uint64_t glimpse =
    500;  // µs; whoever waits drives the link, and must look up to see what the sensor did

std::atomic<LinkWatch*> current = nullptr;

// What the link takes its own time to be where the model tells what is due.
ZoSdk::Time TimeFor(ZoSdk::Time now) {
  const LinkWatch* const watch = LinkWatch::Current();
  return watch == nullptr ? now : ZoSdk::Time(watch->Time());
}

}  // namespace

LinkWatch::LinkWatch() {
  current = this;
}

LinkWatch::~LinkWatch() {
  current = nullptr;
}

LinkWatch* LinkWatch::Current() {
  return current;
}

bool LinkWatch::WaitUntilHandedOn(ZoTest::Clock::duration limit) {
  std::unique_lock lock(mutex);
  return changed.wait_until(lock, ZoTest::Clock::now() + limit, [this] { return handedOn == offered; });
}

std::vector<std::string> LinkWatch::TakeHandedOn() {
  const std::lock_guard lock(mutex);
  std::sort(pushes.begin(), pushes.end());
  return std::exchange(pushes, {});
}

void LinkWatch::ExpectSilence(bool expected) {
  const std::lock_guard lock(mutex);
  silence = expected;
  unanswered.clear();
}

bool LinkWatch::ExpectsSilence() {
  const std::lock_guard lock(mutex);
  return silence;
}

void LinkWatch::NoteUnanswered(std::string request) {
  const std::lock_guard lock(mutex);
  unanswered.insert(std::move(request));
}

bool LinkWatch::TakeUnanswered(const std::string& request) {
  const std::lock_guard lock(mutex);
  const auto found = unanswered.find(request);
  if (found == unanswered.end()) {
    return false;
  }
  unanswered.erase(found);
  return true;
}

void LinkWatch::NoteOffered() {
  const std::lock_guard lock(mutex);
  ++offered;
}

void LinkWatch::NoteHandedOn(std::string push) {
  const std::lock_guard lock(mutex);
  ++handedOn;
  pushes.push_back(std::move(push));
  changed.notify_all();
}

}  // namespace ZoModel

using ZoModel::LinkWatch;

void WrappedOffer(PushQueue* queue, const std::string& uri, ZoSdk::Push push, ZoSdk::Time now) {
  if (LinkWatch* watch = LinkWatch::Current(); watch != nullptr) {
    watch->NoteOffered();
  }
  RealOffer(queue, uri, std::move(push), now);
}

bool WrappedDeliver(ZoSdk::HandlerGate* gate, ZoSdk::Push& push) {
  LinkWatch* const watch = LinkWatch::Current();
  if (watch == nullptr) {
    return RealDeliver(gate, push);
  }
  const ZoJson document = push.document;
  const bool stream = push.kind == ZoSdk::Push::Kind::Stream;
  const bool delivered = RealDeliver(gate, push);
  if (delivered) {
    watch->NoteHandedOn(std::string(stream ? "stream " : "notification ") +
                        document.At("uri").Get<std::string>() + " " + document.At("payload").ToString());
  }
  return delivered;
}

RefusedResult WrappedRefused(Restorer* restorer, const Restorer::Key& key, ZoSdk::Time now) {
  return RealRefused(restorer, key, LinkWatch::Current() == nullptr ? now : now + ZoModel::tooLongForAnyTest);
}

bool WrappedWait(ZoTransaction* transaction, std::uint64_t timeout) {
  return RealWait(transaction, LinkWatch::Current() == nullptr ? timeout : ZoModel::untilAnswered);
}

ZoSdk::ReadBrake::Ruling WrappedRead(ZoSdk::ReadBrake* brake, const std::string& uri, ZoSdk::Time now) {
  using Ruling = ZoSdk::ReadBrake::Ruling;
  const Ruling ruling = RealRead(brake, uri, ZoModel::TimeFor(now));
  return LinkWatch::Current() != nullptr && ruling == Ruling::AnswerAndProbe ? Ruling::Answer : ruling;
}

void WrappedEnded(ZoSdk::ReadBrake* brake, const std::string& uri, ZoSdk::Time now) {
  RealEnded(brake, uri, ZoModel::TimeFor(now));
}

ZoRequestResponse WrappedGetResponse(ZoTransaction* transaction, std::uint64_t timeout) {
  LinkWatch* const watch = LinkWatch::Current();
  const ZoRequest& request = transaction->GetRequest();
  if (watch != nullptr && request.Method() == ZoRequestMethod_Sub) {
    watch->NoteSubscription();
  }
  if (watch != nullptr && watch->ExpectsSilence()) {
    const std::string text = std::to_string(request.Method()) + " " + request.Uri();
    const ZoTest::Deadline deadline;
    while (!RealWait(transaction, ZoModel::glimpse) && !deadline.Expired()) {
      if (watch->TakeUnanswered(text)) {
        transaction->EndUnanswered(timeout);
      }
    }
  }
  return RealGetResponse(transaction, timeout);
}
