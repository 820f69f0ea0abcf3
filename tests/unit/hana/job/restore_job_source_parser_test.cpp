#include "hana/job/restore_job_source_parser.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "hana/job/restore_job_source.h"
#include "parser_drive.h"
#include "support/log_capture.h"
#include "unit/job/faults.h"

namespace {

using parser_drive::parse;
using sap_hana::Restore_Job_Source;
using sap_hana::Restore_Job_Source_Parser;
using Lines = std::vector<std::string>;

class Restore_Job_Source_Parser_Test : public testing::Test {
 protected:
  static const Restore_Job_Source& source(Restore_Job_Source_Parser& parser) {
    return dynamic_cast<Restore_Job_Source&>(*parser.result());
  }
  /// One line an entry: what it says, in the order of the fields.
  static Lines entries(Restore_Job_Source_Parser& parser) {
    Lines lines;
    for (const Restore_Job_Source::Entry_Item& item : source(parser).get_entries())
      lines.push_back(item.catalog_uuid + "|" + item.origin.database + "|" + item.origin.sid + "|" +
                      item.target.database + "|" + item.target.timepoint + "|" + item.target.lifeline +
                      (item.target.systemdb ? "|system" : ""));
    return lines;
  }
  static std::string around(const std::string& entry_list) {
    return R"({"id": "a", "name": "b", "entries": [)" + entry_list + "]}";
  }
  support::Log_Capture log_;
};

TEST_F(Restore_Job_Source_Parser_Test, Reads_The_Whole_Document) {
  Restore_Job_Source_Parser parser;
  const JSON_Parse_Result outcome = parse(parser, R"({"id": "r", "name": "HDB_HDB00", "entries": [
    {"catalog_uuid": "c", "original": {"sid": "HDB", "database": "TN1"},
     "restore_as": {"database": "TN2", "timepoint": "2026-11-21 08:00:00", "lifeline": "l"}}]})");
  EXPECT_TRUE(outcome.ok) << outcome.message;
  EXPECT_EQ(source(parser).id(), "r");
  EXPECT_EQ(source(parser).name(), "HDB_HDB00");
  EXPECT_EQ(entries(parser), Lines{"c|TN1|HDB|TN2|2026-11-21 08:00:00|l"});
}

TEST_F(Restore_Job_Source_Parser_Test, Reads_Entries) {
  struct Row {
    const char* name;
    std::string text;
    Lines wanted;
  };
  const Row rows[] = {
      {"none", around(""), {}},
      {"without restore_as",
       around(R"({"catalog_uuid": "c", "original": {"database": "TN1", "sid": "HDB"}})"),
       {"c|TN1|HDB|TN1||"}},
      {"time point without a set",
       around(R"({"original": {"database": "TN1", "sid": "HDB"}, "restore_as": {"timepoint": "t"}})"),
       {"|TN1|HDB|TN1|t|"}},
      {"time point and life line carry over, the set does not",
       around(R"({"catalog_uuid": "c", "original": {"database": "A", "sid": "S1"},
                  "restore_as": {"database": "X", "timepoint": "t", "lifeline": "l"}},
                 {"original": {"database": "B", "sid": "S2"}})"),
       {"c|A|S1|X|t|l", "|B|S2|B|t|l"}},
      {"a later entry overrides what carried over",
       around(R"({"original": {"database": "A", "sid": "S"}, "restore_as": {"timepoint": "t1", "lifeline": "l1"}},
                 {"original": {"database": "B", "sid": "S"}, "restore_as": {"timepoint": "t2"}},
                 {"catalog_uuid": "c", "original": {"database": "C", "sid": "S"}, "restore_as": {"timepoint": ""}})"),
       {"|A|S|A|t1|l1", "|B|S|B|t2|l1", "c|C|S|C||l1"}},
      {"each entry has a set, an origin and a name of its own",
       around(R"({"catalog_uuid": "c", "original": {"database": "A", "sid": "S"}},
                 {"catalog_uuid": "d", "restore_as": {"database": "Z"}, "original": {"database": "B", "sid": "S"}})"),
       {"c|A|S|A||", "d|B|S|Z||"}},
      {"unknown key at the top has the meaning of the key before",
       R"({"id": "a", "x": "z", "name": "b", "entries": []})",
       {}},
      {"unknown key in an entry has the meaning of the key before",
       around(R"({"catalog_uuid": "c", "x": "d", "original": {"database": "A", "sid": "S"}})"),
       {"d|A|S|A||"}},
      {"unknown key in the original has the meaning of the key before",
       around(R"({"catalog_uuid": "c", "original": {"sid": "S", "database": "A", "x": "B"}})"),
       {"c|B|S|B||"}},
      {"unknown key in restore_as has the meaning of the key before",
       around(R"({"original": {"sid": "S", "database": "A"}, "restore_as": {"timepoint": "t", "x": "u"}})"),
       {"|A|S|A|u|"}},
      {"unknown object in an entry is read like the object before",
       around(
           R"({"catalog_uuid": "c", "original": {"sid": "S", "database": "A"}, "x": {"sid": "T", "database": "B"}})"),
       {"c|B|T|B||"}},
      {"a string before any known key is ignored",
       R"({"x": "y", "id": "a", "name": "b", "entries": [{"x": "y", "catalog_uuid": "c",
          "original": {"x": "y", "sid": "S", "database": "A"}}]})",
       {"c|A|S|A||"}},
      {"numbers, booleans and null are ignored",
       R"({"id": "a", "id": 1, "name": "b", "name": null, "entries": [{"catalog_uuid": "c", "catalog_uuid": true,
          "original": {"sid": "S", "database": "A", "database": 3.5}}]})",
       {"c|A|S|A||"}},
      {"objects in unknown places are ignored", R"({"x": {"y": {}}, "id": "a", "name": "b", "entries": []})", {}},
  };
  for (const Row& row : rows) {
    Restore_Job_Source_Parser parser;
    const JSON_Parse_Result outcome = parse(parser, row.text);
    EXPECT_TRUE(outcome.ok) << row.name << ": " << outcome.message;
    EXPECT_EQ(entries(parser), row.wanted) << row.name;
  }
}

