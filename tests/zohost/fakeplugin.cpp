// A plug-in with scripted behaviour, for what the real one does rarely or never.
//
// The address chooses the instance: "refuse" is not created, "offline" refuses everything after one error
// line, "stuck" takes a minute to create, "chatty" logs at every level, anything else works. The last segment
// of an item's name chooses its values and faults; see ValueOf and the exports. What happens is written to
// the file that ZOFAKE_TRACE names, one line each.
#include <atomic>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "xhmi/iohandler.h"

#define EXPORT extern "C" __attribute__((visibility("default")))

namespace {

thread_local bool insideCallback = false;

void Trace(const std::string& line) {
  if (const char* file = std::getenv("ZOFAKE_TRACE")) {
    if (std::FILE* out = std::fopen(file, "a")) {
      std::fprintf(out, "%s\n", line.c_str());
      std::fclose(out);
    }
  }
}

void Enter(const char* name) {
  if (insideCallback) {
    Trace(std::string("fault: ") + name + " inside a callback");
  }
}

class CallbackScope {
 public:
  CallbackScope() { insideCallback = true; }
  CallbackScope(const CallbackScope&) = delete;
  CallbackScope& operator=(const CallbackScope&) = delete;
  ~CallbackScope() { insideCallback = false; }
};

std::string LastSegment(const std::string& item) {
  return item.substr(item.find_last_of('/') == std::string::npos ? 0 : item.find_last_of('/') + 1);
}

ioDataValue TextValue(const char* text) {
  ioDataValue value = {};
  value.type = enumtype_string;
  value.value.text = text;
  return value;
}

// The n-th value of an item. `storage` keeps a text alive for the callback.
ioDataValue ValueOf(const std::string& kind, int n, std::string& storage) {
  ioDataValue value = {};
  if (kind == "uint") {
    value.type = enumtype_uint64;
    value.value.uint64 = std::numeric_limits<std::uint64_t>::max();
  } else if (kind == "double") {
    value.type = enumtype_double;
    value.value.float64 = static_cast<double>(0.1f) + n;
  } else if (kind == "nan") {
    value.type = enumtype_double;
    value.value.float64 = n % 2 == 0 ? std::nan("") : -std::numeric_limits<double>::infinity();
  } else if (kind == "bool") {
    value.type = enumtype_bool;
    value.value.boolean = n % 2 == 0 ? 1 : 0;
  } else if (kind == "text") {
    storage = "Hello " + std::to_string(n);
    return TextValue(storage.c_str());
  } else if (kind == "control") {
    return TextValue("a\x1b[31mb\nc\td\"e,f");
  } else if (kind == "badutf8") {
    return TextValue("ok\xff\xfe!");
  } else if (kind == "wide") {
    return TextValue("漢字かな交じり文漢字かな交じり文漢字かな交じり文");
  } else if (kind == "long") {
    storage.assign(1 << 20, 'x');
    return TextValue(storage.c_str());
  } else if (kind == "null") {
    return TextValue(nullptr);
  } else if (kind == "invalid") {
    value = TextValue("INVALID");
    value.type = enumtype_invalid;
  } else if (kind == "odd") {
    value.type = 77;
  } else {
    value.type = enumtype_int64;
    value.value.int64 = kind == "constant" ? 42 : kind == "slow" ? n / 4 : n;
  }
  return value;
}

// The response to "Read" of a resource; "data" is JSON text inside a string.
[[maybe_unused]] std::string ReadAnswer(const std::string& uri) {
  std::string data = R"({\"status\":-404,\"payload\":null,\"error\":\"No such resource.\"})";
  if (uri == "/") {
    data =
        R"({\"status\":1,\"payload\":{\"resources\":[\"/motor\",\"/motor/start\",\"/motor/stop\",\"/other\",\"/broken\"]}})";
  } else if (uri == "/motor") {
    data = R"({\"status\":1,\"payload\":{\"speed\":1.5,\"on\":true,\"nominal load\":{\"a/b\":[1,null]}}})";
  } else if (uri == "/motor/start") {
    data = R"({\"status\":-405,\"payload\":null,\"error\":\"It can only be called.\"})";
  } else if (uri == "/broken") {
    data = R"({\"status\":-500,\"payload\":null,\"error\":\"The sensor failed.\"})";
  } else if (uri == "/other") {
    data = R"({\"status\":1,\"payload\":\"text\"})";
  }
  return R"({"id":1,"errcode":0,"data":")" + data + "\"}";
}

