#include "zoiohandler/vyrnclient/isensormanager.h"

#include "zoiohandler/vyrnclient/cachemanager.h"

namespace ZoIO {

void ISensorManager::Keep(const std::string& uri, const ZoJson& payload) {
  Cache()->Add(uri, payload);
}

}  // namespace ZoIO
