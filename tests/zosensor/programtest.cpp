// The real executable: its lines, its exit statuses, its signals.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/deadline.h"
#include "tests/support/temporaryfolder.h"
#include "tests/zosensor/rawclient.h"

namespace ZoSensor {
namespace {

// A run of zosensor with its output in pipes. Killed, by its own id, when it outlives its test.
class Program {
 public:
  // standardOutput: a file to write to instead of the pipe; "closed" for none at all.
  explicit Program(std::vector<std::string> arguments, const std::string& standardOutput = "") {
    int out[2];
    int err[2];
    EXPECT_EQ(pipe2(out, O_CLOEXEC), 0);
    EXPECT_EQ(pipe2(err, O_CLOEXEC), 0);
    arguments.insert(arguments.begin(), ZOSENSOR_PATH);
    std::vector<char*> argv;
    for (std::string& argument : arguments) {
      argv.push_back(argument.data());
    }
    argv.push_back(nullptr);
    child = fork();
    if (child == 0) {
      dup2(err[1], STDERR_FILENO);
      if (standardOutput == "closed") {
        close(STDOUT_FILENO);
      } else {
        dup2(standardOutput.empty() ? out[1] : open(standardOutput.c_str(), O_WRONLY), STDOUT_FILENO);
      }
      execv(argv[0], argv.data());
      _exit(127);
    }
    close(out[1]);
    close(err[1]);
    output = out[0];
    errors = err[0];
  }

  ~Program() {
    if (child > 0) {
      kill(child, SIGKILL);
      waitpid(child, nullptr, 0);
    }
    close(output);
    close(errors);
  }
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;

  std::string OutputLine() const { return Line(output); }
  std::string ErrorLine() const { return Line(errors); }
  std::string AllOutput() const { return Rest(output); }
  std::string AllErrors() const { return Rest(errors); }

  // The port in a line that ends with it.
  static std::uint16_t PortIn(const std::string& line) {
    const auto colon = line.rfind(':');
    return colon == std::string::npos ? std::uint16_t{0}
                                      : static_cast<std::uint16_t>(std::stoi(line.substr(colon + 1)));
  }

  void Signal(int number) const { kill(child, number); }

  // The exit status; minus the signal that ended it; -1000 when it did not end in time.
  int Wait() {
    const ZoTest::Deadline deadline;
    int status = 0;
    while (waitpid(child, &status, WNOHANG) == 0) {
      if (deadline.Expired()) {
        return -1000;
      }
      poll(nullptr, 0, 5);
    }
    child = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  }

 private:
  static bool Next(int file, char& c) {
    pollfd waiting{file, POLLIN, 0};
    return poll(&waiting, 1, 30000) == 1 && read(file, &c, 1) == 1;
  }
  static std::string Line(int file) {
    std::string line;
    for (char c = 0; Next(file, c) && c != '\n';) {
      line += c;
    }
    return line;
  }
  static std::string Rest(int file) {
    std::string text;
    for (char c = 0; Next(file, c);) {
      text += c;
    }
    return text;
  }

