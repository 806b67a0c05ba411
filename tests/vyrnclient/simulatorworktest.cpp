// What a pass over many items of one resource costs, in memory asked for: it grows with the items, not with their
// square. That bounds the work, too: a copied document is memory that was asked for.
#include <gtest/gtest.h>

#include <string>

#include "tests/vyrnclient/bytesasked.h"
#include "tests/vyrnclient/simulatortest.h"

namespace ZoTest {
namespace {

class SimulatorWork : public SimulatorTest {
 protected:
  // Bytes for each item, of a pass.
  std::size_t Cost() {
    const std::size_t before = BytesAsked();
    Pass();
    return (BytesAsked() - before) / items;
  }

  static constexpr std::size_t items = 20'000;
  // A copied member costs about a hundred bytes. A copy for each item would be two million.
  static constexpr std::size_t limit = 5'000;
};

TEST_F(SimulatorWork, OfManyNewItemsOfOneResourceGrowsWithTheItems) {
  for (std::size_t i = 0; i < items; ++i) {
    Register("/r#/int" + std::to_string(i));
  }
  EXPECT_LT(Cost(), limit);  // all are new
  EXPECT_LT(Cost(), limit);  // all change
  Pass();
  // The newest document, which is of the last millisecond of the pass at the latest, shows what was done before it.
  EXPECT_EQ(Cached("/r").Size(), items);
  // The next pass shows all that this one did.
  for (std::size_t i = 0; i < items; ++i) {
    ASSERT_GE(Cached("/r").At("/int" + std::to_string(i)).Get<int>(), 1) << i;
  }
}

TEST_F(SimulatorWork, OfManyItemsInTurnsOfManyResourcesGrowsWithTheItems) {
  for (std::size_t i = 0; i < items; ++i) {
    Register("/r" + std::to_string(i % 10) + "#/int" + std::to_string(i));
  }
  EXPECT_LT(Cost(), limit);
  EXPECT_LT(Cost(), limit);
}

TEST_F(SimulatorWork, OfManyNewItemsInObjectsOfTheirOwnGrowsWithTheItems) {
  for (std::size_t i = 0; i < items; ++i) {
    Register("/r#/a/b" + std::to_string(i) + "/c/int");
  }
  simulator.Update("/r", ZoJson(R"({"a":{}})"), true);
  EXPECT_LT(Cost(), limit);
  EXPECT_LT(Cost(), limit);
}

}  // namespace
}  // namespace ZoTest
