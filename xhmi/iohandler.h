/* The interface between an HMI host and an IO-handler plug-in.
 *
 * This header is all that a host needs. It compiles as C11 and as C++20. The plug-in is a dynamic library that
 * exports exactly the eight functions at the end of this page, under their plain names; a host loads it at run
 * time (dlopen / dlsym; ours is ZoIoHandler.so) and talks to one or more sensors through it. examples/minimal_host.c is a
 * complete host.
 *
 * Threads
 *   [any]       may be called from any thread, also from several at once. All eight exports are [any]. One
 *               process-wide lock serialises them, over all instances, for the whole of each call: a slow call (a
 *               sensor that does not answer, a connect, a destruction) delays every other one.
 *   [callback]  is called by the plug-in: either on the host's own thread, from inside an export, or on a thread
 *               of the plug-in. Log callbacks of one instance may run at the same time on several threads.
 *               A callback must return soon, must not throw, must not call any export and must not end the
 *               process. Return from every callback and export before unloading the library or
 *               leaving main().
 *
 * Text is UTF-8 and zero-terminated. The plug-in copies whatever a host passes to it before an export returns;
 * what it passes to a callback is valid only until that callback returns, so copy it.
 *
 * Results are 0 for done and 1 for refused or failed. A request that got no answer is in the instance's log. A
 * refusal is silent: a null pointer, a sensor that is not connected, an item that the sensor does not have (only its
 * first use leaves a warning), a type that cannot be written, an unknown method or arguments that are no JSON object;
 * so is an instance that could not be made. So is a link that is lost and comes back: meanwhile calls give 1 and
 * subscriptions repeat their last values, with status 0. To notice it call ReadItem now and then: an item that could be
 * read before gives 1 then. A null pointer argument is always refused with 1 and nothing
 * is done (the opaque callToken and the ignored arguments may be null; a null name inside a SubscribeItems batch has
 * its own rule).
 *
 * A handle is live from the CreateIoInstance that made it until its DestroyIoInstance. Any other non-null handle
 * is a fault in the host which the plug-in does not answer: it rethrows "the exception being handled" where there
 * is none, which ends the process (std::terminate).
 *
 * After a fork the instances stay the parent's: in the child their handles get 1, and nothing touches them. The child
 * may make instances of its own, provided that during the fork no thread of the parent was inside an export, a callback
 * or a log line; fork before the first instance, or after the last, to be sure.
 */
#ifndef XHMI_IOHANDLER_H
#define XHMI_IOHANDLER_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* How the value field of an ioDataValue is to be read. */
typedef enum enumtype {
  enumtype_string = 0, /* text */
  enumtype_bool = 1,   /* boolean */
  enumtype_int64 = 2,  /* signed 64-bit integer */
  enumtype_double = 3, /* IEEE-754 double. A number read from a sensor has the precision of a float:
                            0.1 arrives as 0.10000000149011612. */
  enumtype_uint64 = 4, /* unsigned 64-bit integer, used for values above 2^63-1 */
  enumtype_invalid = 5 /* no value yet, or none any more; the text is "INVALID" */
} enumtype;

/* One value with its type and status: 24 bytes. */
typedef struct ioDataValue {
  uint32_t type;    /* an enumtype */
  uint32_t padding; /* not used */
  union {
    const char* text; /* enumtype_string, enumtype_invalid: never null in what the plug-in delivers */
    uint8_t boolean;  /* enumtype_bool: 0 or 1 from the plug-in. In WriteItem the whole 64-bit field counts:
                           clear it before setting this byte. */
    int64_t int64;    /* enumtype_int64 */
    double float64;   /* enumtype_double */
    uint64_t uint64;  /* enumtype_uint64; also the whole field */
  } value;
  int32_t status;    /* 0 in every value that the plug-in delivers; ignored in WriteItem */
  uint32_t reserved; /* 0 */
} ioDataValue;