  pid_t child = -1;
  int output = -1;
  int errors = -1;
};

TEST(Program, SaysWhereItListensAndEndsOnSignals) {
  for (const int signal : {SIGTERM, SIGINT}) {
    Program program({"--port", "0"});
    const std::string line = program.OutputLine();
    const std::uint16_t port = Program::PortIn(line);
    EXPECT_EQ(line, "listening on 127.0.0.1:" + std::to_string(port));
    RawClient client(port);
    EXPECT_EQ(client.Ask(R"({"id":1,"method":"read","uri":"/system"})").At("payload/state").ToString(), "1");
    program.Signal(signal);
    EXPECT_FALSE(client.Receive());
    EXPECT_EQ(client.CloseCode(), 1001U);
    EXPECT_EQ(program.Wait(), 0);
  }
}

TEST(Program, LogsWhoCameAndWhatWasAsked) {
  Program program({"--port", "0", "--log", "debug"});
  const std::uint16_t port = Program::PortIn(program.OutputLine());
  RawClient(port).Ask(R"({"id":1,"method":"read","uri":"/nothing\nhere"})");
  program.Signal(SIGTERM);
  EXPECT_EQ(program.Wait(), 0);
  const std::string log = program.AllErrors();
  EXPECT_NE(log.find("opens a session"), std::string::npos) << log;
  EXPECT_NE(log.find("read /nothing\\x0ahere -> -404"), std::string::npos) << log;
}

TEST(Program, PortInUseIsExitStatusOneAndASentence) {
  Program first({"--port", "0"});
  const std::string port = std::to_string(Program::PortIn(first.OutputLine()));
  Program second({"--port", port});
  EXPECT_EQ(second.Wait(), 1);
  const std::string error = second.AllErrors();
  EXPECT_EQ(error, "zosensor: cannot listen on 127.0.0.1 port " + port + ": Address already in use\n");
}

TEST(Program, AddressThatIsNoneIsExitStatusOne) {
  Program program({"--port", "0", "--address", "elsewhere"});
  EXPECT_EQ(program.Wait(), 1);
  EXPECT_NE(program.AllErrors().find("cannot listen on elsewhere"), std::string::npos);
}

TEST(Program, UsageErrorsAreExitStatusTwo) {
  for (const auto& arguments : std::vector<std::vector<std::string>>{{"--prot", "0"},
                                                                     {"--port", "65536"},
                                                                     {"--port", "-1"},
                                                                     {"--port", "0x10"},
                                                                     {"--port", ""},
                                                                     {"--port", "x"},
                                                                     {"--seed", "-1"},
                                                                     {"--seed", "18446744073709551616"},
                                                                     {"stray"},
                                                                     {"--log", "loud"},
                                                                     {"--fault", "lose=2"},
                                                                     {"--fault", "loose=0.5"},
                                                                     {"--fault", "lose"},
                                                                     {"--max-clients", "0"}}) {
    Program program(arguments);
    EXPECT_EQ(program.Wait(), 2) << arguments[0];
    EXPECT_FALSE(program.AllErrors().empty()) << arguments[0];
  }
}

TEST(Program, HelpAndVersionAreNoErrors) {
  Program help({"--help"});
  EXPECT_EQ(help.Wait(), 0);
  EXPECT_NE(help.AllOutput().find("--resources"), std::string::npos);
  Program version({"--version"});
  EXPECT_EQ(version.Wait(), 0);
  EXPECT_EQ(version.AllOutput().rfind("zosensor ", 0), 0U);
}

TEST(Program, ServesTheHostsOfAllowedOriginsAndSaysWhomItRefused) {
  Program program({"--port", "0", "--allow-origin", "http://hmi.example"});
  const std::uint16_t port = Program::PortIn(program.OutputLine());
  const auto statusFor = [&](const char* host) {
    return AskHttp(port, "GET", "/vyrn/v1/resources/system", "", {{"Host", host}}).status;
  };
  EXPECT_EQ(statusFor("hmi.example"), 200U);
  EXPECT_EQ(statusFor("evil.example"), 403U);
  program.Signal(SIGTERM);
  EXPECT_EQ(program.Wait(), 0);
  const std::string log = program.AllErrors();
  EXPECT_NE(log.find("asks for the host evil.example, which is refused"), std::string::npos) << log;
}

TEST(Program, BadFileNamesLineColumnAndReason) {
  ZoTest::TemporaryFolder folder;
  const std::string file = (folder / "bad.json").string();
  std::ofstream(file) << "{\n  \"resources\": {\"/a\": {\"content\": 1, \"rate_hz\": -1}}\n}\n";
  Program program({"--port", "0", "--resources", file});
  EXPECT_EQ(program.Wait(), 1);
  EXPECT_EQ(program.AllErrors(),
            "zosensor: " + file + ":2:49: \"rate_hz\" must lie between 0.001 and 1000\n");
  Program missing({"--port", "0", "--resources", file + "x"});
  EXPECT_EQ(missing.Wait(), 1);
}

TEST(Program, PrintedResourcesFedBackAreTheSameResources) {
  Program print({"--print-resources"});
  const std::string text = print.AllOutput();
  EXPECT_EQ(print.Wait(), 0);
  ZoTest::TemporaryFolder folder;
  const std::string file = (folder / "demo.json").string();
  std::ofstream(file, std::ios::binary) << text;
  Program demo({"--port", "0", "--log", "off"});
  Program fed({"--port", "0", "--log", "off", "--resources", file});
  RawClient demoClient(Program::PortIn(demo.OutputLine()));
  RawClient fedClient(Program::PortIn(fed.OutputLine()));
  const ZoJson list = demoClient.Ask(R"({"id":1,"method":"read","uri":"/"})");
  EXPECT_GT(list.At("payload/resources").Size(), 15U);
  EXPECT_EQ(list.ToString(), fedClient.Ask(R"({"id":1,"method":"read","uri":"/"})").ToString());
  for (const char* still : {"/machine/info", "/machine/setpoints", "/machine/recipe"}) {
    const std::string request = std::string(R"({"id":2,"method":"read","uri":")") + still + "\"}";
    const ZoJson answer = demoClient.Ask(request);
    EXPECT_EQ(answer.At("status").ToString(), "1");
    EXPECT_EQ(answer.ToString(), fedClient.Ask(request).ToString());
  }
}

TEST(Program, DemoMeasurementsFollowTheirSetPoint) {
  Program demo({"--port", "0", "--log", "off"});
  RawClient client(Program::PortIn(demo.OutputLine()));
  client.Ask(R"({"id":1,"method":"update","uri":"/machine/setpoints","payload":{"speed":-100000}})");
  client.Ask(R"({"id":2,"method":"startStream","uri":"/machine/drive"})");
  double speed = 1;
  for (int i = 0; i < 100 && speed > -1000; ++i) {
    speed = client.NextPush().At("payload/speed").Get<double>();
  }
  EXPECT_LT(speed, -1000);
}

TEST(Program, FullOrClosedOutputDoesNotEndIt) {
  for (const char* output : {"/dev/full", "closed"}) {
    Program program({"--port", "0"}, output);
    const std::string line = program.ErrorLine();
    ASSERT_NE(line.find("nobody reads stdout"), std::string::npos) << line;
    EXPECT_EQ(AskHttp(Program::PortIn(line), "GET", "/vyrn/v1/resources/system").status, 200U);
    program.Signal(SIGTERM);
    EXPECT_EQ(program.Wait(), 0);
    Program print({"--print-resources"}, output);
    EXPECT_EQ(print.Wait(), 1);
  }
}

// Each limit at a value of its own, so that two that took each other's place would be noticed.
TEST(Program, EachLimitLimitsWhatItNames) {
  const auto statusOf = [](RawClient& client, const std::string& rest) {
    return client.Ask(R"({"id":1,)" + rest + "}").At("status").Get<int>();
  };
  const auto listOf = [](int count) {
    std::string list = "[1";
    for (int i = 1; i < count; ++i) {
      list += ",1";
    }
    return list + "]";
  };
  Program program({"--port", "0", "--log", "off", "--max-message", "5000", "--max-depth", "9", "--max-values",
                   "60", "--max-clients", "3", "--max-queue", "400000", "--max-resources", "40",
                   "--max-watches", "4"});
  const std::uint16_t port = Program::PortIn(program.OutputLine());
  RawClient client(port);
  const std::string echo = R"("method":"call","uri":"/machine/echo","payload":)";
  EXPECT_EQ(statusOf(client, echo + '"' + std::string(4900, 'x') + '"'), 1);
  EXPECT_EQ(statusOf(client, echo + listOf(55)), 1);
  EXPECT_EQ(statusOf(client, echo + listOf(56)), -413);
  EXPECT_EQ(statusOf(client, echo + "[[[[[[[[]]]]]]]]"), 1);
  for (int i = 0; i < 4; ++i) {
    EXPECT_EQ(statusOf(client, R"("method":"sub","uri":"/x)" + std::to_string(i) + '"'), 1);
  }
  EXPECT_EQ(statusOf(client, R"("method":"sub","uri":"/x4")"), -503);
  const auto resources =
      static_cast<int>(client.Ask(R"({"id":1,"method":"read","uri":"/"})").At("payload/resources").Size());
  for (int i = resources; i < 40; ++i) {
    EXPECT_EQ(statusOf(client, R"("method":"create","payload":1,"uri":"/new/)" + std::to_string(i) + '"'), 1);
  }
  EXPECT_EQ(statusOf(client, R"("method":"create","payload":1,"uri":"/new/more")"), -503);
  RawClient deep(port);
  RawClient large(port);
  EXPECT_EQ(large.HandshakeStatus(), 101U);
  EXPECT_EQ(RawClient(port).HandshakeStatus(), 503U);
  deep.Send("{\"id\":1," + echo + "[[[[[[[[[]]]]]]]]]}");
  EXPECT_FALSE(deep.Receive());
  EXPECT_EQ(deep.CloseCode(), 1007U);
  large.Send("{\"id\":1," + echo + '"' + std::string(5000, 'x') + "\"}");
  EXPECT_FALSE(large.Receive());
  EXPECT_EQ(large.CloseCode(), 1009U);
}

TEST(Program, QueueOfASlowClientIsLimitedByItsOption) {
  ZoTest::TemporaryFolder folder;
  const std::string file = (folder / "big.json").string();
  std::ofstream(file) << R"({"resources": {"/big": {"writable": true, "content": {"n": 0, "v": ")"
                      << std::string(1000000, 'x') << "\"}}}}";
  const auto notified = [&](const char* queue) {
    Program program({"--port", "0", "--log", "off", "--resources", file, "--max-queue", queue});
    const std::uint16_t port = Program::PortIn(program.OutputLine());
    SessionWishes wishes;
    wishes.receiveBuffer = 4096;
    RawClient slow(port, wishes);
    slow.Ask(R"({"id":1,"method":"sub","uri":"/big"})");
    RawClient writer(port);
    constexpr int Count = 20;  // 20 MB: more than the systems take beside the queue
    for (int i = 1; i <= Count; ++i) {
      const std::string n = std::to_string(i);
      writer.Ask(R"({"id":)" + n + R"(,"method":"update","uri":"/big","payload":{"n":)" + n + "}}");
    }
    int received = 0;
    while (received <= Count && slow.Receive()) {
      ++received;
    }
    return received;
  };
  EXPECT_LT(notified("1500000"), 20);
  EXPECT_EQ(notified("40000000"), 21);
}

TEST(Program, SeedMakesARunRepeatable) {
  const auto run = [](const char* seed) {
    Program program({"--port", "0", "--log", "off", "--seed", seed, "--fault", "error=0.5"});
    RawClient client(Program::PortIn(program.OutputLine()));
    std::string pattern;
    for (int i = 1; i <= 60; ++i) {
      const ZoJson answer =
          client.Ask(R"({"id":)" + std::to_string(i) + R"(,"method":"read","uri":"/machine/info"})");
      pattern += answer.At("status").ToString() == "1" ? 'x' : '.';
    }
    return pattern;
  };
  const std::string first = run("5");
  EXPECT_EQ(first, run("5"));
  EXPECT_NE(first, run("6"));
}

}  // namespace
}  // namespace ZoSensor
