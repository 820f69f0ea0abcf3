#include "hana/job/catalog_metadata.h"

#include <ace/Log_Priority.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "support/log_capture.h"

namespace {

using json_spirit::dump_json;
using json_spirit::Object;
using json_spirit::Value;
using sap_hana::Catalog_Metadata;

struct Text_Member {
  const char* key;
  bool (Catalog_Metadata::*get)(std::string&) const;
  bool (Catalog_Metadata::*set)(const std::string&);
};

constexpr Text_Member text_members[] = {
    {"sid", &Catalog_Metadata::get_sid, &Catalog_Metadata::set_sid},
    {"instance_name", &Catalog_Metadata::get_instance_name, &Catalog_Metadata::set_instance_name},
    {"system_version", &Catalog_Metadata::get_system_version, &Catalog_Metadata::set_system_version},
    {"extended_attrs", &Catalog_Metadata::get_extended_attrs, &Catalog_Metadata::set_extended_attrs},
    {"incarnation", &Catalog_Metadata::get_incarnation, &Catalog_Metadata::set_incarnation},
    {"lifeline", &Catalog_Metadata::get_lifeline, &Catalog_Metadata::set_lifeline},
};

std::string text_of(const Catalog_Metadata& metadata) { return dump_json(metadata.document()); }

}  // namespace

TEST(Catalog_Metadata, Sets_And_Gets_Each_Text_Under_Its_Key) {
  for (const Text_Member& member : text_members) {
    SCOPED_TRACE(member.key);
    Catalog_Metadata metadata;
    EXPECT_TRUE((metadata.*member.set)("a \"value\""));
    EXPECT_EQ(text_of(metadata), std::string("{\"") + member.key + "\":\"a \\\"value\\\"\"}");
    std::string value;
    EXPECT_TRUE((metadata.*member.get)(value));
    EXPECT_EQ(value, "a \"value\"");
  }
}

