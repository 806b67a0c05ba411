#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "zovyrnsdk/json/zojson.h"
#include "zovyrnsdk/json/zojsoniterator.h"

namespace {

// As deep as an item name of 64 KiB makes it.
constexpr std::size_t levels = 32000;

std::string Path(std::size_t depth) {
  std::string path;
  for (std::size_t i = 0; i < depth; ++i) {
    path += "/a";
  }
  return path;
}

std::string Text(std::size_t depth, const char* leaf) {
  std::string text;
  for (std::size_t i = 0; i < depth; ++i) {
    text += "{\"a\":";
  }
  return text + leaf + std::string(depth, '}');
}

ZoJson Deep(int leaf) {
  ZoJson value;
  value.Set(Path(levels), leaf);
  return value;
}

TEST(ZoJsonDeep, SetMakesAndReplacesAtTheBottom) {
  ZoJson value = Deep(1);
  EXPECT_EQ(value.At(Path(levels)).Get<int>(), 1);
  value.Set(Path(levels), 2);
  EXPECT_EQ(value.At(ZoJsonPointer(Path(levels))).Get<int>(), 2);
  EXPECT_FALSE(value.HasKey(Path(levels) + "/a"));
}

TEST(ZoJsonDeep, PrintsAsDeep) {
  EXPECT_EQ(Deep(7).ToString(), Text(levels, "7"));
}

TEST(ZoJsonDeep, ComparesToTheBottom) {
  EXPECT_EQ(Deep(1), Deep(1));
  EXPECT_NE(Deep(1), Deep(2));
}

TEST(ZoJsonDeep, FlattensAndUnflattens) {
  const ZoJson value = Deep(1);
  const ZoJson flat = value.Flatten();
  EXPECT_EQ(flat.ToString(), "{\"" + Path(levels) + "\":1}");
  EXPECT_EQ(flat.Unflatten(), value);
}

TEST(ZoJsonDeep, ACopyIsDetachedAlongThePathOnly) {
  ZoJson value = Deep(1);
  const ZoJson copy = value;
  value.Set(Path(levels), 2);
  EXPECT_EQ(copy, Deep(1));
  EXPECT_EQ(value, Deep(2));
  const ZoJson another = value;
  EXPECT_TRUE(value.Remove(Path(levels)));
  EXPECT_EQ(value.ToString(), Text(levels - 1, "{}"));
  EXPECT_EQ(another, Deep(2));
}

TEST(ZoJsonDeep, RemoveAtTheBottom) {
  ZoJson value = Deep(1);
  EXPECT_TRUE(value.Remove(ZoJsonPointer(Path(levels))));
  EXPECT_FALSE(value.Remove(ZoJsonPointer(Path(levels))));
  EXPECT_EQ(value.ToString(), Text(levels - 1, "{}"));
}

TEST(ZoJsonDeep, PartsAtEveryDepthOutliveTheDocument) {
  ZoJson part = Deep(1);
  for (std::size_t i = 0; i < levels; ++i) {
    ZoJsonIterator it(std::exchange(part, ZoJson()));
    ASSERT_TRUE(it.Valid());
    part = it.Value();
  }
  EXPECT_EQ(part.Get<int>(), 1);
}

TEST(ZoJsonDeep, ErrorsNameTheWholePointer) {
  try {
    Deep(1).At(Path(levels - 1) + "/b");
    FAIL() << "no error";
  } catch (const ZoJsonError& error) {
    EXPECT_EQ(std::string(error.what()),
              "JSON value: nothing at \"" + Path(levels - 1) + "/b\": no member \"b\"");
  }
}

TEST(ZoJsonDeep, ArraysNestToo) {
  ZoJson value;
  std::string expected = "null";
  for (int i = 0; i < 32000; ++i) {
    ZoJson outer = ZoJson::EmptyArray();
    outer.Set("/-", std::move(value));
    value = std::move(outer);
  }
  const ZoJson copy = value;
  std::string path;
  for (int i = 0; i < 31999; ++i) {
    path += "/0";
  }
  value.Set(path + "/-", 1);
  EXPECT_EQ(value.ToString(), std::string(32000, '[') + "null,1" + std::string(32000, ']'));
  EXPECT_EQ(copy.ToString(), std::string(32000, '[') + "null" + std::string(32000, ']'));
  EXPECT_NE(value, copy);
}

TEST(ZoJsonDeep, AMillionLevelsAreFreed) {
  ZoJson value = ZoJson::Of(1);
  for (int i = 0; i < 1000000; ++i) {
    ZoJson outer = ZoJson::EmptyObject();
    outer.Set("a", std::move(value));
    value = std::move(outer);
  }
  const ZoJson copy = value;
  EXPECT_EQ(copy, value);
  EXPECT_EQ(value.ToString().size(), 1000000U * 6 + 1);
}

}  // namespace
