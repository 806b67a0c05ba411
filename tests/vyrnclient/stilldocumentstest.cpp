// Ticks over documents and values that do not change, and over what does change meanwhile: what was pushed before is
// pushed again without a look at the item, and must be what a look would have found.
#include <gmock/gmock.h>

#include <iterator>
#include <map>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "tests/vyrnclient/grouptest.h"
#include "zovyrnsdk/json/zojsonshapes.h"

namespace ZoTest {
namespace {

using ::testing::ElementsAre;

// With documents as anybody parses them, and as the link does, which remembers the names of those before.
class StillDocuments : public GroupTest, public testing::WithParamInterface<bool> {
 protected:
  ZoJson Document(const std::string& text) {
    if (!GetParam()) {
      return ZoJson::ParseString(text);
    }
    const bool hasMembers = text.starts_with("{\"");
    return Shaped(hasMembers ? R"({"-1":0,"-2":0,"-3":0,)" + text.substr(1) : text);
  }

  // Of an object with three members at least.
  ZoJson Shaped(const std::string& text) {
    ZoJson document;
    for (int time = 0; time < 3; ++time) {  // a shape is of use from the third time on
      std::size_t memory = text.size() * 1000;
      document = ZoJson::ParseString(text, memory, shapes);
    }
    return document;
  }

  void Cached(const std::string& resource, const std::string& text) {
    GroupTest::Cached(resource, Document(text));
  }

  void Add(const std::vector<std::string>& names) {
    for (const std::string& name : names) {
      Item(name).valid = true;
      group.AddItem(name);
    }
  }

  ZoJsonShapes shapes;
};

INSTANTIATE_TEST_SUITE_P(Plain, StillDocuments, testing::Values(false));
INSTANTIATE_TEST_SUITE_P(OfOneShape, StillDocuments, testing::Values(true));

TEST_P(StillDocuments, EveryKindIsPushedAgainAsItWas) {
  Cached("/r", R"({"b":true,"d":0.5,"i":-3,"n":null,"o":{"x":1},"s":"short",
                   "t":"a text that is longer than what fits without memory","u":18446744073709551615})");
  Add({"/r#/b", "/r#/d", "/r#/i", "/r#/missing", "/r#/n", "/r#/o", "/r#/s", "/r#/t", "/r#/u"});
  for (int i = 0; i < 4; ++i) {
    EXPECT_THAT(Tick(), ElementsAre("/r#/b 1:1", "/r#/d 3:0.5", "/r#/i 2:-3", "/r#/missing 5:INVALID",
                                    "/r#/n 5:INVALID", "/r#/o 5:INVALID", "/r#/s 0:short",
                                    "/r#/t 0:a text that is longer than what fits without memory",
                                    "/r#/u 4:18446744073709551615"));
  }
}

TEST_P(StillDocuments, ReservedFieldsAndStatusStay0) {
  Cached("/r", R"({"a":true})");
  Add({"/r#/a"});
  group.Tick();
  group.Tick();
  const std::vector<Entry> values = recorder.Values("/r#/a");
  ASSERT_EQ(values.size(), 2u);
  for (const Entry& entry : values) {
    EXPECT_EQ(entry.value.status, 0);
    EXPECT_EQ(entry.value.reserved, 0u);
    EXPECT_EQ(entry.value.value.uint64, 1u);
  }
}

// The same values in documents that are new each time: members of every kind, by every kind of name.
TEST_P(StillDocuments, NewerDocumentWithTheSameValuesShowsThemAsTheyWere) {
  const std::string document = R"({"a b":7,"b":true,"d":0.1,"i":-3,"l":[1,2],"n":null,"o":{"x":1},"s":"short",
                                   "u":18446744073709551615,"x/y":8,"":9})";
  const std::vector<std::string> names = {"/r#/",     "/r#/a%20b", "/r#/b",      "/r#/d", "/r#/i",
                                          "/r#/l/1",  "/r#/n",     "/r#/o/x",    "/r#/s", "/r#/u",
                                          "/r#/x~1y", "/r#b",      "/r#/missing"};
  Cached("/r", document);
  Add(names);
  const std::vector<std::string> first = Tick();
  EXPECT_THAT(first, ElementsAre("/r#/ 2:9", "/r#/a%20b 2:7", "/r#/b 1:1", "/r#/d 3:0.10000000149011612",
                                 "/r#/i 2:-3", "/r#/l/1 2:2", "/r#/missing 5:INVALID", "/r#/n 5:INVALID",
                                 "/r#/o/x 2:1", "/r#/s 0:short", "/r#/u 4:18446744073709551615",
                                 "/r#/x~1y 2:8", "/r#b 1:1"));
  for (int i = 0; i < 3; ++i) {
    Cached("/r", document);
    EXPECT_EQ(Tick(), first);
  }
}

