// What the operating system and the allocator say about this process.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>

namespace ZoBench {

// Seconds of a steady clock.
double Now();
// Seconds of CPU time of the calling thread, and of this whole process.
double ThreadCpu();
double ProcessCpu();

// Seconds of CPU time by thread name; threads of one name are added up. The first 15 bytes of a name are all there is.
std::map<std::string, double> CpuByThread();

std::size_t ThreadCount();
// Bytes.
std::size_t ResidentBytes();
std::size_t AllocatedBytes();

// Bytes that this process's connections to a port have carried so far, frames and all.
struct Traffic {
  std::uint64_t sent = 0;
  std::uint64_t received = 0;
};
Traffic TrafficWith(std::uint16_t port);

}  // namespace ZoBench
