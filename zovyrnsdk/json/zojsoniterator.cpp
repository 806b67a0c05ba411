#include "zovyrnsdk/json/zojsoniterator.h"

#include <utility>

#include "zovyrnsdk/json/zojsonnode.h"

using Access = ZoJsonAccess;

ZoJsonIterator::ZoJsonIterator(ZoJson container) : container(std::move(container)), size(0) {
  if (!Access::HasNode(this->container)) {
    return;
  }
  if (this->container.IsArray()) {
    size = Access::Array(this->container).size;
  } else if (this->container.IsObject()) {
    auto& object = Access::Object(this->container);
    size = object.used;
    index = object.Living(0);
  }
}

void ZoJsonIterator::Next() noexcept {
  ++index;
  if (container.IsObject()) {
    index = Access::Object(container).Living(static_cast<std::uint32_t>(index));
  }
}

std::string_view ZoJsonIterator::Key() const noexcept {
  if (!container.IsObject()) {
    return {};
  }
  auto& object = Access::Object(container);
  return object.Key(object.Slots()[index]);
}

const ZoJson& ZoJsonIterator::Value() const noexcept {
  return container.IsArray() ? Access::Array(container).Elements()[index]
                             : Access::Object(container).Slots()[index].value;
}
