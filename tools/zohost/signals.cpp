#include "tools/zohost/signals.h"

#include <pthread.h>
#include <unistd.h>

#include <system_error>

namespace zohost {

Signals::Signals() {
  sigemptyset(&caught_);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGWINCH, SIGTSTP, SIGCONT, SIGUSR1}) {
    sigaddset(&caught_, signal);
  }
  pthread_sigmask(SIG_BLOCK, &caught_, &before_);
  try {
    thread_ = std::thread([this] { Wait(); });
  } catch (const std::system_error&) {
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);
    throw;
  }
}

Signals::~Signals() {
  leaving_ = true;
  pthread_kill(thread_.native_handle(), SIGUSR1);
  thread_.join();
  pthread_sigmask(SIG_SETMASK, &before_, nullptr);
}

std::optional<int> Signals::Take() {
  happened_.Clear();
  if (stopped_.exchange(false)) {
    happened_.Set();  // there may be more
    return SIGTSTP;
  }
  if (continued_.exchange(false)) {
    happened_.Set();
    return SIGCONT;
  }
  return resized_.exchange(false) ? std::optional<int>(SIGWINCH) : std::nullopt;
}

void Signals::Wait() {
  while (!leaving_) {
    int signal = 0;
    if (sigwait(&caught_, &signal) != 0) {
      continue;
    }
    switch (signal) {
      case SIGWINCH:
        resized_ = true;
        happened_.Set();
        break;
      case SIGTSTP:
        stopped_ = true;
        happened_.Set();
        break;
      case SIGCONT:
        continued_ = true;
        happened_.Set();
        break;
      case SIGQUIT:
        EndAtOnce(signal);
        break;
      case SIGINT:
      case SIGTERM:
      case SIGHUP:
        if (requests_.fetch_add(1) > 0) {
          EndAtOnce(signal);
        }
        ending_.Set();
        break;
      default:
        break;
    }
  }
}

void Signals::EndAtOnce(int signal) {
  if (const Emergency emergency = emergency_.load()) {
    emergency();
  }
  struct sigaction action = {};
  action.sa_handler = SIG_DFL;
  sigaction(signal, &action, nullptr);
  sigset_t one;
  sigemptyset(&one);
  sigaddset(&one, signal);
  pthread_sigmask(SIG_UNBLOCK, &one, nullptr);
  raise(signal);
  _exit(128 + signal);  // cppcheck-suppress unreachableCode ; raise comes back where the signal is handled
}

}  // namespace zohost
