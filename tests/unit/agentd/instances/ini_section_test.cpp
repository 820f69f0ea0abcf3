#include "agentd/instances/ini_section.h"

#include <gtest/gtest.h>

namespace {

using Values = std::map<std::string, std::string>;

TEST(Ini_Section, Reads_The_Lines_Below_Its_Heading_However_It_Is_Written) {
  struct Row {
    const char* name;
    const char* text;
    Values wanted;
  };
  const Row rows[] = {
      {"plain", "[backup]\nkey = value\n", {{"key", "value"}}},
      {"no end of line", "[backup]\nkey=value", {{"key", "value"}}},
      {"line ends of Windows", "[backup]\r\nkey = value\r\n", {{"key", "value"}}},
      {"blanks in the heading", " [ backup ]\nkey = value\n", {{"key", "value"}}},
      {"more behind the heading", "[backup] # of the site\nkey = value\n", {{"key", "value"}}},
      {"comments", "[backup]\n#key = 1\n; key = 2\nother = 3\n", {{"other", "3"}}},
      {"a value with a mark of comments", "[backup]\nkey = a;b#c\n", {{"key", "a;b#c"}}},
      {"set twice", "[backup]\nkey = 1\nkey = 2\n", {{"key", "2"}}},
      {"in two places", "[backup]\na = 1\n[other]\na = 2\n[backup]\nb = 3\n", {{"a", "1"}, {"b", "3"}}},
      {"a line without a value", "[backup]\nkey\n", {}},
      {"another section", "[backups]\nkey = value\n", {}},
      {"a heading without an end", "[backup\nkey = value\n", {}},
      {"a broken heading ends the section", "[backup]\na = 1\n[other\nb = 2\n", {{"a", "1"}}},
      {"no heading", "key = value\n", {}},
      {"nothing", "", {}},
  };
  for (const Row& row : rows) EXPECT_EQ(agentd::read_ini_section(row.text, "backup"), row.wanted) << row.name;
}

}  // namespace
