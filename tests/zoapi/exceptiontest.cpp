#include "zoapi/exception.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <exception>
#include <string>
#include <type_traits>
#include <utility>

#include "tests/zoapi/debuglogrecorder.h"

namespace {

using testing::HasSubstr;
using Zo::Exception;

TEST(Exception, CarriesWhereItWasRaisedAndWhy) {
  const Exception exception(47, "some/source", qStatus_TimeOut, "Some::Function", "more");
  EXPECT_EQ(exception.Line(), 47);
  EXPECT_EQ(exception.Source(), "some/source");
  EXPECT_EQ(exception.Status(), qStatus_TimeOut);
  EXPECT_EQ(exception.Function(), "Some::Function");
  EXPECT_EQ(exception.Message(), "more");
}

TEST(Exception, WhatIsASentenceOfAllOfIt) {
  EXPECT_STREQ(Exception(47, "some/source", qStatus_TimeOut, "Some::Function", "more").what(),
               "Some::Function failed with status -1 (time-out) at some/source:47: more");
  EXPECT_STREQ(Exception(47, "some/source", 4711, "Some::Function").what(),
               "Some::Function failed with status 4711 (unknown status) at some/source:47");
}

TEST(Exception, IsCaughtAsAStandardException) {
  try {
    throw Exception(1, "source", qStatus_Failure, "Function");
  } catch (const std::exception& exception) {
    EXPECT_THAT(exception.what(), HasSubstr("Function failed"));
  }
}

TEST(Exception, NullTextsAreEmpty) {
  const Exception exception(1, nullptr, qStatus_Failure, nullptr);
  EXPECT_EQ(exception.Source(), "");
  EXPECT_EQ(exception.Function(), "");
  EXPECT_THAT(exception.what(), HasSubstr("status 0 (failure)"));
}

TEST(Exception, CopyingNeverRaises) {
  static_assert(std::is_nothrow_copy_constructible_v<Exception>);
  static_assert(std::is_nothrow_copy_assignable_v<Exception>);
  static_assert(std::is_nothrow_move_constructible_v<Exception>);
  static_assert(std::is_nothrow_move_assignable_v<Exception>);
  const Exception original(1, "source", qStatus_Failure, "Function", "message");
  const Exception copy = original;
  EXPECT_STREQ(copy.what(), original.what());
}

TEST(Exception, CopyOutlivesTheOriginal) {
  std::exception_ptr kept;
  Exception assigned(2, "other", qStatus_System, "Other");
  {
    const Exception original(1, "source", qStatus_Failure, "Function", std::string(1000, 'm'));
    kept = std::make_exception_ptr(original);
    assigned = original;
  }
  EXPECT_EQ(assigned.Line(), 1);
  EXPECT_EQ(assigned.Message(), std::string(1000, 'm'));
  EXPECT_THROW(std::rethrow_exception(kept), Exception);
}

TEST(Exception, MovedFromExceptionIsStillWhole) {
  Exception original(1, "source", qStatus_Failure, "Function", "message");
  const Exception moved = std::move(original);
  EXPECT_STREQ(original.what(), moved.what());  // NOLINT(bugprone-use-after-move): that is what is tested
}

TEST(Exception, CheckRaisesForEveryStatusButSuccess) {
  EXPECT_NO_THROW(Zo::Check(qStatus_Success, 1, "source", "Function"));
  for (const qStatus status : {qStatus_Failure, qStatus_TimeOut, qStatus_WrongState, 2, -4711}) {
    try {
      Zo::Check(status, 12, "source", "Function");
      ADD_FAILURE() << status;
    } catch (const Exception& exception) {
      EXPECT_EQ(exception.Status(), status);
      EXPECT_EQ(exception.Line(), 12);
      EXPECT_EQ(exception.Source(), "source");
      EXPECT_EQ(exception.Function(), "Function");
      EXPECT_EQ(exception.Message(), "");
    }
  }
}

TEST(Exception, IsLoggedAsOneLine) {
  const ZoTest::DebugLogRecorder log;
  const Exception exception(12, "source", qStatus_Failure, "Function", "first\nsecond\r\nthird");
  Exception::LogException(exception, 0);
  ASSERT_EQ(log.Entries().size(), 1u);
  EXPECT_EQ(log.Entries()[0].line, 12);
  EXPECT_EQ(log.Entries()[0].source, "source");
  EXPECT_EQ(log.Entries()[0].flags, 0u);
  EXPECT_EQ(log.Entries()[0].function, "Function");
  EXPECT_EQ(log.Entries()[0].text,
            "Function failed with status 0 (failure) at source:12: first second  third");
}

TEST(Exception, OtherFlagsAreHandedOnAndLeaveTheText) {
  const ZoTest::DebugLogRecorder log;
  const Exception exception(12, "source", qStatus_Failure, "Function", "first\nsecond");
  Exception::LogException(exception, 5);
  ASSERT_EQ(log.Entries().size(), 1u);
  EXPECT_EQ(log.Entries()[0].flags, 5u);
  EXPECT_EQ(log.Entries()[0].text, exception.what());
}

TEST(Exception, BackTraceNamesThePlace) {
  const ZoTest::DebugLogRecorder log;
  Exception::LogBackTrace(Exception(12, "some/source", qStatus_Failure, "Some::Function"));
  ASSERT_EQ(log.Entries().size(), 1u);
  EXPECT_EQ(log.Entries()[0].line, 12);
  EXPECT_EQ(log.Entries()[0].text, "  at Some::Function (some/source:12)");
}

TEST(Exception, BackTraceIsALineOfTheExceptionsSourceAndFunctionWithoutFlags) {
  const ZoTest::DebugLogRecorder log;
  Exception::LogBackTrace(Exception(12, "some/source", qStatus_Failure, "Some::Function"));
  ASSERT_EQ(log.Entries().size(), 1u);
  EXPECT_EQ(log.Entries()[0].source, "some/source");
  EXPECT_EQ(log.Entries()[0].flags, 0u);
  EXPECT_EQ(log.Entries()[0].function, "Some::Function");
}

TEST(Exception, BackTraceOfALongNameIsCut) {
  const ZoTest::DebugLogRecorder log;
  const std::string name(1000, 'f');
  Exception::LogBackTrace(Exception(12, "some/source", qStatus_Failure, name.c_str()));
  ASSERT_EQ(log.Entries().size(), 1u);
  EXPECT_EQ(log.Entries()[0].text, ("  at " + name).substr(0, 511));
  EXPECT_EQ(log.Entries()[0].function, name);
}

}  // namespace