TEST_P(StillDocuments, MemberIsFoundWhereverANewerDocumentHasIt) {
  Cached("/r", R"({"a":1,"b":2,"c":3})");
  Add({"/r#/a", "/r#/b", "/r#/c"});
  Tick();
  for (const char* document : {R"({"a":1,"b":2,"c":3})", R"({"c":3,"b":2,"a":1})",
                               R"({"b":2,"x":5,"a":1,"c":3})", R"({"x":{"a":7},"c":3,"a":1,"b":9,"b":2})"}) {
    Cached("/r", document);
    EXPECT_THAT(Tick(), ElementsAre("/r#/a 2:1", "/r#/b 2:2", "/r#/c 2:3"));
  }
  // Another member where one was, and of the same size and value.
  Cached("/r", R"({"x":1,"y":2,"z":3})");
  EXPECT_THAT(Tick(), ElementsAre("/r#/a 5:INVALID", "/r#/b 5:INVALID", "/r#/c 5:INVALID"));
  Cached("/r", R"({"c":3,"a":1})");
  EXPECT_THAT(Tick(), ElementsAre("/r#/a 2:1", "/r#/b 5:INVALID", "/r#/c 2:3"));
}

// Names are looked at only where they may have changed, so documents of several kinds come in every order here, some with
// a shape and some without.
TEST_P(StillDocuments, MemberIsFoundWhateverKindsOfDocumentsFollowEachOther) {
  const struct {
    const char* names[4];
    bool shaped;
  } kinds[] = {{{"a", "b", "c", "d"}, true}, {{"d", "c", "b", "a"}, true},  {{"a", "b", "c", "d"}, false},
               {{"b", "a", "d", "c"}, true}, {{"c", "d", "a", "b"}, false}, {{"a", "x", "c", "y"}, true}};
  Add({"/r#/a", "/r#/b", "/r#/c", "/r#/d"});
  int value = 0;
  const auto show = [&](std::size_t kind) {
    std::string text;
    std::map<std::string, std::string> shown = {
        {"a", " 5:INVALID"}, {"b", " 5:INVALID"}, {"c", " 5:INVALID"}, {"d", " 5:INVALID"}};
    for (int i = 0; i < 4; ++i) {
      // Two of the values stay as they are, wherever they stand.
      const std::string name = kinds[kind].names[i];
      const int number = name < "c" ? name[0] : ++value;
      text += (i == 0 ? "{\"" : ",\"") + name + "\":" + std::to_string(number);
      shown[name] = " 2:" + std::to_string(number);
    }
    text += '}';
    if (kinds[kind].shaped) {
      GroupTest::Cached("/r", Shaped(text));
    } else {
      GroupTest::Cached("/r", text);
    }
    EXPECT_THAT(Tick(), ElementsAre("/r#/a" + shown["a"], "/r#/b" + shown["b"], "/r#/c" + shown["c"],
                                    "/r#/d" + shown["d"]))
        << text;
  };
  for (std::size_t first = 0; first < std::size(kinds); ++first) {
    for (std::size_t second = 0; second < std::size(kinds); ++second) {
      for (std::size_t third = 0; third < std::size(kinds); ++third) {
        show(first);
        show(first);
        show(second);
        show(third);
      }
    }
  }
}

