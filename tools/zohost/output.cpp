#include "tools/zohost/output.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>

namespace zohost {

void Output::Write(std::string_view text) {
  while (!text.empty()) {
    if (!WaitUntilWritable()) {
      abandoned_ += text.size();
      return;
    }
    // No more than a ready pipe surely takes, so that a reader who has stopped never holds the program for
    // good.
    const ssize_t written = write(number_, text.data(), std::min<std::size_t>(text.size(), PIPE_BUF));
    if (written >= 0) {
      text.remove_prefix(static_cast<std::size_t>(written));
    } else if (errno != EINTR && errno != EAGAIN) {
      throw OutputError(errno);
    }
  }
}

bool Output::WaitUntilWritable() const {
  while (true) {
    std::array<pollfd, 2> waiting = {{{number_, POLLOUT, 0}, {interrupt_, POLLIN, 0}}};
    if (poll(waiting.data(), waiting.size(), -1) < 0) {
      if (errno == EINTR) {
        continue;
      }
      throw OutputError(errno);
    }
    if (waiting[0].revents != 0) {
      return true;  // writable, or in a state that write reports
    }
    if (waiting[1].revents != 0) {
      return false;
    }
  }
}

void Output::CheckReader() {
  pollfd state = {number_, 0, 0};
  if (poll(&state, 1, 0) > 0 && (state.revents & (POLLERR | POLLHUP)) != 0) {
    throw OutputError(EPIPE);
  }
}

bool Output::IsTerminal() const {
  return isatty(number_) == 1;
}

}  // namespace zohost