class Instance {
 public:
  Instance(std::string address, const ioHandlerParam& param) : address_(std::move(address)), param_(param) {}
  Instance(const Instance&) = delete;
  Instance& operator=(const Instance&) = delete;
  ~Instance() {
    {
      const std::lock_guard lock(mutex_);
      ending_ = true;
    }
    changed_.notify_all();
    for (std::thread& thread : threads_) {
      thread.join();
    }
    Log(3, "Destroyed.");
  }

  bool Offline() const { return address_ == "offline"; }

  void Log(int level, const std::string& text) {
    const CallbackScope scope;
    if (param_.log != nullptr) {
      param_.log(param_.context, level,
                 ("[Fake::Function](" + std::to_string(level) + ")" + text + "\n").c_str());
    }
  }

  void Deliver(const std::string& item, int n) {
    const CallbackScope scope;
    std::string storage;
    const ioDataValue value = ValueOf(LastSegment(item), n, storage);
    param_.itemValue(item.c_str(), &value, param_.context);
    std::fill(storage.begin(), storage.end(), '?');  // whoever kept the pointer sees it
  }

  void Answer(const void* token, const std::string& response) {
    const CallbackScope scope;
    param_.methodResult(token, response.c_str(), param_.context);
  }

  void Subscribe(const std::string& item) {
    if (LastSegment(item) == "flood" || LastSegment(item) == "deluge") {
      const int count = LastSegment(item) == "flood" ? 25'000 : 75'000;
      for (int thread = 0; thread < 4; ++thread) {
        threads_.emplace_back([this, item, count] {
          for (int n = 0; n < count; ++n) {
            Deliver(item, n);
          }
          if (++floods_ == 4) {
            Trace("flooded");
          }
        });
      }
      return;
    }
    const std::lock_guard lock(mutex_);
    items_.insert(item);
  }

  void StartTicking(std::chrono::milliseconds interval) {
    if (!ticking_) {
      ticking_ = true;
      threads_.emplace_back([this, interval] { Tick(interval); });
    }
  }

  void Unsubscribe(const std::string& item) {
    const std::lock_guard lock(mutex_);
    items_.erase(item);
  }

 private:
  void Tick(std::chrono::milliseconds interval) {
    std::unique_lock lock(mutex_);
    for (int n = 0; !ending_; ++n) {
      const std::set<std::string> items = items_;
      lock.unlock();
      for (const std::string& item : items) {
        if (LastSegment(item) == "silent" || (LastSegment(item) == "once" && n > 0)) {
          continue;
        }
        if (LastSegment(item) == "logging") {
          Log(5, "Line " + std::to_string(n) + ".");
        }
        Deliver(item, n);
      }
      lock.lock();
      changed_.wait_for(lock, interval, [this] { return ending_; });
    }
  }

  const std::string address_;
  const ioHandlerParam param_;
  std::mutex mutex_;
  std::condition_variable changed_;
  bool ending_ = false;
  bool ticking_ = false;
  std::atomic<int> floods_ = 0;
  std::set<std::string> items_;
  std::vector<std::thread> threads_;
};

Instance& Of(void* handle) {
  return *static_cast<Instance*>(handle);
}

__attribute__((destructor)) void Unloaded() {
  Trace("unloaded");
}

}  // namespace