// Of two resources of one shape the one has changed its own since.
TEST_P(StillDocuments, ShapesOfSeveralResourcesAreToldApart) {
  const std::string one = R"({"a":1,"b":2,"c":3})";
  const std::string other = R"({"c":3,"b":2,"a":1})";
  Add({"/r#/a", "/r#/c", "/s#/a", "/s#/c"});
  for (const auto& [r, s] : std::vector<std::pair<std::string, std::string>>{
           {one, one}, {one, other}, {other, other}, {other, one}, {one, one}, {one, other}, {other, one}}) {
    Cached("/r", r);
    Cached("/s", s);
    EXPECT_THAT(Tick(), ElementsAre("/r#/a 2:1", "/r#/c 2:3", "/s#/a 2:1", "/s#/c 2:3"));
  }
}

// Values whose record holds the same 64 bits, or whose text is the same, are of different kinds all the same.
TEST_P(StillDocuments, ValueOfAnotherKindIsNotTakenForTheSame) {
  const struct {
    const char* value;
    const char* shown;
  } values[] = {{"1", "2:1"},
                {"true", "1:1"},
                {"5e-324", "3:0"},
                {"0", "2:0"},
                {"false", "1:0"},
                {"0.0", "3:0"},
                {"-0.0", "3:-0"},
                {"0.0", "3:0"},
                {"9223372036854775808", "4:9223372036854775808"},
                {"-9223372036854775808", "2:-9223372036854775808"},
                {"\"1\"", "0:1"},
                {"\"2\"", "0:2"},
                {"null", "5:INVALID"},
                {"1", "2:1"},
                {"2", "2:2"}};
  Cached("/r", R"({"a":7})");
  Add({"/r#/a"});
  Tick();
  for (const auto& [value, shown] : values) {
    for (int i = 0; i < 2; ++i) {
      Cached("/r", std::string(R"({"a":)") + value + "}");
      EXPECT_THAT(Tick(), ElementsAre(std::string("/r#/a ") + shown));
    }
  }
}

// The same without a change of kind, after which nothing is taken for the same in any case.
TEST_P(StillDocuments, OtherValueOfTheSameKindIsNotTakenForTheSame) {
  const struct {
    const char* value;
    const char* shown;
  } values[] = {{"true", "1:1"},
                {"false", "1:0"},
                {"true", "1:1"},
                {"9223372036854775808", "4:9223372036854775808"},
                {"18446744073709551615", "4:18446744073709551615"},
                {"9223372036854775808", "4:9223372036854775808"},
                {"-1", "2:-1"},
                {"-2", "2:-2"},
                {"0.5", "3:0.5"},
                {"-0.5", "3:-0.5"}};
  Cached("/r", R"({"a":7})");
  Add({"/r#/a"});
  Tick();
  for (const auto& [value, shown] : values) {
    Cached("/r", std::string(R"({"a":)") + value + "}");
    EXPECT_THAT(Tick(), ElementsAre(std::string("/r#/a ") + shown));
  }
}

// Its name ends with that of a member of the document itself.
TEST_P(StillDocuments, MemberOfAMemberOfTheSameNameIsNotTakenForIt) {
  for (int value = 1; value <= 3; ++value) {
    Cached("/r", R"({"a":{"a":)" + std::to_string(value) + "}}");
    Add({"/r#/a/a"});
    EXPECT_THAT(Tick(), ElementsAre("/r#/a/a 2:" + std::to_string(value)));
  }
}

// The first tick need not look at the document of an item that was read before, and so not at the place of the member
// either. The document that it has looked at last has the same version, but is another resource's.
TEST_P(StillDocuments, MemberOfAnItemThatWasReadIsNotLookedForInTheDocumentOfAnother) {
  Cached("/r", R"({"b":1,"a":2})");
  Cached("/s", R"({"a":3,"b":4})");
  Add({"/r#/a", "/s#/a"});
  feed.UpdateItemFromCache(Item("/s#/a"));
  EXPECT_THAT(Tick(), ElementsAre("/r#/a 2:2", "/s#/a 2:3"));
  // Where the other resource has it there is now what was shown.
  Cached("/s", R"({"a":5,"b":3})");
  EXPECT_THAT(Tick(), ElementsAre("/r#/a 2:2", "/s#/a 2:5"));
}

