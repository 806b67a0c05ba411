#include "tests/zohost/program.h"

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <system_error>

namespace {

void Check(bool good, const char* what) {
  if (!good) {
    throw std::system_error(errno, std::generic_category(), what);
  }
}

}  // namespace

Program::Program(const std::vector<std::string>& arguments, const ProgramOptions& options) {
  int outPipe[2] = {-1, -1};
  int errPipe[2] = {-1, -1};
  int childOut = -1;
  Check(pipe2(errPipe, O_CLOEXEC) == 0, "pipe2");
  Check(pipe2(stop_, O_CLOEXEC) == 0, "pipe2");
  if (options.output == ProgramOptions::Output::terminal) {
    const winsize size = {static_cast<unsigned short>(options.rows),
                          static_cast<unsigned short>(options.columns), 0, 0};
    Check(openpty(&out_, &slave_, nullptr, nullptr, &size) == 0, "openpty");
    fcntl(out_, F_SETFD, FD_CLOEXEC);
    fcntl(slave_, F_SETFD, FD_CLOEXEC);
    firstSettings_ = TerminalSettings();
    childOut = slave_;
  } else if (options.output == ProgramOptions::Output::file) {
    childOut = open(options.file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    Check(childOut >= 0, options.file.c_str());
  } else {
    Check(pipe2(outPipe, O_CLOEXEC) == 0, "pipe2");
    out_ = outPipe[0];
    childOut = outPipe[1];
  }
  std::vector<char*> argv;
  for (const std::string& argument : arguments) {
    argv.push_back(const_cast<char*>(argument.c_str()));
  }
  argv.push_back(nullptr);
  process_ = fork();
  Check(process_ >= 0, "fork");
  if (process_ == 0) {
    setsid();
    if (slave_ >= 0) {
      ioctl(slave_, TIOCSCTTY, 0);
      dup2(slave_, STDIN_FILENO);
    } else {
      dup2(open("/dev/null", O_RDONLY), STDIN_FILENO);
    }
    dup2(childOut, STDOUT_FILENO);
    dup2(options.errorsOnTerminal ? childOut : errPipe[1], STDERR_FILENO);
    for (const auto& [name, value] : options.environment) {
      setenv(name.c_str(), value.c_str(), 1);
    }
    execv(argv[0], argv.data());
    _exit(127);
  }
  close(errPipe[1]);
  err_ = errPipe[0];
  if (slave_ < 0) {
    close(childOut);
  }
  const bool reading = out_ >= 0 && !options.stalled;
  readers_ = reading ? 2 : 1;
  if (reading) {
    outReader_ = std::thread([this] { Collect(out_, stop_[0], outText_); });
  }
  errReader_ = std::thread([this] { Collect(err_, -1, errText_); });
}

Program::~Program() {
  if (!waited_) {
    kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
  }
  StallOut();
  if (errReader_.joinable()) {
    errReader_.join();
  }
  for (const int number : {out_, err_, slave_, stop_[0], stop_[1]}) {
    if (number >= 0) {
      close(number);
    }
  }
}

void Program::Collect(int number, int stop, std::string& text) {
  char buffer[65536];
  while (true) {
    pollfd waiting[2] = {{number, POLLIN, 0}, {stop, POLLIN, 0}};
    if (poll(waiting, 2, -1) < 0) {
      continue;
    }
    // A terminal hands out what it holds in pieces: it has been read when there is nothing more to read.
    if (waiting[1].revents != 0 && (waiting[0].revents & POLLIN) == 0) {
      break;
    }
    const ssize_t count = read(number, buffer, sizeof buffer);
    if (count <= 0) {  // a terminal says EIO when its last user has gone
      break;
    }
    const std::lock_guard lock(mutex_);
    text.append(buffer, static_cast<std::size_t>(count));
    changed_.notify_all();
  }
  const std::lock_guard lock(mutex_);
  --readers_;
  changed_.notify_all();
}

std::string Program::Out() {
  const std::lock_guard lock(mutex_);
  return outText_;
}

std::string Program::Err() {
  const std::lock_guard lock(mutex_);
  return errText_;
}

bool Program::WaitForOut(const std::function<bool(const std::string&)>& condition) {
  std::unique_lock lock(mutex_);
  changed_.wait_for(lock, limit, [&] { return condition(outText_) || readers_ == 0; });
  return condition(outText_);
}

bool Program::WaitForOut(const std::string& text) {
  return WaitForOut([&](const std::string& out) { return out.find(text) != std::string::npos; });
}

bool Program::WaitForErr(const std::string& text) {
  std::unique_lock lock(mutex_);
  const auto found = [&] { return errText_.find(text) != std::string::npos; };
  changed_.wait_for(lock, limit, [&] { return found() || readers_ == 0; });
  return found();
}

int Program::Wait() {
  if (waited_) {
    return status_;
  }
  // The error pipe stays open as long as the process lives, so its end announces the process's end.
  {
    std::unique_lock lock(mutex_);
    const int left = slave_ >= 0 ? 1 : 0;  // our own end of the terminal keeps its reader going
    if (!changed_.wait_for(lock, limit, [&] { return readers_ <= left; })) {
      kill(process_, SIGKILL);
      status_ = -1000;
    }
  }
  int raw = 0;
  waitpid(process_, &raw, 0);
  waited_ = true;
  if (status_ == 0) {
    status_ = WIFEXITED(raw) ? WEXITSTATUS(raw) : -WTERMSIG(raw);
  }
  if (slave_ >= 0) {
    StallOut();  // what the terminal still holds is read first
  }
  return status_;
}

void Program::Signal(int signal) {
  kill(process_, signal);
}

bool Program::WaitUntilFull() {
  // Its pages need not be full to the last byte, so that it is when nothing more comes.
  const int capacity = fcntl(out_, F_GETPIPE_SZ);
  const auto deadline = std::chrono::steady_clock::now() + limit;
  int before = 0;
  for (int still = 0; still < 5;) {
    int held = 0;
    ioctl(out_, FIONREAD, &held);
    still = held == before && held > capacity / 2 ? still + 1 : 0;
    before = held;
    if (std::chrono::steady_clock::now() > deadline) {
      return false;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
  }
  return true;
}

bool Program::WaitForStop() {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  int raw = 0;
  while (std::chrono::steady_clock::now() < deadline) {
    if (waitpid(process_, &raw, WUNTRACED | WNOHANG) == process_) {
      return WIFSTOPPED(raw);
    }
    std::this_thread::yield();
  }
  return false;
}

void Program::Type(const std::string& keys) {
  Check(write(out_, keys.data(), keys.size()) == static_cast<ssize_t>(keys.size()), "write");
}

void Program::Resize(int columns, int rows) {
  const winsize size = {static_cast<unsigned short>(rows), static_cast<unsigned short>(columns), 0, 0};
  Check(ioctl(out_, TIOCSWINSZ, &size) == 0, "TIOCSWINSZ");
}

termios Program::TerminalSettings() {
  termios settings = {};
  Check(tcgetattr(slave_, &settings) == 0, "tcgetattr");
  return settings;
}

void Program::StallOut() {
  if (outReader_.joinable()) {
    Check(write(stop_[1], "x", 1) == 1, "write");
    outReader_.join();
  }
}

void Program::CloseOut() {
  StallOut();
  close(out_);
  out_ = -1;
}

Result RunProgram(const std::vector<std::string>& arguments, const ProgramOptions& options) {
  Program program(arguments, options);
  Result result;
  result.status = program.Wait();
  result.out = program.Out();
  result.err = program.Err();
  return result;
}
