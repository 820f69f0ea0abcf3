#include "hana/websvcs_agent/json_rpc_hana_list_handler.h"

#include <condition_variable>
#include <sstream>

#include "hana/common/hana_paths.h"
#include "hana/common/ondemand_conf_path.h"
#include "net/json_rpc.h"
#include "support/vtable_slots.h"
#include "unit/hana/websvcs_agent/rpc_fixture.h"

namespace {

using hana_test::child;
using hana_test::test_data;

/// The handler without its threads: the request runs where it is handed over.
class Direct_List_Handler : public JSON_RPC_HANA_List_Handler {
 public:
  using JSON_RPC_HANA_List_Handler::handle_object_i;
};

constexpr const char* instances_request = R"({"jsonrpc":"2.0","id":"i","method":"hana.instance.list"})";
constexpr const char* databases_request =
    R"({"jsonrpc":"2.0","id":"d","method":"hana.database.list","params":{"uid":"","instance":"HDB_HDB00"}})";

std::string error(const char* id, int code, const std::string& message) {
  return std::string(R"({"jsonrpc":"2.0","id":")") + id + R"(","error":{"code":)" + std::to_string(code) +
         R"(,"message":")" + message + "\"}}";
}

class JSON_RPC_HANA_List_Handler_Test : public rpc_test::Rpc_Test {
 protected:
  std::string ask(const std::string& request) { return ask(rpc_test::object_of(request)); }
  std::string ask(std::shared_ptr<JSON_RPC_Object> object) {
    channel_->sent.clear();
    result_ = handler_.handle_object_i(channel_, std::move(object));
    EXPECT_LE(channel_->sent.size(), 1U);
    return channel_->sent.empty() ? std::string() : channel_->sent.front();
  }
  /// A log backup configuration file of a definition.
  void configure_log_backup(const std::string& database, const std::string& definition) {
    root_.write(conf_path(database), R"({"job_definition_uuid":")" + definition + "\"}");
  }
  std::string conf_path(const std::string& database) {
    std::string path;
    EXPECT_TRUE(sap_hana::ondemand_conf_path("HDB", "HDB00", database, path));
    return path;
  }
  /// The modes of the databases in the order of the answer: "SYSTEMDB=none TN1=database ...".
  std::string modes() {
    const JSON_RPC_Message message = JSON_RPC_Message::parse(ask(databases_request));
    std::string text;
    if (!message.result_value.is_object()) return "no result";
    json_spirit::Array rows;
    EXPECT_TRUE(json_spirit::object_get(message.result_value.get_obj(), "databases", rows));
    for (const json_spirit::Value& row : rows)
      text += (text.empty() ? "" : " ") + row.get_obj().find("name")->get_str() + "=" +
              row.get_obj().find("log_backup_mode")->get_str();
    return text;
  }

  Direct_List_Handler handler_;
};

TEST_F(JSON_RPC_HANA_List_Handler_Test, Has_Its_Operations_In_Their_Slots) {
  EXPECT_EQ(support::slot_of(&Direct_List_Handler::handle_object), 0);
  EXPECT_EQ(support::slot_of(&Direct_List_Handler::handle_object_i), 1);
  EXPECT_EQ(sizeof(JSON_RPC_HANA_List_Handler), sizeof(JSON_RPC_Thread_Handler)) << "it has no data of its own";
}

TEST_F(JSON_RPC_HANA_List_Handler_Test, Lists_The_Instances_Of_This_Host) {
  install("ABC", "HDB42", "virtualhost", "1.00.122.05 Build 1");
  configure("global.ini", "", "ABC");
  const char* const wanted =
      R"({"jsonrpc":"2.0","id":"i","result":[)"
      R"({"sid":"ABC","instance_name":"HDB42","instance_number":42,"version":"1.00.122.05","localhost":"virtualhost"},)"
      R"({"sid":"HDB","instance_name":"HDB00","instance_number":0,"version":"2.00.059.00","localhost":"hanahost"}]})";
  EXPECT_EQ(ask(instances_request), wanted);
  EXPECT_EQ(result_, 0);
  // The method is not looked at.
  EXPECT_EQ(ask(R"({"jsonrpc":"2.0","id":"i","method":"hana.database.list"})"), wanted);
  EXPECT_EQ(ask(std::make_shared<JSON_RPC_Request>("i", "", nullptr)), wanted);
  EXPECT_TRUE(runner_.calls().empty()) << "the list needs no logon";
}