// What a read has looked at may have its members elsewhere, and then they stay there.
TEST_P(StillDocuments, PlaceOfAMemberDoesNotOutlastADocumentThatAReadTookInBetween) {
  Cached("/r", R"({"a":1,"b":2})");
  Add({"/r#/a"});
  EXPECT_THAT(Tick(), ElementsAre("/r#/a 2:1"));
  feed.NoteEdit();  // as a write of any item does
  EXPECT_THAT(Tick(), ElementsAre("/r#/a 2:1"));
  Cached("/r", R"({"b":2,"a":1})");
  feed.UpdateItemFromCache(Item("/r#/a"));
  EXPECT_THAT(Tick(), ElementsAre("/r#/a 2:1"));
  Cached("/r", R"({"b":1,"a":5})");
  EXPECT_THAT(Tick(), ElementsAre("/r#/a 2:5"));
}

// No push of a resource that has an item is left out, so it takes the cache itself to lose one.
TEST_P(StillDocuments, ItemWhoseResourceLostItsValuesIsInvalidUntilItHasOneAgain) {
  Cached("/r", R"({"a":1})");
  Add({"/r#/a"});
  EXPECT_THAT(Tick(), ElementsAre("/r#/a 2:1"));
  Cache().Forget("/r");
  for (int i = 0; i < 2; ++i) {
    EXPECT_THAT(Tick(), ElementsAre("/r#/a 5:INVALID"));
  }
  Cached("/r", R"({"a":1})");
  EXPECT_THAT(Tick(), ElementsAre("/r#/a 2:1"));
}

TEST_P(StillDocuments, ReadThatFindsNothingAnyMoreIsNotForgottenByTheTick) {
  Cached("/r", R"({"a":1})");
  Add({"/r#/a"});
  EXPECT_THAT(Tick(), ElementsAre("/r#/a 2:1"));
  Cache().Forget("/r");
  feed.UpdateItemFromCache(Item("/r#/a"));
  EXPECT_EQ(Item("/r#/a").type, enumtype_invalid);
  Cached("/r", R"({"a":1})");
  EXPECT_THAT(Tick(), ElementsAre("/r#/a 2:1"));
  Cached("/r", R"({"a":{}})");  // leaves the item as it is: as the value before had made it
  EXPECT_THAT(Tick(), ElementsAre("/r#/a 2:1"));
}

// An object or array leaves an item as it is.
TEST_P(StillDocuments, ItemThatBecomesAContainerKeepsWhatItShowed) {
  Cached("/r", R"({"a":1})");
  Add({"/r#/a"});
  Tick();
  for (const char* document : {R"({"a":{"b":2}})", R"({"a":[2]})", R"({"a":{}})", R"({"a":1})"}) {
    Cached("/r", document);
    EXPECT_THAT(Tick(), ElementsAre("/r#/a 2:1"));
  }
  for (const char* document : {"[1]", "1", "{}", "null"}) {
    Cached("/r", document);
    EXPECT_THAT(Tick(), ElementsAre("/r#/a 5:INVALID"));
  }
}

TEST_P(StillDocuments, ChangeOfOneResourceShowsAndTheOthersStay) {
  Cached("/r", R"({"a":1,"t":"long enough to need memory of its own, this text"})");
  Cached("/s", R"({"a":2})");
  Add({"/r#/a", "/r#/t", "/s#/a"});
  Tick();
  Tick();
  Cached("/r", R"({"a":3,"t":"another text, long enough to need memory of its own"})");
  for (int i = 0; i < 2; ++i) {
    EXPECT_THAT(
        Tick(),
        ElementsAre("/r#/a 2:3", "/r#/t 0:another text, long enough to need memory of its own", "/s#/a 2:2"));
  }
  Cached("/s", R"({"a":"four"})");
  for (int i = 0; i < 2; ++i) {
    EXPECT_THAT(Tick(),
                ElementsAre("/r#/a 2:3", "/r#/t 0:another text, long enough to need memory of its own",
                            "/s#/a 0:four"));
  }
}

// A read between two ticks takes a newer value into the item, of which a text then lies elsewhere.
TEST_P(StillDocuments, ItemThatWasRefreshedBetweenTicksShowsItsNewValue) {
  Cached("/r", R"({"t":"long enough to need memory of its own, this text"})");
  Add({"/r#/t"});
  Tick();
  Cached("/r",
         R"({"t":"another text, even longer, which needs more memory of its own than the one before"})");
  feed.UpdateItemFromCache(Item("/r#/t"));
  EXPECT_THAT(Tick(),
              ElementsAre("/r#/t 0:another text, even longer, which needs more memory of its own than the "
                          "one before"));
}