TEST(Catalog_Metadata, Replaces_An_Earlier_Text_In_Its_Place) {
  for (const Text_Member& member : text_members) {
    SCOPED_TRACE(member.key);
    Catalog_Metadata metadata(Object{{"before", 1}, {member.key, 2}, {"after", 3}});
    EXPECT_TRUE((metadata.*member.set)("new"));
    EXPECT_EQ(text_of(metadata), std::string(R"({"before":1,")") + member.key + R"(":"new","after":3})");
  }
}

TEST(Catalog_Metadata, Leaves_The_Output_Alone_When_A_Text_Is_Missing_Or_Of_Another_Type) {
  for (const Text_Member& member : text_members) {
    SCOPED_TRACE(member.key);
    for (const Value& wrong : {Value(Object{}), Value(Object{{member.key, 5}}), Value(Object{{member.key, nullptr}}),
                               Value(Object{{member.key, json_spirit::Array()}})}) {
      SCOPED_TRACE(dump_json(wrong));
      std::string value = "before";
      EXPECT_FALSE((Catalog_Metadata(wrong).*member.get)(value));
      EXPECT_EQ(value, "before");
    }
  }
}

TEST(Catalog_Metadata, Keeps_The_Instance_Number_As_An_Integer) {
  Catalog_Metadata metadata;
  EXPECT_TRUE(metadata.set_instance_number(65535));
  EXPECT_EQ(text_of(metadata), R"({"instance_number":65535})");
  unsigned short number = 0;
  EXPECT_TRUE(metadata.get_instance_number(number));
  EXPECT_EQ(number, 65535);
}

TEST(Catalog_Metadata, Gives_Instance_Number_0_When_It_Is_Missing_Or_Of_Another_Type) {
  for (const Value& document :
       {Value(Object{}), Value(Object{{"instance_number", "7"}}), Value(Object{{"instance_number", -1}})}) {
    SCOPED_TRACE(dump_json(document));
    unsigned short number = 99;
    EXPECT_FALSE(Catalog_Metadata(document).get_instance_number(number));
    EXPECT_EQ(number, 0);
  }
}

TEST(Catalog_Metadata, Cuts_The_Instance_Number_To_16_Bits) {
  unsigned short number = 0;
  EXPECT_TRUE(Catalog_Metadata(Object{{"instance_number", 65536 + 7}}).get_instance_number(number));
  EXPECT_EQ(number, 7);
}

TEST(Catalog_Metadata, Appends_Databases_In_The_Order_Of_The_Calls) {
  Catalog_Metadata metadata;
  EXPECT_TRUE(metadata.set_backup_databases({{"name", "SYSTEMDB"}}));
  EXPECT_TRUE(metadata.set_backup_databases({{"name", "TN1"}, {"database_backup_id", 5}}));
  EXPECT_EQ(text_of(metadata), R"({"databases":[{"name":"SYSTEMDB"},{"name":"TN1","database_backup_id":5}]})");
  std::vector<Value> databases = {"replaced"};
  ASSERT_TRUE(metadata.get_backup_databases(databases));
  ASSERT_EQ(databases.size(), 2U);
  EXPECT_EQ(databases[1].get_obj().find("name")->get_str(), "TN1");
}

TEST(Catalog_Metadata, Has_No_Databases_When_They_Are_Missing_Or_No_Array) {
  for (const Value& document : {Value(Object{}), Value(Object{{"databases", Object{}}})}) {
    SCOPED_TRACE(dump_json(document));
    std::vector<Value> databases = {"before"};
    EXPECT_FALSE(Catalog_Metadata(document).get_backup_databases(databases));
    ASSERT_EQ(databases.size(), 1U);
    EXPECT_EQ(databases[0].get_str(), "before");
  }
}

TEST(Catalog_Metadata, Begins_A_New_List_Where_No_Array_Stands) {
  Catalog_Metadata metadata(Object{{"databases", "none"}});
  EXPECT_TRUE(metadata.set_backup_databases({{"name", "TN1"}}));
  EXPECT_EQ(text_of(metadata), R"({"databases":[{"name":"TN1"}]})");
}

TEST(Catalog_Metadata, Refuses_Every_Operation_On_A_Document_That_Is_No_Object) {
  std::string text = "before";
  unsigned short number = 99;
  std::vector<Value> databases = {"before"};
  std::vector<std::function<bool(Catalog_Metadata&)>> operations = {
      [&](Catalog_Metadata& m) { return m.get_instance_number(number); },
      [&](Catalog_Metadata& m) { return m.get_backup_databases(databases); },
      [](Catalog_Metadata& m) { return m.set_instance_number(1); },
      [](Catalog_Metadata& m) {
        return m.set_backup_databases({{"name", "TN1"}});
      },
  };
  for (const Text_Member& member : text_members) {
    operations.emplace_back([&text, member](Catalog_Metadata& m) { return (m.*member.get)(text); });
    operations.emplace_back([member](Catalog_Metadata& m) { return (m.*member.set)("value"); });
  }
  for (const Value& document : {Value(), Value(json_spirit::Array{1, 2}), Value("text")}) {
    const std::string before = dump_json(document);
    SCOPED_TRACE(before);
    for (std::size_t i = 0; i < operations.size(); ++i) {
      SCOPED_TRACE(i);
      support::Log_Capture log;
      Catalog_Metadata metadata(document);
      EXPECT_FALSE(operations[i](metadata));
      EXPECT_EQ(text_of(metadata), before);
      EXPECT_EQ(text, "before");
      EXPECT_EQ(number, 99);
      EXPECT_EQ(databases.size(), 1U);
      ASSERT_EQ(log.lines().size(), 1U);
      EXPECT_EQ(log.lines()[0].priority, LM_EMERGENCY);
      const std::string line = log.lines()[0].text;
      EXPECT_TRUE(line.starts_with("Unexpected error in ")) << line;
      EXPECT_FALSE(line.starts_with("Unexpected error in /")) << "no path of the build: " << line;
      EXPECT_NE(line.find("hana/job/catalog_metadata.cpp:"), std::string::npos) << line;
      EXPECT_TRUE(line.ends_with(", metadata_ is not object!\n")) << line;
      EXPECT_EQ(log.claim_containing("metadata_ is not object!", LM_EMERGENCY), 1U);
    }
  }
}

TEST(Catalog_Metadata, Names_The_Line_Of_The_Operation_That_Was_Refused) {
  support::Log_Capture log;
  Catalog_Metadata metadata{Value()};
  std::string text;
  EXPECT_FALSE(metadata.get_sid(text));
  EXPECT_FALSE(metadata.get_lifeline(text));
  ASSERT_EQ(log.lines().size(), 2U);
  EXPECT_NE(log.lines()[0].text, log.lines()[1].text);
  log.claim_all();
}
