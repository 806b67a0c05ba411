#include "qapi/status.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

namespace {

TEST(Status, SuccessIsOneAndNoFailureIs) {
  EXPECT_EQ(qStatus_Success, 1);
  for (const qStatus failure : {qStatus_Failure, qStatus_TimeOut, qStatus_InvalidArgument,
                                qStatus_OutOfMemory, qStatus_System, qStatus_Deadlock, qStatus_WrongState}) {
    EXPECT_NE(failure, qStatus_Success);
  }
}

TEST(Status, EveryStatusHasATextOfItsOwn) {
  std::set<std::string> texts;
  const auto statuses = {qStatus_Success,     qStatus_Failure, qStatus_TimeOut,  qStatus_InvalidArgument,
                         qStatus_OutOfMemory, qStatus_System,  qStatus_Deadlock, qStatus_WrongState};
  for (const qStatus status : statuses) {
    texts.insert(qStatus_Text(status));
  }
  EXPECT_EQ(texts.size(), statuses.size());
  EXPECT_EQ(texts.count(""), 0u);
  EXPECT_STREQ(qStatus_Text(qStatus_TimeOut), "time-out");
}

TEST(Status, ForeignNumberHasAText) {
  EXPECT_STREQ(qStatus_Text(4711), "unknown status");
  EXPECT_STREQ(qStatus_Text(-4711), "unknown status");
}

}  // namespace
