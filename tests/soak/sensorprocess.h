// One zosensor as a process of its own, which can be killed, frozen and started again on its port.
//
// Threads: one, which must live as long as the process is wanted: the process ends with the thread that started it, so
// that none is left behind however the soak ends. Owner: the sensor's keeper. The destructor kills it.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <filesystem>
#include <string>

#include "tests/soak/facts.h"

namespace ZoSoak {

class SensorProcess {
 public:
  // folder: for its resource file and its log.
  SensorProcess(std::filesystem::path folder, SensorFacts& facts);
  ~SensorProcess();
  SensorProcess(const SensorProcess&) = delete;
  SensorProcess& operator=(const SensorProcess&) = delete;

  // On the port that it had before, if any. Raises std::runtime_error when it does not listen within 20 s.
  void Start();
  // With SIGKILL or SIGTERM; waits for the end.
  void End(int signal);
  void Signal(int signal) const;
  // Whether it is still there, when nobody has ended it.
  bool IsAlive();

 private:
  // Whether it said where it listens.
  bool Launch();
  std::string FirstLine(int file) const;

  const std::filesystem::path folder;
  SensorFacts& facts;
  pid_t pid = -1;
};

}  // namespace ZoSoak
