// The layout tables of docs/host-abi.md against the header.
#include <gtest/gtest.h>

#include <cstddef>
#include <tuple>

#include "tests/docs/markdown.h"
#include "xhmi/iohandler.h"

namespace {

using namespace ZoTest;

using Field = std::tuple<std::string, std::size_t, std::size_t>;  // name, offset, bytes

#define ZO_FIELD(record, field) Field(#field, offsetof(record, field), sizeof(record::field))

std::vector<Field> DocumentedFields(const std::string& record) {
  std::vector<Field> fields;
  for (const auto& row : TableRows(std::filesystem::path(ZOIO_ROOT) / "docs/host-abi.md", record)) {
    fields.emplace_back(WithoutBackticks(row.at(2)), std::stoul(row.at(0)), std::stoul(row.at(1)));
  }
  return fields;
}

TEST(HostAbiPage, ShowsTheLayoutOfAValue) {
  const std::vector<Field> fields = {ZO_FIELD(ioDataValue, type), ZO_FIELD(ioDataValue, padding),
                                     ZO_FIELD(ioDataValue, value), ZO_FIELD(ioDataValue, status),
                                     ZO_FIELD(ioDataValue, reserved)};
  EXPECT_EQ(DocumentedFields("`ioDataValue`, 24 bytes"), fields);
}

TEST(HostAbiPage, ShowsTheLayoutOfTheHostsRecord) {
  const std::vector<Field> fields = {
      ZO_FIELD(ioHandlerParam, reserved0), ZO_FIELD(ioHandlerParam, context),
      ZO_FIELD(ioHandlerParam, itemValue), ZO_FIELD(ioHandlerParam, methodResult),
      ZO_FIELD(ioHandlerParam, reserved4), ZO_FIELD(ioHandlerParam, log),
      ZO_FIELD(ioHandlerParam, reserved16)};
  EXPECT_EQ(DocumentedFields("`ioHandlerParam`, 136 bytes"), fields);
}

TEST(HostAbiPage, ShowsTheLayoutOfTheDescription) {
  const std::vector<Field> fields = {ZO_FIELD(ioInfo, word0),  ZO_FIELD(ioInfo, word1),
                                     ZO_FIELD(ioInfo, word2),  ZO_FIELD(ioInfo, word3),
                                     ZO_FIELD(ioInfo, name),   ZO_FIELD(ioInfo, description),
                                     ZO_FIELD(ioInfo, word4),  ZO_FIELD(ioInfo, word5),
                                     ZO_FIELD(ioInfo, params), ZO_FIELD(ioInfo, paramCount)};
  EXPECT_EQ(DocumentedFields("`ioInfo`, 56 bytes"), fields);
}

TEST(HostAbiPage, ShowsTheLayoutOfAParameter) {
  const std::vector<Field> fields = {ZO_FIELD(ioParamInfo, label), ZO_FIELD(ioParamInfo, description),
                                     ZO_FIELD(ioParamInfo, kind)};
  EXPECT_EQ(DocumentedFields("`ioParamInfo`, 24 bytes"), fields);
}

}  // namespace
