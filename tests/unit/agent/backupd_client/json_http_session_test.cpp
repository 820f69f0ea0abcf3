#include "agent/backupd_client/json_http_session.h"

#include "unit/agent/backupd_client/client_fixture.h"

namespace {

using json_spirit::Object;
using json_spirit::Value;
using support::Http_Fault;
using Sleeps = std::vector<double>;

class Json_Http_Session : public Client_Fixture {
 protected:
  JSON_HTTP_Session session{make_session()};
  Value reply;
  JSON_HTTP_Failure failure;
};

TEST_F(Json_Http_Session, Defaults_Are_Five_Retries_Within_300_Seconds) {
  EXPECT_EQ(session.retries(), 5);
  EXPECT_EQ(session.retry_timeout(), 300);
}

TEST_F(Json_Http_Session, Sends_Each_Method_With_Key_And_Body) {
  backupd.expect("GET", "/g", "", 200, R"({"m":1})");
  backupd.expect("POST", "/p", R"({"a":null})", 201, R"({"m":2})");
  backupd.expect("PUT", "/u", "[]", 200, R"({"m":3})");
  backupd.expect("PATCH", "/c", R"({"a":1})", 200, R"({"m":4})");
  backupd.expect("DELETE", "/d", "", 204, "");
  ASSERT_TRUE(session.get("/g", reply));
  EXPECT_EQ(reply, Value(Object{{"m", 1}}));
  ASSERT_TRUE(session.post("/p", Object{{"a", nullptr}}, reply));
  EXPECT_EQ(reply, Value(Object{{"m", 2}}));
  ASSERT_TRUE(session.put("/u", json_spirit::Array{}, reply));
  ASSERT_TRUE(session.patch("/c", Object{{"a", 1}}, reply));
  EXPECT_EQ(reply, Value(Object{{"m", 4}}));
  ASSERT_TRUE(session.del("/d", reply));
  EXPECT_TRUE(reply.is_null());
  for (const support::Seen_Request& request : network.requests()) {
    ASSERT_NE(request.headers.find("Authorization"), nullptr);
    EXPECT_EQ(*request.headers.find("Authorization"), "Bearer k1");
  }
  EXPECT_EQ(network.connections().size(), 1U);
}

TEST_F(Json_Http_Session, Is_False_Until_It_Has_A_Session) {
  JSON_HTTP_Session empty;
  EXPECT_FALSE(empty);
  EXPECT_FALSE(empty.get("/g", reply));
  EXPECT_TRUE(log.claim("GET /g: there is no session to backupd\n")) << log.dump();
  empty.reset(make_session());
  EXPECT_TRUE(empty);
  empty.reset();
  EXPECT_FALSE(empty);
}

TEST_F(Json_Http_Session, Retries_With_Growing_Pauses_And_Gives_Up) {
  network.fault({Http_Fault::answer, 0, 503, R"({"error":{"code":"unavailable","message":"starting"}})"}, 6);
  EXPECT_FALSE(session.get("/g", reply));
  EXPECT_EQ(clock.sleeps(), (Sleeps{1, 2, 4, 8, 16}));
  EXPECT_EQ(network.requests().size(), 6U);
  EXPECT_TRUE(log.claim(std::string("GET ") + url + "/g: 503 unavailable: starting\n")) << log.dump();
  EXPECT_TRUE(
      log.claim(std::string("GET ") + url + "/g: 503 unavailable: starting; trying again in 16 s\n", LM_WARNING));
}

TEST_F(Json_Http_Session, What_Is_Tried_Again_And_What_Is_Final) {
  struct Row {
    Http_Fault fault;
    unsigned attempts;
    unsigned status;
  };
  for (const Row& row : {Row{{Http_Fault::lose_request}, 2, 0}, Row{{Http_Fault::lose_reply}, 2, 0},
                         Row{{Http_Fault::cut_reply, 3}, 2, 0}, Row{{Http_Fault::answer, 0, 500}, 2, 500},
                         Row{{Http_Fault::answer, 0, 503}, 2, 503}, Row{{Http_Fault::answer, 0, 507}, 2, 507},
                         Row{{Http_Fault::answer, 0, 400}, 1, 400}, Row{{Http_Fault::answer, 0, 401}, 1, 401},
                         Row{{Http_Fault::answer, 0, 404}, 1, 404}, Row{{Http_Fault::answer, 0, 409}, 1, 409},
                         Row{{Http_Fault::answer, 0, 429}, 1, 429}, Row{{Http_Fault::answer, 0, 301}, 1, 301}}) {
    SCOPED_TRACE(testing::Message() << row.fault.kind << " " << row.fault.status);
    const JSON_HTTP_Session twice(make_session(), 1);
    network.fault(row.fault, row.attempts);
    if (row.fault.kind == Http_Fault::lose_reply || row.fault.kind == Http_Fault::cut_reply) {
      backupd.expect("POST", "/p", "{}", 200, "{\"long\":1}");
      backupd.expect("POST", "/p", "{}", 200, "{\"long\":1}");
    }
    EXPECT_FALSE(twice.post("/p", Object{}, reply, &failure));
    EXPECT_EQ(failure.attempts, row.attempts);
    EXPECT_EQ(failure.status, row.status);
    EXPECT_TRUE(reply.is_null());
  }
}

TEST_F(Json_Http_Session, Succeeds_Once_The_Server_Is_Back) {
  network.refuse_connections(2);
  backupd.expect("GET", "/g", "", 200, "{}");
  EXPECT_TRUE(session.get("/g", reply, &failure));
  EXPECT_EQ(clock.sleeps(), (Sleeps{1, 2}));
}

TEST_F(Json_Http_Session, Never_Tries_Later_Than_The_Retry_Timeout) {
  struct Row {
    int retries;
    int timeout;
    Sleeps sleeps;
  };
  for (const Row& row :
       {Row{10, 10, {1, 2, 4}}, Row{10, 8, {1, 2, 4}}, Row{10, 7, {1, 2}}, Row{10, 0, {}}, Row{0, 300, {}},
        Row{-1, 300, {}}, Row{3, 300, {1, 2, 4}}, Row{9, -1, {1, 2, 4, 8, 16, 32, 64, 64, 64}}}) {
    SCOPED_TRACE(testing::Message() << row.retries << " " << row.timeout);
    clock.forget_sleeps();
    network.refuse_connections(100);
    EXPECT_FALSE(JSON_HTTP_Session(make_session(), row.retries, row.timeout).get("/g", reply, &failure));
    EXPECT_EQ(clock.sleeps(), row.sleeps);
    EXPECT_EQ(failure.attempts, row.sleeps.size() + 1);
  }
}

TEST_F(Json_Http_Session, A_Server_Error_Can_Be_Final) {
  network.fault({Http_Fault::answer, 0, 503, ""}, 1);
  const JSON_HTTP_Session impatient(make_session(), 5, 300, JSON_HTTP_Session::FLAG_NO_STATUS_RETRY);
  EXPECT_FALSE(impatient.get("/g", reply, &failure));
  EXPECT_EQ(failure.attempts, 1U);
}

TEST_F(Json_Http_Session, Tells_What_The_Server_Said) {
  struct Row {
    const char* body;
    const char* code;
    const char* why;
  };
  for (const Row& row :
       {Row{R"({"error":{"code":"conflict","message":"set twice"}})", "conflict", "409 conflict: set twice"},
        Row{R"({"error":{"message":"set twice"}})", "", "409: set twice"}, Row{"", "", "409"},
        Row{"plain\nlines", "", "409: plain"}, Row{R"({"error":7})", "", R"(409: {"error":7})"}}) {
    network.fault({Http_Fault::answer, 0, 409, row.body});
    EXPECT_FALSE(session.get("/g?a=b", reply, &failure));
    EXPECT_EQ(failure.code, row.code);
    EXPECT_EQ(failure.message, std::string("GET ") + url + "/g?a=b: " + row.why);
  }
}

TEST_F(Json_Http_Session, An_Answer_That_Is_No_Json_Is_Final) {
  backupd.expect("GET", "/g", "", 200, "<html>");
  EXPECT_FALSE(session.get("/g", reply, &failure));
  EXPECT_EQ(failure.status, 200U);
  EXPECT_EQ(failure.attempts, 1U);
  EXPECT_NE(failure.message.find("the answer is not JSON"), std::string::npos) << failure.message;
}

TEST_F(Json_Http_Session, A_Stale_Connection_Costs_No_Attempt) {
  backupd.expect("GET", "/g", "", 200, "{}");
  backupd.expect("GET", "/g", "", 200, "{}");
  ASSERT_TRUE(session.get("/g", reply));
  network.close_kept_connections();
  ASSERT_TRUE(session.get("/g", reply));
  EXPECT_EQ(clock.sleeps(), Sleeps{});
  EXPECT_EQ(network.connections().size(), 2U);
}

TEST_F(Json_Http_Session, A_Post_Over_A_Stale_Connection_Counts_As_An_Attempt) {
  backupd.expect("GET", "/g", "", 200, "{}");
  backupd.expect("POST", "/p", "{}", 200, "{}");
  ASSERT_TRUE(session.get("/g", reply));
  network.close_kept_connections();
  ASSERT_TRUE(session.post("/p", Object{}, reply));
  EXPECT_EQ(clock.sleeps(), Sleeps{1});
}

TEST_F(Json_Http_Session, A_Connection_Quiet_For_Half_A_Minute_Is_Not_Used_Again) {
  backupd.expect("GET", "/g", "", 200, "{}");
  backupd.expect("POST", "/p", "{}", 200, "{}");
  ASSERT_TRUE(session.get("/g", reply));
  clock.advance(std::chrono::seconds(30));
  ASSERT_TRUE(session.post("/p", Object{}, reply));
  EXPECT_EQ(network.connections().size(), 2U);
}

TEST_F(Json_Http_Session, The_Key_Is_Never_Logged) {
  network.refuse_connections(10);
  EXPECT_FALSE(session.get("/g", reply));
  EXPECT_FALSE(log.has_containing("k1")) << log.dump();
  log.claim_all();
}

}  // namespace
