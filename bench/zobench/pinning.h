// Which cores host and sensor run on. Both on one core shows what the work costs; a core for each shows what a host on
// a machine of its own would see.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace ZoBench {

struct Placement {
  std::string name;  // "same core" or "two cores"
  int hostCore = 0;
  int sensorCore = 0;
};

// The cores that this process may use when it starts.
const std::vector<int>& Cores();

// What this machine can do: both placements, or the first alone where there is one core.
std::vector<Placement> Placements();
// The last of them, for cases that are not measured apart.
Placement Widest();

// Binds every thread that the process has now; later ones inherit it from the thread that starts them. Raises
// std::system_error.
void PinProcess(pid_t process, int core);
// Lets it run on all of Cores() again.
void ReleaseProcess(pid_t process);

// Binds this process and the children.
void Place(const Placement& placement, const std::vector<pid_t>& sensors);

}  // namespace ZoBench
