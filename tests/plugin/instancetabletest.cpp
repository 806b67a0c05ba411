// The table of instances behind the exports, linked instead of loaded.
#include <gtest/gtest.h>

#include <memory>
#include <utility>
#include <vector>

#include "qapi/testing.h"
#include "tests/support/childprocess.h"
#include "tests/support/recorder.h"
#include "zoiohandler/iohandler.h"

namespace ZoTest {
namespace {

using ZoIO::IoHandler;
using ZoIO::ZoVyrnClient;

constexpr const char* ending = "Destroying ZoIoHandler instance.";

std::unique_ptr<ZoVyrnClient> MakeInstance(Recorder& recorder) {
  return std::make_unique<ZoVyrnClient>("simulator", 0, recorder.Param());
}

class InstanceTable : public ::testing::Test {
 protected:
  ZoVyrnClient* Insert(Recorder& recorder) {
    auto instance = MakeInstance(recorder);
    ZoVyrnClient* const handle = instance.get();
    table->Insert(std::move(instance));
    return handle;
  }

  Recorder first;
  Recorder second;
  std::unique_ptr<IoHandler> table = std::make_unique<IoHandler>();
};

TEST_F(InstanceTable, FindsAnInstanceByItsAddressAlone) {
  EXPECT_EQ(table->Find(nullptr), nullptr);
  EXPECT_EQ(table->Find(this), nullptr);
  ZoVyrnClient* const a = Insert(first);
  ZoVyrnClient* const b = Insert(second);
  EXPECT_EQ(table->Find(a), a);
  EXPECT_EQ(table->Find(b), b);
  EXPECT_EQ(table->Find(reinterpret_cast<char*>(a) + 1), nullptr);
  EXPECT_EQ(table->Find(nullptr), nullptr);
}

TEST_F(InstanceTable, EraseDestroysTheInstanceAndNoOther) {
  ZoVyrnClient* const a = Insert(first);
  ZoVyrnClient* const b = Insert(second);
  table->Erase(a);
  EXPECT_EQ(first.CountMessages(ending), 1u);
  EXPECT_EQ(second.CountMessages(ending), 0u);
  EXPECT_EQ(table->Find(a), nullptr);
  EXPECT_EQ(table->Find(b), b);
}

TEST_F(InstanceTable, ErasingWhatIsNotThereDoesNothing) {
  ZoVyrnClient* const a = Insert(first);
  table->Erase(nullptr);
  table->Erase(this);
  EXPECT_EQ(table->Find(a), a);
  EXPECT_EQ(first.CountMessages(ending), 0u);
}

TEST_F(InstanceTable, DestroysWhatIsLeftWhenItEnds) {
  Insert(first);
  Insert(second);
  table.reset();
  EXPECT_EQ(first.CountMessages(ending), 1u);
  EXPECT_EQ(second.CountMessages(ending), 1u);
}

TEST_F(InstanceTable, BaseLibrarysHandleGoesBeforeTheInstancesThatAreLeft) {
  std::vector<std::uint64_t> objects;
  const Recorder::Hook count = [&objects](const Entry& entry) {
    if (entry.message == ending) {
      objects.push_back(qTest_LiveObjects());
    }
  };
  first.OnLog(count);
  second.OnLog(count);
  Insert(first);
  Insert(second);
  const std::uint64_t before = qTest_LiveObjects();
  table.reset();
  ASSERT_EQ(objects.size(), 2u);
  EXPECT_EQ(objects[0], before - 1);
  EXPECT_LT(objects[1], objects[0]);
}

TEST_F(InstanceTable, WithoutTheBaseLibrarysHandleItServesAndEndsAllTheSame) {
  table.reset();
  const std::uint64_t empty = qTest_LiveObjects();
  qTest_FailOperation(qOperation::LibraryConstruct, 1, qStatus_OutOfMemory);
  table = std::make_unique<IoHandler>();
  EXPECT_EQ(qTest_FailureCount(), 1u);
  qTest_Reset();
  EXPECT_EQ(qTest_LiveObjects(), empty);
  EXPECT_STREQ(table->Info().name, "ZoIoHandler");

  ZoVyrnClient* const handle = Insert(first);
  EXPECT_EQ(table->Find(handle), handle);
  EXPECT_EQ(handle->Read("res#"), 0);
  const std::uint64_t before = qTest_LiveObjects();
  std::uint64_t atEnding = 0;
  first.OnLog([&atEnding](const Entry& entry) {
    if (entry.message == ending) {
      atEnding = qTest_LiveObjects();
    }
  });
  table.reset();
  EXPECT_EQ(atEnding, before);
  EXPECT_EQ(first.CountMessages(ending), 1u);
  EXPECT_EQ(qTest_LiveObjects(), empty);
}

// A key is the address of a live instance, so two instances never have the same one; only a second owner of
// one instance can bring it again. That is the end of the one that was there. In a child, because the entry
// refers to an instance that is gone then.
TEST_F(InstanceTable, KeyThatComesAgainReplacesAndDestroysTheInstanceOfBefore) {
  const ChildResult child = RunInChild([] {
    Recorder recorder;
    Recorder others;
    auto* const table = new IoHandler;
    auto other = MakeInstance(others);
    const ZoVyrnClient* const otherHandle = other.get();
    table->Insert(std::move(other));
    auto instance = MakeInstance(recorder);
    ZoVyrnClient* const handle = instance.get();
    table->Insert(std::move(instance));
    EXPECT_EQ(recorder.CountMessages(ending), 0u);

    table->Insert(std::unique_ptr<ZoVyrnClient>(handle));
    EXPECT_EQ(recorder.CountMessages(ending), 1u);
    EXPECT_EQ(table->Find(handle), handle);
    EXPECT_EQ(others.CountMessages(ending), 0u);
    EXPECT_EQ(table->Find(otherHandle), otherHandle);
  });
  EXPECT_TRUE(child.Succeeded()) << child.Describe();
}

}  // namespace
}  // namespace ZoTest
