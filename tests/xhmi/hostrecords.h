/* Records filled by code of either language, for layouttest.cpp to look at byte by byte. */
#ifndef TESTS_XHMI_HOSTRECORDS_H
#define TESTS_XHMI_HOSTRECORDS_H

#include "xhmi/iohandler.h"

/* Every field of every record has a value of its own. */
#define HOST_TYPE 0x11121314u
#define HOST_PADDING 0x21222324u
#define HOST_INTEGER INT64_C(-0x3132333435363738)
#define HOST_STATUS (-0x41424344)
#define HOST_RESERVED 0x51525354u
#define HOST_FIRST_WORD UINT64_C(0x6162636465666700)
#define HOST_WORD(n) (HOST_FIRST_WORD + (n))

#ifdef __cplusplus
extern "C" {
#endif

/* How one language fills the records. */
typedef struct HostFunctions {
  void (*fillValue)(ioDataValue* value);
  void (*fillText)(ioDataValue* value, const char* text);
  void (*fillBoolean)(ioDataValue* value, uint8_t boolean);
  void (*fillDouble)(ioDataValue* value, double number);
  void (*fillParam)(ioHandlerParam* param, void* context);
  void (*fillParamInfo)(ioParamInfo* info, const char* label, const char* description);
  void (*fillInfo)(ioInfo* info, const char* name, const char* description, const ioParamInfo* params);
  /* The three callbacks that fillParam enters. */
  ioItemValueCallback itemValue;
  ioMethodResultCallback methodResult;
  ioLogCallback log;
} HostFunctions;

HostFunctions CHost(void);
HostFunctions CppHost(void);

#ifdef __cplusplus
}
#endif

#endif
