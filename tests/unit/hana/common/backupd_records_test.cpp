#include <memory>

#include "agent/backupd_client/http_session.h"
#include "hana/common/backint_catalog_helper.h"
#include "hana/common/resource_info_getter.h"
#include "support/fake_http_transport.h"
#include "unit/hana/common/hana_system.h"

namespace {

using namespace sap_hana;
using json_spirit::Object;
using support::Http_Fault;

constexpr const char* job_uuid = "11111111-2222-4333-8444-555555555555";
constexpr const char* job_path = "/q5/r/v2/backint/jobs/11111111-2222-4333-8444-555555555555";

/// An agent that is configured for a backup server, which answers as the test says.
class Backupd_Records_Test : public testing::Test {
 protected:
  Backupd_Records_Test() {
    root_.write(
        "/etc/opt/tarvex/dorsal3/agent.toml",
        "server_url = \"http://127.0.0.1:4711\"\nhost_uuid = \"33333333-3333-4333-8333-333333333333\"\naccess_key "
        "= \"the-key-of-this-host\"\n",
        0600);
    JSON_HTTP_Session session(
        std::make_shared<HTTP_Session>(net::Endpoint{false, "127.0.0.1", 4711, {}}, secure_string("key")));
    EXPECT_TRUE(helper_.init(session));
  }
  void expect_error(const std::string& part) {
    EXPECT_EQ(log_.claim_containing(part), 1U) << "wanted: " << part << "\nlogged:\n" << log_.dump();
  }
  void expect_resource(const std::string& answer) {
    server_.expect("GET", "/q5/r/v2/resources?uuid=r1", "", 200, answer);
  }
  static Backint_Backup_Job_Info job() {
    Backint_Backup_Job_Info made;
    made.uuid = job_uuid;
    made.database = "TN1";
    made.extended_attrs = {{"io_ctl", Object{{"max_seconds_retry", 600}}}};
    return made;
  }
  static std::string refusal(const char* code) {
    return std::string("{\"error\": {\"code\": \"") + code + "\", \"message\": \"why\"}}";
  }

