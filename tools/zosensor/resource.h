// One resource: its content, who may write it, what drives it, what a call does.
//
// Threads: the I/O thread alone. Owner: the store (shared with the schedule, which forgets removed resources
// lazily). Invariants: (1) Text() always is the content's text; (2) a driven member exists in the content.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tools/zosensor/answer.h"
#include "tools/zosensor/clock.h"
#include "tools/zosensor/merge.h"
#include "tools/zosensor/waveform.h"

namespace ZoSensor {

// What a call of a method does, as the resource file describes it.
struct CallBehaviour {
  ZoJson result;
  bool echo = false;                                // the result is the argument
  std::string mergeInto;                            // the argument updates this resource
  std::vector<std::pair<std::string, ZoJson>> set;  // updates that every call makes
  Duration delay{};
};

struct Drive {
  ZoJsonPointer member;
  std::unique_ptr<Waveform> wave;
  std::uint64_t salt = 0;  // tells the randomness of this member from that of all others
};

class Resource {
 public:
  Resource(std::string resourcePath, ZoJson initial);

  const std::string& Path() const { return path; }
  const ZoJson& Content() const { return content; }
  // The content as JSON text, printed when first asked for after a change.
  const SharedText& Text();
  // Whether the content is another one now. printed: its text, when that is there already.
  bool SetContent(ZoJson next, SharedText printed = nullptr);

  void AddDrive(ZoJsonPointer member, std::unique_ptr<Waveform> wave);
  const std::vector<Drive>& Drives() const { return drives; }
  // Puts the values of the sample at moment in place, once for each index. Whether the content changed.
  bool Sample(const SampleMoment& moment);

  // Set once, by whoever makes the resource.
  bool hasContent = true;  // false for a pure method
  bool streamable = true;
  bool measurement = false;  // flows only while the sensor runs
  bool permanent = false;    // cannot be deleted
  Duration period = std::chrono::milliseconds(100);
  WriteRules rules;
  std::function<ZoJson(Time)> produce;  // makes the content afresh at each look
  std::function<std::optional<std::string>(const ZoJson& next)> objection;  // judges the result of an update
  std::function<void(Time)> written;                                        // after an update
  std::function<Answer(const ZoJson& argument, Time)> callHook;
  std::optional<CallBehaviour> call;

  // The sensor's book-keeping.
  bool scheduled = false;
  bool removed = false;

 private:
  std::string path;
  ZoJson content;
  SharedText text;
  std::vector<Drive> drives;
  std::optional<std::uint64_t> lastIndex;
};

}  // namespace ZoSensor