/* [callback] A value of an item: the answer to ReadItem (before it returns), or the update of a subscription (on
 * the instance's monitor thread, those of one interval in the order of their names). itemName is the name as the host gave it; value, and the text it may point to,
 * belong to the plug-in and are valid during the call; context is the host's own. An instance lock is held during
 * the call, so a slow callback delays this instance's other work. */
typedef void (*ioItemValueCallback)(const char* itemName, const ioDataValue* value, void* context);

/* [callback] The result of CallMethod, before it returns. callToken is CallMethod's first argument, untouched;
 * response is a JSON text {"id": …, "errcode": 0, "data": "…"} whose "data" is itself JSON text. errcode is always 0: a
 * failure shows in data alone; that of "RunSensor" and "StopSensor" only in the log. */
typedef void (*ioMethodResultCallback)(const void* callToken, const char* response, void* context);

/* [callback] One log line, ended by a newline: "[function](thread id)message\n". level: 2 info, 3 notice,
 * 4 warning, 5 error, 6 critical. Must be safe to call from several threads at once. Note that context comes
 * first here. */
typedef void (*ioLogCallback)(void* context, int32_t level, const char* text);

/* What a host hands over when it creates an instance: seventeen 8-byte words, 136 bytes. The plug-in copies the
 * record; it reads context and the three callbacks and carries the other words unread (set them to 0). A null
 * callback is skipped; without a log callback, messages go to standard output. context and the callbacks must stay
 * valid until DestroyIoInstance has returned (and until the callbacks that run at that moment have). */
typedef struct ioHandlerParam {
  uint64_t reserved0;
  void* context; /* passed back to every callback */
  ioItemValueCallback itemValue;
  ioMethodResultCallback methodResult;
  uint64_t reserved4[11];
  ioLogCallback log;
  uint64_t reserved16;
} ioHandlerParam;

/* One parameter of an instance that a host may offer in its configuration: 24 bytes. */
typedef struct ioParamInfo {
  const char* label;
  const char* description;
  uint64_t kind; /* host-defined; 1 */
} ioParamInfo;

/* The description of a plug-in: 56 bytes. */
typedef struct ioInfo {
  uint32_t word0; /* host-defined; 0 */
  uint32_t word1; /* host-defined; 0x00010005 */
  uint32_t word2; /* host-defined; 0 */
  uint32_t word3; /* host-defined; 0x00010004 */
  const char* name;
  const char* description;
  uint32_t word4; /* host-defined; 1 */
  uint32_t word5; /* host-defined; 1 */
  const ioParamInfo* params;
  uint64_t paramCount;
} ioInfo;

/* The exports. Each has a matching function-pointer type, named after it, for dlsym. */

/* [any] Makes an instance and starts it.
 * address     "simulator" (exactly so) for the built-in simulator, else the IPv4 or IPv6 address of a sensor. The
 *             simulator has every item: "int", "float", "bool" or "string" in its name says of what kind it is, any other
 *             counts like "int", and its value changes once a second.
 * controlPort the sensor's control port, usually 3600, in host byte order; not used by the simulator.
 * param       copied; see ioHandlerParam.
 * handleOut   receives the handle; not written on failure.
 * Blocks while it connects, at most 3 s. A sensor that cannot be reached, or an address that is none ("localhost"), is
 * no failure: the instance exists, logs the reason at error, and refuses every item with 1; it does not try again, so destroy it and create a new one.
 * A connection that is lost later comes back by itself. Log callbacks may arrive before this returns.
 * Returns 0, or 1 when the instance could not be made. */
int CreateIoInstance(const char* address, unsigned short controlPort, const ioHandlerParam* param,
                     void** handleOut);

/* [any] Ends an instance: ends what it subscribed, stops its threads, closes its connection, frees it. No other thread may
 * use the handle any more, not even wait in an export with it: it would find a dead one. Usually takes milliseconds; a
 * callback that does not return delays it by about a second for each thread that it blocks, then it goes on without
 * that thread. After the return no callback of this instance begins; one that is still running may finish.
 * Returns 0; 1 for a null handle. */
