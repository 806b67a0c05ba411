// What every sensor manager promises, as a typed suite. Instantiate it with a type that makes one manager
// whose sensor is connected, answers "/known" and counts as idle:
//
//   struct Maker {
//     std::shared_ptr<ZoIO::ISensorManager> Make(std::shared_ptr<ZoIO::Logger> logger);
//   };
//
// Make is called once, and the Maker outlives what it made.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/recorder.h"
#include "zoiohandler/vyrnclient/cachemanager.h"
#include "zoiohandler/vyrnclient/isensormanager.h"
#include "zoiohandler/vyrnclient/itemmanager.h"
#include "zoiohandler/vyrnclient/logger.h"

namespace ZoTest {

template <typename Maker>
class SensorManagerSuite : public ::testing::Test {
 protected:
  using Verb = std::function<ZoJson(const std::string& uri, bool logFailure)>;

  // The nine verbs.
  std::vector<Verb> Verbs() {
    ZoIO::ISensorManager* const m = manager.get();
    return {[m](const std::string& uri, bool log) { return m->Read(uri, log); },
            [m](const std::string& uri, bool log) { return m->Create(uri, ZoJson::Of(1), log); },
            [m](const std::string& uri, bool log) { return m->Update(uri, ZoJson::Of(1), log); },
            [m](const std::string& uri, bool log) { return m->Call(uri, ZoJson::Of(1), log); },
            [m](const std::string& uri, bool log) { return m->Delete(uri, log); },
            [m](const std::string& uri, bool log) { return m->Subscribe(uri, log); },
            [m](const std::string& uri, bool log) { return m->Unsubscribe(uri, log); },
            [m](const std::string& uri, bool log) { return m->Stream(uri, log); },
            [m](const std::string& uri, bool log) { return m->StopStream(uri, log); }};
  }

  Maker maker;
  Recorder recorder;
  std::shared_ptr<ZoIO::Logger> logger = std::make_shared<ZoIO::Logger>(&recorder, &Recorder::HandleLog);
  std::shared_ptr<ZoIO::ISensorManager> manager = maker.Make(logger);
};

TYPED_TEST_SUITE_P(SensorManagerSuite);

TYPED_TEST_P(SensorManagerSuite, HandsOutTheSameRegistryCacheAndLogger) {
  EXPECT_NE(this->manager->PLC(), nullptr);
  EXPECT_EQ(this->manager->PLC(), this->manager->PLC());
  EXPECT_NE(this->manager->Cache(), nullptr);
  EXPECT_EQ(this->manager->Cache(), this->manager->Cache());
  EXPECT_EQ(this->manager->GetLogger(), this->logger);
}

TYPED_TEST_P(SensorManagerSuite, IsConnected) {
  EXPECT_TRUE(this->manager->IsConnected());
}

TYPED_TEST_P(SensorManagerSuite, RunsFromStartToStop) {
  EXPECT_FALSE(this->manager->IsRunning());
  this->manager->Start();
  EXPECT_TRUE(this->manager->IsRunning());
  this->manager->Stop();
  EXPECT_FALSE(this->manager->IsRunning());
}

TYPED_TEST_P(SensorManagerSuite, ReadYieldsAPayload) {
  EXPECT_TRUE(this->manager->Read("/known", true).HasKey("/payload"));
  EXPECT_TRUE(this->manager->Read("/known", false).HasKey("/payload"));
}

TYPED_TEST_P(SensorManagerSuite, AnswersAreObjectsOrEmpty) {
  for (const auto& verb : this->Verbs()) {
    const ZoJson answer = verb("/known", true);
    EXPECT_TRUE(answer.Empty() || answer.IsObject()) << answer.ToString();
  }
}

TYPED_TEST_P(SensorManagerSuite, NoUriMakesAVerbRaise) {
  const std::string uris[] = {
      "", "/", "#", "no such thing", "/a~b", "/\xff\xfe", std::string("/a\0b", 4), std::string(4096, '/')};
  for (const std::string& uri : uris) {
    for (const auto& verb : this->Verbs()) {
      EXPECT_NO_THROW(verb(uri, false)) << uri;
      EXPECT_NO_THROW(verb(uri, true)) << uri;
    }
  }
}

TYPED_TEST_P(SensorManagerSuite, KnownItemBecomesValid) {
  EXPECT_TRUE(this->manager->PLC()->Item("/known#").valid);
}

TYPED_TEST_P(SensorManagerSuite, VerbsMayBeUsedByThreadsAtOnce) {
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([this] {
      for (int i = 0; i < 20; ++i) {
        EXPECT_TRUE(this->manager->Read("/known", false).HasKey("/payload"));
        this->manager->Cache()->Add("/known", ZoJson::Of(i));
        this->manager->PLC()->Item("/known#");
        this->manager->IsRunning();
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
}

TYPED_TEST_P(SensorManagerSuite, CacheKeepsWhatIsNotTheNewestForFiveSeconds) {
  ZoIO::CacheManager& cache = *this->manager->Cache();
  // So far ahead that the cache's own worker finds nothing old.
  const long long start = ZoIO::CacheManager::TimeInMills() + 3'600'000;
  cache.AddAt("/aged", ZoJson::Of(1), start);
  cache.AddAt("/aged", ZoJson::Of(2), start + 1);
  cache.TrimAt(start + 5000);
  EXPECT_EQ(cache.SizeAt("/aged"), 2u);
  cache.TrimAt(start + 5001);
  EXPECT_EQ(cache.SizeAt("/aged"), 1u);
}

TYPED_TEST_P(SensorManagerSuite, EndTellsOfTheRegistryOnceAndThenNothing) {
  this->manager.reset();
  EXPECT_EQ(this->recorder.CountMessages("Destroying item manager."), 1u);
  EXPECT_EQ(this->recorder.CountMessages("Item manager destroyed."), 1u);
  EXPECT_EQ(this->recorder.Logs().back().message, "Item manager destroyed.");
}

REGISTER_TYPED_TEST_SUITE_P(SensorManagerSuite, HandsOutTheSameRegistryCacheAndLogger, IsConnected,
                            RunsFromStartToStop, ReadYieldsAPayload, AnswersAreObjectsOrEmpty,
                            NoUriMakesAVerbRaise, KnownItemBecomesValid, VerbsMayBeUsedByThreadsAtOnce,
                            CacheKeepsWhatIsNotTheNewestForFiveSeconds,
                            EndTellsOfTheRegistryOnceAndThenNothing);

}  // namespace ZoTest