EXPORT int CreateIoInstance(const char* address, unsigned short port, const ioHandlerParam* param,
                            void** handle) {
  Enter("CreateIoInstance");
  Trace(std::string("create ") + address + " " + std::to_string(port));
  if (std::strcmp(address, "stuck") == 0) {
    std::this_thread::sleep_for(std::chrono::minutes(1));
  }
  auto* instance = new Instance(address, *param);
  if (std::strcmp(address, "refuse") == 0) {
    instance->Log(5, "This address is not to be had.");
    delete instance;
    return 1;
  }
  if (instance->Offline()) {
    instance->Log(5, "Cannot connect to nowhere.");
  }
  if (std::strcmp(address, "chatty") == 0) {
    for (int level = 2; level <= 6; ++level) {
      instance->Log(level, "Level " + std::to_string(level) + "\x1b[2J.");
    }
  }
  *handle = instance;
  return 0;
}

EXPORT int DestroyIoInstance(void* handle) {
  Enter("DestroyIoInstance");
  delete &Of(handle);
  Trace("destroy");
  return 0;
}

#ifndef ZOFAKE_WITHOUT_INFO
EXPORT const ioInfo* GetIoInfo(void) {
  Enter("GetIoInfo");
  static const ioParamInfo params[] = {{"First label", "First description", 1}, {nullptr, "Second\n", 2}};
  static const ioInfo info = {0, 0x00010005, 0,      0x00010004, "FakePlugin", "A plug-in for tests",
                              1, 1,          params, 2};
  return &info;
}
#endif

EXPORT int ReadItem(const char* itemName, void* handle) {
  Enter("ReadItem");
  const std::string kind = LastSegment(itemName);
  Trace(std::string("read ") + itemName);
  if (Of(handle).Offline() || kind == "unknown") {
    return 1;
  }
  if (kind == "denied") {
    Of(handle).Log(5, "The sensor does not like this item.");
    return 1;
  }
  if (kind != "mute") {
    Of(handle).Deliver(itemName, 7);
  }
  return 0;
}

EXPORT int WriteItem(const char* itemName, const ioDataValue* value, int, void* handle) {
  Enter("WriteItem");
  const std::string kind = LastSegment(itemName);
  if (Of(handle).Offline() || kind == "unknown") {
    return 1;
  }
  if (kind == "denied") {
    Of(handle).Log(5, "The sensor does not like this value.");
    return 1;
  }
  std::string text = value->type == enumtype_string ? value->value.text : std::to_string(value->value.uint64);
  if (value->type == enumtype_double) {
    text = std::to_string(value->value.float64);
  }
  Trace(std::string("write ") + itemName + " " + std::to_string(value->type) + " " + text);
  return 0;
}

EXPORT int SubscribeItems(long long intervalMs, int count, const char* const* names, int* results,
                          void* handle) {
  Enter("SubscribeItems");
  Trace("subscribe " + std::to_string(count) + " " + std::to_string(intervalMs));
  if (Of(handle).Offline()) {
    return 1;
  }
  int result = 0;
  for (int index = 0; index < count; ++index) {
    if (LastSegment(names[index]) == "unknown") {
      Of(handle).Log(5, "Invalid identifier.");
      results[index] = 6;
      result = 1;
      continue;
    }
    Of(handle).Subscribe(names[index]);
    results[index] = 2;
  }
  Of(handle).StartTicking(std::chrono::milliseconds(intervalMs));
  return result;
}

EXPORT int UnsubscribeItems(int count, const char* const* names, void* handle) {
  Enter("UnsubscribeItems");
  Trace("unsubscribe " + std::to_string(count));
  for (int index = 0; index < count; ++index) {
    Of(handle).Unsubscribe(names[index]);
  }
  return 0;
}

#ifndef ZOFAKE_WITHOUT_CALL
EXPORT int CallMethod(const void* token, const void*, const char* method, const char* arguments,
                      void* handle) {
  Enter("CallMethod");
  Trace(std::string("call ") + method + " " + arguments);
  if (std::strcmp(method, "Echo") == 0) {
    Of(handle).Answer(token, arguments);
    return 0;
  }
  if (std::strcmp(method, "Read") == 0 && !Of(handle).Offline()) {
    const std::string text(arguments);
    const auto at = text.find("\"uri\":\"") + 7;
    Of(handle).Answer(token, ReadAnswer(text.substr(at, text.find('"', at) - at)));
    return 0;
  }
  return 1;
}
#endif