TEST_F(Restore_Job_Source_Parser_Test, Unknown_Key_At_The_Top_Overwrites_The_Id) {
  Restore_Job_Source_Parser parser;
  EXPECT_TRUE(parse(parser, R"({"id": "a", "x": "z", "name": "b", "entries": []})").ok);
  EXPECT_EQ(source(parser).id(), "z");
}

TEST_F(Restore_Job_Source_Parser_Test, Says_What_Is_Missing) {
  const std::string top = "Failed to parse HANA restore job definition source, lack of ";
  const std::string entry = "Failed to parse HANA restore job definitionsource, lack of ";
  const std::string original = "Failed to parse HANA restore job definition origin source, lack of ";
  struct Row {
    std::string text;
    Lines lines;
  };
  const Row rows[] = {
      {R"({"id": "a", "entries": []})", {top + "'name'.\n"}},
      {R"({})", {top + "'id'.\n", top + "'name'.\n", top + "'entries'.\n"}},
      {R"({"name": "b"})", {top + "'id'.\n", top + "'entries'.\n"}},
      // Another array than that of the entries is none of them.
      {R"({"id": "a", "name": "b", "x": []})", {top + "'entries'.\n"}},
      {around(R"({"original": {"database": "A", "sid": "S"}})"), {entry + "catalog uuid or time.\n"}},
      {around(R"({})"), {entry + "catalog uuid or time.\n"}},
      {around(R"({"catalog_uuid": "c"})"), {entry + "origin database.\n"}},
      {around(R"({"catalog_uuid": "c", "original": {"database": "", "sid": "S"}})"), {entry + "origin database.\n"}},
      {around(R"({"catalog_uuid": "c", "original": {}})"), {original + "'database'.\n", original + "'sid'.\n"}},
      {around(R"({"catalog_uuid": "c", "original": {"database": "A"}})"), {original + "'sid'.\n"}},
      // What carried over from the entry before does not count as given.
      {around(R"({"catalog_uuid": "c", "original": {"database": "A", "sid": "S"}},
                 {"catalog_uuid": "d", "original": {"database": "B"}})"),
       {original + "'sid'.\n"}},
      // The time point of the entry before does count.
      {around(R"({"original": {"database": "A", "sid": "S"}, "restore_as": {"timepoint": "t"}}, {})"),
       {entry + "origin database.\n"}},
  };
  for (const Row& row : rows) {
    Restore_Job_Source_Parser parser;
    const JSON_Parse_Result outcome = parse(parser, row.text);
    EXPECT_FALSE(outcome.ok) << row.text;
    EXPECT_EQ(outcome.code, JSON_PARSER_E_EXPECT_KEY) << row.text;
    for (const std::string& line : row.lines) EXPECT_TRUE(log_.claim(line)) << row.text << line << log_.dump();
  }
  Lines all;
  for (const Row& row : rows) all.insert(all.end(), row.lines.begin(), row.lines.end());
  Lines logged;
  for (const support::Log_Line& line : log_.lines()) {
    EXPECT_EQ(line.priority, LM_ERROR);
    logged.push_back(line.text);
  }
  EXPECT_EQ(logged, all) << "these lines, in this order, and no other";
}

