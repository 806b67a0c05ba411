// What is left of a fault report when memory runs out.

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <new>
#include <string>

#include "qapi/testing.h"
#include "tests/qapi/failingnew.h"
#include "zoapi/exception.h"
#include "zoapi/logging.h"
#include "zoapi/threads/locker.h"

namespace {

using ZoTest::FailingNew;

// The lines of the entries, in a plain array: a sink that allocates would fail with the rest. What says that a
// destructor failed is counted by its text, too.
struct Lines {
  int lines[8] = {};
  int destructors = 0;
  int count = 0;
};

class OutOfMemory : public testing::Test {
 protected:
  OutOfMemory() {
    Zo::Logging::SetDebugLogSink([this](const Zo::Logging::DebugLogEntry& entry) {
      if (logged.count < 8) {
        logged.lines[logged.count] = entry.line;
      }
      ++logged.count;
      logged.destructors += std::strcmp(entry.text, "Exception thrown in destructor") == 0 ? 1 : 0;
    });
  }
  ~OutOfMemory() override {
    qTest_Reset();
    Zo::Logging::SetDebugLogSink({});
  }

  Lines logged;
};

// Nothing leaves the destructor, whichever allocation of the report fails, and the fault itself is always
// logged.
TEST_F(OutOfMemory, LockerReportsAFailedExitAllTheSame) {
  Zo::Lock lock;
  ASSERT_EQ(qLock_Construct(lock.Out(), "lock", 0), qStatus_Success);
  int nth = 1;
  for (bool hasFailed = true; hasFailed; ++nth) {
    ASSERT_LT(nth, 100) << "the failures do not end";
    logged = {};
    {
      auto locker = std::make_unique<Zo::Locker>(lock);
      qTest_FailOperation(qOperation::LockExit, 1, qStatus_System);
      const FailingNew failing(nth);
      locker.reset();
      hasFailed = failing.HasFailed();
    }
    ASSERT_GE(logged.count, 1) << "allocation " << nth;
    EXPECT_EQ(logged.lines[0], 59) << "allocation " << nth;
    EXPECT_EQ(logged.destructors, 1) << "allocation " << nth;
    if (!hasFailed) {
      EXPECT_EQ(logged.count, 3);
      EXPECT_EQ(logged.lines[1], 54);
      EXPECT_EQ(logged.lines[2], 54);
    }
  }
  EXPECT_GT(nth, 2) << "no allocation failed";
}

TEST_F(OutOfMemory, ExceptionIsLoggedAllTheSame) {
  const Zo::Exception exception(12, "source", qStatus_Failure, "Function", std::string(100, 'm'));
  bool hasFailed = true;
  int nth = 1;
  for (; hasFailed; ++nth) {
    ASSERT_LT(nth, 100) << "the failures do not end";
    logged = {};
    const FailingNew failing(nth);
    Zo::Exception::LogException(exception, 0);
    Zo::Exception::LogBackTrace(exception);
    hasFailed = failing.HasFailed();
    EXPECT_EQ(logged.count, 2);
    EXPECT_EQ(logged.lines[0], 12);
  }
  EXPECT_GT(nth, 2) << "no allocation failed";
}

TEST_F(OutOfMemory, ExceptionThatCannotBeMadeIsABadAlloc) {
  bool hasFailed = true;
  for (int nth = 1; hasFailed; ++nth) {
    ASSERT_LT(nth, 100) << "the failures do not end";
    const std::ptrdiff_t before = ZoTest::LiveAllocations();
    const FailingNew failing(nth);
    try {
      const Zo::Exception exception(1, "a source with a long name", qStatus_Failure,
                                    "A::Function::With::ALongName", std::string(100, 'm'));
    } catch (const std::bad_alloc&) {
      EXPECT_TRUE(failing.HasFailed());
    }
    hasFailed = failing.HasFailed();
    EXPECT_EQ(ZoTest::LiveAllocations(), before);
  }
}

}  // namespace
