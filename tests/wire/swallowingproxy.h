// Stands between the two ends of a connection and can stop passing bytes on, in one direction or in both, while both
// ends keep an open connection: what a dead cable or a forgetful router between them looks like.
//
// What comes in a swallowed direction is read and thrown away, a good-bye included. It can also let a connection break
// behind a byte of its choice: there it is cut, or passes nothing on any more. Threads: any may call; bytes are
// moved on a thread of the proxy's own. Owner: the test. The destructor drops all connections.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <list>
#include <map>
#include <mutex>
#include <thread>

namespace ZoTest {

class SwallowingProxy {
 public:
  enum Direction : unsigned { ToSensor = 1, ToClient = 2, Both = 3 };

  // Where one of the connections breaks: number is 1 for the first; bytes are passed on in the direction, and not one
  // more. Then it is cut, or silent while its ends stay open.
  struct Break {
    unsigned number = 1;
    Direction direction = ToSensor;
    std::size_t bytes = 0;
    bool silent = false;
    Direction lost = Both;  // when it is silent: what is lost from then on
  };

  // Passes what comes to a port of 127.0.0.1 on to target, another one.
  explicit SwallowingProxy(std::uint16_t target) : SwallowingProxy(target, {.number = 0}) {}
  SwallowingProxy(std::uint16_t target, const Break& point);
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
  // Whether the break has come.
  bool Broken() const;
  // How many bytes the connection of this number has passed on so far.
  std::size_t Passed(unsigned number, Direction direction) const;

 private:
  struct Connection {
    std::array<int, 2> ends{-1, -1};  // the client's and the sensor's
    std::array<bool, 2> open{true, true};
    unsigned swallowed = 0;
    unsigned number = 0;
  };

  void Run();
  void Welcome();
  // Moves what came from one end; false when the connection is over.
  bool Move(Connection& connection, unsigned from);
  // How many of so many bytes may be passed on.
  std::size_t Allowed(const Connection& connection, unsigned from, std::size_t size) const;
  // Breaks the connection if its time has come; false when it is over.
  bool GoesOn(Connection& connection);
  static void Drop(Connection& connection);

  const std::uint16_t target;
  const Break point;
  std::uint16_t port = 0;
  int listener = -1;
  std::array<int, 2> wake{-1, -1};  // a pipe: the thread ends when its one end is closed

  mutable std::mutex mutex;
  std::list<Connection> connections;  // guarded by mutex, like the rest
  unsigned swallowing = 0;
  unsigned accepted = 0;
  unsigned ended = 0;
  bool broken = false;
  std::map<unsigned, std::array<std::size_t, 2>>
      passed;  // by the number of the connection and the end it came from

  std::thread thread;
};

}  // namespace ZoTest
