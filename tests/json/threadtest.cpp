#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "zovyrnsdk/json/zojson.h"
#include "zovyrnsdk/json/zojsoniterator.h"

namespace {

constexpr int threadCount = 4;
constexpr int rounds = 2000;

std::string Text() {
  std::string text = "{";
  for (int i = 0; i < 20; ++i) {
    text += "\"channel" + std::to_string(i) + "\":{\"value\":" + std::to_string(i) +
            ".5,\"name\":\"a name that is long enough for a node\",\"list\":[1,2,3]},";
  }
  text.back() = '}';
  return text;
}

template <typename Body>
void RunOnThreads(const Body& body) {
  std::atomic<bool> go{false};
  std::vector<std::thread> threads;
  for (int i = 0; i < threadCount; ++i) {
    threads.emplace_back([&body, &go, i] {
      go.wait(false);
      body(i);
    });
  }
  go = true;
  go.notify_all();
  for (std::thread& thread : threads) {
    thread.join();
  }
}

TEST(ZoJsonThreads, AnyNumberMayReadOneValue) {
  const ZoJson shared(Text());
  const std::string expected = shared.ToString();
  const ZoJsonPointer pointer("/channel7/value");
  std::atomic<int> wrong{0};
  RunOnThreads([&](int) {
    for (int round = 0; round < rounds; ++round) {
      const ZoJson copy = shared;
      const ZoJson part = copy.At("/channel3");
      std::size_t members = 0;
      for (ZoJsonIterator it(part); it.Valid(); it.Next()) {
        members += it.Value().IsNull() ? 0 : 1;
      }
      if (copy.At(pointer).Get<double>() != 7.5 || members != 3 || !(part == shared.At("channel3")) ||
          (round % 100 == 0 && (copy.ToString() != expected || !(shared.Flatten().Unflatten() == copy)))) {
        ++wrong;
      }
    }
  });
  EXPECT_EQ(wrong, 0);
}

TEST(ZoJsonThreads, EachMayEditItsOwnCopyOfOneValue) {
  const ZoJson shared(Text());
  const std::string expected = shared.ToString();
  std::atomic<int> wrong{0};
  RunOnThreads([&](int thread) {
    for (int round = 0; round < rounds; ++round) {
      ZoJson mine = shared;
      const std::string channel = "/channel" + std::to_string(round % 20);
      mine.Set(channel + "/value", thread);
      mine.Set(channel + "/list/-", round);
      mine.Remove("/channel" + std::to_string((round + 1) % 20));
      if (mine.At(channel + "/value").Get<int>() != thread ||
          mine.At(channel + "/list/3").Get<int>() != round || mine.Size() != 19) {
        ++wrong;
      }
    }
  });
  EXPECT_EQ(wrong, 0);
  EXPECT_EQ(shared.ToString(), expected);
}

// Hands values from one thread to others, as a cache does.
class Mailbox {
 public:
  void Put(ZoJson value) {
    const std::lock_guard<std::mutex> lock(mutex);
    values.push_back(std::move(value));
    changed.notify_one();
  }
  ZoJson Take() {
    std::unique_lock<std::mutex> lock(mutex);
    changed.wait(lock, [this] { return !values.empty(); });
    ZoJson value = std::move(values.front());
    values.pop_front();
    return value;
  }

 private:
  std::mutex mutex;
  std::condition_variable changed;
  std::deque<ZoJson> values;
};

TEST(ZoJsonThreads, TheLastOneToLetGoMayBeAnyThread) {
  Mailbox mailbox;
  std::atomic<int> wrong{0};
  std::vector<std::thread> readers;
  for (int i = 0; i < threadCount; ++i) {
    readers.emplace_back([&] {
      for (int round = 0; round < rounds; ++round) {
        const ZoJson value = mailbox.Take();
        wrong += value.At("/a/b/0").Get<int>() == value.At("/n").Get<int>() ? 0 : 1;
      }
    });
  }
  for (int round = 0; round < rounds; ++round) {
    ZoJson value;
    value.Set("/a/b", ZoJson("[0,\"a text that is long enough for a node\"]"));
    value.Set("/a/b/0", round);
    value.Set("/n", round);
    for (int i = 0; i < threadCount; ++i) {
      mailbox.Put(value);
    }
  }
  for (std::thread& reader : readers) {
    reader.join();
  }
  EXPECT_EQ(wrong, 0);
}

TEST(ZoJsonThreads, AnEditAfterTheLastReaderLetGoHappensInPlace) {
  // The reader's last read and the writer's edit in place are ordered by the count alone.
  ZoJson value(Text());
  std::atomic<int> copied{0};
  std::atomic<int> sum{0};
  for (int round = 0; round < 200; ++round) {
    copied = 0;
    std::thread reader([copy = value, &copied, &sum]() mutable {
      const ZoJson mine = std::move(copy);
      copied = 1;
      copied.notify_one();
      sum += mine.At("/channel1/list/0").Get<int>();
    });
    copied.wait(0);
    value.Set("/channel1/list/0", round);
    value.Set("/channel1/list/0", 1);
    reader.join();
  }
  EXPECT_EQ(sum, 200);
  EXPECT_EQ(value, ZoJson(Text()));
}

}  // namespace
