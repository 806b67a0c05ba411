#include <arpa/inet.h>
#include <malloc.h>
#include <net/if.h>
#include <pthread.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>

#include "qapi/memory.h"
#include "qapi/platform.h"
#include "qapi/thread.h"

namespace qApi::Platform {

namespace {

// What the kernel keeps of a thread's name; longer ones are refused, not cut.
constexpr std::size_t maxNameLength = 15;

struct ShortName {
  explicit ShortName(const char* name) {
    const std::size_t length = strnlen(name, maxNameLength);
    std::memcpy(text, name, length);
    text[length] = '\0';
  }
  char text[maxNameLength + 1];
};

}  // namespace

std::uint64_t ThreadNumber() {
  return static_cast<std::uint64_t>(syscall(SYS_gettid));
}

std::uint64_t ProcessNumber() {
  return static_cast<std::uint64_t>(getpid());
}

bool OnFork(void (*inChild)()) {
  // Unloading the library takes the handler away again.
  return pthread_atfork(nullptr, nullptr, inChild) == 0;
}

void NameThread(std::thread& thread, const char* name) {
  pthread_setname_np(thread.native_handle(), ShortName(name).text);
}

void NameCurrentThread(const char* name) {
  pthread_setname_np(pthread_self(), ShortName(name).text);
}

bool TryJoin(std::thread& thread) {
  if (pthread_tryjoin_np(thread.native_handle(), nullptr) != 0) {
    return false;
  }
  // The system's thread is gone, which std::thread cannot be told: its join and detach would both touch the
  // old number. It holds nothing else, so a new empty one takes its place.
  std::construct_at(&thread);
  return true;
}

bool ParseV4(const char* text, std::uint8_t* bytes) {
  return inet_pton(AF_INET, text, bytes) == 1;
}

bool ParseV6(const char* text, std::uint8_t* bytes) {
  return inet_pton(AF_INET6, text, bytes) == 1;
}

std::string TextV4(const std::uint8_t* bytes) {
  char text[INET_ADDRSTRLEN];
  return inet_ntop(AF_INET, bytes, text, sizeof text);
}

std::string TextV6(const std::uint8_t* bytes) {
  char text[INET6_ADDRSTRLEN];
  return inet_ntop(AF_INET6, bytes, text, sizeof text);
}

std::uint32_t InterfaceIndex(const char* name) {
  return if_nametoindex(name);
}

int OpenTcpSocket(bool v6) {
  return socket(v6 ? AF_INET6 : AF_INET, SOCK_STREAM | SOCK_CLOEXEC, IPPROTO_TCP);
}

void CloseSocket(int descriptor) {
  close(descriptor);
}

}  // namespace qApi::Platform

void qMemory_GiveBack() noexcept {
#ifdef __GLIBC__
  malloc_trim(0);
#endif
}

void qMemory_Discard(void* block, std::size_t size) noexcept {
  const int error = errno;
  const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  const auto begin = reinterpret_cast<std::uintptr_t>(block);
  // From an odd page on, so never from the start of a huge page: of one that only begins in here, some systems would
  // discard all.
  const std::uintptr_t first = ((begin + page - 1) / page | 1) * page;
  const std::uintptr_t last = (begin + size) / page * page;
  if (first < last) {
    madvise(static_cast<char*>(block) + (first - begin), last - first, MADV_DONTNEED);
  }
  errno = error;
}

qSignalShield::qSignalShield() {
  static_assert(sizeof(sigset_t) <= sizeof(saved));
  sigset_t blocked;
  sigfillset(&blocked);
  // Faults belong to the thread that commits them, and a profiler wants to see every thread.
  for (const int wanted : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS, SIGABRT, SIGPROF}) {
    sigdelset(&blocked, wanted);
  }
  sigset_t before;
  pthread_sigmask(SIG_SETMASK, &blocked, &before);
  std::memcpy(saved.data(), &before, sizeof before);
}

qSignalShield::~qSignalShield() {
  sigset_t before;
  std::memcpy(&before, saved.data(), sizeof before);
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
}
