#include "bench/zobench/child.h"

#include <malloc.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>
#include <system_error>

#include "bench/zobench/checkfailed.h"
#include "bench/zobench/sockets.h"

namespace ZoBench {

Child::Child(const std::function<void(int channel)>& body) {
  int ends[2];
  if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
    throw std::system_error(errno, std::generic_category(), "socketpair");
  }
  std::fflush(nullptr);
  pid = ::fork();
  if (pid < 0) {
    throw std::system_error(errno, std::generic_category(), "fork");
  }
  if (pid == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    ::close(ends[0]);
    try {
      body(ends[1]);
      std::_Exit(0);
    } catch (const std::exception& error) {
      std::fprintf(stderr, "zobench: a child process failed: %s\n", error.what());
    }
    std::_Exit(1);
  }
  ::close(ends[1]);
  channel = ends[0];
}

Child::~Child() {
  Kill();
  ::close(channel);
}

void Child::Kill() {
  if (pid > 0) {
    ::kill(pid, SIGKILL);
    ::waitpid(pid, nullptr, 0);
    pid = -1;
  }
}

void Child::Freeze() {
  ::kill(pid, SIGSTOP);
  int status = 0;
  ::waitpid(pid, &status, WUNTRACED);
}

std::vector<double> MeasureApart(const std::function<std::vector<double>()>& measurement) {
  Child child([&measurement](int channel) {
    std::vector<double> figures;
    std::string error;
    // What earlier measurements left free would hide what this one takes.
    ::malloc_trim(0);
    try {
      figures = measurement();
    } catch (const std::exception& raised) {
      error = *raised.what() != '\0' ? raised.what() : "failed without a reason";
    }
    const std::uint64_t sizes[2] = {figures.size(), error.size()};
    WriteAll(channel, sizes, sizeof sizes);
    WriteAll(channel, figures.data(), figures.size() * sizeof(double));
    WriteAll(channel, error.data(), error.size());
  });
  std::uint64_t sizes[2] = {};
  ReadExactly(child.Channel(), sizes, sizeof sizes);
  std::vector<double> figures(sizes[0]);
  std::string error(sizes[1], '\0');
  ReadExactly(child.Channel(), figures.data(), figures.size() * sizeof(double));
  ReadExactly(child.Channel(), error.data(), error.size());
  Check(error.empty(), error);
  return figures;
}

}  // namespace ZoBench