int DestroyIoInstance(void* handle);

/* [any] The description of the plug-in. Always the same address, valid while the library is loaded; never null. (A
 * process without memory for the very first call of the library gets std::bad_alloc out of it.) */
const ioInfo* GetIoInfo(void);

/* [any] Reads one item from its sensor and delivers it through the item-value callback before returning.
 * itemName  RESOURCE["#" POINTER], "/motor#/speed": a resource's URI, and the JSON pointer of the value in its content
 *           ("~1" stands for "/" in a name, "~0" for "~", "%20" for a blank). Without "#" the whole name is both; "#"
 *           alone behind the resource names the whole content. The first use of a name registers it for the life of the
 *           instance.
 * Blocks for the sensor's answer, at most about 3 s a request (two requests on the first use of a name), and for
 * calls of others and for the search for missing items, which ask the sensor too.
 * Values carry time stamps of a millisecond, and the first value of a millisecond counts: a read within a millisecond of
 * another value of the same resource delivers that one. To see the effect of a write, read a millisecond or more later.
 * Returns 0 when a value was delivered: the sensor's; the one of before when the sensor did not answer (an error is
 * logged then) or has an object or an array in the item's place (no line); or enumtype_invalid, when the sensor refused
 * or the resource no longer holds the item. Returns 1 when
 * the item is not known to the sensor (or is null there), or the sensor is not connected. Most simulated items read as
 * enumtype_invalid, since the simulator answers a read with the resource's name: subscribe them to see their values. */
int ReadItem(const char* itemName, void* handle);

/* [any] Writes one item. value is only read during the call; its type must be 0 to 4. ignored: any number.
 * Blocks for the sensor's answer, at most about 3 s a request (two requests on the first use of a name).
 * Returns 0 when the write was sent, also when the sensor then refused it, gave no answer or one without a status, or
 * the value is none that JSON can carry (NaN, infinities, text that is no UTF-8); 1 when it was refused here: another
 * type, an item that the sensor does not have (or has as null), or no connection. A refusal of the sensor leaves no
 * trace but the value: read it, a millisecond or more later, to see what became of the write. */
int WriteItem(const char* itemName, const ioDataValue* value, int ignored, void* handle);

/* [any] Subscribes items: their values then arrive through the item-value callback every intervalMs.
 * intervalMs  in milliseconds; the granularity is 100 ms, so everything up to 100 means every 100 ms.
 * count       of the names; with 0 or less nothing is subscribed, and the result is 0 (1 when the sensor is not connected).
 * itemNames   count names. At a null one the batch ends with 1: the names before it are subscribed, the results
 *             from there on are not written.
 * results     count words, written by the call: for each name the kind of what holds its value, which is 2 for a new item
 *             and 0 once it has held a string (no other value changes it), or 6 when it failed.
 * Blocks for the sensor's answers: up to three requests for a new resource, at most about 3 s each.
 * The first value comes within 100 ms, or within an interval where that has begun already: it begins with its first
 * batch, even if that leaves no item in it, and ends when an UnsubscribeItems finds it without any.
 * An item that the sensor does not know yet is delivered once as enumtype_invalid, and its values from when they
 * appear; one that is known (a simulated one always is) on every tick, as enumtype_invalid until it has a value (a simulated one
 * has it within a second or two). Subscribing one item twice takes two unsubscribes to end its stream on the sensor.
 * Returns 0, or 1 if any name failed or the batch ended at a null one, and then results tell how far it came; also 1,
 * with nothing written to results, when the sensor is not connected. So set them to a value of your own before. */
int SubscribeItems(long long intervalMs, int count, const char* const* itemNames, int* results, void* handle);

/* [any] Ends subscriptions: each name leaves all intervals at once. With a null name anywhere nothing is done. Blocks
 * for the sensor's answers, up to two requests for a resource that nobody uses any more, at most about 3 s each.
 * Returns 0, also for items that were not subscribed (which counts nevertheless: should the sensor refuse to stream the
 * resource when it is subscribed next, then it is not asked to notify of it); 1 for a null name, a sensor that is not
 * connected, or a want of memory. */