// An object or array leaves an item as it is, so it matters what that is: whatever was shown of it last.
TEST_P(StillDocuments, ContainerBringsBackNoValueThatAReadTookInBetween) {
  for (const char* between :
       {R"({"a":2})", R"({"a":{}})", R"({"a":null})", R"({"a":0.5})", R"({"a":"text"})"}) {
    SCOPED_TRACE(between);
    Cached("/r", R"({"a":1})");
    Add({"/r#/a"});
    EXPECT_THAT(Tick(), ElementsAre("/r#/a 2:1"));
    Cached("/r", between);
    feed.UpdateItemFromCache(Item("/r#/a"));
    Cached("/r", R"({"a":1})");
    EXPECT_THAT(Tick(), ElementsAre("/r#/a 2:1"));
    Cached("/r", R"({"a":{}})");
    EXPECT_THAT(Tick(), ElementsAre("/r#/a 2:1"));
    EXPECT_THAT(Tick(), ElementsAre("/r#/a 2:1"));
    feed.UpdateItemFromCache(Item("/r#/a"));
    EXPECT_EQ(Item("/r#/a").value.int64(), 1);
    EXPECT_EQ(Item("/r#/a").type, enumtype_int64);
  }
}

TEST_P(StillDocuments, ContainerBringsBackNoValueThatAnotherGroupTookInBetween) {
  Cached("/r", R"({"a":1})");
  Add({"/r#/a"});
  ZoIO::SubscriptionGroup other(feed, std::chrono::milliseconds(500));
  const auto tickOther = [&] {
    recorder.Clear();
    other.Tick();
    return Pushed();
  };
  Tick();
  Cached("/r", R"({"a":1})");
  Tick();
  other.AddItem("/r#/a");
  for (int i = 0; i < 3; ++i) {
    EXPECT_THAT(tickOther(), ElementsAre("/r#/a 2:1"));
    Cached("/r", R"({"a":2})");
    EXPECT_THAT(Tick(), ElementsAre("/r#/a 2:2"));
    Cached("/r", R"({"a":1})");
    EXPECT_THAT(tickOther(), ElementsAre("/r#/a 2:1"));
    Cached("/r", R"({"a":[]})");
    EXPECT_THAT(Tick(), ElementsAre("/r#/a 2:1"));
    EXPECT_THAT(tickOther(), ElementsAre("/r#/a 2:1"));
    Cached("/r", R"({"a":1})");
    EXPECT_THAT(Tick(), ElementsAre("/r#/a 2:1"));
  }
  // Alone again.
  other.RemoveItem("/r#/a");
  for (const char* document : {R"({"a":3})", R"({"a":3})", R"({"a":{}})"}) {
    Cached("/r", document);
    EXPECT_THAT(Tick(), ElementsAre("/r#/a 2:3"));
  }
}

TEST_P(StillDocuments, ContainerBringsBackNoValueThatAGroupTookWithItsFirstTick) {
  Cached("/r", R"({"a":1})");
  Add({"/r#/a"});
  Tick();
  ZoIO::SubscriptionGroup other(feed, std::chrono::milliseconds(500));
  other.AddItem("/r#/a");
  Cached("/r", R"({"a":2})");
  other.Tick();
  Cached("/r", R"({"a":1})");
  EXPECT_THAT(Tick(), ElementsAre("/r#/a 2:1"));
  Cached("/r", R"({"a":{}})");
  EXPECT_THAT(Tick(), ElementsAre("/r#/a 2:1"));
}

// Whatever makes a group look at the item again, the other one takes values into it all the same.
TEST_P(StillDocuments, ContainerBringsBackNoValueThatAnotherGroupTookAfterAWrite) {
  Cached("/r", R"({"a":1})");
  Add({"/r#/a"});
  Tick();
  ZoIO::SubscriptionGroup other(feed, std::chrono::milliseconds(500));
  other.AddItem("/r#/a");
  other.Tick();
  feed.NoteEdit();  // as a write of any item does
  EXPECT_THAT(Tick(), ElementsAre("/r#/a 2:1"));
  Cached("/r", R"({"a":2})");
  other.Tick();
  Cached("/r", R"({"a":1})");
  EXPECT_THAT(Tick(), ElementsAre("/r#/a 2:1"));
  Cached("/r", R"({"a":{}})");
  EXPECT_THAT(Tick(), ElementsAre("/r#/a 2:1"));
}

