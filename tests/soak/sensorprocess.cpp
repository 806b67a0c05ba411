#include "tests/soak/sensorprocess.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <stdexcept>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "tests/soak/catalogue.h"

namespace ZoSoak {

SensorProcess::SensorProcess(std::filesystem::path folder, SensorFacts& facts)
    : folder(std::move(folder)), facts(facts) {}

SensorProcess::~SensorProcess() {
  End(SIGKILL);
}

void SensorProcess::Start() {
  const ZoTest::Deadline deadline(std::chrono::seconds(20));
  const int start = ++facts.start;
  std::ofstream(folder / "resources.json") << ResourceFile(facts.number, start);
  // Somebody's connection may have its port for a moment.
  while (!Launch()) {
    End(SIGKILL);
    if (deadline.Expired()) {
      throw std::runtime_error("a zosensor did not start; its log is in " + folder.string());
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
}

bool SensorProcess::Launch() {
  // Everything that needs memory is made before the fork: the child of many threads may do little until it is another
  // program.
  std::vector<std::string> words{ZOSENSOR_PATH,
                                 "--port",
                                 std::to_string(facts.port),
                                 "--resources",
                                 folder / "resources.json",
                                 "--seed",
                                 std::to_string(facts.start)};
  std::vector<char*> arguments;
  for (std::string& word : words) {
    arguments.push_back(word.data());
  }
  arguments.push_back(nullptr);
  const int log = ::open((folder / "log.txt").c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  int output[2];
  if (log < 0 || ::pipe2(output, O_CLOEXEC) != 0) {
    throw std::system_error(errno, std::generic_category(), "starting a zosensor");
  }
  facts.startedAt = Clock::now().time_since_epoch().count();
  pid = ::fork();
  if (pid == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    ::dup2(output[1], STDOUT_FILENO);
    ::dup2(log, STDERR_FILENO);
    ::execv(arguments[0], arguments.data());
    ::_exit(127);
  }
  ::close(output[1]);
  ::close(log);
  const std::string line = pid > 0 ? FirstLine(output[0]) : "";
  ::close(output[0]);
  const std::size_t colon = line.rfind(':');
  if (!line.starts_with("listening on ") || colon == std::string::npos) {
    return false;
  }
  facts.port = static_cast<std::uint16_t>(std::stoi(line.substr(colon + 1)));
  return true;
}

std::string SensorProcess::FirstLine(int file) const {
  std::string line;
  pollfd waiting{file, POLLIN, 0};
  char c = 0;
  while (::poll(&waiting, 1, 10'000) > 0 && ::read(file, &c, 1) == 1 && c != '\n') {
    line += c;
  }
  return line;
}

void SensorProcess::End(int signal) {
  if (pid > 0) {
    ::kill(pid, SIGCONT);
    ::kill(pid, signal);
    ::waitpid(pid, nullptr, 0);
    pid = -1;
  }
}

void SensorProcess::Signal(int signal) const {
  if (pid > 0) {
    ::kill(pid, signal);
  }
}

bool SensorProcess::IsAlive() {
  if (pid > 0 && ::waitpid(pid, nullptr, WNOHANG) != 0) {
    pid = -1;
  }
  return pid > 0;
}

}  // namespace ZoSoak
