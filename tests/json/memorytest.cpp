#include <gtest/gtest.h>

#include <functional>
#include <new>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/json/countingmemory.h"
#include "tests/support/deadline.h"
#include "tests/support/memorynow.h"
#include "zovyrnsdk/json/zojson.h"
#include "zovyrnsdk/json/zojsoniterator.h"
#include "zovyrnsdk/json/zojsonshapes.h"

namespace {

const char* const text =
    R"({"a":{"b":{"c":1,"d":"a text that is long enough for a node"},"l":[1,{"x":2},[3,"another text of some length"]]},)"
    R"("m":{"1":1,"2":2,"3":3,"4":4,"5":5,"6":6,"7":7,"8":8,"9":9},"e\n":"with an escape, so it comes in pieces"})";

template <typename Body>
std::size_t RequestsOf(const Body& body) {
  const std::size_t before = CountingMemory::Requests();
  body();
  return CountingMemory::Requests() - before;
}

TEST(ZoJsonMemory, AMillionCopiesAllocateNothing) {
  const ZoJson value(text);
  std::vector<ZoJson> copies(1000000);
  EXPECT_EQ(RequestsOf([&] {
              for (ZoJson& copy : copies) {
                copy = value;
              }
            }),
            0U);
  EXPECT_EQ(copies.back(), value);
}

TEST(ZoJsonMemory, LookingAtPartsAllocatesNothing) {
  const ZoJson value(text);
  const ZoJsonPointer pointer("/a/b/d");
  EXPECT_EQ(RequestsOf([&] {
              EXPECT_TRUE(value.At(pointer).IsString());
              EXPECT_EQ(value.At("/a/l/1/x").Get<int>(), 2);
              EXPECT_TRUE(value.HasKey("m/9"));
              EXPECT_FALSE(value.HasKey("/m/10/x"));
              std::size_t members = 0;
              for (ZoJsonIterator it(value.At("m")); it.Valid(); it.Next()) {
                members += it.Value().Get<std::size_t>();
              }
              EXPECT_EQ(members, 45U);
            }),
            0U);
}

TEST(ZoJsonMemory, ScalarsShortTextsAndEmptyContainersNeedNoMemory) {
  EXPECT_EQ(RequestsOf([] {
              const ZoJson values[] = {ZoJson::Of(1),
                                       ZoJson::Of(1.5),
                                       ZoJson::Of("fourteen bytes"),
                                       ZoJson::EmptyArray(),
                                       ZoJson::EmptyObject(),
                                       ZoJson::ParseString("{}"),
                                       ZoJson::ParseString("\"short\""),
                                       ZoJson::ParseString("-1.5e3")};
              EXPECT_EQ(values[2].GetKind(), ZoJson::Kind::String);
            }),
            0U);
}

TEST(ZoJsonMemory, ADocumentTakesOneBlockForEachContainerAndLongText) {
  ZoJson value;
  EXPECT_EQ(RequestsOf([&] {
              value = ZoJson::ParseString(R"({"a":[1,2,"x"],"b":{"a long name for a member":true}})");
            }),
            3U);
  EXPECT_EQ(value.Size(), 2U);
}

TEST(ZoJsonMemory, AnEditOfAnUnsharedValueCopiesNothing) {
  ZoJson value(text);
  const ZoJsonPointer pointer("/a/l/1/x");
  EXPECT_EQ(RequestsOf([&] { value.Set(pointer, 5); }), 0U);
  EXPECT_EQ(value.At(pointer).Get<int>(), 5);
  EXPECT_EQ(RequestsOf([&] { value.Remove(pointer); }), 0U);
}

TEST(ZoJsonMemory, AnEditOfASharedValueCopiesThePathAlone) {
  ZoJson value;
  for (int i = 0; i < 1000; ++i) {
    value.Set("/big" + std::to_string(i) + "/inner/leaf", i);
  }
  const ZoJson copy = value;
  const ZoJsonPointer pointer("/big7/inner/leaf");
  // The root, "big7" and "inner".
  EXPECT_EQ(RequestsOf([&] { value.Set(pointer, -1); }), 3U);
  EXPECT_EQ(RequestsOf([&] { value.Set(pointer, -2); }), 0U);
  EXPECT_EQ(copy.At(pointer).Get<int>(), 7);
}

TEST(ZoJsonMemory, SettingMembersInSequenceAllocatesSeldom) {
  std::vector<ZoJsonPointer> pointers;
  for (int i = 0; i < 100000; ++i) {
    pointers.push_back(ZoJsonPointer::Member("n" + std::to_string(i)));
  }
  ZoJson value;
  EXPECT_LT(RequestsOf([&] {
              for (const ZoJsonPointer& pointer : pointers) {
                value.Set(pointer, 1);
              }
            }),
            80U);
  EXPECT_EQ(value.Size(), 100000U);
}

TEST(ZoJsonMemory, FreeingAllocatesNothing) {
  ZoJson value(text);
  std::string path;
  for (int i = 0; i < 1000; ++i) {
    path += "/deep";
  }
  value.Set(path, ZoJson(text));
  EXPECT_EQ(RequestsOf([&] { value = ZoJson(); }), 0U);
}

TEST(ZoJsonMemory, ARefusedTextLeavesNothingBehind) {
  const std::string good = text;
  for (std::size_t size = 0; size < good.size(); ++size) {
    const std::size_t before = CountingMemory::Living();
    EXPECT_THROW(ZoJson::ParseString(std::string_view(good).substr(0, size)), ZoJsonError);
    EXPECT_EQ(CountingMemory::Living(), before);
  }
}

// Runs the operation on a fresh copy of the document, with its first allocation failing, then its second and
// so on, until it succeeds. Each time the document must be as before, and nothing may be left over. The
// document is made anew each time: as unshared as a parsed one, or shared with a copy that must not change
// either.
void FailEverywhere(const std::function<void(ZoJson&)>& operation, std::size_t leastFailures) {
  for (const bool shared : {false, true}) {
    const std::string expected = ZoJson(text).ToString();
    std::size_t failures = 0;
    for (bool succeeded = false; !succeeded; ++failures) {
      const std::size_t before = CountingMemory::Living();
      {
        ZoJson document(text);
        const ZoJson copy = shared ? document : ZoJson();
        CountingMemory::FailAfter(failures);
        try {
          operation(document);
          succeeded = true;
        } catch (const std::bad_alloc&) {
        }
        const bool failed = CountingMemory::StopFailing();
        ASSERT_NE(failed, succeeded);
        if (failed) {
          ASSERT_EQ(document.ToString(), expected) << "allocation " << failures;
        }
        if (shared) {
          ASSERT_EQ(copy.ToString(), expected) << "allocation " << failures;
        }
      }
      ASSERT_EQ(CountingMemory::Living(), before) << "allocation " << failures;
    }
    // The last round is the one that succeeds.
    EXPECT_GE(failures - 1, leastFailures) << (shared ? "shared" : "unshared");
  }
}

// Whether that raises a ZoJsonError; std::bad_alloc passes through.
template <typename Body>
bool Raises(const Body& body) {
  try {
    body();
  } catch (const ZoJsonError&) {
    return true;
  }
  return false;
}

TEST(ZoJsonMemoryFailing, ParseString) {
  FailEverywhere([](ZoJson&) { ZoJson::ParseString(text); }, 8);
}

TEST(ZoJsonMemoryFailing, ParseStringThatRefuses) {
  FailEverywhere(
      [](ZoJson&) {
        EXPECT_TRUE(Raises([] { ZoJson::ParseString("[[1],0e99999999999,\"a text that is long\"} "); }));
      },
      4);
}

TEST(ZoJsonMemoryFailing, ParseLargeString) {
  std::string large = "[";
  for (int i = 0; i < 300; ++i) {
    large += R"({"name number )" + std::to_string(i) + R"(":[1,2,3]},)";
  }
  large.back() = ']';
  std::string wide = "{";
  for (int i = 0; i < 300; ++i) {
    wide += "\"name number " + std::to_string(i) + "\":1,";
  }
  wide.back() = '}';
  FailEverywhere([&](ZoJson&) { ZoJson::ParseString(large); }, 600);
  FailEverywhere([&](ZoJson&) { ZoJson::ParseString(wide); }, 4);
}

// Names are remembered if there is memory for them; nobody hears of it when there is not.
TEST(ZoJsonMemoryFailing, ParseStringThatRemembersNames) {
  const std::string kind =
      R"({"a":[1,2],"b":"a text that is long enough for a node","c":{"x":1,"y":2,"z":3}})";
  const std::string expected = ZoJson(kind).ToString();
  std::size_t refused = 0;
  for (std::size_t failures = 0; failures < 40; ++failures) {
    const std::size_t before = CountingMemory::Living();
    {
      ZoJsonShapes shapes;
      for (int time = 0; time < 4; ++time) {
        if (time == static_cast<int>(failures % 4)) {
          CountingMemory::FailAfter(failures / 4);
        }
        std::size_t memory = std::size_t{1} << 20;
        try {
          const ZoJson document = ZoJson::ParseString(kind, memory, shapes);
          CountingMemory::StopFailing();
          EXPECT_EQ(document.ToString(), expected);
        } catch (const std::bad_alloc&) {
          CountingMemory::StopFailing();
          ++refused;
        }
      }
      for (int time = 0; time < 3; ++time) {
        std::size_t memory = std::size_t{1} << 20;
        EXPECT_EQ(ZoJson::ParseString(kind, memory, shapes).ToString(), expected);
      }
      EXPECT_GT(shapes.Bytes(), 0U);
    }
    ASSERT_EQ(CountingMemory::Living(), before) << "allocation " << failures;
  }
  EXPECT_GE(refused, 16U);  // four allocations, in each of the four times
}

TEST(ZoJsonMemoryFailing, SetAnExistingMember) {
  FailEverywhere([](ZoJson& document) { document.Set("/a/b/c", "a text that is long enough for a node"); },
                 1);
}

TEST(ZoJsonMemoryFailing, SetANewMemberDeepDown) {
  FailEverywhere([](ZoJson& document) { document.Set("/a/b/x/a segment longer than short texts are/z", 1); },
                 3);
}

TEST(ZoJsonMemoryFailing, SetAnElement) {
  FailEverywhere([](ZoJson& document) { document.Set("/a/l/-/q", "a text that is long enough for a node"); },
                 2);
}

TEST(ZoJsonMemoryFailing, SetByPointerInAnIndexedObject) {
  FailEverywhere(
      [](ZoJson& document) {
        const ZoJsonPointer pointer("/m/~01/x");
        document.Set(pointer, 1);
      },
      3);
}

TEST(ZoJsonMemoryFailing, SetOverAScalar) {
  FailEverywhere([](ZoJson& document) { document.Set("/a/b/c/d/e", 1); }, 2);
}

TEST(ZoJsonMemoryFailing, SetThatRaises) {
  FailEverywhere([](ZoJson& document) { EXPECT_TRUE(Raises([&] { document.Set("/a/l/x", 1); })); }, 2);
}

TEST(ZoJsonMemoryFailing, Remove) {
  FailEverywhere([](ZoJson& document) { EXPECT_TRUE(document.Remove("/a/l/2/0")); }, 1);
  FailEverywhere([](ZoJson& document) { EXPECT_TRUE(document.Remove("/m/5")); }, 1);
}

TEST(ZoJsonMemoryFailing, AtThatRaises) {
  FailEverywhere(
      [](ZoJson& document) { EXPECT_TRUE(Raises([&] { document.At("/a/b/nothing of that name"); })); }, 2);
}

TEST(ZoJsonMemoryFailing, Print) {
  FailEverywhere([](ZoJson& document) { EXPECT_FALSE(document.ToString().empty()); }, 2);
}

TEST(ZoJsonMemoryFailing, FlattenAndUnflatten) {
  FailEverywhere([](ZoJson& document) { EXPECT_EQ(document.Flatten().Unflatten().Size(), 3U); }, 8);
}

TEST(ZoJsonMemoryFailing, Compare) {
  const ZoJson other(text);
  FailEverywhere([&](ZoJson& document) { EXPECT_TRUE(document == other); }, 1);
}

TEST(ZoJsonMemoryFailing, Pointers) {
  FailEverywhere(
      [](ZoJson&) {
        const ZoJsonPointer pointer =
            ZoJsonPointer::Combine(ZoJsonPointer("/a long segment of a pointer/b"), "/~1~1");
        EXPECT_EQ(ZoJsonPointer(pointer.ToString()), pointer);
      },
      6);
}

// What an allocator keeps of them for later would be tens of megabytes for each thread.
TEST(ZoJsonMemory, HugeTextsAreGivenBackAtOnce) {
  if (ZoTest::kSanitized) {
    GTEST_SKIP() << "sanitizers keep freed memory";
  }
  constexpr std::size_t size = std::size_t{8} << 20;
  std::thread([] {
    // From now on blocks of this size lie in the thread's heap, whose end is kept.
    { const std::string larger(3 * size, 'x'); }
    const std::string quoted = '"' + std::string(size, 'x') + '"';
    const std::size_t before = ZoTest::MemoryNow();
    std::vector<ZoJson> texts;
    for (int i = 0; i < 3; ++i) {
      texts.emplace_back(quoted);
    }
    EXPECT_GE(ZoTest::MemoryNow(), before + 3 * size);
    texts.clear();
    EXPECT_LT(ZoTest::MemoryNow(), before + size);
  }).join();
}

}  // namespace
