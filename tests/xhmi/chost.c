/* First and alone: the header needs no other. */
#include "xhmi/iohandler.h"

#include "tests/xhmi/hostrecords.h"

#if !defined(__STDC_VERSION__) || __STDC_VERSION__ != 201112L
#error "this page is for C11"
#endif

#include "tests/xhmi/hostbody.inc"

HostFunctions CHost(void) {
  return Functions();
}

/* Each function fits the pointer type that is named after it, or this would not compile. */
#define FITS(name) _Static_assert(_Generic(&name, name##Function : 1, default : 0), #name)
FITS(CreateIoInstance);
FITS(DestroyIoInstance);
FITS(GetIoInfo);
FITS(ReadItem);
FITS(WriteItem);
FITS(SubscribeItems);
FITS(UnsubscribeItems);
FITS(CallMethod);
