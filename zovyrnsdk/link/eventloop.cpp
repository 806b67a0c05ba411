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

void EventLoop::Drain() noexcept {
  impl->context.restart();
  for (int left = 100; left != 0; --left) {
    try {
      impl->context.poll();
      return;
    } catch (const std::exception&) {
      // The one that raised is over.
    }
  }
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
