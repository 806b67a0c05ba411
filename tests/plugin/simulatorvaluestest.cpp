// The values that simulated items take, as a subscription shows them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <strings.h>

#include "tests/plugin/plugintest.h"

namespace ZoTest {
namespace {

class SimulatorValues : public PluginTest {
 protected:
  SimulatorValues() : handle(Create()) {}

  // Waits for a number of different values and returns them without repetitions.
  std::vector<Step> WaitForSteps(const std::string& item, std::size_t count) {
    EXPECT_TRUE(recorder.WaitFor([&](const Recorder::Entries& all) {
      Recorder::Entries values;
      std::copy_if(all.begin(), all.end(), std::back_inserter(values),
                   [&item](const Entry& entry) { return entry.IsValue(item); });
      return StepsOf(values).size() >= count;
    })) << item;
    return StepsOf(recorder.Values(item));
  }

  // Every integer step is the one after its predecessor.
  static void ExpectCounts(const std::vector<Step>& steps, std::size_t from) {
    for (std::size_t i = from + 1; i < steps.size(); ++i) {
      ASSERT_EQ(steps[i].entry.value.type, static_cast<std::uint32_t>(enumtype_int64))
          << Describe(steps[i].entry);
      const auto before = steps[i - 1].entry.value.value.int64;
      const auto after = steps[i].entry.value.value.int64;
      if (steps[i].following) {
        EXPECT_EQ(after, before == 100 ? 0 : before + 1);
      }
    }
  }

