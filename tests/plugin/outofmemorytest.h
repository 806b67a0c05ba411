// The fixture of tests in which any one allocation of the calling thread fails inside an export.
//
// Threads: the test's. The program must replace operator new (tests/qapi/failingnew.h).
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <functional>
#include <string>

#include "tests/qapi/failingnew.h"
#include "tests/support/countinghost.h"
#include "tests/support/pluginlibrary.h"
#include "tests/vyrnclient/eventually.h"

namespace ZoTest {

class OutOfMemory : public ::testing::Test {
 protected:
  // More allocations than any export makes.
  static constexpr int most = 5000;
  // What stands where a handle goes, as long as nothing is written there.
  static inline int untouchedTarget = 0;
  static inline void* const untouchedHandle = &untouchedTarget;

  struct Creation {
    int result = -1;
    void* handle = untouchedHandle;
    bool failed = false;  // whether an allocation did
  };

  // Creates an instance while its nth allocation fails, in a plug-in that may be fresh.
  Creation Create(const PluginLibrary& plugin, int nth, const char* address = "simulator",
                  unsigned short port = 0) {
    const ioHandlerParam param = host.Param();
    Creation creation;
    const FailingNew failing(nth);
    creation.result = plugin.createIoInstance(address, port, &param, &creation.handle);
    creation.failed = failing.HasFailed();
    return creation;
  }

  // Lets one allocation after the other fail; round gets the number and says whether an allocation did fail.
  static int FailEach(const std::function<bool(int)>& round) {
    for (int nth = 1; nth < most && !HasFatalFailure(); ++nth) {
      SCOPED_TRACE("allocation " + std::to_string(nth));
      if (!round(nth)) {
        RecordProperty("allocations", nth - 1);
        return nth - 1;
      }
    }
    ADD_FAILURE() << "no end of allocations";
    return most;
  }

  // Either a handle or 1 and none.
  static void ExpectWholeOrRefused(const Creation& creation) {
    if (creation.result == 0) {
      EXPECT_NE(creation.handle, untouchedHandle);
    } else {
      EXPECT_EQ(creation.result, 1);
      EXPECT_EQ(creation.handle, untouchedHandle);
      EXPECT_TRUE(creation.failed) << "refused without a reason";
    }
  }

  void ExpectWorks(const PluginLibrary& plugin, void* handle) {
    const int before = host.values;
    EXPECT_EQ(plugin.readItem("/r#/int", handle), 0);
    EXPECT_GT(host.values, before);
  }

  // What the threads of an instance that is gone held is given back by now or very soon.
  static void ExpectNothingKept(std::ptrdiff_t blocks) {
    EXPECT_TRUE(Eventually([&] { return LiveAllocations() == blocks; }, std::chrono::seconds(5)))
        << LiveAllocations() - blocks << " blocks more";
  }

  CountingHost host;
};

}  // namespace ZoTest
