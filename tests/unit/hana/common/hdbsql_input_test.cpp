#include "hana/common/hdbsql_input.h"

#include <gtest/gtest.h>

namespace {

using namespace sap_hana;

std::string input_for(const HDBSQL_Logon& logon, std::string_view sql) {
  secure_string input;
  EXPECT_TRUE(make_hdbsql_input(logon, sql, input)) << sql;
  return std::string(input.view());
}

constexpr HDBSQL_Logon plain_logon{0, "SYSTEMDB", "SYSTEM", "Secret1"};

TEST(HDBSQL_Input, Connects_Runs_And_Quits) {
  EXPECT_EQ(input_for(plain_logon, "select 1 from DUMMY"),
            "\\c -i 00 -d SYSTEMDB -u SYSTEM -p Secret1\nselect 1 from DUMMY\n\\q\n");
  EXPECT_EQ(input_for({7, "", "SYSTEM", "Secret1"}, "\\s"), "\\c -i 07 -u SYSTEM -p Secret1\n\\s\n\\q\n");
}

TEST(HDBSQL_Input, Keeps_The_Statement_To_The_Byte) {
  const std::string sql = "  BACKUP DATA  FOR TN1 USING BACKINT('x')  TOOLOPTION 'job_uuid=1;'  ";
  EXPECT_EQ(input_for(plain_logon, sql), "\\c -i 00 -d SYSTEMDB -u SYSTEM -p Secret1\n" + sql + "\n\\q\n");
}

TEST(HDBSQL_Input, Quotes_What_Is_Not_Plain) {
  const struct {
    const char* value;
    const char* wanted;
  } rows[] = {{"Abc_123", "Abc_123"},        {"", "\"\""},       {"a b", "\"a b\""},       {"-n", "\"-n\""},
              {"a\"b", "\"a\"\"b\""},        {"a\\", "\"a\\\""}, {"p;w$'#", "\"p;w$'#\""}, {"\"q\"", "\"\"\"q\"\"\""},
              {"p\xc3\xa4", "\"p\xc3\xa4\""}};
  for (const auto& row : rows) {
    secure_string input;
    append_quoted(row.value, input);
    EXPECT_EQ(input.view(), row.wanted) << row.value;
  }
}

TEST(HDBSQL_Input, Leaves_A_Name_That_Is_Quoted_Already) {
  const struct {
    const char* value;
    const char* wanted;
  } rows[] = {{"SYSTEM", "SYSTEM"}, {"\"Mixed\"", "\"Mixed\""}, {"\"a\"b\"", "\"\"\"a\"\"b\"\"\""}, {"\"", "\"\"\"\""}};
  for (const auto& row : rows) {
    secure_string input;
    append_name(row.value, input);
    EXPECT_EQ(input.view(), row.wanted) << row.value;
  }
}

TEST(HDBSQL_Input, Joins_The_Lines_Of_A_Statement) {
  const struct {
    const char* sql;
    const char* wanted;
  } rows[] = {
      {"select a\nfrom b", "select a \\\nfrom b"},
      {"select a\r\nfrom b\r\n", "select a \\\nfrom b"},
      {"select 'x\ny'\nfrom b", "select 'x\\\ny' \\\nfrom b"},
      {"select \"c\nd\" from b", "select \"c\\\nd\" from b"},
      {"select 'it''s\nb'", "select 'it''s\\\nb'"},
      {"select 1\n\\! rm -rf x", "select 1 \\\n\\! rm -rf x"},
      {"select 'x'\n\\c -u OTHER", "select 'x' \\\n\\c -u OTHER"},
      {"select 1\\", "select 1\\ "},
      {"select 1\\\n", "select 1\\ "},
  };
  for (const auto& row : rows)
    EXPECT_EQ(input_for(plain_logon, row.sql),
              std::string("\\c -i 00 -d SYSTEMDB -u SYSTEM -p Secret1\n") + row.wanted + "\n\\q\n");
}

TEST(HDBSQL_Input, Never_Lets_A_Line_Of_The_Statement_Stand_Alone) {
  for (const char* sql : {"a\nb\nc", "a\rb", "'\n\\q\n'", "\n\n\\! x", "a\\\n\\\n\\! x"}) {
    const std::string input = input_for(plain_logon, sql);
    const std::size_t start = input.find('\n') + 1;
    const std::size_t end = input.rfind("\n\\q\n");
    for (std::size_t at = input.find('\n', start); at < end; at = input.find('\n', at + 1))
      EXPECT_EQ(input[at - 1], '\\') << input;
    EXPECT_EQ(input.find('\r'), std::string::npos);
  }
}

TEST(HDBSQL_Input, Refuses_Blank_And_Binary_Statements) {
  secure_string input;
  for (const std::string_view sql : {std::string_view(""), std::string_view(" \n\t"), std::string_view("a\0b", 3)})
    EXPECT_FALSE(make_hdbsql_input(plain_logon, sql, input));
}

TEST(HDBSQL_Input, Writes_Names_And_Texts_Of_Statements) {
  const struct {
    const char* text;
    const char* identifier;
    const char* literal;
  } rows[] = {{"TN1", "TN1", "'TN1'"},      {"_A", "_A", "'_A'"},
              {"1A", "\"1A\"", "'1A'"},     {"tn1", "\"tn1\"", "'tn1'"},
              {"", "\"\"", "''"},           {"a\"b", "\"a\"\"b\"", "'a\"b'"},
              {"o'x", "\"o'x\"", "'o''x'"}, {"T; DROP", "\"T; DROP\"", "'T; DROP'"}};
  for (const auto& row : rows) {
    EXPECT_EQ(sql_identifier(row.text), row.identifier);
    EXPECT_EQ(sql_literal(row.text), row.literal);
  }
}

}  // namespace