TEST_F(JSON_RPC_HANA_List_Handler_Test, Tells_The_Version_Of_The_System_Whatever_Its_Instance_Runs) {
  root_.write(sap_hana::system_manifest("HDB"), "fullversion: 2.00.070.00 Build 2\n");
  EXPECT_NE(ask(instances_request).find(R"("version":"2.00.070.00")"), std::string::npos) << channel_->sent.back();
}

TEST_F(JSON_RPC_HANA_List_Handler_Test, Tells_When_The_Instances_Cannot_Be_Listed) {
  const support::Temp_Root other_host;
  EXPECT_EQ(ask(instances_request), R"({"jsonrpc":"2.0","id":"i","result":[]})") << "a host without HANA";
  other_host.write("/usr/sap", "a file");
  EXPECT_EQ(ask(instances_request), error("i", -32603, "Failed to list instance info"));
  EXPECT_EQ(result_, 0);
  expect_error("Failed to list the SAP systems of this host");
}

TEST_F(JSON_RPC_HANA_List_Handler_Test, Lists_The_Databases_Of_An_Instance) {
  script("hdbsql", {child(test_data("hdbsql/databases.txt"))});
  configure_log_backup("", "all");
  configure_log_backup("TN1", "one");
  backupd_.know("all");
  backupd_.know("one");
  EXPECT_EQ(ask(databases_request),
            R"({"jsonrpc":"2.0","id":"d","result":{"instance":"HDB_HDB00","databases":[)"
            R"({"name":"SYSTEMDB","owner":"SystemDB-HDB-00","os_user":"hdbadm","os_group":"sapsys","active":true,)"
            R"("log_backup_mode":"instance"},)"
            R"({"name":"TN1","owner":"Sales, \"north\"\nand south","os_user":"tn1user","os_group":"tn1group",)"
            R"("active":true,"log_backup_mode":"database"},)"
            R"({"name":"TN2","owner":"TN2-00","os_user":"hdbadm","os_group":"sapsys","active":false,)"
            R"("log_backup_mode":"instance"}]}})");
  EXPECT_EQ(result_, 0);
  ASSERT_EQ(runner_.calls().size(), 1U);
  EXPECT_NE(runner_.calls().front().input.find("-u BACKUP -p"), std::string::npos);
  EXPECT_EQ(runner_.calls().front().input.find("where"), std::string::npos) << "none is left out";
  EXPECT_EQ(log_.dump().find("pass"), std::string::npos) << "the password is not logged";
}

TEST_F(JSON_RPC_HANA_List_Handler_Test, Takes_The_Account_Of_The_User_Who_Asks) {
  add_account("HDB_HDB00", "u1");
  script("hdbsql", {child(test_data("hdbsql/databases.txt"))});
  const auto request = [](const std::string& uid) {
    return R"({"jsonrpc":"2.0","id":"d","method":"m","params":{"instance":"HDB_HDB00","uid":")" + uid + "\"}}";
  };
  EXPECT_NE(ask(request("u1")).find("result"), std::string::npos);
  EXPECT_NE(runner_.calls().back().input.find("-u BACKUPu1 "), std::string::npos);
  EXPECT_NE(ask(request("another")).find("result"), std::string::npos);
  EXPECT_NE(runner_.calls().back().input.find("-u BACKUP "), std::string::npos);
}

TEST_F(JSON_RPC_HANA_List_Handler_Test, Refuses_Bad_Params) {
  const struct {
    json_spirit::Value params;
    const char* message;
  } rows[] = {{json_spirit::Array{"HDB_HDB00"}, "Invalid request"},
              {"HDB_HDB00", "Invalid request"},
              {7, "Invalid request"},
              {false, "Invalid request"},
              {json_spirit::Object(), "Invalid params"},
              {json_spirit::Object{{"uid", "u"}}, "Invalid params"},
              {json_spirit::Object{{"instance", "HDB_HDB00"}}, "Invalid params"},
              {json_spirit::Object{{"uid", 1}, {"instance", "HDB_HDB00"}}, "Invalid params"},
              {json_spirit::Object{{"uid", ""}, {"instance", nullptr}}, "Invalid params"}};
  for (const auto& row : rows) {
    EXPECT_EQ(ask(std::make_shared<JSON_RPC_Request>("d", "hana.database.list", row.params)),
              error("d", -32602, row.message))
        << json_spirit::dump_json(row.params);
    EXPECT_EQ(result_, 0);
  }
  EXPECT_TRUE(runner_.calls().empty());
}

