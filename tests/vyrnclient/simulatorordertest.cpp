// The walk of a pass: its order, and what an item that fails does to it and to the document.
#include <algorithm>
#include <functional>

#include "tests/vyrnclient/simulatortest.h"

namespace ZoTest {
namespace {

std::string TextOf(const std::function<void()>& operation) {
  try {
    operation();
  } catch (const std::exception& e) {
    return e.what();
  }
  return "nothing was raised";
}

class SimulatorOrder : public SimulatorTest {
 protected:
  // The resources of the registered items in the order of the registry's map.
  std::vector<std::string> Walk() {
    std::vector<std::string> uris;
    for (const auto& [name, item] : simulator.PLC()->Items()) {
      uris.push_back(item.uri);
    }
    return uris;
  }
  std::string TextOfPass() {
    return TextOf([this] { Pass(); });
  }
  void Update(const std::string& uri, const std::string& text) { simulator.Update(uri, ZoJson(text), true); }
};

TEST_F(SimulatorOrder, ItemThatFailsEndsThePassBetweenThoseBeforeAndThoseBehindItInTheRegistry) {
  constexpr int count = 9;
  for (int i = 0; i < count; ++i) {
    Register("/" + std::to_string(i) + "#/v");
  }
  const std::vector<std::string> walk = Walk();
  ASSERT_EQ(walk.size(), static_cast<std::size_t>(count));
  for (int failing = 0; failing < count; ++failing) {
    const int before = 10 * failing;
    for (int i = 0; i < count; ++i) {
      Update(walk[static_cast<std::size_t>(i)],
             i == failing ? "[]" : R"({"v":)" + std::to_string(before) + "}");
    }
    EXPECT_THROW(Pass(), ZoJsonError);
    Update(walk[static_cast<std::size_t>(failing)], R"({"v":0})");
    Pass();
    // Two steps for those before the one that failed, one for it and those behind.
    for (int i = 0; i < count; ++i) {
      const int expected = i < failing ? before + 2 : i == failing ? 1 : before + 1;
      EXPECT_EQ(Cached(walk[static_cast<std::size_t>(i)]).At("/v"), ZoJson::Of(expected))
          << i << " when " << failing << " fails";
    }
  }
}

// Resources lie in one another where their URIs do, so that two items may have one place in two resources.
TEST_F(SimulatorOrder, ValueThatTwoItemsShareAdvancesForEachAndIsCachedInBothResources) {
  Register("/a#/b/int");
  Register("/a/b#/int");
  const std::vector<std::string> walk = Walk();
  ASSERT_EQ(walk.size(), 2u);
  const auto shown = [this](const std::string& uri) {
    const ZoJson document = Cached(uri);
    EXPECT_EQ(document.Size(), 1u) << document.ToString();
    return document.At(uri == "/a" ? "/b/int" : "/int").Get<int>();
  };
  for (int pass = 0; pass < 3; ++pass) {
    Pass();
    EXPECT_EQ(shown(walk[0]), 2 * pass) << walk[0];
    EXPECT_EQ(shown(walk[1]), 2 * pass + 1) << walk[1];
  }
}

TEST_F(SimulatorOrder, NothingReachesTheCacheFromTheItemThatFailsOn) {
  for (int i = 0; i < 9; ++i) {
    Register("/" + std::to_string(i) + "#/v");
  }
  const std::vector<std::string> walk = Walk();
  Update(walk[4], "[]");
  EXPECT_THROW(Pass(), ZoJsonError);
  for (std::size_t i = 0; i < walk.size(); ++i) {
    EXPECT_EQ(simulator.Cache()->Exists(walk[i]), i < 4) << i;
  }
}

TEST_F(SimulatorOrder, FaultBelowAnArrayIsToldAsSettingThePlaceInTheResourceTellsIt) {
  Register("/list#/x/y");
  Update("/list", "[1,2]");
  const std::string expected = TextOf([] { ZoJson("[1,2]").Set("/x/y", ZoJson()); });
  EXPECT_EQ(expected.find("nothing"), std::string::npos);
  EXPECT_EQ(TextOfPass(), expected);
  EXPECT_EQ(TextOfPass(), expected);
}

TEST_F(SimulatorOrder, FaultOfAResourceBelowAnArrayIsToldAsSettingItsPlaceTellsIt) {
  Register("/list/x#/v");
  Update("/list", "[1,2]");
  EXPECT_EQ(TextOfPass(), TextOf([] { ZoJson(R"({"list":[1,2]})").Set("/list/x", ZoJson()); }));
}

TEST_F(SimulatorOrder, PlaceBehindTheEndOfAnArrayIsToldAsTakingItTellsAndTheArrayDoesNotGrow) {
  Register("/r#/list/-");
  Update("/r", R"({"list":[1,2]})");
  const std::string expected = TextOf([] { ZoJson("{\"list\":[1,2,null]}").At("/list/-"); });
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(TextOfPass(), expected);
  }
}

TEST_F(SimulatorOrder, ResourceBehindTheEndOfAnArrayIsToldLikewiseAndTheArrayDoesNotGrow) {
  Register("/list/-#/v");
  Update("/list", "[1,2]");
  const std::string expected = TextOf([] { ZoJson("{\"list\":[1,2,null]}").At("/list/-"); });
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(TextOfPass(), expected);
  }
}

TEST_F(SimulatorOrder, ItemAtTheEndOfAnArrayBecomesItsNextElement) {
  Register("/r#/list/2/int");
  Register("/list/1#/int");
  Update("/r", R"({"list":[1,2]})");
  Update("/list", "[5]");
  Pass();
  Pass();
  EXPECT_EQ(Cached("/r"), ZoJson(R"({"list":[1,2,{"int":1}]})"));
  EXPECT_EQ(Cached("/list/1"), ZoJson(R"({"int":1})"));
}

TEST_F(SimulatorOrder, CachedDocumentsDoNotChangeAnyMore) {
  Register("/r#/int");
  Pass();
  const ZoJson first = Cached("/r");
  Pass();
  EXPECT_EQ(first, ZoJson(R"({"int":0})"));
  EXPECT_EQ(Cached("/r"), ZoJson(R"({"int":1})"));
}

}  // namespace
}  // namespace ZoTest
