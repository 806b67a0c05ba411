// Runs a program under test: its output collected while it runs, on pipes or on a pseudo-terminal.
//
// Threads: one test thread; two readers of its own collect the output.
// Invariant: the destructor leaves no process and no thread behind.
#pragma once

#include <sys/types.h>
#include <termios.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

struct ProgramOptions {
  enum class Output { pipe, terminal, file };
  Output output = Output::pipe;
  bool stalled = false;  // nobody reads the pipe
  std::string file;      // for Output::file
  int columns = 80;      // for Output::terminal
  int rows = 24;
  bool errorsOnTerminal = false;  // standard error goes to the terminal, too
  std::map<std::string, std::string> environment;
};

class Program {
 public:
  static constexpr std::chrono::seconds limit{60};

  Program(const std::vector<std::string>& arguments, const ProgramOptions& options = {});
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;
  ~Program();

  std::string Out();
  std::string Err();
  // Waits until standard output (or the terminal) satisfies the condition. False: the limit passed, or it
  // ended.
  bool WaitForOut(const std::function<bool(const std::string&)>& condition);
  bool WaitForOut(const std::string& text);
  bool WaitForErr(const std::string& text);
  // The exit status, or minus the signal that ended it; -1000 when the limit passed (it is killed then).
  int Wait();
  void Signal(int signal);
  // Waits until a signal has stopped it.
  bool WaitForStop();
  // Types on the terminal.
  void Type(const std::string& keys);
  void Resize(int columns, int rows);
  termios TerminalSettings();
  // As they were before the program started.
  const termios& FirstTerminalSettings() const { return firstSettings_; }
  // Stops reading standard output: from now on the pipe fills up. CloseOut closes it.
  void StallOut();
  // Waits until the program has filled the pipe that nobody reads.
  bool WaitUntilFull();
  void CloseOut();

 private:
  // Reads until the end, or until stop (which may be -1) has something to read.
  void Collect(int number, int stop, std::string& text);

  pid_t process_ = -1;
  bool waited_ = false;
  int status_ = 0;
  int out_ = -1;
  int err_ = -1;
  int slave_ = -1;
  termios firstSettings_ = {};
  int stop_[2] = {-1, -1};
  std::mutex mutex_;
  std::condition_variable changed_;
  std::string outText_;
  std::string errText_;
  int readers_ = 0;
  std::thread outReader_;
  std::thread errReader_;
};

// Runs a program to its end.
struct Result {
  int status = 0;
  std::string out;
  std::string err;
};
Result RunProgram(const std::vector<std::string>& arguments, const ProgramOptions& options = {});
