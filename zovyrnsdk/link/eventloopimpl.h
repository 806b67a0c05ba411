// What the event loop and the session share of the network library. Included by their .cpp files alone.
#pragma once

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>

#include "zovyrnsdk/link/eventloop.h"

namespace ZoSdk {

struct EventLoop::Impl {
  boost::asio::io_context context{1};  // one thread at a time
  boost::asio::executor_work_guard<boost::asio::io_context::executor_type> work{context.get_executor()};
  boost::asio::steady_timer alarm{context};
};

}  // namespace ZoSdk
