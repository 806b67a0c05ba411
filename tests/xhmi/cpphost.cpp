// First and alone: the header needs no other.
#include "xhmi/iohandler.h"

#include <type_traits>

#include "tests/xhmi/hostrecords.h"

static_assert(__cplusplus == 202002L, "this page is for C++20");

#include "tests/xhmi/hostbody.inc"

HostFunctions CppHost(void) {
  return Functions();
}

// Each function fits the pointer type that is named after it.
static_assert(std::is_same_v<decltype(&CreateIoInstance), CreateIoInstanceFunction>);
static_assert(std::is_same_v<decltype(&DestroyIoInstance), DestroyIoInstanceFunction>);
static_assert(std::is_same_v<decltype(&GetIoInfo), GetIoInfoFunction>);
static_assert(std::is_same_v<decltype(&ReadItem), ReadItemFunction>);
static_assert(std::is_same_v<decltype(&WriteItem), WriteItemFunction>);
static_assert(std::is_same_v<decltype(&SubscribeItems), SubscribeItemsFunction>);
static_assert(std::is_same_v<decltype(&UnsubscribeItems), UnsubscribeItemsFunction>);
static_assert(std::is_same_v<decltype(&CallMethod), CallMethodFunction>);

// Records cross the boundary as plain bytes.
static_assert(std::is_trivial_v<ioDataValue> && std::is_standard_layout_v<ioDataValue>);
static_assert(std::is_trivial_v<ioHandlerParam> && std::is_standard_layout_v<ioHandlerParam>);
static_assert(std::is_trivial_v<ioParamInfo> && std::is_standard_layout_v<ioParamInfo>);
static_assert(std::is_trivial_v<ioInfo> && std::is_standard_layout_v<ioInfo>);