  void* handle;
};

TEST_F(SimulatorValues, AnIntegerIsInvalidAtFirstThenCountsFromZero) {
  Subscribe(handle, {"res#/int"});
  const auto steps = WaitForSteps("res#/int", 5);
  ASSERT_GE(steps.size(), 5u);
  EXPECT_EQ(Describe(steps[0].entry), "5:INVALID");
  EXPECT_EQ(Describe(steps[1].entry), "2:0");
  ExpectCounts(steps, 1);
}

TEST_F(SimulatorValues, AnUnsignedStartsAtTheSignedZeroToo) {
  Subscribe(handle, {"res#/uint"});
  const auto steps = WaitForSteps("res#/uint", 3);
  ASSERT_GE(steps.size(), 3u);
  EXPECT_EQ(Describe(steps[1].entry), "2:0");
  ExpectCounts(steps, 1);
}

TEST_F(SimulatorValues, ANameWithoutATypeWordIsAnInteger) {
  Subscribe(handle, {"res#/abc"});
  const auto steps = WaitForSteps("res#/abc", 3);
  ASSERT_GE(steps.size(), 3u);
  EXPECT_EQ(Describe(steps[1].entry), "2:0");
  ExpectCounts(steps, 1);
}

TEST_F(SimulatorValues, AFloatGrowsByTenthsInFloatPrecision) {
  Subscribe(handle, {"res#/float"});
  const auto steps = WaitForSteps("res#/float", 5);
  ASSERT_GE(steps.size(), 5u);
  EXPECT_EQ(Describe(steps[0].entry), "5:INVALID");
  EXPECT_EQ(Describe(steps[1].entry), "3:0");
  double stored = 0.0;
  for (std::size_t i = 2; i < steps.size() && steps[i].following; ++i) {
    stored = static_cast<double>(static_cast<float>(stored)) + 0.1;
    EXPECT_EQ(steps[i].entry.value.type, static_cast<std::uint32_t>(enumtype_double));
    EXPECT_EQ(steps[i].entry.value.value.float64, static_cast<double>(static_cast<float>(stored)));
  }
  if (steps[2].following) {
    EXPECT_EQ(steps[2].entry.value.value.float64, 0.10000000149011612);
  }
}

TEST_F(SimulatorValues, ABooleanAlternatesFromFalse) {
  Subscribe(handle, {"res#/bool"});
  const auto steps = WaitForSteps("res#/bool", 5);
  ASSERT_GE(steps.size(), 5u);
  EXPECT_EQ(Describe(steps[1].entry), "1:0");
  for (std::size_t i = 2; i < steps.size(); ++i) {
    EXPECT_EQ(steps[i].entry.value.type, static_cast<std::uint32_t>(enumtype_bool));
    EXPECT_EQ(steps[i].entry.value.value.boolean, 1 - steps[i - 1].entry.value.value.boolean);
  }
}

TEST_F(SimulatorValues, ATextIsHelloWorldThenItsLettersChangeCase) {
  Subscribe(handle, {"res#/string"});
  const auto steps = WaitForSteps("res#/string", 4);
  ASSERT_GE(steps.size(), 4u);
  EXPECT_EQ(Describe(steps[0].entry), "5:INVALID");
  EXPECT_EQ(Describe(steps[1].entry), "0:Hello World");
  for (std::size_t i = 2; i < steps.size(); ++i) {
    EXPECT_EQ(steps[i].entry.value.type, static_cast<std::uint32_t>(enumtype_string));
    EXPECT_EQ(::strcasecmp(steps[i].entry.valueText.c_str(), "hello world"), 0) << steps[i].entry.valueText;
  }
}

TEST_F(SimulatorValues, TheTypeWordMayStandAnywhereInTheNameAndTheFirstOfTheListWins) {
  Subscribe(handle, {"point/float#/a", "float/bool#/a", "string/bool#/b", "Int#/a", "a/string#/b", "bool#"});
  EXPECT_TRUE(recorder.WaitForEntry(IsInteger("point/float#/a", 0)));  // "point" holds "int"
  EXPECT_TRUE(recorder.WaitForEntry(IsOfType("float/bool#/a", enumtype_double)));
  EXPECT_TRUE(recorder.WaitForEntry(IsOfType("string/bool#/b", enumtype_bool)));
  EXPECT_TRUE(recorder.WaitForEntry(IsInteger("Int#/a", 0)));
  EXPECT_TRUE(recorder.WaitForEntry(IsText("a/string#/b", "Hello World")));
  EXPECT_TRUE(recorder.WaitForEntry(IsOfType("bool#", enumtype_bool)));
  EXPECT_EQ(recorder.Count(IsOfType("point/float#/a", enumtype_double)), 0u);
}

TEST_F(SimulatorValues, ItemsWithoutFragmentHaveValuesToo) {
  Subscribe(handle, {"int", "/plant/float", "a/b/bool", "string"});
  EXPECT_TRUE(recorder.WaitForEntry(IsInteger("int", 2)));
  EXPECT_TRUE(recorder.WaitForEntry(IsOfType("/plant/float", enumtype_double)));
  EXPECT_TRUE(recorder.WaitForEntry(IsOfType("a/b/bool", enumtype_bool)));
  EXPECT_TRUE(recorder.WaitForEntry(IsText("string", "Hello World")));
}

// The cache keeps the first document of a millisecond, so what it shows of the later items of a pass may lag
// by one pass, and not always. Each item counts all the same, in steps of one or two.
TEST_F(SimulatorValues, ItemsOfOneResourceAllCount) {
  std::vector<std::string> names;
  for (int i = 0; i < 20; ++i) {
    names.push_back("res#/int/" + std::to_string(i));
  }
  Subscribe(handle, names);
  for (const std::string& name : names) {
    ASSERT_TRUE(recorder.WaitForEntry([&name](const Entry& entry) {
      return entry.IsValue(name) && entry.value.value.int64 >= 3;
    })) << name;
  }
  for (const std::string& name : names) {
    const auto steps = StepsOf(recorder.Values(name));
    EXPECT_EQ(Describe(steps.at(0).entry), "5:INVALID");
    EXPECT_LE(steps.at(1).entry.value.value.int64, 1);
    for (std::size_t i = 2; i < steps.size(); ++i) {
      const auto difference = steps[i].entry.value.value.int64 - steps[i - 1].entry.value.value.int64;
      EXPECT_GE(difference, 1) << name;
      EXPECT_TRUE(difference <= 2 || !steps[i].following) << name << " " << difference;
    }
  }
}

TEST_F(SimulatorValues, ChangeWhetherTheSensorRunsOrNot) {
  Subscribe(handle, {"res#/int"});
  EXPECT_TRUE(recorder.WaitForEntry(IsInteger("res#/int", 1)));
  EXPECT_EQ(Call(handle, "RunSensor", "{}"), 0);
  EXPECT_TRUE(recorder.WaitForEntry(IsInteger("res#/int", 2)));
  EXPECT_EQ(Call(handle, "StopSensor", "{}"), 0);
  EXPECT_TRUE(recorder.WaitForEntry(IsInteger("res#/int", 4)));
}

TEST_F(SimulatorValues, OfTwoInstancesAreTheirOwn) {
  Recorder other;
  void* second = Create("simulator", 0, other.Param());
  Subscribe(handle, {"res#/int"});
  ZoTest::Subscribe(plugin, second, 100, {"res#/int"});
  ASSERT_TRUE(other.WaitForEntry(IsInteger("res#/int", 1)));
  EXPECT_EQ(Write(handle, "res#/int", IntegerValue(41)), 0);
  EXPECT_TRUE(recorder.WaitForEntry(IsInteger("res#/int", 43)));
  EXPECT_TRUE(other.WaitForEntry(IsInteger("res#/int", 3)));
  EXPECT_EQ(other.Count(IsInteger("res#/int", 42)), 0u);
  EXPECT_EQ(Destroy(second), 0);
}

// Documents that a host puts in: elements of arrays are items like any other, whole containers start over. Of the items
// of one resource a pass may show only some, so no single value is sure to be seen.
TEST_F(SimulatorValues, ElementsOfAnArrayCountInPlace) {
  Subscribe(handle, {"doc#/list/1", "doc#/sum"});
  EXPECT_EQ(Call(handle, "Update", R"({"uri":"doc","args":"{\"list\":[10,20,30],\"sum\":60}"})"), 0);
  EXPECT_TRUE(recorder.WaitForEntry(IsIntegerIn("doc#/list/1", 22, 29)));
  EXPECT_TRUE(recorder.WaitForEntry(IsIntegerIn("doc#/sum", 62, 69)));
}

TEST_F(SimulatorValues, AContainerAtAnItemsPlaceIsReplacedByAFirstValue) {
  Subscribe(handle, {"doc#/int_object", "doc#/bool_array", "doc#/float_null"});
  EXPECT_EQ(
      Call(handle, "Update",
           R"({"uri":"doc","args":"{\"int_object\":{\"a\":1},\"bool_array\":[1],\"float_null\":null}"})"),
      0);
  EXPECT_TRUE(recorder.WaitForEntry(IsIntegerIn("doc#/int_object", 1, 9)));
  EXPECT_TRUE(recorder.WaitForEntry(IsOfType("doc#/bool_array", enumtype_bool)));
  EXPECT_TRUE(recorder.WaitForEntry(IsOfType("doc#/float_null", enumtype_double)));
}

// An array cannot take a member, so the pass ends there with a warning, and comes again a second later.
TEST_F(SimulatorValues, APassThatFailsIsLoggedAndTriedAgain) {
  Subscribe(handle, {"res#/foo"});
  EXPECT_EQ(Call(handle, "Update", R"({"uri":"res","args":"[1,2]"})"), 0);
  const auto isWarning = [](const Entry& entry) {
    return entry.kind == Entry::Kind::Log && entry.level == 4 &&
           entry.function == "ZoIO::SensorManagerSimulator::Simulate" && !entry.message.empty();
  };
  EXPECT_TRUE(recorder.WaitForEntry(isWarning, 2));
  EXPECT_EQ(Call(handle, "Delete", R"({"uri":"res"})"), 0);
  EXPECT_TRUE(recorder.WaitForEntry(IsInteger("res#/foo", 1)));
  EXPECT_EQ(recorder.Count([](const Entry& entry) { return entry.level > 4; }), 0u);
}

TEST_F(SimulatorValues, CreateAndDeleteStartAResourceOver) {
  Subscribe(handle, {"one#/int", "two#/int"});
  ASSERT_TRUE(recorder.WaitForEntry(IsInteger("one#/int", 2)));
  ASSERT_TRUE(recorder.WaitForEntry(IsInteger("two#/int", 2)));
  recorder.Clear();
  EXPECT_EQ(Call(handle, "Create", R"({"uri":"one","args":"{\"int\":77}"})"), 0);
  EXPECT_EQ(Call(handle, "Delete", R"({"uri":"two"})"), 0);
  EXPECT_TRUE(recorder.WaitForEntry(IsInteger("one#/int", 0)));
  EXPECT_TRUE(recorder.WaitForEntry(IsInteger("two#/int", 0)));
  EXPECT_EQ(recorder.Count(IsInteger("one#/int", 78)), 0u);
}

}  // namespace
}  // namespace ZoTest
