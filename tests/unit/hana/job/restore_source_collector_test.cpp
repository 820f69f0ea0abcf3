#include "hana/job/restore_source_collector.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "unit/hana/job/executor_fixture.h"

namespace {

using backup_test::pool_location;
using backup_test::pool_uuid;
using backup_test::resource_uuid;
using json_spirit::Array;
using json_spirit::Object;
using json_spirit::Value;
using sap_hana::Restore_Source_Collector;

constexpr const char* set_uuid = "88888888-8888-4888-8888-888888888888";
constexpr std::size_t retry_seconds = 30;

constexpr const char* full_start = "2026-11-20 01:00:00";
constexpr const char* full_end = "2026-11-20 01:10:00";
constexpr const char* later = "2026-11-20 08:30:00";

/// What is said of a recovery to `later` from the full backup.
constexpr const char* ask_full =
    R"(rselect {"type":"fullbackup","resource_uuid":"11111111-1111-4111-8111-111111111111","lifeline":"",)"
    R"("database":"TN1","time":"2026-11-20 08:30:00"})";
constexpr const char* ask_catalog =
    R"(rselect {"type":"catalog","resource_uuid":"11111111-1111-4111-8111-111111111111","lifeline":"life-1",)"
    R"("database":"TN1","database_backup_id":1700,"time":"2026-11-20 08:30:00"})";
constexpr const char* ask_sizes =
    R"(sets_size {"lifeline":"life-1","ignore_delta":false,"start_backup_id":1700,"end_backup_id":1900})";

Object set_record(const char* type, std::uint64_t backup_id) {
  return {{"uuid", set_uuid},     {"type", type},
          {"database", "TN1"},    {"database_backup_id", backup_id},
          {"lifeline", "life-1"}, {"first_time", full_start},
          {"last_time", full_end}};
}

Object storage(const Value& pool, const Value& upstream) {
  return {{"pool_uuid", pool}, {"upstream_pool_uuid", upstream}};
}

Object catalog_record() {
  Object record = set_record("catalog", 1900);
  record["files"] = Array{Object{
      {"size", 4096}, {"storage_path", "data/catalog"}, {"extern_backup_id", "ebid-catalog"}, {"source_type", "PIPE"}}};
  record["storages"] = Array{storage(pool_uuid, nullptr)};
  return record;
}

class Restore_Source_Collector_Test : public backup_test::Executor_Test {
 protected:
  Restore_Source_Collector_Test() {
    entry_.origin = {"TN1", "PRD"};
    entry_.target.database = "TN2";
    entry_.target.timepoint = later;
    backupd_.pools = Array{Object{{"uuid", pool_uuid}, {"name", "pool"}, {"url", pool_location}}};
    backupd_.on_view = [this](const std::string& view, const Object& params) { return answer(view, params); };
  }

  Value answer(const std::string& view, const Object& params) const {
    if (view == "set") return set_;
    if (view == "sets_size") return sizes_;
    return *params.find("type") == Value("catalog") ? catalog_reply_ : full_reply_;
  }
  static Value rows(const Object& row) { return Object{{"rows", Array{row}}}; }

  bool collect(bool ignore_delta = false) {
    collector_.emplace(resource_uuid, entry_, retry_seconds, ignore_delta);
    return collector_->collect();
  }
  /// A recovery to `later` whose catalog is `catalog`.
  bool collect_with_catalog(const Object& catalog) {
    catalog_reply_ = rows(catalog);
    return collect();
  }
  void choose_set(const char* type) {
    entry_.catalog_uuid = set_uuid;
    entry_.target.timepoint.clear();
    set_ = set_record(type, 1700);
  }
  const Restore_Source_Collector::Backup_Set_Info& set() const { return collector_->get_backup_set(); }

  sap_hana::Restore_Job_Source::Entry_Item entry_;
  Value set_;
  Value full_reply_ = rows(set_record("full", 1700));
  Value catalog_reply_ = rows(catalog_record());
  Value sizes_ = Object{{"total_source_size", 5000}, {"total_size", 2000}};
  std::optional<Restore_Source_Collector> collector_;
};

}  // namespace

