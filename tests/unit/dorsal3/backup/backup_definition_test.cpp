#include "dorsal3/backup/backup_definition.h"

#include <gtest/gtest.h>

using namespace dorsal3;

namespace {

Backup_Request request() {
  Backup_Request request;
  request.resource.uuid = "0d0c1a4e-16f3-4f0a-8d5c-2f9f0a5b7e21";
  request.resource.name = "PRD_HDB00";
  request.resource.type = "hana";
  request.resource.host_uuid = "5c3e2f6a-8f0e-4a3a-9a39-5b3d8a1d1c11";
  request.resource.record = {
      {"instances", json_spirit::Array{json_spirit::Object{
                        {"extended_attrs", json_spirit::Object{{"instance_name", "HDB00"}, {"sid", "PRD"}}}}}}};
  request.databases = {"SYSTEMDB", "TN1"};
  request.pool = {{"uuid", "7e0f7a52-70c9-44d7-8a5e-7b6a9f0f2f10"}, {"name", "main"}};
  return request;
}

}  // namespace

TEST(Backup_Definition, Names_Databases_By_The_Instance_Name_Of_The_Host) {
  const json_spirit::Object definition = backup_definition(request());
  json_spirit::Object source;
  ASSERT_TRUE(json_spirit::object_get(definition, "source", source));
  EXPECT_EQ(json_spirit::dump_json(source), R"({"id":"0d0c1a4e-16f3-4f0a-8d5c-2f9f0a5b7e21","name":"PRD_HDB00",)"
                                            R"("entries":["hana/HDB00/SYSTEMDB","hana/HDB00/TN1"]})");
  EXPECT_EQ(text_member(definition, "subtype"), "full");
  EXPECT_EQ(text_member(definition, "name"), "PRD_HDB00 full to main");
}

TEST(Backup_Definition, The_Same_Request_Has_The_Same_Id) {
  const std::string id = text_member(backup_definition(request()), "id");
  EXPECT_EQ(id.size(), 36U);
  EXPECT_EQ(text_member(backup_definition(request()), "id"), id);
  Backup_Request other = request();
  other.type = "incremental";
  EXPECT_NE(text_member(backup_definition(other), "id"), id);
}

TEST(Backup_Definition, A_Slash_In_A_Name_Stays_Inside_Its_Segment) {
  Backup_Request odd = request();
  odd.databases = {"A/B \"C"};
  json_spirit::Object source;
  json_spirit::Array entries;
  ASSERT_TRUE(json_spirit::object_get(backup_definition(odd), "source", source));
  ASSERT_TRUE(json_spirit::object_get(source, "entries", entries));
  EXPECT_EQ(entries.front().get_str(), "hana/HDB00/A%2fB%20%22C");
}
