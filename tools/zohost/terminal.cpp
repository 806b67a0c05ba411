#include "tools/zohost/terminal.h"

#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <string_view>

namespace zohost {
namespace {

constexpr std::string_view hideCursor = "\x1b[?25l";
constexpr std::string_view showCursor = "\x1b[?25h\x1b[?7h\x1b[0m";

// Process-wide, because the emergency exit has no object to ask. Written by Enter and Leave, and read by
// Emergency only after `active` says that they are whole.
std::atomic<bool> active = false;
std::atomic<bool> keyboardChanged = false;
std::atomic<int> activeOutput = -1;
termios settingsBefore = {};

// A terminal that takes no more text is no reason to wait here: the text is lost then.
void WriteRaw(int number, std::string_view text) noexcept {
  pollfd ready = {number, POLLOUT, 0};
  if (poll(&ready, 1, 0) > 0 && (ready.revents & POLLOUT) != 0) {
    [[maybe_unused]] const ssize_t written = write(number, text.data(), text.size());
  }
}

// Whether this process may draw on the terminal. One that is not our controlling terminal has no other user.
bool OwnsTerminal(int number) noexcept {
  const pid_t group = tcgetpgrp(number);
  return group < 0 || group == getpgrp();
}

void Restore() noexcept {
  if (!OwnsTerminal(activeOutput.load())) {
    return;  // the shell has taken it back, and set it as it likes
  }
  if (keyboardChanged.exchange(false)) {
    tcsetattr(STDIN_FILENO, TCSANOW, &settingsBefore);
  }
  WriteRaw(activeOutput.load(), showCursor);
}

}  // namespace

Terminal::Terminal(int output) : output_(output), keyboard_(isatty(STDIN_FILENO) == 1) {}

Terminal::~Terminal() {
  Leave();
}

void Terminal::Enter() {
  if (entered_ || !IsForeground()) {
    return;
  }
  activeOutput = output_;
  termios settings = {};
  if (keyboard_ && tcgetattr(STDIN_FILENO, &settings) == 0) {
    settingsBefore = settings;
    settings.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);  // ISIG stays: Ctrl-C and Ctrl-Z keep working
    settings.c_cc[VMIN] = 1;
    settings.c_cc[VTIME] = 0;
    keyboardChanged = true;
    active = true;
    tcsetattr(STDIN_FILENO, TCSANOW, &settings);
  }
  active = true;
  WriteRaw(output_, hideCursor);
  entered_ = true;
}

void Terminal::Leave() noexcept {
  if (entered_) {
    entered_ = false;
    active = false;
    Restore();
  }
}

void Terminal::Emergency() noexcept {
  if (active.exchange(false)) {
    Restore();
  }
}

bool Terminal::IsForeground() const {
  return OwnsTerminal(output_);
}

TerminalSize Terminal::Size() const {
  winsize size = {};
  TerminalSize result;
  if (ioctl(output_, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 && size.ws_row > 0) {
    result.columns = size.ws_col;
    result.rows = size.ws_row;
  }
  return result;
}

int Terminal::KeyNumber() const {
  return entered_ && keyboard_ ? STDIN_FILENO : -1;
}

std::optional<char> Terminal::TakeKey() {
  char key = 0;
  if (KeyNumber() < 0) {
    return std::nullopt;
  }
  if (read(STDIN_FILENO, &key, 1) != 1) {
    keyboard_ = false;  // hung up: do not spin on it
    return std::nullopt;
  }
  return key;
}

bool LocaleIsUtf8() {
  for (const char* name : {"LC_ALL", "LC_CTYPE", "LANG"}) {
    const char* value = std::getenv(name);
    if (value != nullptr && *value != '\0') {
      const std::string_view locale(value);
      return locale.find("UTF-8") != std::string_view::npos ||
             locale.find("utf8") != std::string_view::npos ||
             locale.find("utf-8") != std::string_view::npos || locale.find("UTF8") != std::string_view::npos;
    }
  }
  return false;
}

bool TerminalCanMove() {
  const char* name = std::getenv("TERM");
  return name != nullptr && *name != '\0' && std::string_view(name) != "dumb";
}

}  // namespace zohost
