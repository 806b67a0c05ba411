// A host that uses Boost.Asio and Boost.JSON itself and exports all their symbols, so that the loader would
// prefer them to the plug-in's own if the plug-in left it the choice.
#include <gtest/gtest.h>

#include <boost/asio.hpp>
#include <boost/json/src.hpp>

#include "tests/plugin/elffile.h"
#include "tests/plugin/loopback.h"
#include "tests/plugin/plugintest.h"

namespace ZoTest {
namespace {

// The host's own use of both libraries, a connection that is refused included.
void UseBoostInTheHost() {
  boost::asio::io_context context;
  boost::asio::steady_timer timer(context, std::chrono::milliseconds(1));
  int fired = 0;
  timer.async_wait([&fired](const boost::system::error_code& error) { fired += error ? 0 : 1; });
  boost::asio::ip::tcp::socket socket(context);
  boost::system::error_code refused;
  socket.async_connect({boost::asio::ip::address_v4::loopback(), ClosedPort()},
                       [&refused](const boost::system::error_code& error) { refused = error; });
  context.run();
  EXPECT_EQ(fired, 1);
  EXPECT_EQ(refused, boost::asio::error::connection_refused);
  EXPECT_EQ(boost::json::serialize(boost::json::parse("{\"a\":[1,2.5,\"x\"]}")), "{\"a\":[1,2.5E0,\"x\"]}");
}

TEST(HostWithBoost, ExportsBoostSymbols) {
  std::size_t exported = 0;
  for (const DynamicSymbol& symbol : ElfFile("/proc/self/exe").symbols) {
    exported += symbol.defined && symbol.name.find("boost") != std::string::npos ? 1 : 0;
  }
  EXPECT_GT(exported, 100u);
}

TEST(HostWithBoost, AndPluginDoNotDisturbEachOther) {
  UseBoostInTheHost();
  Recorder recorder;
  PluginLibrary plugin;
  const ioHandlerParam param = recorder.Param();
  void* simulated = nullptr;
  void* unreachable = nullptr;
  ASSERT_EQ(plugin.createIoInstance("simulator", 0, &param, &simulated), 0);
  ASSERT_EQ(plugin.createIoInstance("127.0.0.1", ClosedPort(), &param, &unreachable), 0);
  EXPECT_EQ(recorder.Count([](const Entry& entry) { return entry.level == 5; }), 1u);
  UseBoostInTheHost();
  EXPECT_EQ(plugin.callMethod(nullptr, nullptr, "Read", "{\"id\":[1],\"uri\":\"res\"}", simulated), 0);
  ASSERT_EQ(recorder.Results().size(), 1u);
  EXPECT_EQ(recorder.Results()[0].response,
            "{\"id\":null,\"errcode\":0,\"data\":\"{\\\"payload\\\":\\\"res\\\"}\"}");
  EXPECT_EQ(plugin.destroyIoInstance(simulated), 0);
  EXPECT_EQ(plugin.destroyIoInstance(unreachable), 0);
  plugin.Unload();
  EXPECT_FALSE(plugin.IsMapped());
  UseBoostInTheHost();
}

}  // namespace
}  // namespace ZoTest