TEST_F(Restore_Source_Collector_Test, Starts_A_Recovery_From_The_Full_Backup_Before_The_Time) {
  ASSERT_TRUE(collect());
  EXPECT_EQ(set().origin_dbname, "TN1");
  EXPECT_EQ(set().origin_sid, "PRD");
  EXPECT_EQ(set().target_dbname, "TN2");
  EXPECT_EQ(set().catalog_uuid, "");
  EXPECT_EQ(set().database_backup_id, 1700U);
  EXPECT_EQ(set().backup_start_time, full_start);
  EXPECT_EQ(set().backup_end_time, full_end);
  EXPECT_EQ(set().target_time, later);
  EXPECT_EQ(set().lifeline, "life-1");
  EXPECT_FALSE(set().is_full_backup);
  EXPECT_TRUE(set().origin_mdc);
  EXPECT_EQ(backupd_.views, (std::vector<std::string>{ask_full, ask_catalog, ask_sizes}));
}

TEST_F(Restore_Source_Collector_Test, Tells_Where_The_Catalog_Of_A_Recovery_Lies) {
  ASSERT_TRUE(collect());
  const Restore_Source_Collector::HANA_Catalog_Info& catalog = collector_->get_hana_catalog();
  EXPECT_EQ(catalog.location, pool_location);
  EXPECT_EQ(catalog.pool_uuid, pool_uuid);
  EXPECT_EQ(catalog.database_backup_id, 1900U);
  EXPECT_EQ(catalog.file_detail.storage_path, "data/catalog");
  EXPECT_EQ(catalog.file_detail.extern_backup_id, "ebid-catalog");
  EXPECT_EQ(catalog.file_detail.source_type, "PIPE");
  EXPECT_EQ(catalog.file_detail.size, 4096U);
  EXPECT_EQ(collector_->get_total_size(), 2000U);
  EXPECT_EQ(collector_->get_total_source_size(), 5000U);
}

TEST_F(Restore_Source_Collector_Test, Restores_A_Chosen_Full_Backup_Without_Asking_For_More) {
  choose_set("full");
  ASSERT_TRUE(collect());
  EXPECT_TRUE(set().is_full_backup);
  EXPECT_EQ(set().catalog_uuid, set_uuid);
  EXPECT_EQ(set().database_backup_id, 1700U);
  EXPECT_EQ(set().target_time, full_end);
  EXPECT_EQ(collector_->get_hana_catalog().location, "");
  EXPECT_EQ(
      backupd_.views,
      (std::vector<std::string>{
          std::string(R"(set {"uuid":")") + set_uuid + "\"}",
          R"(sets_size {"lifeline":"life-1","ignore_delta":false,"start_backup_id":1700,"end_backup_id":1700})"}));
}

TEST_F(Restore_Source_Collector_Test, Recovers_To_The_End_Of_A_Chosen_Delta_In_Any_Lifeline) {
  for (const char* type : {"incremental", "differential"}) {
    choose_set(type);
    entry_.target.lifeline = "life-of-another-entry";
    backupd_.views.clear();
    ASSERT_TRUE(collect()) << type;
    EXPECT_FALSE(set().is_full_backup) << type;
    EXPECT_EQ(set().catalog_uuid, "") << type;
    EXPECT_EQ(set().target_time, full_end) << type;
    ASSERT_EQ(backupd_.views.size(), 4U) << type;
    EXPECT_NE(backupd_.views[1].find(R"("lifeline":"","database":"TN1","time":"2026-11-20 01:10:00")"),
              std::string::npos)
        << backupd_.views[1];
  }
}

TEST_F(Restore_Source_Collector_Test, Looks_In_The_Lifeline_That_The_Entry_Names) {
  entry_.target.lifeline = "life-7";
  ASSERT_TRUE(collect());
  EXPECT_NE(backupd_.views.front().find(R"("lifeline":"life-7")"), std::string::npos);
  // The chain is the full backup's own from then on.
  EXPECT_EQ(set().lifeline, "life-1");
}

TEST_F(Restore_Source_Collector_Test, Takes_The_Exact_Start_Of_A_Full_Backup_For_That_Backup) {
  entry_.target.timepoint = full_start;
  ASSERT_TRUE(collect());
  EXPECT_TRUE(set().is_full_backup);
  EXPECT_EQ(set().catalog_uuid, "") << "HANA's id chooses it";
  ASSERT_EQ(backupd_.views.size(), 2U);
  EXPECT_TRUE(backupd_.views[1].starts_with("sets_size "));
}