TEST_F(JSON_RPC_HANA_List_Handler_Test, Tells_Each_Step_That_Fails) {
  const auto request = [](const std::string& instance) {
    return R"({"jsonrpc":"2.0","id":"d","method":"m","params":{"uid":"","instance":")" + instance + "\"}}";
  };
  EXPECT_EQ(ask(request("WITHOUT_ACCOUNT")), error("d", -32603, "Failed to get account"));
  expect_error("No account is stored for the instance 'WITHOUT_ACCOUNT'");

  keep("NO_SID", {{"instance_name", "HDB00"}});
  keep("NO_NAME", {{"sid", "HDB"}});
  for (const char* name : {"NO_SID", "NO_NAME"}) {
    add_account(name);
    EXPECT_EQ(ask(request(name)), error("d", -32603, "Failed to get SID or instance name")) << name;
  }

  script("hdbsql", {child("", 10, "* 10: authentication failed SQLSTATE: 28000\n")});
  EXPECT_EQ(ask(databases_request), error("d", -32603, "Failed to list database"));
  EXPECT_EQ(result_, 0) << "an error is an answer";
  EXPECT_GE(log_.claim_containing("authentication failed"), 1U);
}

TEST_F(JSON_RPC_HANA_List_Handler_Test, Gives_No_Answer_For_An_Instance_That_Is_Not_Registered) {
  add_account("QQQ_HDB00");
  EXPECT_EQ(ask(R"({"jsonrpc":"2.0","id":"d","method":"m","params":{"uid":"","instance":"QQQ_HDB00"}})"), "");
  EXPECT_EQ(result_, 0);
}

TEST_F(JSON_RPC_HANA_List_Handler_Test, Handles_Requests_Alone) {
  EXPECT_EQ(ask(R"({"jsonrpc":"2.0","method":"hana.instance.list"})"), "");
  EXPECT_EQ(result_, -1) << "a notification wants no answer";
  for (const auto kind : {JSON_RPC_Object::KIND_RESPONSE, JSON_RPC_Object::KIND_ERROR}) {
    EXPECT_EQ(ask(std::make_shared<JSON_RPC_Object>(kind, 1)), "");
    EXPECT_EQ(result_, -1);
  }
  EXPECT_EQ(ask(std::shared_ptr<JSON_RPC_Object>()), "");
  EXPECT_EQ(result_, -1);
}

TEST_F(JSON_RPC_HANA_List_Handler_Test, Does_Nothing_For_A_Requester_That_Has_Gone) {
  EXPECT_EQ(handler_.handle_object_i(nullptr, rpc_test::object_of(databases_request)), -1);
  EXPECT_TRUE(log_.claim("Abort handle JSON-RPC request, requester is gone"));
  EXPECT_TRUE(runner_.calls().empty());
}

TEST_F(JSON_RPC_HANA_List_Handler_Test, Says_Nothing_Of_A_Requester_That_Sent_No_Request) {
  for (const auto kind :
       {JSON_RPC_Object::KIND_NOTIFICATION, JSON_RPC_Object::KIND_RESPONSE, JSON_RPC_Object::KIND_ERROR})
    EXPECT_EQ(handler_.handle_object_i(nullptr, std::make_shared<JSON_RPC_Object>(kind, 1)), -1);
  EXPECT_EQ(handler_.handle_object_i(nullptr, nullptr), -1);
  EXPECT_TRUE(log_.lines().empty()) << log_.dump();
}

TEST_F(JSON_RPC_HANA_List_Handler_Test, Answers_Minus_One_When_The_Answer_Could_Not_Be_Sent) {
  channel_->result = -1;
  EXPECT_NE(ask(instances_request), "");
  EXPECT_EQ(result_, -1);
  script("hdbsql", {child(test_data("hdbsql/databases.txt"))});
  EXPECT_NE(ask(databases_request), "");
  EXPECT_EQ(result_, -1);
}

TEST(JSON_RPC_HANA_List_Handler, Knows_No_Account_Without_A_Registry) {
  const auto channel = std::make_shared<rpc_test::Wire_Channel>();
  EXPECT_EQ(Direct_List_Handler().handle_object_i(channel, rpc_test::object_of(databases_request)), 0);
  EXPECT_EQ(channel->sent, std::vector<std::string>{error("d", -32603, "Failed to get account")});
}