TEST_P(StillDocuments, ContainerBringsBackNoValueThatWasWritten) {
  Cached("/r", R"({"a":1})");
  Add({"/r#/a"});
  Tick();
  // As a write leaves an item.
  Item("/r#/a").value = xhmi::variant_value(7LL);
  Item("/r#/a").seen = 0;
  feed.NoteEdit();
  EXPECT_THAT(Tick(), ElementsAre("/r#/a 2:1"));
  Cached("/r", R"({"a":{}})");
  EXPECT_THAT(Tick(), ElementsAre("/r#/a 2:1"));
}

// After the clock was set back, values lie ahead of it, and the first of them counts.
TEST_P(StillDocuments, ValueAheadOfTheClockIsShownUntilItsTimeHasPassed) {
  Cached("/r", R"({"a":1})");
  Add({"/r#/a"});
  Tick();
  const long long now = ZoIO::CacheManager::TimeInMills();
  constexpr long long hour = 3'600'000;
  for (const int ahead : {1, 2, 3}) {
    Cache().AddAt("/r", Document(R"({"a":)" + std::to_string(ahead) + "}"), now + ahead * hour);
    EXPECT_THAT(Tick(), ElementsAre("/r#/a 2:1"));
    EXPECT_THAT(Tick(), ElementsAre("/r#/a 2:1"));
  }
}

// The same while values lie ahead of the clock, as they do after it was set back.
TEST_P(StillDocuments, ContainerBringsBackNoValueThatAReadTookWhileValuesLayAheadOfTheClock) {
  const long long now = ZoIO::CacheManager::TimeInMills();
  constexpr long long minute = 60'000;
  const auto ahead = [&](int minutes, const char* document) {
    Cache().AddAt("/r", Document(document), now + minutes * minute);
  };
  Cached("/r", R"({"a":1})");
  Add({"/r#/a"});
  Tick();
  ahead(120, R"({"a":3})");
  ahead(60, R"({"a":3})");
  EXPECT_THAT(Tick(), ElementsAre("/r#/a 2:3"));
  ahead(30, R"({"a":2})");
  feed.UpdateItemFromCache(Item("/r#/a"));
  ahead(20, R"({"a":3})");
  EXPECT_THAT(Tick(), ElementsAre("/r#/a 2:3"));
  ahead(10, R"({"a":{}})");
  EXPECT_THAT(Tick(), ElementsAre("/r#/a 2:3"));
}

// Of the values ahead of the clock the first counts, although it is not the newest: it has no version to go by.
TEST_P(StillDocuments, MemberIsFoundInADocumentAheadOfTheClock) {
  const long long now = ZoIO::CacheManager::TimeInMills();
  constexpr long long minute = 60'000;
  const std::string document = R"({"a":1,"b":2,"c":3})";
  Cached("/r", document);
  Add({"/r#/a", "/r#/b", "/r#/c"});
  EXPECT_THAT(Tick(), ElementsAre("/r#/a 2:1", "/r#/b 2:2", "/r#/c 2:3"));
  Cached("/r", document);
  EXPECT_THAT(Tick(), ElementsAre("/r#/a 2:1", "/r#/b 2:2", "/r#/c 2:3"));
  Cache().AddAt("/r", Document(document), now + 120 * minute);
  Cache().AddAt("/r", Document(R"({"b":1,"a":9,"c":3})"), now + 60 * minute);
  EXPECT_THAT(Tick(), ElementsAre("/r#/a 2:9", "/r#/b 2:1", "/r#/c 2:3"));
  Cache().AddAt("/r", Document(R"({"c":9,"b":3,"a":1})"), now + 30 * minute);
  EXPECT_THAT(Tick(), ElementsAre("/r#/a 2:1", "/r#/b 2:3", "/r#/c 2:9"));
}

