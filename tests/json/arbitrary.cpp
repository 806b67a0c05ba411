#include "tests/json/arbitrary.h"

#include <cstdint>
#include <cstring>
#include <limits>
#include <utility>
#include <vector>

#include "zovyrnsdk/json/zojsonpointer.h"

namespace {

void AppendUtf8(std::string& text, std::uint32_t point) {
  if (point < 0x80) {
    text += static_cast<char>(point);
  } else if (point < 0x800) {
    text += static_cast<char>(0xC0U | (point >> 6U));
    text += static_cast<char>(0x80U | (point & 0x3FU));
  } else if (point < 0x10000) {
    text += static_cast<char>(0xE0U | (point >> 12U));
    text += static_cast<char>(0x80U | ((point >> 6U) & 0x3FU));
    text += static_cast<char>(0x80U | (point & 0x3FU));
  } else {
    text += static_cast<char>(0xF0U | (point >> 18U));
    text += static_cast<char>(0x80U | ((point >> 12U) & 0x3FU));
    text += static_cast<char>(0x80U | ((point >> 6U) & 0x3FU));
    text += static_cast<char>(0x80U | (point & 0x3FU));
  }
}

rc::Gen<std::uint32_t> AnyPoint() {
  return rc::gen::weightedOneOf<std::uint32_t>({{8, rc::gen::inRange<std::uint32_t>(0x20, 0x7F)},
                                                {2, rc::gen::inRange<std::uint32_t>(0, 0x20)},
                                                {2, rc::gen::element<std::uint32_t>('"', '\\', '/', '~')},
                                                {1, rc::gen::inRange<std::uint32_t>(0x80, 0xD800)},
                                                {1, rc::gen::inRange<std::uint32_t>(0xE000, 0x110000)}});
}

rc::Gen<double> AnyFinite() {
  return rc::gen::map(rc::gen::arbitrary<std::uint64_t>(), [](std::uint64_t bits) {
    double number;
    std::memcpy(&number, &bits, sizeof number);
    // An exponent of all ones would make it infinite or no number.
    return number - number == 0 ? number : static_cast<double>(bits);
  });
}

// Builds a document from a list of places and what to put there: every shape that Set can make.
ZoJson Assemble(const std::vector<std::pair<std::string, ZoJson>>& entries) {
  ZoJson document = ZoJson::EmptyObject();
  for (const auto& [path, value] : entries) {
    try {
      document.Set(path, value);
    } catch (const ZoJsonError&) {
      continue;  // an array in the way that has no such index
    }
  }
  return document;
}

}  // namespace

rc::Gen<std::string> AnyText() {
  return rc::gen::map(rc::gen::container<std::vector<std::uint32_t>>(AnyPoint()),
                      [](const std::vector<std::uint32_t>& points) {
                        std::string text;
                        for (const std::uint32_t point : points) {
                          AppendUtf8(text, point);
                        }
                        return text;
                      });
}

rc::Gen<std::string> AnyName() {
  return rc::gen::weightedOneOf<std::string>(
      {{6, rc::gen::element<std::string>("a", "b", "c", "d", "value", "state")},
       {3, rc::gen::element<std::string>("", "0", "1", "-", "01", "/", "~", "a/b", "~1", "~0", "/a", " ",
                                         "%20")},
       {1, rc::gen::element(std::string(300, 'n'), std::string("a name of more than sixteen bytes"))},
       {2, AnyText()}});
}

rc::Gen<ZoJson> AnyScalar() {
  return rc::gen::oneOf(
      rc::gen::just(ZoJson()), rc::gen::map(rc::gen::arbitrary<bool>(), [](bool x) { return ZoJson::Of(x); }),
      rc::gen::map(rc::gen::arbitrary<std::int64_t>(), [](std::int64_t x) { return ZoJson::Of(x); }),
      rc::gen::map(rc::gen::arbitrary<std::uint64_t>(), [](std::uint64_t x) { return ZoJson::Of(~x); }),
      rc::gen::map(AnyFinite(), [](double x) { return ZoJson::Of(x); }),
      rc::gen::map(AnyText(), [](const std::string& x) { return ZoJson::Of(x); }));
}

rc::Gen<std::string> AnyPath() {
  return rc::gen::map(rc::gen::resize(5, rc::gen::container<std::vector<std::string>>(AnyName())),
                      [](const std::vector<std::string>& names) {
                        std::string path;
                        for (const std::string& name : names) {
                          path += ZoJsonPointer::Member(name).ToString();
                        }
                        return path;
                      });
}

rc::Gen<ZoJson> AnyDocument() {
  const auto leaf = rc::gen::weightedOneOf<ZoJson>(
      {{6, AnyScalar()},
       {1, rc::gen::element(ZoJson::EmptyArray(), ZoJson::EmptyObject(), ZoJson("[1,[2,{\"x\":[]}],\"y\"]"))},
       {1, rc::gen::map(rc::gen::container<std::vector<ZoJson>>(AnyScalar()),
                        [](const std::vector<ZoJson>& all) {
                          ZoJson array = ZoJson::EmptyArray();
                          for (const ZoJson& element : all) {
                            array.Set("/-", element);
                          }
                          return array;
                        })}});
  return rc::gen::weightedOneOf<ZoJson>(
      {{1, leaf},
       {8, rc::gen::map(rc::gen::container<std::vector<std::pair<std::string, ZoJson>>>(
                            rc::gen::pair(AnyPath(), leaf)),
                        Assemble)}});
}
