#include "qapi/object.h"

#include "qapi/faultswitch.h"
#include "qapi/libraryobject.h"
#include "qapi/lockobject.h"
#include "qapi/stragglers.h"
#include "qapi/threadobject.h"

void qObject_Destroy(qApiLib library) {
  if (library == nullptr) {
    return;
  }
  delete library;
  qApi::RemoveLiveObject();
}

void qObject_Destroy(qLock lock) {
  if (lock == nullptr) {
    return;
  }
  delete lock;
  qApi::RemoveLiveObject();
}

void qObject_Destroy(qThread thread) {
  if (thread == nullptr) {
    return;
  }
  qApi::RemoveLiveObject();
  if (thread->IsUnjoined()) {
    qApi::KeepStraggler(thread);
  } else {
    thread->Release();
  }
}
