#include "qapi/status.h"

#include <gtest/gtest.h>

#include <map>
#include <string>

namespace {

TEST(Status, SuccessIsOneAndNoFailureIs) {
  EXPECT_EQ(qStatus_Success, 1);
  for (const qStatus failure : {qStatus_Failure, qStatus_TimeOut, qStatus_InvalidArgument,
                                qStatus_OutOfMemory, qStatus_System, qStatus_Deadlock, qStatus_WrongState}) {
    EXPECT_NE(failure, qStatus_Success);
  }
}

// They stand in exceptions and logs, where people search for them.
TEST(Status, EveryStatusHasATextOfItsOwn) {
  const std::map<qStatus, std::string> expected{
      {qStatus_Success, "success"},           {qStatus_Failure, "failure"},
      {qStatus_TimeOut, "time-out"},          {qStatus_InvalidArgument, "invalid argument"},
      {qStatus_OutOfMemory, "out of memory"}, {qStatus_System, "system error"},
      {qStatus_Deadlock, "deadlock"},         {qStatus_WrongState, "wrong state"},
  };
  EXPECT_EQ(expected.size(), 8u);
  for (const auto& [status, text] : expected) {
    EXPECT_EQ(qStatus_Text(status), text);
  }
}

TEST(Status, ForeignNumberHasAText) {
  EXPECT_STREQ(qStatus_Text(4711), "unknown status");
  EXPECT_STREQ(qStatus_Text(-4711), "unknown status");
}

}  // namespace
