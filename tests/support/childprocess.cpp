#include "tests/support/childprocess.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <sstream>
#include <system_error>

#ifdef ZOIO_COVERAGE
extern "C" {
#include <gcov.h>
}
#endif

namespace ZoTest {
namespace {

// Memory files rather than pipes: a child never stalls because nobody reads.
int CaptureFile(const char* name) {
  const int file = ::memfd_create(name, MFD_CLOEXEC);
  if (file < 0) {
    throw std::system_error(errno, std::generic_category(), "memfd_create");
  }
  return file;
}

std::string ContentOf(int file) {
  std::string content;
  char block[4096];
  off_t position = 0;
  for (ssize_t got = 0; (got = ::pread(file, block, sizeof block, position)) > 0; position += got) {
    content.append(block, static_cast<std::size_t>(got));
  }
  return content;
}

// The counters are written at exit otherwise, and a child leaves without.
void KeepCoverage() {
#ifdef ZOIO_COVERAGE
  __gcov_dump();
#endif
}

[[noreturn]] void RunBody(const std::function<void()>& body, int output, int errors) {
  ::dup2(output, STDOUT_FILENO);
  ::dup2(errors, STDERR_FILENO);
  const rlimit noCore{0, 0};
  ::setrlimit(RLIMIT_CORE, &noCore);
  body();
  std::cout.flush();
  std::fflush(nullptr);
  KeepCoverage();
  std::_Exit(::testing::Test::HasFailure() ? 1 : 0);
}

}  // namespace

std::string ChildResult::Describe() const {
  std::ostringstream text;
  if (!finished) {
    text << "child still ran at the limit";
  } else if (signal != 0) {
    text << "child ended by signal " << signal;
  } else {
    text << "child ended with " << exitCode;
  }
  text << "\nstdout: " << output << "\nstderr: " << errors << "\n";
  return text.str();
}

ChildProcess::ChildProcess(const std::function<void()>& body)
    : output(CaptureFile("stdout")), errors(CaptureFile("stderr")) {
  std::cout.flush();
  std::fflush(nullptr);
  pid = ::fork();
  if (pid < 0) {
    throw std::system_error(errno, std::generic_category(), "fork");
  }
  if (pid == 0) {
    RunBody(body, output, errors);
  }
}

ChildProcess::~ChildProcess() {
  if (pid > 0) {
    ::kill(pid, SIGKILL);
    ::waitpid(pid, nullptr, 0);
  }
  ::close(output);
  ::close(errors);
}

ChildResult ChildProcess::Wait(std::chrono::milliseconds limit) {
  ChildResult result;
  const int processFile = static_cast<int>(::syscall(SYS_pidfd_open, pid, 0));
  if (processFile < 0) {
    throw std::system_error(errno, std::generic_category(), "pidfd_open");
  }
  pollfd ended{processFile, POLLIN, 0};
  int ready = 0;
  do {
    ready = ::poll(&ended, 1, static_cast<int>(limit.count()));
  } while (ready < 0 && errno == EINTR);
  ::close(processFile);
  result.finished = ready == 1;
  if (!result.finished) {
    ::kill(pid, SIGKILL);
  }
  int status = 0;
  ::waitpid(pid, &status, 0);
  pid = -1;
  if (WIFEXITED(status)) {
    result.exitCode = WEXITSTATUS(status);
  } else if (WIFSIGNALED(status)) {
    result.signal = WTERMSIG(status);
  }
  result.output = ContentOf(output);
  result.errors = ContentOf(errors);
  return result;
}

ChildResult RunInChild(const std::function<void()>& body, std::chrono::milliseconds limit) {
  return ChildProcess(body).Wait(limit);
}

const char* FaultOfForkBesideThreads() {
#if defined(__SANITIZE_ADDRESS__)
  return "The address sanitizer's allocator has locks: one that another thread holds during a fork stays "
         "locked in the child for good. Of 240 children 10 hung in it, without the sanitizer of 600 none.";
#else
  return nullptr;
#endif
}

}  // namespace ZoTest
