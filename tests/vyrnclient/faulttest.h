// The fixture of tests that make base-library operations fail. What a faulty run writes to the debug log is
// kept.
#pragma once

#include <gtest/gtest.h>

#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "qapi/testing.h"
#include "tests/vyrnclient/eventually.h"
#include "zoapi/exception.h"
#include "zoapi/logging.h"

namespace ZoTest {

// A debug log entry that outlives its call.
struct DebugLine {
  int line;
  std::string source;
  std::uint64_t flags;
  std::string function;
  std::string text;
};

class FaultTest : public ::testing::Test {
 protected:
  FaultTest() {
    qTest_Reset();
    objects = qTest_LiveObjects();
    Zo::Logging::SetDebugLogSink([this](const Zo::Logging::DebugLogEntry& entry) {
      std::lock_guard lock(mutex);
      debugLines.push_back({entry.line, entry.source, entry.flags, entry.function, entry.text});
    });
  }
  ~FaultTest() override {
    qTest_Reset();
    // Threads that outlived a failed join end by themselves, and must not write to a sink that is gone.
    EXPECT_TRUE(NothingIsLeft());
    Zo::Logging::SetDebugLogSink({});
  }

  // True once every object made since the test began is gone.
  bool NothingIsLeft() {
    return Eventually([this] { return qTest_LiveObjects() == objects; });
  }

  // The exception that body raises.
  template <typename Body>
  std::optional<Zo::Exception> Raised(const Body& body) {
    try {
      body();
    } catch (const Zo::Exception& exception) {
      return exception;
    }
    return std::nullopt;
  }

  std::vector<DebugLine> DebugLines() {
    std::lock_guard lock(mutex);
    return debugLines;
  }

  std::uint64_t objects = 0;

 private:
  std::mutex mutex;
  std::vector<DebugLine> debugLines;
};

// The text under which a failure is logged.
inline std::string FailureText(int line, const char* source, qStatus status, const char* function) {
  return Zo::Exception(line, source, status, function).what();
}

}  // namespace ZoTest
