// A sensor that pushes as much as the socket takes.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <iostream>
#include <string>
#include <thread>

#include "tests/sdk/fakesensor.h"
#include "tests/support/memorynow.h"
#include "tests/vyrnclient/eventually.h"
#include "tests/wire/wiretest.h"

namespace ZoTest {
namespace {

class Flood : public WireTest {};

TEST_F(Flood, OfHugeDocumentsCostsBoundedMemoryWhichIsGivenBack) {
  constexpr std::size_t size = std::size_t{8} << 20;
  FakeSensor sensor;
  void* const handle = Connect(sensor.Port());
  EXPECT_EQ(Subscribe(handle, {"/huge#/value"}), 0);
  ASSERT_TRUE(sensor.WaitForRequest("startStream", "/huge"));
  const std::string head = R"({"event":"stream","uri":"/huge","payload":{"value":)";
  const std::string tail = R"(,"text":")" + std::string(size, 'x') + "\"}}";
  std::size_t peak = 0;
  const std::size_t before = MemoryNow();
  std::int64_t pushes = 0;
  // Long enough to fill a history without a limit: some tens of documents a second come through, and a few where a
  // sanitizer reads along.
  const Deadline flood(std::chrono::seconds(4));
  while (!flood.Expired() || pushes <= 8) {
    ASSERT_TRUE(sensor.Push(head + std::to_string(++pushes) + tail));
    peak = std::max(peak, MemoryNow());
  }
  EXPECT_TRUE(recorder.WaitForEntry(IsInteger("/huge#/value", pushes))) << "the newest is not lost";
  std::cout << pushes << " documents of 8 MiB, at most " << (peak - std::min(peak, before)) / (1 << 20)
            << " MiB more\n";
  EXPECT_GT(pushes, 8) << "too few to show anything";
  EXPECT_EQ(Destroy(handle), 0);
  if (!kSanitized) {  // sanitizers keep freed memory
    EXPECT_LT(peak, before + (std::size_t{256} << 20));
    EXPECT_TRUE(Eventually([&] { return MemoryNow() < before + (std::size_t{32} << 20); })) << MemoryNow();
  }
}

}  // namespace
}  // namespace ZoTest
