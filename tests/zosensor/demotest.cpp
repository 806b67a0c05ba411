// What docs/zosensor.md says of the demo.
#include "tools/zosensor/demo.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

#include "tests/zosensor/modelfixture.h"
#include "zovyrnsdk/json/zojsoniterator.h"

namespace ZoSensor {
namespace {

using namespace std::chrono_literals;

class Demo : public ModelFixture {
 protected:
  Demo() { Start(DemoResources()); }

  static void CollectKinds(const ZoJson& value, std::set<ZoJson::Kind>& kinds) {
    kinds.insert(value.GetKind());
    for (ZoJsonIterator it(value); it.Valid(); it.Next()) {
      CollectKinds(it.Value(), kinds);
    }
  }
};

TEST_F(Demo, LateAppearsAfterTenSeconds) {
  Pass(9999ms);
  EXPECT_EQ(Read("/machine/late").status, -404);
  Pass(1ms);
  EXPECT_EQ(Read("/machine/late").status, 1);
}

TEST_F(Demo, FleetingVanishesAfterThirtySeconds) {
  Pass(29999ms);
  EXPECT_EQ(Read("/machine/fleeting").status, 1);
  Pass(1ms);
  EXPECT_EQ(Read("/machine/fleeting").status, -404);
}

TEST_F(Demo, DoorCannotBeStreamedAndTellsItsChanges) {
  EXPECT_EQ(sensor->StartStream(watcher, "/machine/door", now).status, -405);
  EXPECT_EQ(Subscribe("/machine/door").status, 1);
  watcher.Take();
  Pass(4s);
  ASSERT_EQ(watcher.items.size(), 1U);
  EXPECT_EQ(watcher.items[0].message.At("payload").ToString(), R"({"open":true,"state":"open"})");
}

TEST_F(Demo, HasEveryWaveformAndEveryKindOfValue) {
  std::set<std::string> waves;
  std::set<ZoJson::Kind> kinds;
  for (ZoJsonIterator it(Json(DemoResources()).At("resources")); it.Valid(); it.Next()) {
    if (it.Value().HasKey("content")) {
      CollectKinds(it.Value().At("content"), kinds);
    }
    if (it.Value().HasKey("waves")) {
      for (ZoJsonIterator wave(it.Value().At("waves")); wave.Valid(); wave.Next()) {
        waves.insert(wave.Value().At("wave").Get<std::string>());
      }
    }
  }
  EXPECT_EQ(waves, (std::set<std::string>{"sine", "ramp", "triangle", "square", "walk", "noise", "cycle",
                                          "counter", "follow"}));
  EXPECT_EQ(kinds, (std::set<ZoJson::Kind>{ZoJson::Kind::Null, ZoJson::Kind::Boolean, ZoJson::Kind::Integer,
                                           ZoJson::Kind::Unsigned, ZoJson::Kind::Float, ZoJson::Kind::String,
                                           ZoJson::Kind::Array, ZoJson::Kind::Object}));
}

}  // namespace
}  // namespace ZoSensor