  support::Temp_Root root_;
  support::Virtual_Clock clock_;
  support::Log_Capture log_;
  support::Scripted_Http_Handler server_;
  support::Fake_Http_Transport transport_{server_};
  Backint_Catalog_helper helper_;
};

using Resource_Info_Getter_Test = Backupd_Records_Test;
using Backint_Catalog_helper_Test = Backupd_Records_Test;

constexpr const char* first_instance =
    R"({"name": "HDB_HDB00", "uuid": "i1", "host_uuid": "h1", "extended_attrs": {"sid": "HDB", "instance_name": "HDB00", )"
    R"("instance_number": 0, "multi_container": true, "version": "2.00.059.00"}})";
constexpr const char* second_instance =
    R"({"name": "HDB_HDB07", "uuid": "i2", "host_uuid": "h2", "extended_attrs": {"sid": "HDB", "instance_name": "HDB07", )"
    R"("instance_number": 7, "multi_container": false}})";

std::string resource_with(const std::string& instances) {
  return R"({"total": 1, "rows": [{"uuid": "r1", "instances": )" + instances + "}]}";
}

TEST_F(Resource_Info_Getter_Test, Reads_The_First_Instance_And_All) {
  const std::string answer =
      resource_with(std::string("[\"text\", 7, ") + first_instance + ", " + second_instance + "]");
  expect_resource(answer);
  std::string sid, instance_name, manager_name;
  ACE_UINT16 number = 99;
  EXPECT_TRUE(Resource_Info_Getter("r1").base_info(sid, instance_name, manager_name, number));
  EXPECT_EQ(sid + " " + instance_name + " " + manager_name, "HDB HDB00 HDB_HDB00");
  EXPECT_EQ(number, 0);
  expect_resource(answer);
  Instances_Info instances(1);
  EXPECT_TRUE(Resource_Info_Getter("r1").get_instances_info(instances));
  ASSERT_EQ(instances.size(), 3U) << "appended";
  EXPECT_EQ(instances[1].host_uuid + instances[1].uuid + instances[1].sid, "h1i1HDB");
  EXPECT_EQ(instances[1].instance_name + instances[1].instance_mgr_name, "HDB00HDB_HDB00");
  EXPECT_TRUE(instances[1].mdc);
  EXPECT_TRUE(instances[1].ext_attrs.contains("version"));
  EXPECT_EQ(instances[2].instance_number, 7);
  EXPECT_FALSE(instances[2].mdc);
}

TEST_F(Resource_Info_Getter_Test, Encodes_The_Resource_In_The_Query) {
  server_.expect("GET", "/q5/r/v2/resources?uuid=a+b%2fc%c3%a4", "", 200, R"({"total": 0, "rows": []})");
  Object info{{"kept", 1}};
  EXPECT_FALSE(Resource_Info_Getter("a b/c\xc3\xa4").get_info(info));
  expect_error("Failed to get HANA resource info\n");
  EXPECT_TRUE(info.contains("kept"));
}

TEST_F(Resource_Info_Getter_Test, Fails_With_The_Error_Of_The_Key) {
  const struct {
    const char* name;
    std::string instances;
    const char* base_error;  ///< null: base_info succeeds
    const char* list_error;  ///< null: get_instances_info succeeds
  } rows[] = {
      {"no instances", "[]", "Lack of instance info\n", nullptr},
      {"no objects", "[1, \"x\"]", "", nullptr},
      {"no array", "{}", "Failed to get HANA resource base info, ", "Failed to get instances info from base info\n"},
      {"no name", R"([{"uuid": "i1"}])", "Failed to get HANA resource base info, lack of key 'name'\n",
       "Failed to get HANA resource base info, lack of key 'name'\n"},
      {"no multi_container",
       R"([{"name": "n", "uuid": "i", "host_uuid": "h", "extended_attrs": {"sid": "HDB", "instance_name": "HDB00", )"
       R"("instance_number": 0}}])",
       nullptr, "Failed to get HANA resource base info, lack of key 'multi_container'\n"},
      {"no host_uuid",
       R"([{"name": "n", "uuid": "i", "extended_attrs": {"sid": "HDB", "instance_name": "HDB00", )"
       R"("instance_number": 0, "multi_container": true}}])",
       nullptr, "Failed to get HANA resource base info, lack of key 'host_uuid'\n"},
      {"no extended_attrs", R"([{"name": "n", "uuid": "i", "host_uuid": "h"}])",
       "Failed to get HANA resource base info, lack of key 'extended_attrs'\n",
       "Failed to get HANA resource base info, lack of key 'extended_attrs'\n"},
      {"no sid",
       R"([{"name": "n", "uuid": "i", "host_uuid": "h", "extended_attrs": {"instance_name": "HDB00", )"
       R"("instance_number": 0, "multi_container": true}}])",
       "Failed to get HANA resource base info, lack of key 'sid'\n",
       "Failed to get HANA resource base info, lack of key 'sid'\n"},
      {"no instance_name",
       R"([{"name": "n", "uuid": "i", "host_uuid": "h", "extended_attrs": {"sid": "HDB", )"
       R"("instance_number": 0, "multi_container": true}}])",
       "Failed to get HANA resource base info, lack of key 'instance_name'\n",
       "Failed to get HANA resource base info, lack of key 'instance_name'\n"},
      {"no instance_number",
       R"([{"name": "n", "uuid": "i", "host_uuid": "h", "extended_attrs": {"sid": "HDB", "instance_name": "HDB00", )"
       R"("multi_container": true}}])",
       "Failed to get HANA resource base info, lack of key 'instance_number'\n",
       "Failed to get HANA resource base info, lack of key 'instance_number'\n"},
      {"no uuid",
       R"([{"name": "n", "host_uuid": "h", "extended_attrs": {"sid": "HDB", "instance_name": "HDB00", )"
       R"("instance_number": 0, "multi_container": true}}])",
       nullptr, "Failed to get HANA resource base info, lack of key 'uuid'\n"},
      {"number too large",
       R"([{"name": "n", "uuid": "i", "host_uuid": "h", "extended_attrs": {"sid": "HDB", "instance_name": "HDB00", )"
       R"("instance_number": 65536, "multi_container": true}}])",
       "Failed to get HANA resource base info, key 'instance_number'",
       "Failed to get HANA resource base info, key 'instance_number'"},
  };
  for (const auto& row : rows) {
    expect_resource(resource_with(row.instances));
    std::string sid, instance_name, manager_name;
    ACE_UINT16 number = 0;
    EXPECT_EQ(Resource_Info_Getter("r1").base_info(sid, instance_name, manager_name, number), row.base_error == nullptr)
        << row.name;
    if (row.base_error != nullptr && *row.base_error != '\0') expect_error(row.base_error);
    expect_resource(resource_with(row.instances));
    Instances_Info instances;
    EXPECT_EQ(Resource_Info_Getter("r1").get_instances_info(instances), row.list_error == nullptr) << row.name;
    if (row.list_error != nullptr) expect_error(row.list_error);
  }
  // A record without the key at all.
  for (int i = 0; i < 2; ++i) expect_resource(R"({"total": 1, "rows": [{"uuid": "r1"}]})");
  std::string text;
  ACE_UINT16 number = 0;
  EXPECT_FALSE(Resource_Info_Getter("r1").base_info(text, text, text, number));
  expect_error("Failed to get HANA resource base info, lack of key 'instances'\n");
  Instances_Info instances;
  EXPECT_FALSE(Resource_Info_Getter("r1").get_instances_info(instances));
  expect_error("Failed to get instances info from base info\n");
}

TEST_F(Resource_Info_Getter_Test, Keeps_What_Was_Read_Before_A_Failure) {
  const std::string answer =
      resource_with(std::string("[") + first_instance +
                    R"(, {"name": "n2", "uuid": "i2", "host_uuid": "h2", "extended_attrs": {}}])");
  expect_resource(answer);
  Instances_Info instances;
  EXPECT_FALSE(Resource_Info_Getter("r1").get_instances_info(instances));
  ASSERT_EQ(instances.size(), 2U);
  EXPECT_EQ(instances[0].sid, "HDB");
  EXPECT_EQ(instances[1].host_uuid, "h2");
  expect_error("Failed to get HANA resource base info, lack of key 'sid'\n");
}

TEST_F(Resource_Info_Getter_Test, Asks_Ten_Times_With_Pauses_However_Long_They_Take) {
  constexpr unsigned attempts = 10;
  const Http_Fault busy{Http_Fault::answer, 0, 503, {}};
  transport_.fault(busy, attempts - 1);
  expect_resource(resource_with(std::string("[") + first_instance + "]"));
  Object info;
  EXPECT_TRUE(Resource_Info_Getter("r1").get_info(info)) << "the tenth answer counts";
  EXPECT_EQ(transport_.requests().size(), attempts);
  EXPECT_EQ(clock_.sleeps().size(), attempts - 1);

  transport_.forget();
  transport_.fault(busy, attempts + 1);
  EXPECT_FALSE(Resource_Info_Getter("r1").get_info(info));
  EXPECT_EQ(transport_.requests().size(), attempts);
  expect_error("Failed to get HANA resource info\n");
  expect_error("503");
}

TEST_F(Resource_Info_Getter_Test, Tells_That_Backupd_Does_Not_Answer) {
  transport_.refuse_connections(1000);
  std::string text;
  ACE_UINT16 number = 0;
  EXPECT_FALSE(Resource_Info_Getter("r1").base_info(text, text, text, number));
  Instances_Info instances;
  EXPECT_FALSE(Resource_Info_Getter("r1").get_instances_info(instances));
  EXPECT_EQ(log_.claim_containing("Failed to get HANA resource info\n"), 2U);
  EXPECT_EQ(log_.claim_containing("Failed to get HANA resource base info\n"), 2U);
  log_.claim_all();
}

TEST_F(Backint_Catalog_helper_Test, Needs_A_Connection) {
  JSON_HTTP_Session none;
  Backint_Catalog_helper helper;
  EXPECT_FALSE(helper.init(none));
}

TEST_F(Backint_Catalog_helper_Test, Outlives_The_Session_It_Was_Given) {
  Backint_Catalog_helper helper;
  {
    auto session = std::make_unique<JSON_HTTP_Session>(
        std::make_shared<HTTP_Session>(net::Endpoint{false, "127.0.0.1", 4711, {}}, secure_string("key")));
    EXPECT_TRUE(helper.init(*session));
  }
  server_.expect("DELETE", job_path, "", 200, "{}");
  EXPECT_TRUE(helper.remove_job(job_uuid));
}

TEST_F(Backint_Catalog_helper_Test, Stores_A_Record) {
  server_.expect("POST", "/q5/r/v2/backint/jobs", json_spirit::dump_json(job().to_json()), 201, "{}");
  EXPECT_TRUE(helper_.add_job(job()));
  server_.expect("POST", "/q5/r/v2/backint/jobs", "*", 409, refusal("conflict"));
  EXPECT_FALSE(helper_.add_job(job()));
  expect_error("Failed to store the Backint job '11111111-2222-4333-8444-555555555555' at backupd: ");
}

TEST_F(Backint_Catalog_helper_Test, Takes_The_Echo_Of_A_Lost_Answer_For_Success) {
  transport_.fault({Http_Fault::lose_reply});
  server_.expect("POST", "/q5/r/v2/backint/jobs", "*", 201, "{}");
  server_.expect("POST", "/q5/r/v2/backint/jobs", "*", 409, refusal("conflict"));
  server_.expect("GET", job_path, "", 200, json_spirit::dump_json(job().to_json()));
  EXPECT_TRUE(helper_.add_job(job()));
}

TEST_F(Backint_Catalog_helper_Test, Checks_Whether_An_Equal_Record_Is_There) {
  Backint_Backup_Job_Info stored = job();
  stored.id = 17;
  stored.database_backup_id = 1700000000000;
  server_.expect("POST", "/q5/r/v2/backint/jobs", "*", 409, refusal("conflict"));
  server_.expect("GET", job_path, "", 200, json_spirit::dump_json(stored.to_json()));
  EXPECT_TRUE(helper_.check_and_add_job(job()));
  stored.database = "TN2";
  server_.expect("POST", "/q5/r/v2/backint/jobs", "*", 409, refusal("conflict"));
  server_.expect("GET", job_path, "", 200, json_spirit::dump_json(stored.to_json()));
  EXPECT_FALSE(helper_.check_and_add_job(job()));
  expect_error("Failed to store the Backint job");
}

TEST_F(Backint_Catalog_helper_Test, Takes_The_Record_That_Backupd_Has_Of_A_Log_Backup) {
  Backint_Backup_Job_Info known = job();
  known.uuid = "99999999-2222-4333-8444-555555555555";
  Backint_Backup_Job_Info stored;
  server_.expect("POST", "/q5/r/v2/backint/on-demand-jobs", json_spirit::dump_json(job().to_json()), 200,
                 json_spirit::dump_json(known.to_json()));
  EXPECT_TRUE(helper_.add_ondemand_job(job(), stored));
  EXPECT_EQ(stored.uuid, known.uuid);
  server_.expect("POST", "/q5/r/v2/backint/on-demand-jobs", "*", 422, refusal("invalid"));
  EXPECT_FALSE(helper_.add_ondemand_job(job(), stored));
  EXPECT_TRUE(stored.uuid.empty());
  expect_error("Failed to store the Backint job");
  server_.expect("POST", "/q5/r/v2/backint/on-demand-jobs", "*", 201, "[]");
  EXPECT_FALSE(helper_.add_ondemand_job(job(), stored));
  expect_error("cannot be read: it is no object");
}

TEST_F(Backint_Catalog_helper_Test, Tells_Which_File_Is_The_Last) {
  Backup_File_Info file;
  file.info_uuid = job_uuid;
  const std::string files = json_spirit::dump_json(Object{{"files", json_spirit::Array{file.to_json()}}});
  server_.expect("POST", std::string(job_path) + "/files", files, 201, "{}");
  EXPECT_TRUE(helper_.add_file(file));
  server_.expect("POST", std::string(job_path) + "/files", files.substr(0, files.size() - 1) + ",\"last\":true}", 201,
                 "{}");
  EXPECT_TRUE(helper_.add_last_file(file));
}

TEST_F(Backint_Catalog_helper_Test, Reads_A_Record_Also_A_Taken_One) {
  Object record = job().to_json();
  record["taken"] = true;
  record["id"] = 4;
  server_.expect("GET", job_path, "", 200, json_spirit::dump_json(record));
  Backint_Backup_Job_Info read;
  EXPECT_TRUE(helper_.get_job(job_uuid, read));
  EXPECT_EQ(read.id, 4U);
  EXPECT_EQ(read.extended_attrs, job().extended_attrs);
}

TEST_F(Backint_Catalog_helper_Test, Leaves_An_Empty_Record_Behind_A_Failure) {
  const struct {
    unsigned status;
    std::string answer;
    const char* error;
  } rows[] = {{404, refusal("not_found"), "Failed to read the Backint job"},
              {200, "[]", "cannot be read: it is no object\n"},
              {200, R"({"database": "TN1"})", "cannot be read: lack of key 'uuid'\n"},
              {200, R"({"uuid": "u", "database_backup_id": "x"})", "cannot be read: key 'database_backup_id'"}};
  for (const auto& row : rows) {
    server_.expect("GET", job_path, "", row.status, row.answer);
    Backint_Backup_Job_Info read = job();
    EXPECT_FALSE(helper_.get_job(job_uuid, read)) << row.answer;
    EXPECT_TRUE(read.uuid.empty() && read.database.empty() && read.extended_attrs.empty()) << row.answer;
    expect_error(row.error);
  }
}

TEST_F(Backint_Catalog_helper_Test, Sets_The_Backup_Id_And_Removes) {
  server_.expect("PATCH", job_path, R"({"database_backup_id":1700000000000})", 200, "{}");
  EXPECT_TRUE(helper_.update_job_database_backup_id(job_uuid, 1700000000000));
  server_.expect("PATCH", job_path, "*", 409, refusal("conflict"));
  EXPECT_FALSE(helper_.update_job_database_backup_id(job_uuid, 1));
  expect_error("Failed to set the database backup id of the Backint job");
  server_.expect("DELETE", job_path, "", 404, refusal("not_found"));
  EXPECT_FALSE(helper_.remove_job(job_uuid));
  expect_error("Failed to remove the Backint job");
  server_.expect("DELETE", "/q5/r/v2/backint/files/12", "", 200, "{}");
  EXPECT_TRUE(helper_.remove_file(12));
  server_.expect("DELETE", "/q5/r/v2/backint/files/12", "", 409, refusal("conflict"));
  EXPECT_FALSE(helper_.remove_file(12));
  expect_error("Failed to remove the Backint file '12' at backupd: ");
}

Backup_File_Info file_record(std::uint64_t id) {
  Backup_File_Info file;
  file.id = id;
  file.info_uuid = job_uuid;
  file.filename = "x_databackup_0_1";
  file.extern_backup_id = "ebid-" + std::to_string(id);
  file.size = 4096;
  return file;
}

std::string list_of(std::uint64_t first, std::uint64_t last) {
  json_spirit::Array rows;
  for (std::uint64_t id = first; id >= last; --id) rows.push_back(file_record(id).to_json());
  return json_spirit::dump_json(Object{{"total", rows.size()}, {"rows", rows}});
}

TEST_F(Backint_Catalog_helper_Test, Adds_And_Reads_The_Files_Of_A_Job) {
  Backup_File_Info file = file_record(0);
  server_.expect("POST", std::string(job_path) + "/files",
                 json_spirit::dump_json(Object{{"files", json_spirit::Array{file.to_json()}}}), 201, "{}");
  EXPECT_TRUE(helper_.add_file(file));
  EXPECT_TRUE(helper_.add_files(job_uuid, {})) << "nothing to send";
  server_.expect("POST", std::string(job_path) + "/files", "*", 422, refusal("invalid"));
  EXPECT_FALSE(helper_.add_files(job_uuid, {file, file}));
  expect_error("Failed to store the files of the Backint job");
  server_.expect("GET", std::string(job_path) + "/files", "", 200, list_of(2, 1));
  std::list<Backup_File_Info> files(5);
  EXPECT_TRUE(helper_.get_job_files(job_uuid, files));
  EXPECT_EQ(files.size(), 2U);
  server_.expect("GET", std::string(job_path) + "/files", "", 200, R"({"rows": [{"id": "x"}]})");
  EXPECT_FALSE(helper_.get_job_files(job_uuid, files));
  EXPECT_TRUE(files.empty());
  expect_error("a Backint file record that cannot be read: key 'id'");
  server_.expect("GET", std::string(job_path) + "/files", "", 200, "7");
  EXPECT_FALSE(helper_.get_job_files(job_uuid, files));
  expect_error("something else than a list");
}

TEST_F(Backint_Catalog_helper_Test, Reads_A_Long_List_Page_By_Page) {
  const std::string path = "/q5/r/v2/backint/files?host_uuid=h1&sid=HDB&database=T+1&";
  server_.expect("GET", path + "limit=1000&offset=0", "", 200, list_of(1500, 501));
  // One was added meanwhile: the last one of the first page comes again.
  server_.expect("GET", path + "limit=1000&offset=1000", "", 200, list_of(501, 1));
  Backint_Catalog_helper::File_Query query;
  query.host_uuid = "h1";
  query.sid = "HDB";
  query.database = "T 1";
  std::list<Backup_File_Info> files;
  EXPECT_TRUE(helper_.get_files(query, files));
  EXPECT_EQ(files.size(), 1500U);
  EXPECT_EQ(files.front().id, 1500U);
  EXPECT_EQ(files.back().id, 1U);
}

TEST_F(Backint_Catalog_helper_Test, Finds_A_File_By_Its_Ebid) {
  const std::string path = "/q5/r/v2/backint/files?sid=HDB&extern_backup_id=e%2f1&limit=1000&offset=0";
  Backint_Catalog_helper::File_Query scope;
  scope.sid = "HDB";
  Backup_File_Info file;
  bool found = false;
  server_.expect("GET", path, "", 200, list_of(9, 8));
  EXPECT_TRUE(helper_.get_file_by_ebid("e/1", scope, file, found));
  EXPECT_TRUE(found);
  EXPECT_EQ(file.id, 9U) << "the newest";
  server_.expect("GET", path, "", 200, R"({"total": 0, "rows": []})");
  EXPECT_TRUE(helper_.get_file_by_ebid("e/1", scope, file, found));
  EXPECT_FALSE(found);
  server_.expect("GET", path, "", 403, refusal("forbidden"));
  EXPECT_FALSE(helper_.get_file_by_ebid("e/1", scope, file, found));
  expect_error("Failed to read the Backint files of 'HDB/' at backupd: ");
}

TEST_F(Backint_Catalog_helper_Test, Needs_Names) {
  Backint_Backup_Job_Info read;
  std::list<Backup_File_Info> files;
  for (const char* uuid : {static_cast<const char*>(nullptr), ""}) {
    EXPECT_FALSE(helper_.get_job(uuid, read));
    EXPECT_FALSE(helper_.remove_job(uuid));
    EXPECT_FALSE(helper_.get_job_files(uuid, files));
    EXPECT_FALSE(helper_.update_job_database_backup_id(uuid, 1));
  }
  EXPECT_EQ(log_.claim_containing("A Backint job record needs a uuid\n"), 8U);
  Backup_File_Info file;
  bool found = true;
  EXPECT_FALSE(helper_.get_file_by_ebid("", {}, file, found));
  EXPECT_FALSE(found);
  expect_error("A Backint file cannot be looked up without its external backup id\n");
}

}  // namespace
