// What the event loop and the session share of the network library. Included by their .cpp files alone.
#pragma once

#include <boost/asio/basic_stream_socket.hpp>
#include <boost/asio/basic_waitable_timer.hpp>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>

#include "zovyrnsdk/link/eventloop.h"

namespace ZoSdk {

// Bound to this kind of loop: with the library's usual types, for any kind, each step of each operation costs several
// calls through tables, and memory.
using LoopExecutor = boost::asio::io_context::executor_type;
using LoopSocket = boost::asio::basic_stream_socket<boost::asio::ip::tcp, LoopExecutor>;
using LoopTimer = boost::asio::basic_waitable_timer<Clock, boost::asio::wait_traits<Clock>, LoopExecutor>;

struct EventLoop::Impl {
  // One thread at a time drives, and only the one that drives touches sockets and timers; others only post.
  boost::asio::io_context context{BOOST_ASIO_CONCURRENCY_HINT_UNSAFE_IO};
  boost::asio::executor_work_guard<boost::asio::io_context::executor_type> work{context.get_executor()};
  LoopTimer alarm{context};
};

}  // namespace ZoSdk
