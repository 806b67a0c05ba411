// Inside the base library only: what is asked of the operating system. A port writes another platform_*.cpp.
#pragma once

#include <cstdint>
#include <string>
#include <thread>

namespace qApi::Platform {

// The number by which the operating system knows the calling thread, and the process.
std::uint64_t ThreadNumber();
std::uint64_t ProcessNumber();

// Calls inChild in every child that is forked from now on, on its only thread, before fork returns there. False when
// there is no memory for that.
bool OnFork(void (*inChild)());

// Shows name, cut to what the system keeps, in debuggers and process lists. A refusal is ignored: it is only
// a label. The thread must not have been joined.
void NameThread(std::thread& thread, const char* name);
void NameCurrentThread(const char* name);

// Joins thread if it has ended, without waiting. True when it was joined (it is then no longer joinable).
bool TryJoin(std::thread& thread);

// Strict numeric forms only; bytes is written on success.
bool ParseV4(const char* text, std::uint8_t* bytes);
bool ParseV6(const char* text, std::uint8_t* bytes);
std::string TextV4(const std::uint8_t* bytes);
std::string TextV6(const std::uint8_t* bytes);

// The index of the network interface of this name, 0 for none.
std::uint32_t InterfaceIndex(const char* name);

// The descriptor of a new TCP socket that other programs do not inherit, or -1 with errno set.
int OpenTcpSocket(bool v6);
void CloseSocket(int descriptor);

}  // namespace qApi::Platform
