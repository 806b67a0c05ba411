// The scoped lock's faults.
#include <chrono>
#include <thread>

#include "tests/vyrnclient/faulttest.h"
#include "zoapi/threads/locker.h"

namespace ZoTest {
namespace {

constexpr const char* lockerSource = "zoapi/zoapi/threads/locker";

class LockerFaults : public FaultTest {
 protected:
  LockerFaults() { qLock_Construct(lock.Out(), "test", 0); }
  ~LockerFaults() override { lock.Reset(); }

  Zo::Lock lock;
};

void ExpectRaised(const std::optional<Zo::Exception>& raised, int line, qStatus status) {
  ASSERT_TRUE(raised);
  EXPECT_EQ(raised->Line(), line);
  EXPECT_EQ(raised->Source(), lockerSource);
  EXPECT_EQ(raised->Status(), status);
  EXPECT_EQ(raised->Function(), "Zo::Locker::Locker");
  EXPECT_EQ(raised->Message(), "");
}

TEST_F(LockerFaults, EnterThatFailsIsReportedAtLine36) {
  qTest_FailOperation(qOperation::LockEnter, 1, qStatus_System);
  ExpectRaised(Raised([&] { Zo::Locker held(lock); }), 36, qStatus_System);
}

TEST_F(LockerFaults, EnterWithALimitThatFailsIsReportedAtLine40) {
  qTest_FailOperation(qOperation::LockEnterEx, 1, qStatus_Deadlock);
  ExpectRaised(Raised([&] { Zo::Locker held(lock, 1000); }), 40, qStatus_Deadlock);
}

TEST_F(LockerFaults, EnterWithALimitThatRunsOutIsReportedAtLine40) {
  Zo::Locker held(lock);
  std::optional<Zo::Exception> raised;
  std::thread other(
      [&]() Q_NO_THREAD_SAFETY_ANALYSIS { raised = Raised([&] { Zo::Locker late(lock, 1000); }); });
  other.join();
  ExpectRaised(raised, 40, qStatus_TimeOut);
}

TEST_F(LockerFaults, EnteringTwiceIsReportedInsteadOfBlocking) {
  Zo::Locker held(lock);
  ExpectRaised(Raised([&]() Q_NO_THREAD_SAFETY_ANALYSIS { Zo::Locker again(lock); }), 36, qStatus_Deadlock);
}

TEST_F(LockerFaults, NullLockIsReported) {
  Zo::Lock none;
  ExpectRaised(Raised([&] { Zo::Locker held(none); }), 36, qStatus_InvalidArgument);
}

TEST_F(LockerFaults, ExitThatFailsIsReportedToTheDebugLogAlone) {
  {
    Zo::Locker held(lock);
    qTest_FailOperation(qOperation::LockExit, 1, qStatus_System);
  }
  const std::vector<DebugLine> lines = DebugLines();
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_EQ(lines[0].line, 59);
  EXPECT_EQ(lines[0].source, lockerSource);
  EXPECT_EQ(lines[0].flags, 0x8000000000000002U);
  EXPECT_EQ(lines[0].function, "Zo::Locker::~Locker");
  EXPECT_EQ(lines[0].text, "Exception thrown in destructor");
  // The exception itself, and where it came from.
  EXPECT_EQ(lines[1].line, 54);
  EXPECT_EQ(lines[1].function, "Zo::Locker::~Locker");
  EXPECT_EQ(lines[1].text, FailureText(54, lockerSource, qStatus_System, "Zo::Locker::~Locker"));
  EXPECT_EQ(lines[2].line, 54);
}

TEST_F(LockerFaults, MovedFromLockerDoesNothing) {
  {
    Zo::Locker first(lock);
    Zo::Locker second(std::move(first));
  }
  EXPECT_TRUE(DebugLines().empty());
  EXPECT_FALSE(Raised([&] { Zo::Locker held(lock, 0); }));
}

}  // namespace
}  // namespace ZoTest