TEST_F(JSON_RPC_HANA_List_Handler_Test, Falls_Back_When_A_Definition_Is_Not_Known_Any_More) {
  script("hdbsql", {child(test_data("hdbsql/databases.txt"))});
  EXPECT_EQ(modes(), "SYSTEMDB=none TN1=none TN2=none");
  EXPECT_TRUE(backupd_.asked.empty()) << "without a file there is nothing to ask";

  configure_log_backup("TN1", "gone");
  configure_log_backup("", "all");
  backupd_.know("all");
  EXPECT_EQ(modes(), "SYSTEMDB=instance TN1=instance TN2=instance");
  backupd_.answers.clear();
  EXPECT_EQ(modes(), "SYSTEMDB=none TN1=none TN2=none");
  backupd_.know("gone");
  EXPECT_EQ(modes(), "SYSTEMDB=none TN1=database TN2=none");
}

TEST_F(JSON_RPC_HANA_List_Handler_Test, Asks_Once_For_A_Known_Definition_And_Again_For_An_Unknown_One) {
  script("hdbsql", {child(test_data("hdbsql/databases.txt"))});
  configure_log_backup("", "all");
  configure_log_backup("TN1", "all");
  backupd_.know("all");
  EXPECT_EQ(modes(), "SYSTEMDB=instance TN1=database TN2=instance");
  EXPECT_EQ(backupd_.asked, (std::vector<std::string>{R"(job.def.list {"uuid":"all"})"}));
  EXPECT_EQ(modes(), "SYSTEMDB=instance TN1=database TN2=instance");
  EXPECT_EQ(backupd_.asked.size(), 2U) << "nothing is kept between requests";

  backupd_.asked.clear();
  backupd_.answers.clear();
  EXPECT_EQ(modes(), "SYSTEMDB=none TN1=none TN2=none");
  EXPECT_EQ(backupd_.asked.size(), 4U) << "for each of the instance's uses, and for the database's own";
}

TEST_F(JSON_RPC_HANA_List_Handler_Test, Waits_Once_For_A_Backupd_That_Does_Not_Answer) {
  script("hdbsql", {child(test_data("hdbsql/databases.txt"))});
  configure_log_backup("", "all");
  configure_log_backup("TN1", "one");
  for (const char* id : {"all", "one"}) backupd_.answers[id] = {false, {}, JSON_RPC_E_TIMEOUT, "no"};
  backupd_.meanwhile = [this] { clock_.advance(std::chrono::seconds(10)); };
  EXPECT_EQ(modes(), "SYSTEMDB=none TN1=none TN2=none");
  EXPECT_EQ(backupd_.asked.size(), 1U);
  EXPECT_EQ(log_.claim_containing("Failed to get job definition detail\n"), 4U) << "each that is not told";
}

TEST_F(JSON_RPC_HANA_List_Handler_Test, A_File_Counts_Only_When_Backupd_Confirms_It) {
  configure_log_backup("TN1", "id");
  const struct {
    const char* name;
    JSON_RPC_Answer answer;
    bool wanted;
    bool logged;
  } rows[] = {{"known", {true, json_spirit::Array{json_spirit::Object{}}, 0, {}}, true, false},
              {"not known", {true, json_spirit::Array{}, 0, {}}, false, false},
              {"no array", {true, json_spirit::Object{{"rows", 1}}, 0, {}}, false, false},
              {"error", {false, {}, JSON_RPC_E_INTERNAL, "no"}, false, true},
              {"away", {false, {}, JSON_RPC_E_NOT_CONNECTED, "no"}, false, true},
              {"late", {false, {}, JSON_RPC_E_TIMEOUT, "no"}, false, true}};
  for (const auto& row : rows) {
    backupd_.answers["id"] = row.answer;
    JSON_RPC_HANA_List_Handler::Known_Definitions known;
    EXPECT_EQ(handler_.check_log_backup_valid(conf_path("TN1"), known), row.wanted) << row.name;
    EXPECT_EQ(known.confirmed.count("id"), row.wanted ? 1U : 0U) << row.name;
    EXPECT_EQ(log_.claim("Failed to get job definition detail\n"), row.logged) << row.name;
  }
  JSON_RPC_HANA_List_Handler::Known_Definitions known{{"id"}};
  backupd_.asked.clear();
  EXPECT_TRUE(handler_.check_log_backup_valid(conf_path("TN1"), known));
  EXPECT_TRUE(backupd_.asked.empty()) << "it is known already";
}

