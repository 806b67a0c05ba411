#include "zovyrnsdk/link/eventloop.h"

#include <boost/asio/post.hpp>
#include <utility>

#include "zovyrnsdk/link/eventloopimpl.h"

namespace ZoSdk {

EventLoop::EventLoop() : impl(std::make_unique<Impl>()) {}

EventLoop::~EventLoop() = default;

bool EventLoop::RunOne(Time until) {
  return (until == never ? impl->context.run_one() : impl->context.run_one_until(until)) != 0;
}

void EventLoop::Post(std::function<void()> work) {
  boost::asio::post(impl->context, std::move(work));
}

void EventLoop::Poke() {
  boost::asio::post(impl->context, [] {});
}

void EventLoop::Stop() noexcept {
  impl->context.stop();
}

void EventLoop::SetAlarm(Time when, std::function<void()> handler) {
  if (when == never) {
    impl->alarm.cancel();
    return;
  }
  impl->alarm.expires_at(when);
  impl->alarm.async_wait([handler = std::move(handler)](const boost::system::error_code& error) {
    if (!error) {
      handler();
    }
  });
}

}  // namespace ZoSdk
