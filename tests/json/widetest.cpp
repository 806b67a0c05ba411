#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "zovyrnsdk/json/zojson.h"
#include "zovyrnsdk/json/zojsoniterator.h"

namespace {

constexpr int members = 10000;

std::string Name(int i) {
  return "member_" + std::to_string(i);
}

ZoJson Wide(int count) {
  ZoJson value;
  for (int i = 0; i < count; ++i) {
    value.Set(Name(i), i);
  }
  return value;
}

TEST(ZoJsonWide, EveryMemberIsFoundAtEverySize) {
  // Small objects are searched one by one, larger ones by an index: walk across the change.
  ZoJson value;
  for (int count = 1; count <= 200; ++count) {
    value.Set(Name(count - 1), count - 1);
    ASSERT_EQ(value.Size(), static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i) {
      ASSERT_EQ(value.At(Name(i)).Get<int>(), i);
    }
    ASSERT_FALSE(value.HasKey(Name(count)));
    ASSERT_EQ(ZoJson(value.ToString()).ToString(), value.ToString());
  }
}

TEST(ZoJsonWide, TenThousandMembersKeepTheirOrder) {
  const ZoJson value = Wide(members);
  int next = 0;
  for (ZoJsonIterator it(value); it.Valid(); it.Next(), ++next) {
    ASSERT_EQ(it.Key(), Name(next));
    ASSERT_EQ(it.Value().Get<int>(), next);
  }
  EXPECT_EQ(next, members);
  EXPECT_EQ(ZoJson(value.ToString()), value);
}

TEST(ZoJsonWide, RemovedInAnyOrderTheRestStays) {
  std::vector<int> order(2000);
  std::iota(order.begin(), order.end(), 0);
  std::mt19937 random(7);
  for (int round = 0; round < 3; ++round) {
    if (round == 1) {
      std::reverse(order.begin(), order.end());
    } else if (round == 2) {
      std::shuffle(order.begin(), order.end(), random);
    }
    ZoJson value = Wide(2000);
    std::vector<bool> there(2000, true);
    std::size_t left = there.size();
    for (const int victim : order) {
      ASSERT_TRUE(value.Remove(Name(victim)));
      ASSERT_FALSE(value.HasKey(Name(victim)));
      there[static_cast<std::size_t>(victim)] = false;
      ASSERT_EQ(value.Size(), --left);
      if (left % 97 == 0) {
        int next = -1;
        for (ZoJsonIterator it(value); it.Valid(); it.Next()) {
          const int shown = it.Value().Get<int>();
          ASSERT_GT(shown, next);
          ASSERT_TRUE(there[static_cast<std::size_t>(shown)]);
          ASSERT_EQ(value.At(it.Key()).Get<int>(), shown);
          next = shown;
        }
      }
    }
    EXPECT_TRUE(value.Empty());
    EXPECT_TRUE(value.IsObject());
  }
}

TEST(ZoJsonWide, MembersThatComeAndGoLeaveNothingBehind) {
  ZoJson value = Wide(20);
  for (int i = 0; i < 100000; ++i) {
    value.Set("passing" + std::to_string(i), i);
    ASSERT_TRUE(value.Remove("passing" + std::to_string(i)));
  }
  EXPECT_EQ(value, Wide(20));
}

TEST(ZoJsonWide, AnArrayIsAQueue) {
  ZoJson value = ZoJson::EmptyArray();
  int next = 0;
  for (int i = 0; i < 20000; ++i) {
    value.Set("/-", i);
    if (value.Size() > 50) {
      ASSERT_EQ(value.At("0").Get<int>(), next++);
      ASSERT_TRUE(value.Remove("0"));
    }
  }
  EXPECT_EQ(value.Size(), 50U);
  EXPECT_EQ(value.At("49").Get<int>(), 19999);
}

TEST(ZoJsonWide, ElementsRemovedInTheMiddleCloseUp) {
  for (std::size_t victim = 0; victim < 9; ++victim) {
    ZoJson value("[0,1,2,3,4,5,6,7,8]");
    ASSERT_TRUE(value.Remove("/" + std::to_string(victim)));
    std::string expected;
    for (std::size_t i = 0; i < 9; ++i) {
      if (i != victim) {
        expected += (expected.empty() ? "[" : ",") + std::to_string(i);
      }
    }
    EXPECT_EQ(value.ToString(), expected + "]");
  }
}

TEST(ZoJsonWide, NamesThatDifferInOneByteAreDifferent) {
  ZoJson value;
  const std::string base(100, 'x');
  for (std::size_t i = 0; i < base.size(); ++i) {
    std::string name = base;
    name[i] = 'y';
    value.Set(name, static_cast<int>(i));
    value.Set(base.substr(0, i), -static_cast<int>(i) - 1);
  }
  // The empty text is the whole document, which the first of these has replaced; then came the names.
  for (std::size_t i = 1; i < base.size(); ++i) {
    std::string name = base;
    name[i] = 'y';
    EXPECT_EQ(value.At(name).Get<std::size_t>(), i);
    EXPECT_EQ(value.At(base.substr(0, i)).Get<int>(), -static_cast<int>(i) - 1);
  }
}

}  // namespace
