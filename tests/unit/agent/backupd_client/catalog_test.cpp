#include "agent/backupd_client/catalog_operator.h"
#include "agent/backupd_client/common_http_session_factory.h"
#include "agent/backupd_client/get_pool_info.h"
#include "agent/backupd_client/read_first_catalog.h"
#include "unit/agent/backupd_client/client_fixture.h"

namespace {

using json_spirit::Object;
using json_spirit::Value;
using support::Http_Fault;
using Sleeps = std::vector<double>;

class Common_Http_Session_Factory_Test : public Client_Fixture {};

TEST_F(Common_Http_Session_Factory_Test, Really_Connects_With_The_Hosts_Key) {
  backupd.expect("GET", "/q5/r/v2/server", "", 200, R"({"product":"d","version":"1"})");
  const HTTP_Session_var session = Common_HTTP_Session_Factory::create(Common_HTTP_Session_Factory::SESSION_BACKUPD);
  ASSERT_NE(session, nullptr);
  EXPECT_EQ(session->url(), url);
  EXPECT_EQ(*network.requests().at(0).headers.find("Authorization"), "Bearer key-of-this-host");
  EXPECT_EQ(network.connections().at(0), (net::Endpoint{true, "backupd.test", 9000, "/etc/opt/tarvex/dorsal3/ca.pem"}));
}

TEST_F(Common_Http_Session_Factory_Test, Fails_At_Once_When_Nobody_Answers) {
  network.refuse_connections(1);
  EXPECT_EQ(Common_HTTP_Session_Factory::create(Common_HTTP_Session_Factory::SESSION_BACKUPD), nullptr);
  EXPECT_EQ(clock.sleeps(), Sleeps{});
  EXPECT_TRUE(log.claim(std::string("GET ") + url + "/q5/r/v2/server: Connection refused\n")) << log.dump();
}

TEST_F(Common_Http_Session_Factory_Test, Tries_As_Often_As_Told) {
  network.refuse_connections(2);
  backupd.expect("GET", "/q5/r/v2/server", "", 200, "{}");
  EXPECT_NE(Common_HTTP_Session_Factory::create(Common_HTTP_Session_Factory::SESSION_BACKUPD, nullptr, 2), nullptr);
  EXPECT_EQ(clock.sleeps(), (Sleeps{1, 2}));
}

TEST_F(Common_Http_Session_Factory_Test, Goes_Where_The_Parameters_Say) {
  backupd.expect("GET", "/q5/r/v2/server", "", 200, "{}");
  const Common_HTTP_Session_Factory::Param param{{false, "127.0.0.1", 1, ""}, secure_string("other")};
  const HTTP_Session_var session =
      Common_HTTP_Session_Factory::create(Common_HTTP_Session_Factory::SESSION_BACKUPD, &param);
  ASSERT_NE(session, nullptr);
  EXPECT_EQ(session->url(), "http://127.0.0.1:1");
  EXPECT_EQ(*network.requests().at(0).headers.find("Authorization"), "Bearer other");
}

TEST_F(Common_Http_Session_Factory_Test, Refuses_Other_Types_A_Wrong_Key_And_A_Stranger) {
  EXPECT_EQ(Common_HTTP_Session_Factory::create(static_cast<Common_HTTP_Session_Factory::Type>(1)), nullptr);
  EXPECT_TRUE(log.claim("There is no session of type 1\n")) << log.dump();
  network.fault({Http_Fault::answer, 0, 401, R"({"error":{"code":"unauthorized","message":"unknown key"}})"});
  EXPECT_EQ(Common_HTTP_Session_Factory::create(Common_HTTP_Session_Factory::SESSION_BACKUPD), nullptr);
  EXPECT_TRUE(log.claim(std::string("GET ") + url + "/q5/r/v2/server: 401 unauthorized: unknown key\n")) << log.dump();
  network.fault({Http_Fault::answer, 0, 200, "[]"});
  EXPECT_EQ(Common_HTTP_Session_Factory::create(Common_HTTP_Session_Factory::SESSION_BACKUPD), nullptr);
  EXPECT_TRUE(log.claim(std::string(url) + " does not answer like a backup server\n")) << log.dump();
}

class Read_First_Catalog : public Client_Fixture {
 protected:
  Value value = "old";
};

TEST_F(Read_First_Catalog, Gives_The_First_Row) {
  struct Row {
    const char* answer;
    Value value;
  };
  for (const Row& row :
       {Row{R"({"total":2,"rows":[{"a":1},{"a":2}]})", Object{{"a", 1}}}, Row{R"({"total":0,"rows":[]})", Value()},
        Row{R"({"uuid":"x"})", Object{{"uuid", "x"}}}, Row{R"({"total":1,"rows":["text"]})", "text"}}) {
    backupd.expect("GET", "/q5/r/v2/resources?uuid=u", "", 200, row.answer);
    EXPECT_TRUE(read_first_catalog("/q5/r/v2/resources?uuid=u", value, 10, -1)) << row.answer;
    EXPECT_EQ(value, row.value) << row.answer;
  }
  EXPECT_EQ(clock.sleeps(), Sleeps{});
}

TEST_F(Read_First_Catalog, Ten_Retries_Are_Ten_Attempts) {
  network.fault({Http_Fault::answer, 0, 500, ""}, 10);
  EXPECT_FALSE(read_first_catalog("/q", value, 10, -1));
  EXPECT_EQ(network.requests().size(), 10U);
  EXPECT_EQ(clock.sleeps(), (Sleeps{1, 2, 4, 8, 16, 32, 64, 64, 64}));
  EXPECT_TRUE(value.is_null());
  EXPECT_TRUE(log.claim(std::string("GET ") + url + "/q: 500\n")) << log.dump();
}

TEST_F(Read_First_Catalog, Ends_When_Its_Time_Is_Over) {
  network.refuse_connections(100);
  EXPECT_FALSE(read_first_catalog("/q", value, 10, 10));
  EXPECT_EQ(clock.sleeps(), (Sleeps{1, 2, 4}));
  log.claim_all();
}

TEST_F(Read_First_Catalog, A_Refusal_And_A_Malformed_Answer_Are_Final) {
  network.fault({Http_Fault::answer, 0, 404, ""});
  EXPECT_FALSE(read_first_catalog("/q", value, 10, -1));
  EXPECT_TRUE(log.claim(std::string("GET ") + url + "/q: 404\n")) << log.dump();
  network.fault({Http_Fault::answer, 0, 200, "[]"});
  EXPECT_FALSE(read_first_catalog("/q", value, 10, -1));
  EXPECT_TRUE(log.claim(std::string("GET ") + url + "/q: the answer is of type array, expected object\n"));
  network.fault({Http_Fault::answer, 0, 200, R"({"rows":{}})"});
  EXPECT_FALSE(read_first_catalog("/q", value, 10, -1));
  EXPECT_TRUE(log.claim(std::string("GET ") + url + "/q: \"rows\" is of type object, expected array\n"));
  EXPECT_EQ(clock.sleeps(), Sleeps{});
}

TEST_F(Read_First_Catalog, Fails_Without_A_Configuration) {
  ASSERT_EQ(::unlink(root.real(configuration_path).c_str()), 0);
  EXPECT_FALSE(read_first_catalog("/q", value, 10, -1));
  EXPECT_EQ(log.claim_containing("cannot read the agent's configuration /etc/opt/tarvex/dorsal3/agent.toml"), 1U);
}

class Catalog_Operator_Test : public Client_Fixture {
 protected:
  Value result;
};

TEST_F(Catalog_Operator_Test, Asks_A_View) {
  backupd.expect("POST", "/q5/r/v2/catalog/hana/rselect", R"({"params":{"type":"catalog"}})", 200, R"({"rows":[]})");
  EXPECT_TRUE(Catalog_Operator(-1, 60).get_view("hana", "rselect", Object{{"type", "catalog"}}, result));
  EXPECT_EQ(result, Value(Object{{"rows", json_spirit::Array{}}}));
}

TEST_F(Catalog_Operator_Test, A_Name_Cannot_Leave_Its_Segment) {
  backupd.expect("POST", "/q5/r/v2/catalog/a%2fb/c%3fd", R"({"params":{}})", 200, "{}");
  EXPECT_TRUE(Catalog_Operator(-1, 60).get_view("a/b", "c?d", {}, result));
}

TEST_F(Catalog_Operator_Test, An_Answer_That_Is_No_Object_Is_A_Failure) {
  backupd.expect("POST", "/q5/r/v2/catalog/hana/set", "*", 200, "[]");
  EXPECT_FALSE(Catalog_Operator(-1, 60).get_view("hana", "set", {}, result));
  EXPECT_EQ(log.claim_containing("the answer is of type array, expected object"), 1U);
}

TEST_F(Catalog_Operator_Test, Tries_By_Default_Five_Times_More_Within_The_Seconds_Given) {
  struct Row {
    int retries;
    int seconds;
    Sleeps sleeps;
  };
  for (const Row& row : {Row{-1, 300, {1, 2, 4, 8, 16}}, Row{-1, 5, {1, 2}}, Row{-1, -7, {}}, Row{2, 300, {1, 2}},
                         Row{-1, 2147483647, {1, 2, 4, 8, 16}}}) {
    SCOPED_TRACE(testing::Message() << row.retries << " " << row.seconds);
    clock.forget_sleeps();
    network.refuse_connections(100);
    EXPECT_FALSE(Catalog_Operator(row.retries, row.seconds).get_view("hana", "set", {}, result));
    EXPECT_EQ(clock.sleeps(), row.sleeps);
  }
  log.claim_all();
}

TEST_F(Catalog_Operator_Test, Commits_The_Record_Of_A_Set) {
  Backup_Set set;
  set.uuid = "u1";
  set.type = "full";
  backupd.expect("POST", "/q5/r/v2/sets", json_spirit::dump_json(set.to_record()), 201, R"({"uuid":"u1"})");
  EXPECT_TRUE(Catalog_Operator(-1, 60).commit(set, true));
}

TEST_F(Catalog_Operator_Test, Commits_Again_When_The_Answer_Was_Lost) {
  const Backup_Set set;
  backupd.expect("POST", "/q5/r/v2/sets", "*", 201, "{}");
  backupd.expect("POST", "/q5/r/v2/sets", "*", 200, "{}");
  network.fault({Http_Fault::lose_reply});
  EXPECT_TRUE(Catalog_Operator(-1, 60).commit(set, true));
  EXPECT_EQ(clock.sleeps(), Sleeps{1});
}

TEST_F(Catalog_Operator_Test, A_Refused_Commit_Fails_At_Once) {
  network.fault({Http_Fault::answer, 0, 422, R"({"error":{"code":"invalid","message":"no files"}})"});
  EXPECT_FALSE(Catalog_Operator(-1, 60).commit(Backup_Set(), true));
  EXPECT_TRUE(log.claim(std::string("POST ") + url + "/q5/r/v2/sets: 422 invalid: no files\n")) << log.dump();
}

class Get_Pool_Info : public Client_Fixture {
 protected:
  Pool_Info info;
  bool get(const char* name = nullptr) {
    return get_pool_info("p 1", name, info, true, 0, nullptr, true, nullptr, nullptr, false);
  }
};

TEST_F(Get_Pool_Info, Reads_The_Record) {
  backupd.expect(
      "GET", "/q5/r/v2/pools?uuid=p+1", "", 200,
      R"({"total":1,"rows":[{"uuid":"p 1","name":"n","host_uuid":"h","url":"file:///d","device_exists":true,)"
      R"("multidevice":true,"ext_attrs":{"a":"b","c":1},"node_addrs":["x",2]}]})");
  ASSERT_TRUE(get());
  EXPECT_EQ(info.uuid, "p 1");
  EXPECT_EQ(info.name, "n");
  EXPECT_EQ(info.host_uuid, "h");
  EXPECT_EQ(info.url, "file:///d");
  EXPECT_TRUE(info.device_exists);
  EXPECT_TRUE(info.multidevice);
  EXPECT_EQ(info.ext_attrs, (Ext_Attrs_T{{"a", "b"}}));
  EXPECT_EQ(info.node_addrs, (Node_Addrs_T{"x"}));
}

TEST_F(Get_Pool_Info, A_Pool_Of_The_Server_Lies_Below_Its_Own_Url) {
  backupd.expect("GET", "/q5/r/v2/pools?uuid=p+1&name=n", "", 200,
                 R"({"total":1,"rows":[{"uuid":"p 1","name":"n","url":""}]})");
  ASSERT_TRUE(get("n"));
  EXPECT_EQ(info.url, std::string(url) + "/q5/pools/p 1");
}

TEST_F(Get_Pool_Info, Fails_For_A_Pool_That_Is_Not_There) {
  for (const char* answer : {R"({"total":0,"rows":[]})", "[]", "{}", R"({"rows":7})",
                             R"({"rows":[{"uuid":"other","url":"file:///d"},7]})"}) {
    backupd.expect("GET", "/q5/r/v2/pools?uuid=p+1", "", 200, answer);
    EXPECT_FALSE(get()) << answer;
    EXPECT_TRUE(log.claim("backupd knows no pool p 1; check the target of the job definition\n")) << log.dump();
  }
  EXPECT_EQ(info.url, "");
}

TEST_F(Get_Pool_Info, Fails_When_The_Server_Does_Not_Answer) {
  network.refuse_connections(100);
  EXPECT_FALSE(get());
  EXPECT_EQ(clock.sleeps(), (Sleeps{1, 2, 4, 8, 16}));
  log.claim_all();
}

}  // namespace