TEST_F(JSON_RPC_HANA_List_Handler_Test, A_File_That_Is_None_Of_Ours_Does_Not_Count) {
  JSON_RPC_HANA_List_Handler::Known_Definitions known;
  EXPECT_FALSE(handler_.check_log_backup_valid("/missing", known));
  root_.make_directory("/directory");
  EXPECT_FALSE(handler_.check_log_backup_valid("/directory", known));
  for (const char* text : {"", "no JSON", "[]", "{}", R"({"job_definition_uuid":1})"}) {
    root_.write("/file", text);
    EXPECT_FALSE(handler_.check_log_backup_valid("/file", known)) << text;
    EXPECT_TRUE(log_.claim("Failed to load /file\n")) << text;
  }
  EXPECT_TRUE(backupd_.asked.empty());
}

TEST_F(JSON_RPC_HANA_List_Handler_Test, Fifty_Instances_Of_A_Thousand_Tenants_Need_One_Hdbsql_Run_Each) {
  constexpr int instances = 50;
  constexpr int tenants = 1000;
  std::ostringstream table;
  table << "DATABASE_NAME,DESCRIPTION,ACTIVE_STATUS,OS_USER,OS_GROUP\n\"SYSTEMDB\",\"s\",\"YES\",\"\",\"\"\n";
  for (int i = 0; i < tenants; ++i) table << "\"T" << i << "\",\"d\",\"YES\",\"\",\"\"\n";
  script("hdbsql", {child(table.str())});
  configure_log_backup("", "all");
  backupd_.know("all");
  for (int i = 1; i < instances; ++i) {
    const std::string name = "HDB" + std::string(i < 10 ? "0" : "") + std::to_string(i);
    install("HDB", name, "hanahost", "2.00.059.00 Build 1");
    keep("HDB_" + name, {{"sid", "HDB"}, {"instance_name", name}, {"instance_number", i}});
    add_account("HDB_" + name);
  }
  const JSON_RPC_Message listed = JSON_RPC_Message::parse(ask(instances_request));
  ASSERT_EQ(listed.kind, JSON_RPC_Message::result);
  ASSERT_EQ(listed.result_value.get_array().size(), static_cast<std::size_t>(instances));
  EXPECT_TRUE(runner_.calls().empty());
  for (const json_spirit::Value& row : listed.result_value.get_array()) {
    const std::string name = "HDB_" + row.get_obj().find("instance_name")->get_str();
    const JSON_RPC_Message databases = JSON_RPC_Message::parse(ask(
        R"({"jsonrpc":"2.0","id":1,"method":"hana.database.list","params":{"uid":"","instance":")" + name + "\"}}"));
    ASSERT_EQ(databases.kind, JSON_RPC_Message::result) << name;
    EXPECT_EQ(databases.result_value.get_obj().find("databases")->get_array().size(), tenants + 1U);
  }
  EXPECT_EQ(runner_.calls().size(), static_cast<std::size_t>(instances));
  EXPECT_EQ(backupd_.asked.size(), 1U) << "one definition covers the first instance, the others have none";
}

/// Counts answers of any thread.
class Counting_Channel : public JSON_RPC_Channel {
 public:
  int close() override { return 0; }
  int send(std::shared_ptr<JSON_RPC_Object> object) override { return count(object->id()); }
  int send_error(int, const json_spirit::Value& id, const std::string&, const json_spirit::Value&) override {
    return count(id);
  }
  void wait_for(std::size_t wanted) {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return answered_.size() == wanted; });
  }

 private:
  int count(const json_spirit::Value& id) {
    const std::lock_guard lock(mutex_);
    EXPECT_TRUE(answered_.insert(id.get_int()).second) << "a second answer";
    changed_.notify_all();
    return 0;
  }
  std::mutex mutex_;
  std::condition_variable changed_;
  std::set<int> answered_;
};

TEST_F(JSON_RPC_HANA_List_Handler_Test, A_Thousand_Requests_At_Once_Are_All_Answered_Once) {
  constexpr int count = 1000;
  script("hdbsql", {child(test_data("hdbsql/databases.txt"))});
  const auto channel = std::make_shared<Counting_Channel>();
  JSON_RPC_HANA_List_Handler handler;
  for (int i = 0; i < count; ++i) {
    const json_spirit::Value params =
        i % 2 == 0 ? json_spirit::Value() : json_spirit::Object{{"uid", ""}, {"instance", "HDB_HDB00"}};
    EXPECT_EQ(handler.handle_object(channel, std::make_shared<JSON_RPC_Request>(i, "m", params)), 0);
  }
  channel->wait_for(count);
}

}  // namespace
