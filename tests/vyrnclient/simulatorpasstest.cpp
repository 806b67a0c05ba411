// The simulator, pass by pass.
#include "tests/vyrnclient/simulatortest.h"

namespace ZoTest {
namespace {

using SimulatorPass = SimulatorTest;

TEST_F(SimulatorPass, WithoutItemsNothingIsCached) {
  Pass();
  EXPECT_EQ(simulator.Cache()->Size(), 0u);
}

TEST_F(SimulatorPass, NewItemsGetTheirFirstValues) {
  // A resource each: one resource is cached once a millisecond, after its first item.
  for (const char* kind : {"int", "uint", "float", "bool", "string", "other"}) {
    Register("/" + std::string(kind) + "#/v");
  }
  Pass();
  EXPECT_EQ(Cached("/int"), ZoJson(R"({"v":0})"));
  EXPECT_EQ(Cached("/uint"), ZoJson(R"({"v":0})"));
  EXPECT_EQ(Cached("/float"), ZoJson(R"({"v":0.0})"));
  EXPECT_EQ(Cached("/bool"), ZoJson(R"({"v":false})"));
  EXPECT_EQ(Cached("/string"), ZoJson(R"({"v":"Hello World"})"));
  EXPECT_EQ(Cached("/other"), ZoJson(R"({"v":0})"));
}

TEST_F(SimulatorPass, IntegerCountsTo100AndBackTo0) {
  Register("/uint#/v");
  for (int i = 0; i <= 100; ++i) {
    Pass();
    ASSERT_EQ(Cached("/uint").At("/v"), ZoJson::Of(i));
  }
  Pass();
  EXPECT_EQ(Cached("/uint").At("/v"), ZoJson::Of(0));
  Pass();
  EXPECT_EQ(Cached("/uint").At("/v"), ZoJson::Of(1));
}

TEST_F(SimulatorPass, FloatGrowsByTenths) {
  Register("/float#/v");
  Pass();
  EXPECT_EQ(Cached("/float").At("/v"), ZoJson::Of(0.0));
  Pass();
  EXPECT_EQ(Cached("/float").At("/v"), ZoJson::Of(0.1));
  Pass();
  EXPECT_NEAR(Cached("/float").At("/v").Get<double>(), 0.2, 1e-6);
}

TEST_F(SimulatorPass, FloatThatPasses100GoesOnAsAnInteger) {
  Register("/float#/v");
  simulator.Update("/float", ZoJson(R"({"v":100.95})"), true);
  Pass();
  EXPECT_EQ(Cached("/float").At("/v"), ZoJson::Of(0));
  Pass();
  EXPECT_EQ(Cached("/float").At("/v"), ZoJson::Of(1));
}

TEST_F(SimulatorPass, BooleanAlternates) {
  Register("/bool#/v");
  for (const bool value : {false, true, false, true}) {
    Pass();
    EXPECT_EQ(Cached("/bool").At("/v"), ZoJson::Of(value));
  }
}

TEST_F(SimulatorPass, TextKeepsItsLetters) {
  Register("/string#/v");
  Pass();
  ASSERT_EQ(Cached("/string").At("/v"), ZoJson::Of("Hello World"));
  for (int i = 0; i < 20; ++i) {
    Pass();
    auto text = Cached("/string").At("/v").Get<std::string>();
    for (char& letter : text) {
      letter = static_cast<char>(std::tolower(static_cast<unsigned char>(letter)));
    }
    ASSERT_EQ(text, "hello world");
  }
}

TEST_F(SimulatorPass, ItemsOfOneResourceChangeTogether) {
  Register("/r#/int/a");
  Register("/r#/int/b");
  Register("/r#/float");
  Pass();
  Pass();
  // The next pass shows at least what this one did to every item.
  Pass();
  const ZoJson resource = Cached("/r");
  EXPECT_GE(resource.At("/int/a").Get<int>(), 1);
  EXPECT_GE(resource.At("/int/b").Get<int>(), 1);
  EXPECT_GT(resource.At("/float").Get<double>(), 0.0);
}

TEST_F(SimulatorPass, ItemWithoutHashLiesUnderItsNameInItsResource) {
  Register("/int");
  Pass();
  EXPECT_EQ(Cached("/int"), ZoJson(R"({"int":0})"));
}

TEST_F(SimulatorPass, ItemWithAnEmptyPlaceIsItsResource) {
  Register("/int#");
  Pass();
  EXPECT_EQ(Cached("/int"), ZoJson::Of(0));
  Pass();
  EXPECT_EQ(Cached("/int"), ZoJson::Of(1));
}

TEST_F(SimulatorPass, EncodedBlankIsABlankInTheResource) {
  Register("/r#/an%20int");
  Pass();
  EXPECT_EQ(Cached("/r"), ZoJson(R"({"an int":0})"));
}

TEST_F(SimulatorPass, EmptyUriDoesNotWipeTheOthers) {
  Register("/int#/v");
  Register("#/int");
  for (int i = 0; i < 4; ++i) {
    Pass();
  }
  EXPECT_EQ(Cached("/int").At("/v"), ZoJson::Of(3));
  EXPECT_EQ(Cached("").At("/int"), ZoJson::Of(3));
}

TEST_F(SimulatorPass, ReadReplacesTheResourceUntilTheNextPassRebuildsIt) {
  Register("/int#/v");
  Pass();
  Pass();
  simulator.Read("/int", true);
  Pass();
  EXPECT_EQ(Cached("/int"), ZoJson(R"({"v":0})"));
}

TEST_F(SimulatorPass, UpdateIsWhereTheNextPassGoesOn) {
  Register("/int#/v");
  simulator.Update("/int", ZoJson(R"({"v":41,"w":"stays"})"), true);
  Pass();
  EXPECT_EQ(Cached("/int"), ZoJson(R"({"v":42,"w":"stays"})"));
}

TEST_F(SimulatorPass, CreateEmptiesTheResource) {
  Register("/int#/v");
  simulator.Update("/int", ZoJson(R"({"v":41,"w":1})"), true);
  simulator.Create("/int", ZoJson(R"({"v":7})"), true);
  Pass();
  EXPECT_EQ(Cached("/int"), ZoJson(R"({"v":0})"));
}

TEST_F(SimulatorPass, DeleteRemovesTheResource) {
  Register("/int#/v");
  simulator.Update("/int", ZoJson(R"({"v":41,"w":1})"), true);
  simulator.Delete("/int", true);
  Pass();
  EXPECT_EQ(Cached("/int"), ZoJson(R"({"v":0})"));
}

TEST_F(SimulatorPass, DeletingWhatIsNotThereDoesNothing) {
  EXPECT_TRUE(simulator.Delete("/nothing", true).Empty());
  Register("/int#/v");
  Pass();
  EXPECT_EQ(Cached("/int"), ZoJson(R"({"v":0})"));
}

TEST_F(SimulatorPass, RunningPlaysNoPart) {
  Register("/int#/v");
  Pass();
  simulator.Start();
  Pass();
  simulator.Stop();
  Pass();
  EXPECT_EQ(Cached("/int").At("/v"), ZoJson::Of(2));
}

TEST_F(SimulatorPass, PlaceThatCannotBeEndsThePass) {
  Register("/list#/x");
  simulator.Update("/list", ZoJson("[1,2]"), true);
  EXPECT_THROW(Pass(), ZoJsonError);
  // And the next one is tried like any other.
  simulator.Update("/list", ZoJson("{}"), true);
  EXPECT_NO_THROW(Pass());
  EXPECT_EQ(Cached("/list"), ZoJson(R"({"x":0})"));
}

TEST_F(SimulatorPass, MissingPlacesAreMadeWithoutALine) {
  Register("/a/b/c#/d/e/int");
  recorder.Clear();
  Pass();
  EXPECT_EQ(Cached("/a/b/c"), ZoJson(R"({"d":{"e":{"int":0}}})"));
  EXPECT_EQ(recorder.Size(), 0u);
}

TEST_F(SimulatorPass, ElementOfAnArrayChangesInPlace) {
  Register("/r#/list/1");
  simulator.Update("/r", ZoJson(R"({"list":[5,6,7]})"), true);
  Pass();
  EXPECT_EQ(Cached("/r"), ZoJson(R"({"list":[5,7,7]})"));
}

TEST_F(SimulatorPass, CachedValuesLiveForFiveSeconds) {
  const auto cache = simulator.Cache();
  const long long now = ZoIO::CacheManager::TimeInMills();
  cache->AddAt("/r", ZoJson::Of(1), now - 5001);
  cache->AddAt("/r", ZoJson::Of(2), now - 5000);
  cache->AddAt("/r", ZoJson::Of(3), now);
  cache->TrimAt(now);
  EXPECT_EQ(cache->SizeAt("/r"), 2u);
  EXPECT_EQ(cache->GetAt("/r", 6000, now), ZoJson::Of(2));
}

}  // namespace
}  // namespace ZoTest