// More members than 16 bits can count.
TEST_P(StillDocuments, MembersOfAVeryWideDocumentAreToldApart) {
  const auto wide = [](int from) {
    std::string text;
    for (int i = 0; i < 70000; ++i) {
      text += (i == 0 ? "{\"m" : ",\"m") + std::to_string(i) + "\":" + std::to_string(from + i);
    }
    return text + '}';
  };
  Cached("/r", wide(0));
  Add({"/r#/m464", "/r#/m66000"});
  EXPECT_THAT(Tick(), ElementsAre("/r#/m464 2:464", "/r#/m66000 2:66000"));
  for (const int from : {0, 1, 1}) {
    Cached("/r", wide(from));
    EXPECT_THAT(Tick(), ElementsAre("/r#/m464 2:" + std::to_string(464 + from),
                                    "/r#/m66000 2:" + std::to_string(66000 + from)));
  }
}

TEST_P(StillDocuments, ItemWhosePushRaisedIsPushedAgainAndTheOthersGoOn) {
  Cached("/r", R"({"a":1,"b":2,"c":3})");
  Add({"/r#/a", "/r#/b", "/r#/c"});
  // New, shown before, and shown before of an older document.
  for (int i = 0; i < 3; ++i) {
    recorder.OnValue([](const Entry& entry) {
      if (entry.item == "/r#/b") {
        throw std::runtime_error("broken");
      }
    });
    EXPECT_THAT(Tick(), ElementsAre("/r#/a 2:1", "/r#/b 2:2", "/r#/c 2:3"));
    recorder.OnValue({});
    EXPECT_THAT(Tick(), ElementsAre("/r#/a 2:1", "/r#/b 2:2", "/r#/c 2:3"));
    if (i == 1) {
      Cached("/r", R"({"a":1,"b":2,"c":3})");
    }
  }
}

TEST_P(StillDocuments, OrderOfNamesHoldsWhileItemsComeAndGo) {
  Cached("/r", R"({"a":1,"b":2,"c":3})");
  Add({"/r#/b"});
  Tick();
  Add({"/r#/c", "/r#/a"});
  EXPECT_THAT(Tick(), ElementsAre("/r#/a 2:1", "/r#/b 2:2", "/r#/c 2:3"));
  group.RemoveItem("/r#/b");
  EXPECT_THAT(Tick(), ElementsAre("/r#/a 2:1", "/r#/c 2:3"));
  group.AddItem("/r#/b");
  group.RemoveItem("/r#/a");
  EXPECT_THAT(Tick(), ElementsAre("/r#/b 2:2", "/r#/c 2:3"));
}

TEST_P(StillDocuments, ItemsOfTwoGroupsAreEachPushedByBoth) {
  Cached("/r", R"({"a":1})");
  Add({"/r#/a"});
  ZoIO::SubscriptionGroup other(feed, std::chrono::milliseconds(500));
  other.AddItem("/r#/a");
  for (int i = 0; i < 3; ++i) {
    EXPECT_THAT(Tick(), ElementsAre("/r#/a 2:1"));
    other.Tick();
    EXPECT_THAT(Pushed(), ElementsAre("/r#/a 2:1"));
  }
  Cached("/r", R"({"a":2})");
  EXPECT_THAT(Tick(), ElementsAre("/r#/a 2:2"));
  other.Tick();
  EXPECT_THAT(Pushed(), ElementsAre("/r#/a 2:2"));
}

// As a write leaves an item: its value is the host's until the cache's is taken again.
TEST_P(StillDocuments, ItemThatWasWrittenTakesTheValueOfTheCacheAgain) {
  Cached("/r", R"({"a":"text","b":1})");
  Add({"/r#/a", "/r#/b"});
  Tick();
  Tick();
  Item("/r#/a").value = xhmi::variant_value(7LL);
  Item("/r#/a").seen = 0;
  feed.NoteEdit();
  for (int i = 0; i < 2; ++i) {
    EXPECT_THAT(Tick(), ElementsAre("/r#/a 0:text", "/r#/b 2:1"));
    EXPECT_EQ(Item("/r#/a").value, xhmi::variant_value("text"));
  }
}

}  // namespace
}  // namespace ZoTest