TEST_F(Restore_Job_Source_Parser_Test, Refuses_Values_Of_Other_Types) {
  for (const std::string& text :
       {std::string(R"({"entries": "x"})"), std::string(R"("x")"), around(R"("x")"), around(R"({"original": "x"})"),
        around(R"({"restore_as": "x"})"), around(R"({"original": {"database": {"x": "y"}}})"),
        std::string(R"({"x": {"y": "z"}})")}) {
    Restore_Job_Source_Parser parser;
    const JSON_Parse_Result outcome = parse(parser, text);
    EXPECT_FALSE(outcome.ok) << text;
    EXPECT_EQ(outcome.code, JSON_PARSER_E_INVALID_VALUE_TYPE) << text;
  }
}

TEST_F(Restore_Job_Source_Parser_Test, Refuses_Ends_And_Keys_Without_A_Beginning) {
  Restore_Job_Source_Parser map_end;
  EXPECT_FALSE(map_end.handle_end_map_i());
  EXPECT_EQ(map_end.error(), JSON_PARSER_E_INVALID_LEVEL);
  Restore_Job_Source_Parser array_end;
  EXPECT_FALSE(array_end.handle_end_array_i());
  EXPECT_EQ(array_end.error(), JSON_PARSER_E_INVALID_LEVEL);
  Restore_Job_Source_Parser key;
  EXPECT_FALSE(parser_drive::give_key(key, "id"));
  EXPECT_EQ(key.error(), JSON_PARSER_E_INVALID_LEVEL);
}

TEST_F(Restore_Job_Source_Parser_Test, Survives_An_Array_At_The_Top) {
  Restore_Job_Source_Parser parser;
  EXPECT_TRUE(parse(parser, "[]").ok);
  EXPECT_TRUE(entries(parser).empty());
}

TEST_F(Restore_Job_Source_Parser_Test, Reads_Texts_Without_A_Terminator) {
  Restore_Job_Source_Parser parser;
  EXPECT_TRUE(parser.handle_start_map_i());
  EXPECT_TRUE(parser_drive::give_key(parser, "id"));
  EXPECT_TRUE(parser_drive::give_string(parser, "r"));
  EXPECT_TRUE(parser_drive::give_key(parser, "name"));
  EXPECT_TRUE(parser_drive::give_string(parser, ""));
  EXPECT_TRUE(parser_drive::give_key(parser, "entries"));
  EXPECT_TRUE(parser.handle_start_array_i());
  EXPECT_TRUE(parser.handle_end_array_i());
  EXPECT_TRUE(parser.handle_end_map_i());
  EXPECT_EQ(source(parser).id(), "r");
}

TEST_F(Restore_Job_Source_Parser_Test, Is_Silent_Without_Memory) {
  errno = 0;
  const auto make = [] {
    const faults::No_Memory no_memory(1);  // behind the pointer's own record
    return std::make_unique<Restore_Job_Source_Parser>();
  };
  const auto parser = make();
  EXPECT_EQ(errno, ENOMEM);
  EXPECT_TRUE(log_.lines().empty());
  EXPECT_TRUE(parser->result().null());
  EXPECT_TRUE(parse(*parser, around(R"({"catalog_uuid": "c", "original": {"database": "A", "sid": "S"}})")).ok);
}

TEST(Restore_Job_Source, Resets_Only_What_An_Entry_Must_Give) {
  Restore_Job_Source::Entry_Item item{"c", {"A", "S"}, {true, "X", "t", "l"}};
  item.reset();
  EXPECT_EQ(item.catalog_uuid + item.origin.database + item.target.database, "");
  EXPECT_EQ(item.origin.sid, "S");
  EXPECT_EQ(item.target.timepoint, "t");
  EXPECT_EQ(item.target.lifeline, "l");
  EXPECT_TRUE(item.target.systemdb);
}

TEST(Restore_Job_Source, Is_Written_As_It_Is_Read) {
  Restore_Job_Source source;
  EXPECT_EQ(parser_drive::generate(source), R"({"id":""})");
  source.id("r");
  source.name("n");
  source.add_entry_item({"c", {"TN1", "HDB"}, {true, "TN2", "t", "l"}});
  source.add_entry_item({"", {"A", ""}, {false, "A", "", ""}});
  const std::string text = parser_drive::generate(source);
  EXPECT_EQ(text, R"({"id":"r","name":"n","entries":[{"catalog_uuid":"c","original":{"sid":"HDB","database":"TN1"},)"
                  R"("restore_as":{"database":"TN2","timepoint":"t","lifeline":"l"}},)"
                  R"({"original":{"sid":"","database":"A"},"restore_as":{"database":"A"}}]})");
}

}  // namespace
