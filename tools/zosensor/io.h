// The emulator's kinds of sockets and timers, bound to the one kind of loop that it has. The library's usual types fit
// any kind of loop, which costs several calls through tables, and memory, for each step of each operation.
//
// Threads: the I/O thread alone, but for what is posted to the loop.
#pragma once

#include <boost/asio/basic_socket_acceptor.hpp>
#include <boost/asio/basic_stream_socket.hpp>
#include <boost/asio/basic_waitable_timer.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>

#include "tools/zosensor/clock.h"

namespace ZoSensor {

using Executor = boost::asio::io_context::executor_type;
using TcpSocket = boost::asio::basic_stream_socket<boost::asio::ip::tcp, Executor>;
using TcpAcceptor = boost::asio::basic_socket_acceptor<boost::asio::ip::tcp, Executor>;
using Timer = boost::asio::basic_waitable_timer<Clock, boost::asio::wait_traits<Clock>, Executor>;

}  // namespace ZoSensor
