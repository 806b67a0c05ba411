// Notices a peer that is gone although its connection stands.
//
// Three signs: no byte for 3 s although it was pinged every second; bytes, but no pong within 3 s from a peer that has
// answered pings before, so that it does not hear us any more; and requests that end without an answer while the peer
// still answers pings. After two of those in a row the sensor is asked about "/system", and is lost when that is not
// answered within a second, or a second after the last piece of a long message before it, but for half a minute at
// most. A plain state machine: the caller brings the time. Guarded by its owner.
#pragma once

#include <algorithm>

#include "zovyrnsdk/link/clock.h"
#include "zovyrnsdk/link/limits.h"

namespace ZoSdk {

class Watchdog {
 public:
  enum class Verdict { Healthy, Ping, Silent, Unheard, Mute };

  void SessionOpened(Time now) {
    heard = now;
    nextPing = now + pingInterval;
    unheardSince = never;
    answersPings = false;
    AnswerArrived();
  }

  void BytesArrived(Time when) { heard = std::max(heard, when); }

  // A sign that the peer takes what is sent to it.
  void PeerHears(Time when) {
    if (when >= unheardSince) {
      unheardSince = never;
    }
  }

  // It is in the middle of a message, so the answer about itself has to wait behind that.
  void MessageGrows(Time now) {
    if (healthDue != never) {
      healthDue = std::max(healthDue, std::min(now, healthAsked + growLimit) + healthLimit);
    }
  }

  // Nobody listens, on purpose.
  void Paused(Time now) {
    BytesArrived(now);
    PeerHears(now);
    if (healthDue != never) {
      HealthAsked(now);
    }
  }

  // Not every peer does.
  void AnswersPings() { answersPings = true; }

  // For so long nobody could have heard anything: a handler blocked the only thread, or the machine slept.
  void Deaf(Duration time, Time now) {
    heard = std::max(heard, std::min(heard + time, now));
    if (healthDue != never) {
      healthDue += time;
    }
    if (unheardSince != never) {
      unheardSince = std::min(unheardSince + time, now);
    }
  }

  void AnswerArrived() {
    unanswered = 0;
    asking = false;
    healthDue = never;
  }

  // A request that was sent ended without an answer; true when the sensor is to be asked about itself now.
  bool RequestUnanswered() {
    ++unanswered;
    if (unanswered < 2 || asking) {
      return false;
    }
    asking = true;
    return true;
  }

  // That question is out. Until then it waits behind what is sent before it, for which the sensor cannot be blamed.
  void HealthAsked(Time now) {
    if (asking) {
      healthAsked = now;
      healthDue = now + healthLimit;
    }
  }
  // It was never sent.
  void HealthNotAsked() { asking = false; }

  Verdict Step(Time now) {
    if (now >= heard + silenceLimit) {
      return Verdict::Silent;
    }
    if (now >= healthDue) {
      return Verdict::Mute;
    }
    if (now >= HearingDue()) {
      return Verdict::Unheard;
    }
    if (now >= nextPing) {
      nextPing = now + pingInterval;
      if (answersPings) {
        unheardSince = std::min(unheardSince, now);
      }
      return Verdict::Ping;
    }
    return Verdict::Healthy;
  }

  Time NextDue() const { return std::min({heard + silenceLimit, HearingDue(), healthDue, nextPing}); }

 private:
  Time HearingDue() const { return unheardSince == never ? never : unheardSince + hearingLimit; }

  Time heard{};
  Time nextPing{};
  Time unheardSince = never;  // the first ping without a pong
  bool answersPings = false;
  bool asking = false;  // about itself
  Time healthAsked{};
  Time healthDue = never;
  unsigned unanswered = 0;
};

}  // namespace ZoSdk
