// The fixture of the plug-in's tests: a loaded plug-in, a recording host, and verbs with the arguments that
// tests rarely vary.
//
// Threads: the verbs may be used from any thread; Create and Destroy keep their list under a lock.
// Owner: destroys the instances that a test leaves, then unloads.
#pragma once

#include <gtest/gtest.h>

#include <mutex>
#include <string>
#include <vector>

#include "tests/support/hostvalue.h"
#include "tests/support/pluginlibrary.h"
#include "tests/support/recorder.h"

namespace ZoTest {

// Matchers on recorded values.
Recorder::Matcher IsInteger(std::string item, std::int64_t number);
Recorder::Matcher IsIntegerIn(std::string item, std::int64_t least, std::int64_t most);
Recorder::Matcher IsText(std::string item, std::string text);
Recorder::Matcher IsOfType(std::string item, enumtype type);

// The values of an item with repetitions taken out. following is false where so much time lies between two
// pushes that a value may have gone by unseen.
struct Step {
  Entry entry;
  bool following = true;
};
std::vector<Step> StepsOf(const Recorder::Entries& values);

class PluginTest : public ::testing::Test {
 protected:
  ~PluginTest() override;

  // Makes an instance whose host is recorder (or another one); fails the test when that fails.
  void* Create(const std::string& address = "simulator", unsigned short port = 0);
  void* Create(const std::string& address, unsigned short port, const ioHandlerParam& param);
  int Destroy(void* handle);

  int Read(void* handle, const std::string& name) { return plugin.readItem(name.c_str(), handle); }
  int Write(void* handle, const std::string& name, const ioDataValue& value) {
    return plugin.writeItem(name.c_str(), &value, 0, handle);
  }
  int Subscribe(void* handle, const std::vector<std::string>& names, long long interval = 100,
                std::vector<int>* results = nullptr) {
    return ZoTest::Subscribe(plugin, handle, interval, names, results);
  }
  int Unsubscribe(void* handle, const std::vector<std::string>& names) {
    return ZoTest::Unsubscribe(plugin, handle, names);
  }
  int Call(void* handle, const std::string& method, const std::string& arguments,
           const void* token = nullptr) {
    return plugin.callMethod(token, nullptr, method.c_str(), arguments.c_str(), handle);
  }

  Recorder recorder;  // before the plug-in: unloading may still log
  PluginLibrary plugin;

 private:
  std::mutex mutex;
  std::vector<void*> live;  // guarded by mutex
};

}  // namespace ZoTest
