/* A complete host in C: loads the plug-in, subscribes two items, prints five updates and leaves.
 *   cc -std=c11 -I. examples/minimal_host.c -o minimal_host        in the folder of the project
 *   ./minimal_host [PLUGIN [ADDRESS [ITEM ITEM]]]    by default ./ZoIoHandler.so and its built-in simulator */
#define _POSIX_C_SOURCE 200809L
#include <dlfcn.h>
#include <inttypes.h>
#include <semaphore.h>
#include <stdio.h>
#include <time.h>

#include "xhmi/iohandler.h"

static sem_t updates;

/* Runs on a thread of the plug-in: be quick, call no export, copy whatever is to be kept. */
static void OnValue(const char* itemName, const ioDataValue* value, void* context) {
  int* wanted = context; /* one instance calls back from one thread at a time */
  if (value->type == enumtype_invalid || *wanted == 0) {
    return; /* no value yet, or enough of them */
  }
  if (value->type == enumtype_string) {
    printf("%s = %s\n", itemName, value->value.text);
  } else if (value->type == enumtype_double) {
    printf("%s = %g\n", itemName, value->value.float64);
  } else if (value->type == enumtype_uint64) {
    printf("%s = %" PRIu64 "\n", itemName, value->value.uint64);
  } else {
    printf("%s = %" PRId64 "\n", itemName,
           value->type == enumtype_bool ? value->value.boolean : value->value.int64);
  }
  --*wanted;
  sem_post(&updates);
}

static void OnLog(void* context, int32_t level, const char* text) {
  (void)context;
  if (level >= 4) { /* warnings and worse; without a log callback, everything would go to standard output */
    fputs(text, stderr);
  }
}

int main(int argc, char** argv) {
  const char* items[2] = {argc > 4 ? argv[3] : "/demo#/int", argc > 4 ? argv[4] : "/demo#/float"};
  void* library = dlopen(argc > 1 ? argv[1] : "./ZoIoHandler.so", RTLD_NOW | RTLD_LOCAL);
  if (library == NULL) {
    fprintf(stderr, "%s\n", dlerror());
    return 1;
  }
  CreateIoInstanceFunction create;
  DestroyIoInstanceFunction destroy;
  SubscribeItemsFunction subscribe;
  *(void**)&create = dlsym(library, "CreateIoInstance");
  *(void**)&destroy = dlsym(library, "DestroyIoInstance");
  *(void**)&subscribe = dlsym(library, "SubscribeItems");
  if (create == NULL || destroy == NULL || subscribe == NULL) {
    fprintf(stderr, "This library is no IO-handler plug-in.\n");
    return 1;
  }
  int wanted = 5, kinds[2], left = wanted;
  void* instance = NULL;
  ioHandlerParam param = {.context = &wanted, .itemValue = OnValue, .log = OnLog}; /* copied */
  sem_init(&updates, 0, 0);
  if (create(argc > 2 ? argv[2] : "simulator", 3600, &param, &instance) == 0) {
    struct timespec limit;
    clock_gettime(CLOCK_REALTIME, &limit);
    limit.tv_sec += 20;
    if (subscribe(500, 2, items, kinds, instance) == 0) {
      while (left > 0 && sem_timedwait(&updates, &limit) == 0) {
        --left;
      }
    }
    destroy(instance); /* ends the subscriptions too; once it has returned, no callback begins */
  }
  dlclose(library);
  return left == 0 ? 0 : 1;
}
