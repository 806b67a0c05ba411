// The page on item names shows what the program does: every row of its table is executed.
#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include "zoiohandler/vyrnclient/itemmanager.h"

namespace ZoTest {
namespace {

using Row = std::vector<std::string>;

std::string Trim(const std::string& text) {
  const std::size_t first = text.find_first_not_of(' ');
  return first == std::string::npos ? "" : text.substr(first, text.find_last_not_of(' ') - first + 1);
}

// "`text`" or "(empty)"; anything else is a fault of the page.
std::string Cell(const std::string& text) {
  if (text == "(empty)") {
    return "";
  }
  if (text.size() < 3 || text.front() != '`' || text.back() != '`') {
    ADD_FAILURE() << "not a cell: " << text;
    return "";
  }
  return text.substr(1, text.size() - 2);
}

Row Cells(const std::string& line) {
  Row cells;
  std::size_t start = 1;
  for (std::size_t bar; (bar = line.find('|', start)) != std::string::npos; start = bar + 1) {
    cells.push_back(Trim(line.substr(start, bar - start)));
  }
  return cells;
}

std::vector<Row> ReadTable() {
  std::ifstream page(ZOIO_ITEM_NAMES_PAGE);
  EXPECT_TRUE(page.is_open()) << ZOIO_ITEM_NAMES_PAGE;
  std::vector<Row> rows;
  bool inside = false;
  for (std::string line; std::getline(page, line);) {
    if (line == "| name | uri | subscriptionUri | endpoint | pointer |") {
      inside = true;
      std::getline(page, line);
    } else if (inside && !line.empty() && line[0] == '|') {
      rows.push_back(Cells(line));
    } else {
      inside = false;
    }
  }
  return rows;
}

TEST(ItemNamesPage, EveryExampleIsTrue) {
  const std::vector<Row> rows = ReadTable();
  ASSERT_GE(rows.size(), 11u);
  for (const Row& row : rows) {
    ASSERT_EQ(row.size(), 5u) << row[0];
    SCOPED_TRACE(row[0]);
    const ZoIO::ItemInfo info = ZoIO::ItemManager::CreateItem(Cell(row[0]));
    EXPECT_EQ(info.uri, Cell(row[1]));
    EXPECT_EQ(info.subscriptionUri, Cell(row[2]));
    const std::string endpoint = Cell(row[3]);
    if (endpoint.empty()) {
      EXPECT_TRUE(info.endpoint.Empty());
    } else {
      // The page writes a blank behind the colon.
      EXPECT_EQ(info.endpoint.Flatten().ToString(), ZoJson::ParseString(endpoint).ToString());
    }
    EXPECT_EQ(info.pointer, ZoJsonPointer(Cell(row[4])));
  }
}

}  // namespace
}  // namespace ZoTest
