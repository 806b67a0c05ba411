// A host that listens and checks the form of everything that it is told.
//
// Threads: the callbacks from any, at once. What came is kept of the thread that made the host: that is what an export
// answered, or what a pass made by hand delivered. Lock: one, for a moment. Must outlive its instance, and every
// callback that comes after Forbid() aborts.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "xhmi/iohandler.h"
#include "zovyrnsdk/json/zojson.h"

namespace ZoFuzz {

class Host {
 public:
  struct Value {
    std::string item;
    ioDataValue value{};  // with a null pointer in place of a text
    std::string text;     // of the types 0 and 5
  };
  struct Response {
    const void* token = nullptr;
    ZoJson document;
  };

  // Without hasValues or hasResponses that callback is null.
  explicit Host(bool hasValues = true, bool hasResponses = true)
      : hasValues(hasValues), hasResponses(hasResponses) {}
  Host(const Host&) = delete;
  Host& operator=(const Host&) = delete;

  ioHandlerParam Param();
  bool HasValues() const { return hasValues; }
  bool HasResponses() const { return hasResponses; }

  // From here on no callback may begin.
  void Forbid() { allowed = false; }

  // What came on this thread since the last time.
  std::vector<Value> TakeValues();
  std::vector<Response> TakeResponses();
  std::size_t TakeLines();
  // Whether a value came on another thread, ever.
  bool HadValuesElsewhere() const { return valuesElsewhere; }

 private:
  static void HandleValue(const char* itemName, const ioDataValue* value, void* context);
  static void HandleResponse(const void* callToken, const char* response, void* context);
  static void HandleLog(void* context, std::int32_t level, const char* text);
  static Host& Of(void* context);
  bool IsOwnThread() const { return std::this_thread::get_id() == thread; }

  // Set once.
  const bool hasValues;
  const bool hasResponses;
  const std::thread::id thread = std::this_thread::get_id();

  std::atomic<bool> allowed = true;
  std::atomic<bool> valuesElsewhere = false;
  std::mutex mutex;
  std::vector<Value> values;  // guarded by mutex, like the two below
  std::vector<Response> responses;
  std::size_t lines = 0;
};

}  // namespace ZoFuzz