TEST_F(Restore_Source_Collector_Test, Takes_Another_Writing_Of_That_Start_For_A_Recovery) {
  entry_.target.timepoint = "2026-11-20T01:00:00";
  ASSERT_TRUE(collect());
  EXPECT_FALSE(set().is_full_backup);
}

TEST_F(Restore_Source_Collector_Test, Wants_A_Catalog_That_Knows_The_Whole_Full_Backup) {
  entry_.target.timepoint = "2026-11-20 01:05:00";
  ASSERT_TRUE(collect());
  EXPECT_EQ(set().target_time, "2026-11-20 01:05:00");
  EXPECT_NE(backupd_.views[1].find(R"("time":"2026-11-20 01:10:00")"), std::string::npos) << backupd_.views[1];
}

TEST_F(Restore_Source_Collector_Test, Leaves_The_Deltas_Out_Of_The_Size_When_They_Are_Ignored) {
  ASSERT_TRUE(collect(true));
  EXPECT_NE(backupd_.views.back().find(R"("ignore_delta":true)"), std::string::npos);
}

TEST_F(Restore_Source_Collector_Test, Tells_A_System_Without_Tenants_By_The_First_Instance) {
  Object single = backup_test::instance_record(backup_test::host_uuid);
  Object attributes = single.find("extended_attrs")->get_obj();
  attributes["multi_container"] = false;
  single["extended_attrs"] = attributes;
  backupd_.resource = Object{{"uuid", resource_uuid},
                             {"instances", Array{single, backup_test::instance_record(backup_test::host_uuid)}}};
  ASSERT_TRUE(collect());
  EXPECT_FALSE(set().origin_mdc);
}

TEST_F(Restore_Source_Collector_Test, Succeeds_Without_The_Sizes) {
  for (const Value& reply : {Value(), Value(Array()), Value(Object{{"total_source_size", 5000}}),
                             Value(Object{{"total_source_size", 1}, {"total_size", -1}})}) {
    sizes_ = reply;
    ASSERT_TRUE(collect());
    EXPECT_EQ(collector_->get_total_size(), 0U);
    EXPECT_EQ(collector_->get_total_source_size(), 0U);
  }
  for (const char* cause : {"404 scripted", "the answer is of type array"}) {
    expect_error_with(cause);
    expect_error(std::string("Failed to get restorable backup set from backupd, params are '") +
                 (ask_sizes + sizeof "sets_size") + "'\n");
  }
  expect_error("Failed to collet set size: lack of key 'total_size'\n");
  expect_error_with("Failed to collet set size: key 'total_size'");
}

TEST_F(Restore_Source_Collector_Test, Does_Not_Ask_For_The_Size_Of_A_Backup_Without_Id) {
  choose_set("full");
  set_ = set_record("full", 0);
  ASSERT_TRUE(collect());
  expect_error("Lack of database_backup_id\n");
  EXPECT_EQ(backupd_.views.size(), 1U);
}

TEST_F(Restore_Source_Collector_Test, Fails_Without_The_Chosen_Set) {
  choose_set("full");
  set_ = Value();
  EXPECT_FALSE(collect());
  expect_error(std::string("Failed to get backup set info from backupd, uuid is '") + set_uuid + "'\n");
  expect_error("Failed to get and parse catalog by uuid\n");
  expect_error_with("/catalog/hana/set");
}

TEST_F(Restore_Source_Collector_Test, Refuses_A_Chosen_Set_That_Is_No_Data_Backup) {
  for (const char* type : {"log", "catalog", "", "Full"}) {
    choose_set(type);
    EXPECT_FALSE(collect()) << type;
    expect_error(std::string("Invalid backup type '") + type + "'\n");
    expect_error("Failed to get and parse catalog by uuid\n");
  }
}

TEST_F(Restore_Source_Collector_Test, Needs_Type_And_End_Of_A_Chosen_Set) {
  for (const char* key : {"type", "last_time"}) {
    choose_set("full");
    set_.get_obj().erase(key);
    EXPECT_FALSE(collect());
    expect_error(std::string("Failed to parser source entry catalog, lack of key '") + key + "'\n");
    expect_error("Failed to get and parse catalog by uuid\n");
  }
}

