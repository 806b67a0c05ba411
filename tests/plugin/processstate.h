// What the operating system knows of this process.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

namespace ZoTest {

// The names of all threads, as the system keeps them (15 bytes), sorted.
std::vector<std::string> ThreadNames();

// The threads, by the system's name for them, that would take this signal when it is sent to the process.
std::vector<std::string> ThreadsThatTake(int signal);

// The number of threads at the start of a test. A sanitizer brings a thread of its own with the first one
// that is made; this makes one first, so that it is counted.
std::size_t InitialThreadCount();

// True once the process has a thread of each of these names. (A thread takes its name when it begins to run.)
bool WaitForThreadNames(const std::vector<std::string>& names,
                        std::chrono::milliseconds limit = std::chrono::seconds(30));

// True once the process has no more threads than this. (A joined thread may stay in the system's list for a
// moment.)
bool WaitForThreadCount(std::size_t count, std::chrono::milliseconds limit = std::chrono::seconds(30));

}  // namespace ZoTest
