// The terminal while a table is shown: no echo, no line editing, no cursor; and back to what it was before.
//
// Threads: main thread; Emergency alone may be called from any thread, also while the main thread is stuck.
// Owner: the watch command. Only one at a time.
// Invariants: 1. Leave (and the destructor) restore exactly the settings that Enter found; 2. while the
// process is in the background the terminal is not touched.
#pragma once

#include <optional>
#include <string>

namespace zohost {

struct TerminalSize {
  int columns = 80;
  int rows = 24;
};

class Terminal {
 public:
  // output: the terminal to draw on. The keyboard is used if standard input is a terminal, too.
  explicit Terminal(int output);
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;
  ~Terminal();

  void Enter();
  void Leave() noexcept;
  bool IsEntered() const { return entered_; }

  // Whether this process may draw now: not while it runs behind the shell's prompt.
  bool IsForeground() const;
  TerminalSize Size() const;

  // The descriptor to wait on for keys, or -1.
  int KeyNumber() const;
  // A key that was pressed, or nothing.
  std::optional<char> TakeKey();

  // Puts the terminal back as well as a thread without context can.
  static void Emergency() noexcept;

 private:
  int output_;
  bool keyboard_;
  bool entered_ = false;
};

// Whether the user's locale says that text is UTF-8, so that bars and dots can be drawn.
bool LocaleIsUtf8();
// Whether the terminal understands cursor movement at all.
bool TerminalCanMove();

}  // namespace zohost
