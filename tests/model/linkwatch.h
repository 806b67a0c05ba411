// Sees what a link hands on, so that a test can wait for it, and takes the luck out of three of its times.
//
// The program that links this wraps four operations (see CMakeLists.txt): those by which a push comes into the link's
// queue and leaves it for a handler, the one that sets the pause after a stream or subscription that was refused to come
// back (it comes back with the next session only), and the wait of the registry's worker for answers (it lasts until
// they are there). While there is no LinkWatch they do what they always do.
//
// Threads: a test's one, which makes and destroys it; the link's. One at a time, made before the instance and destroyed
// after it.
#pragma once

#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

#include "tests/support/deadline.h"

namespace ZoModel {

class LinkWatch {
 public:
  LinkWatch();
  LinkWatch(const LinkWatch&) = delete;
  LinkWatch& operator=(const LinkWatch&) = delete;
  ~LinkWatch();

  // Until every push that came into the queue has been through its handler. False when it does not come to that. Two
  // pushes of one URI must not be in the queue at once: of those only one gets through.
  bool WaitUntilHandedOn(ZoTest::Clock::duration limit);

  // What was handed on since the last call, in the order of the texts: "stream /r {...}".
  std::vector<std::string> TakeHandedOn();

  // From the wrapped operations.
  static LinkWatch* Current();
  void NoteOffered();
  void NoteHandedOn(std::string push);

 private:
  std::mutex mutex;
  std::condition_variable changed;
  std::size_t offered = 0;  // guarded by mutex, like the two below
  std::size_t handedOn = 0;
  std::vector<std::string> pushes;
};

}  // namespace ZoModel
