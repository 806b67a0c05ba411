// Stands between the two ends of a connection and can stop passing bytes on, in one direction or in both, while both
// ends keep an open connection: what a dead cable or a forgetful router between them looks like.
//
// What comes in a swallowed direction is read and thrown away, a good-bye included. Threads: any may call; bytes are
// moved on a thread of the proxy's own. Owner: the test. The destructor drops all connections.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <list>
#include <mutex>
#include <thread>

namespace ZoTest {

class SwallowingProxy {
 public:
  enum Direction : unsigned { ToSensor = 1, ToClient = 2, Both = 3 };

  // Passes what comes to a port of 127.0.0.1 on to target, another one.
  explicit SwallowingProxy(std::uint16_t target);
  SwallowingProxy(const SwallowingProxy&) = delete;
  SwallowingProxy& operator=(const SwallowingProxy&) = delete;
  ~SwallowingProxy();

  std::uint16_t Port() const { return port; }

  // From now on, on all connections and new ones.
  void Swallow(Direction direction);
  // On new connections all is passed on; those that were swallowed from stay as they are.
  void PassNewOnes();

  // How many connections there were, and how many of them an end or the proxy has ended.
  unsigned Accepted() const;
  unsigned Ended() const;

 private:
  struct Connection {
    std::array<int, 2> ends{-1, -1};  // the client's and the sensor's
    std::array<bool, 2> open{true, true};
    unsigned swallowed = 0;
  };

  void Run();
  void Welcome();
  // Moves what came from one end; false when the connection is over.
  static bool Move(Connection& connection, unsigned from);
  static void Drop(Connection& connection);

  const std::uint16_t target;
  std::uint16_t port = 0;
  int listener = -1;
  std::array<int, 2> wake{-1, -1};  // a pipe: the thread ends when its one end is closed

  mutable std::mutex mutex;
  std::list<Connection> connections;  // guarded by mutex, like the rest
  unsigned swallowing = 0;
  unsigned accepted = 0;
  unsigned ended = 0;

  std::thread thread;
};

}  // namespace ZoTest