TEST_F(Restore_Source_Collector_Test, Fails_Without_An_Instance_Of_The_Resource) {
  backupd_.resource = Object{{"uuid", resource_uuid}, {"instances", Array()}};
  EXPECT_FALSE(collect());
  expect_error("Failed to get resource info\n");
  EXPECT_TRUE(backupd_.views.empty());
}

TEST_F(Restore_Source_Collector_Test, Fails_Without_The_Resource) {
  backupd_.resource = Value();
  EXPECT_FALSE(collect());
  expect_error("Failed to get resource info\n");
  expect_error_with("HANA resource");
}

TEST_F(Restore_Source_Collector_Test, Fails_When_No_Full_Backup_Reaches_The_Time) {
  full_reply_ = Object{{"rows", Array()}};
  EXPECT_FALSE(collect());
  expect_error("The rows are empty\n");
  expect_error("Failed to get full backup catalog\n");
  full_reply_ = Object{{"total", 0}};
  EXPECT_FALSE(collect());
  expect_error("The rows are empty\n");
  expect_error("Failed to get full backup catalog\n");
}

TEST_F(Restore_Source_Collector_Test, Refuses_A_Row_That_Is_No_Set) {
  full_reply_ = Object{{"rows", Array{"text"}}};
  EXPECT_FALSE(collect());
  expect_error("Invalid catalog of restorable backup set, \"text\"\n");
  expect_error("Failed to get full backup catalog\n");
}

TEST_F(Restore_Source_Collector_Test, Names_The_Question_That_Backupd_Refused) {
  full_reply_ = Value();
  EXPECT_FALSE(collect());
  expect_error(std::string("Failed to get restorable backup set from backupd, params are '") +
               (ask_full + sizeof "rselect") + "'\n");
  expect_error("Failed to get full backup catalog\n");
  expect_error_with("/catalog/hana/rselect");
}

TEST_F(Restore_Source_Collector_Test, Needs_Times_Lifeline_And_Id_Of_The_Full_Backup) {
  for (const char* key : {"last_time", "first_time", "lifeline", "database_backup_id"}) {
    Object full = set_record("full", 1700);
    full.erase(key);
    full_reply_ = rows(full);
    EXPECT_FALSE(collect());
    expect_error(std::string("Failed to parse backup set catalog, lack of key '") + key + "'\n");
    expect_error("Failed to parse full backup catalog\n");
    EXPECT_EQ(set().target_dbname, "TN2") << "the names come first";
  }
}

TEST_F(Restore_Source_Collector_Test, Does_Not_Look_For_A_Catalog_Without_Lifeline_Or_Id) {
  Object without_lifeline = set_record("full", 1700);
  without_lifeline["lifeline"] = "";
  for (const Object& full : {without_lifeline, set_record("full", 0)}) {
    full_reply_ = rows(full);
    backupd_.views.clear();
    EXPECT_FALSE(collect());
    EXPECT_EQ(backupd_.views.size(), 1U);
    expect_error("Lack of lifeline or database_backup_id\n");
    expect_error("Failed to collect and parse HANA database 'TN1' catalog\n");
  }
}

TEST_F(Restore_Source_Collector_Test, Fails_Without_A_Catalog) {
  catalog_reply_ = Object{{"rows", Array()}};
  EXPECT_FALSE(collect());
  expect_error("The rows are empty\n");
  expect_error("Failed to collect and parse HANA database 'TN1' catalog\n");
}

TEST_F(Restore_Source_Collector_Test, Refuses_The_Catalog_Of_Another_Database) {
  Object catalog = catalog_record();
  catalog["database"] = "TN9";
  EXPECT_FALSE(collect_with_catalog(catalog));
  expect_error("Database miss match\n");
  expect_error("Failed to collect and parse HANA database 'TN1' catalog\n");
}

TEST_F(Restore_Source_Collector_Test, Asks_For_No_Pool_Of_The_Catalog_Of_Another_Database) {
  Object catalog = catalog_record();
  catalog["database"] = "TN9";
  catalog["storages"] = Array();
  catalog["files"] = Array();
  EXPECT_FALSE(collect_with_catalog(catalog));
  expect_error("Database miss match\n");
  expect_error("Failed to collect and parse HANA database 'TN1' catalog\n");
}

