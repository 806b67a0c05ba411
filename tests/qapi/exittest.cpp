// What becomes of threads when the process ends, seen from outside.

#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "tests/support/childprocess.h"

namespace {

void ExpectOutput(const char* scenario, int exitCode, const std::string& output) {
  const ZoTest::ChildResult child = ZoTest::RunInChild([scenario] {
    execl(ZOIO_EXIT_SCENARIOS, ZOIO_EXIT_SCENARIOS, scenario, nullptr);
    FAIL() << "cannot run " ZOIO_EXIT_SCENARIOS;
  });
  ASSERT_TRUE(child.finished) << child.Describe();
  EXPECT_EQ(child.exitCode, exitCode) << child.Describe();
  EXPECT_EQ(child.output, output) << child.Describe();
}

TEST(ProcessExit, JoinsAStraggler) {
  ExpectOutput("straggler", 0, "last static destroyed\nthread ended\nfirst static destroyed\n");
}

TEST(ProcessExit, JoinsAThreadWhoseJoinTimedOut) {
  ExpectOutput("timed-out-join", 0, "last static destroyed\nthread ended\nfirst static destroyed\n");
}

TEST(ProcessExit, WakesASleepingStraggler) {
  ExpectOutput("sleeping-straggler", 0, "last static destroyed\nthread ended\nfirst static destroyed\n");
}

TEST(ProcessExit, JoinsAnAdoptedThread) {
  ExpectOutput("adopted", 0, "last static destroyed\nthread ended\nfirst static destroyed\n");
}

TEST(ProcessExit, MayBeCalledByAStraggler) {
  ExpectOutput("straggler-exits", 7, "last static destroyed\nfirst static destroyed\n");
}

TEST(ProcessExit, MayBeCalledByAnAdoptedThread) {
  ExpectOutput("adopted-exits", 7, "last static destroyed\nfirst static destroyed\n");
}

TEST(ProcessExit, MayBeCalledByAThreadWithAHandle) {
  ExpectOutput("owned-thread-exits", 7, "last static destroyed\nthread ended\nfirst static destroyed\n");
}

TEST(ProcessExit, HandleDestroyedAfterTheLibraryWaitsForItsThread) {
  ExpectOutput("late-handle", 0,
               "last static destroyed\nfirst static destroyed\nthread ended\nlate handle destroyed\n");
}

TEST(ProcessExit, HandleDestroyedAfterTheLibraryWakesItsThread) {
  ExpectOutput("late-sleeping-handle", 0,
               "last static destroyed\nfirst static destroyed\nthread ended\nlate handle destroyed\n");
}

TEST(ProcessExit, ForkedChildDoesNotWaitForItsParentsThreads) {
  ExpectOutput("fork", 0,
               "last static destroyed\nfirst static destroyed\nchild exited\n"
               "last static destroyed\nthread ended\nfirst static destroyed\n");
}

}  // namespace
