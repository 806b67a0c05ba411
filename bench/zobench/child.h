// A forked child process with a channel to it, for sensors, for echoing peers, and for measurements that want a process of
// their own.
//
// The body runs in the child, with its end of the channel, and the child ends when it returns. Start children before
// any instance exists, while this process has one thread. The child does not outlive its parent. Owner: a case. The
// destructor kills the child.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <functional>
#include <vector>

namespace ZoBench {

class Child {
 public:
  explicit Child(const std::function<void(int channel)>& body);
  ~Child();
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  pid_t Pid() const { return pid; }
  int Channel() const { return channel; }

  // Ends it without a word; does nothing the second time.
  void Kill();
  // Holds it; its connections stay open and are silent.
  void Freeze();

 private:
  pid_t pid = -1;
  int channel = -1;
};

// Runs a measurement in a process of its own and returns its figures; raises CheckFailed with the text that the
// measurement raised.
std::vector<double> MeasureApart(const std::function<std::vector<double>()>& measurement);

}  // namespace ZoBench