TEST_F(Restore_Source_Collector_Test, Reads_The_First_Storage_That_Is_No_Copy) {
  Object catalog = catalog_record();
  catalog["storages"] =
      Array{"no storage",        storage("copy", "another pool"), Object{{"pool_uuid", "without upstream"}},
            storage(7, nullptr), storage(pool_uuid, nullptr),     storage("later", nullptr)};
  ASSERT_TRUE(collect_with_catalog(catalog));
  EXPECT_EQ(collector_->get_hana_catalog().pool_uuid, pool_uuid);
}

TEST_F(Restore_Source_Collector_Test, Fails_When_Only_Copies_Hold_The_Catalog) {
  Object catalog = catalog_record();
  catalog["storages"] = Array{storage(pool_uuid, "another pool")};
  EXPECT_FALSE(collect_with_catalog(catalog));
  expect_error("Failed to get file location\n");
  expect_error("Failed to collect and parse HANA database 'TN1' catalog\n");
}

TEST_F(Restore_Source_Collector_Test, Fails_When_The_Catalogs_Pool_Is_Unknown) {
  backupd_.pools = Array();
  EXPECT_FALSE(collect());
  expect_error("Failed to get file location\n");
  expect_error("Failed to collect and parse HANA database 'TN1' catalog\n");
  expect_error_with("pool");
}

TEST_F(Restore_Source_Collector_Test, Fails_When_The_Catalog_Has_No_File) {
  for (const Array& files : {Array(), Array{"no file"}}) {
    Object catalog = catalog_record();
    catalog["files"] = files;
    EXPECT_FALSE(collect_with_catalog(catalog));
    expect_error("Failed to get file detail\n");
    expect_error("Failed to collect and parse HANA database 'TN1' catalog\n");
  }
}

TEST_F(Restore_Source_Collector_Test, Takes_The_First_File_Of_The_Catalog) {
  Object catalog = catalog_record();
  Array files = catalog.find("files")->get_array();
  files.insert(files.begin(), "no file");
  files.emplace_back(Object{{"size", "wrong, and never read"}});
  catalog["files"] = files;
  ASSERT_TRUE(collect_with_catalog(catalog));
  EXPECT_EQ(collector_->get_hana_catalog().file_detail.storage_path, "data/catalog");
}

TEST_F(Restore_Source_Collector_Test, Needs_Every_Member_Of_The_Catalog) {
  for (const char* key : {"database", "database_backup_id", "files", "storages"}) {
    Object catalog = catalog_record();
    catalog.erase(key);
    EXPECT_FALSE(collect_with_catalog(catalog));
    expect_error(std::string("Failed to parse hana catalog, lack of key '") + key + "'\n");
    expect_error("Failed to collect and parse HANA database 'TN1' catalog\n");
  }
  for (const char* key : {"size", "storage_path", "extern_backup_id", "source_type"}) {
    Object catalog = catalog_record();
    Object file = catalog.find("files")->get_array().front().get_obj();
    file.erase(key);
    catalog["files"] = Array{file};
    EXPECT_FALSE(collect_with_catalog(catalog));
    expect_error(std::string("Failed to parse hana catalog, lack of key '") + key + "'\n");
    expect_error("Failed to collect and parse HANA database 'TN1' catalog\n");
  }
}

TEST_F(Restore_Source_Collector_Test, Goes_On_Asking_Within_A_Limit_Of_Any_Size) {
  choose_set("full");
  for (const std::size_t seconds : {std::size_t{1} << 31, std::size_t{1} << 32, ~std::size_t{0}}) {
    transport_.fault({support::Http_Fault::answer, 0, 503, {}});
    collector_.emplace(resource_uuid, entry_, seconds, false);
    EXPECT_TRUE(collector_->collect()) << seconds;
  }
}

TEST_F(Restore_Source_Collector_Test, Refuses_An_Empty_Set_Uuid) {
  struct Opened : Restore_Source_Collector {
    using Restore_Source_Collector::get_catalog;
    using Restore_Source_Collector::Restore_Source_Collector;
  };
  Object result;
  EXPECT_FALSE(Opened(resource_uuid, entry_, retry_seconds, false).get_catalog("", result));
  expect_error("Lack of catalog uuid\n");
  EXPECT_TRUE(backupd_.views.empty());
}
