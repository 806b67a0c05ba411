#include "tests/sdk/linkfixture.h"

#include <exception>
#include <utility>

#include "zovyrnsdk/zorequesterror.h"

namespace ZoTest {

qIpAddress Loopback() {
  qIpAddress address;
  qIpAddress_Parse("127.0.0.1", &address);
  return address;
}

void PushRecord::ListenTo(ZoSystem& system) {
  system.Client().SetStreamHandler(
      [this](const std::shared_ptr<ZoStreamResponse>& response) { Add(true, *response); });
  system.Client().SetSubHandler(
      [this](const std::shared_ptr<ZoNotificationResponse>& response) { Add(false, *response); });
}

void PushRecord::SetHook(std::function<void(const Arrival&)> next) {
  const std::lock_guard lock(mutex);
  hook = std::move(next);
}

std::vector<Arrival> PushRecord::All() const {
  const std::lock_guard lock(mutex);
  return arrivals;
}

std::size_t PushRecord::Count() const {
  const std::lock_guard lock(mutex);
  return arrivals.size();
}

bool PushRecord::WaitFor(const std::function<bool(const std::vector<Arrival>&)>& predicate) const {
  std::unique_lock lock(mutex);
  return changed.wait_for(lock, kLimit, [&] { return predicate(arrivals); });
}

bool PushRecord::WaitForCount(std::size_t count) const {
  return WaitFor([&](const std::vector<Arrival>& all) { return all.size() >= count; });
}

void PushRecord::Add(bool stream, const ZoResponse& response) {
  Arrival arrival{stream, response.Path(), response.Payload(), Clock::now(), std::this_thread::get_id()};
  std::function<void(const Arrival&)> call;
  {
    const std::lock_guard lock(mutex);
    arrivals.push_back(arrival);
    call = hook;
    changed.notify_all();
  }
  if (call) {
    call(arrival);
  }
}

std::string LinkTest::FailureOf(ZoTransaction transaction, std::uint64_t limit) {
  try {
    transaction.GetResponse(limit);
  } catch (const std::exception& error) {
    return error.what();
  }
  return std::string();
}

int LinkTest::RefusalOf(ZoTransaction transaction, std::uint64_t limit) {
  try {
    transaction.GetResponse(limit);
  } catch (const ZoRequestError& error) {
    return error.GetResponse().Raw().At("/status").Get<int>();
  } catch (const std::exception& error) {
    ADD_FAILURE() << "not refused, but: " << error.what();
  }
  return 0;
}

bool LinkTest::WaitConnected(bool connected) const {
  const Deadline deadline;
  while (system.IsConnected() != connected) {
    if (deadline.Expired()) {
      return false;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

std::string LinkTest::PushText(const std::string& event, const std::string& uri, const std::string& payload) {
  return "{\"event\":\"" + event + "\",\"uri\":" + ZoJson::Of(uri).ToString() + ",\"payload\":" + payload +
         "}";
}

}  // namespace ZoTest