int UnsubscribeItems(int count, const char* const* itemNames, void* handle);

/* [any] Calls a method; its response arrives through the method-result callback before the call returns.
 * callToken   opaque, handed back to the callback, never read; may be null.
 * ignored     anything.
 * methodName  "RunSensor", "StopSensor", "Read", "Create", "Update", "Delete" or "Call".
 * arguments   a JSON object as text: {"id": any primitive, "uri": "/resource", "args": "JSON as text"}. "RunSensor" and
 *             "StopSensor" need none of the members, "Read" and "Delete" need uri, the others uri and args.
 * Blocks for the sensor's answer, at most about 3 s a request ("RunSensor" and "StopSensor" make two).
 * Returns 0 when a response was delivered; 1 for an unknown method, arguments that are no JSON object, or a sensor
 * that is not connected: then there is no response. */
int CallMethod(const void* callToken, const void* ignored, const char* methodName, const char* arguments,
               void* handle);

typedef int (*CreateIoInstanceFunction)(const char*, unsigned short, const ioHandlerParam*, void**);
typedef int (*DestroyIoInstanceFunction)(void*);
typedef const ioInfo* (*GetIoInfoFunction)(void);
typedef int (*ReadItemFunction)(const char*, void*);
typedef int (*WriteItemFunction)(const char*, const ioDataValue*, int, void*);
typedef int (*SubscribeItemsFunction)(long long, int, const char* const*, int*, void*);
typedef int (*UnsubscribeItemsFunction)(int, const char* const*, void*);
typedef int (*CallMethodFunction)(const void*, const void*, const char*, const char*, void*);

#ifdef __cplusplus
}
#define XHMI_ASSERT(condition) static_assert(condition, #condition)
#else
#define XHMI_ASSERT(condition) _Static_assert(condition, #condition)
#endif

/* The layout is shared by host and plug-in: little-endian, 64-bit. */
XHMI_ASSERT(sizeof(void*) == 8);
XHMI_ASSERT(sizeof(enumtype) == 4);
XHMI_ASSERT(sizeof(ioDataValue) == 24);
XHMI_ASSERT(offsetof(ioDataValue, type) == 0);
XHMI_ASSERT(offsetof(ioDataValue, value) == 8);
XHMI_ASSERT(offsetof(ioDataValue, status) == 16);
XHMI_ASSERT(offsetof(ioDataValue, reserved) == 20);
XHMI_ASSERT(sizeof(ioHandlerParam) == 136);
XHMI_ASSERT(offsetof(ioHandlerParam, context) == 8);
XHMI_ASSERT(offsetof(ioHandlerParam, itemValue) == 16);
XHMI_ASSERT(offsetof(ioHandlerParam, methodResult) == 24);
XHMI_ASSERT(offsetof(ioHandlerParam, log) == 120);
XHMI_ASSERT(sizeof(ioParamInfo) == 24);
XHMI_ASSERT(offsetof(ioParamInfo, description) == 8);
XHMI_ASSERT(offsetof(ioParamInfo, kind) == 16);
XHMI_ASSERT(sizeof(ioInfo) == 56);
XHMI_ASSERT(offsetof(ioInfo, word1) == 4);
XHMI_ASSERT(offsetof(ioInfo, word2) == 8);
XHMI_ASSERT(offsetof(ioInfo, word3) == 12);
XHMI_ASSERT(offsetof(ioInfo, name) == 16);
XHMI_ASSERT(offsetof(ioInfo, description) == 24);
XHMI_ASSERT(offsetof(ioInfo, word4) == 32);
XHMI_ASSERT(offsetof(ioInfo, word5) == 36);
XHMI_ASSERT(offsetof(ioInfo, params) == 40);
XHMI_ASSERT(offsetof(ioInfo, paramCount) == 48);

#endif /* XHMI_IOHANDLER_H */
