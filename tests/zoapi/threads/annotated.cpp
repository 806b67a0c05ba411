// Not built: clang reads it, once as it stands and once with each of the faults below.

#include "qapi/annotations.h"
#include "zoapi/threads/locker.h"
#include "zoapi/threads/lockranks.h"

namespace {

class Account {
 public:
  int Read() {
    const Zo::Locker locker(lock);
    return balance;
  }
  int ReadInTime() {
    const Zo::Locker locker(lock, 1000);
    return balance;
  }
  int ReadOther() {
    const Zo::MutexLock guard(mutex);
    return other;
  }
  int ReadHeld() Q_REQUIRES(lock) { return balance; }

#ifdef UNGUARDED_READ
  int Wrong() {
    return balance;
  }
#endif
#ifdef UNGUARDED_MUTEX_READ
  int Wrong() {
    return other;
  }
#endif
#ifdef READ_AFTER_SCOPE
  int Wrong() {
    { const Zo::Locker locker(lock); }
    return ReadHeld();
  }
#endif
#ifdef ENTERED_TWICE
  int Wrong() {
    const Zo::Locker outer(lock);
    const Zo::Locker inner(lock);
    return balance;
  }
#endif

 private:
  Zo::Lock lock;
  Zo::Mutex mutex{"account", Zo::LockRank_None};
  int balance Q_GUARDED_BY(lock) = 0;
  int other Q_GUARDED_BY(mutex) = 0;
};

}  // namespace

int main() {
  Account account;
  return account.Read() + account.ReadInTime() + account.ReadOther();
}
