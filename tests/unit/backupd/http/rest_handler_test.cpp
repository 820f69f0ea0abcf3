#include "unit/backupd/memory_server.h"

using namespace backupd_test;

namespace {

TEST(Rest_Handler, Refuses_A_Request_Without_A_Good_Key) {
  Memory_Server server;
  for (const std::string& key : {std::string(), std::string("nonsense"), server.agent_key + "x"}) {
    const Answer answer = server.raw("GET", "/q5/r/v2/server", "", key);
    EXPECT_EQ(answer.status, 401U) << key;
    EXPECT_EQ(answer.error_code(), "unauthorized");
  }
  EXPECT_EQ(server.raw("GET", "/q5/r/v2/server", "", server.viewer_key).text_of("product"), "Dorsal3");
}

TEST(Rest_Handler, Refuses_A_Revoked_Key_At_Once) {
  Memory_Server server;
  ASSERT_EQ(server.request("GET", "/server", "", server.viewer_key).status, 200U);
  bool failed = false;
  const auto identity = server.core->keys.find(server.viewer_key, failed);
  ASSERT_TRUE(identity);
  ASSERT_TRUE(server.core->keys.revoke(identity->key_id).ok());
  EXPECT_EQ(server.request("GET", "/server", "", server.viewer_key).status, 401U);
  EXPECT_EQ(server.core->keys.revoke(identity->key_id).kind, backupd::Outcome::not_found);
}

TEST(Rest_Handler, Keeps_Only_The_Hash_Of_A_Key) {
  Memory_Server server;
  const std::string stored = server.root.read("/var/backupd.db") + server.root.read("/var/backupd.db-wal");
  EXPECT_NE(stored.find(backupd::key_hash(server.agent_key)), std::string::npos);
  EXPECT_EQ(stored.find(server.agent_key), std::string::npos);
  EXPECT_FALSE(server.log.has_containing(server.agent_key));
}

struct Bad_Request {
  const char* name;
  const char* method;
  const char* path;
  std::string body;
  unsigned status;
  const char* code;
};

std::string nested(std::size_t depth) {
  return R"({"name":)" + std::string(depth, '[') + std::string(depth, ']') + "}";
}

TEST(Rest_Handler, Refuses_What_It_Cannot_Understand) {
  Memory_Server server;
  const std::vector<Bad_Request> rows = {
      {"no such path", "GET", "/nowhere", "", 404, "not_found"},
      {"a longer path", "GET", "/server/x", "", 404, "not_found"},
      {"another method", "PUT", "/pools", "{}", 405, "method_not_allowed"},
      {"an unknown parameter", "GET", "/pools?nmae=x", "", 400, "bad_request"},
      {"a parameter twice", "GET", "/pools?name=x&name=y", "", 400, "bad_request"},
      {"a broken percent sequence", "GET", "/pools?name=%zz", "", 400, "bad_request"},
      {"an empty id", "GET", "/resources?uuid=", "", 400, "bad_request"},
      {"an empty id of another thing", "GET", "/backint/jobs?host_uuid=", "", 400, "bad_request"},
      {"a limit that is no number", "GET", "/pools?limit=ten", "", 400, "bad_request"},
      {"a limit too large", "GET", "/pools?limit=100000", "", 400, "bad_request"},
      {"an order that is none", "GET", "/pools?order=up", "", 400, "bad_request"},
      {"an unknown sort", "GET", "/pools?sort=1;drop", "", 400, "bad_request"},
      {"no JSON", "POST", "/pools", "{", 400, "bad_request"},
      {"an array", "POST", "/pools", "[]", 400, "bad_request"},
      {"10,000 levels", "POST", "/pools", nested(10000), 400, "bad_request"},
      {"an unknown key", "POST", "/pools", R"({"name":"a","directory":"/p","color":1})", 400, "bad_request"},
      {"a wrong type", "POST", "/pools", R"({"name":7,"directory":"/p"})", 400, "bad_request"},
      {"a missing key", "POST", "/pools", R"({"directory":"/p"})", 400, "bad_request"},
      {"a null byte", "POST", "/pools", "{\"name\":\"a\\u0000b\",\"directory\":\"/p\"}", 400, "bad_request"},
      {"a negative number", "POST", "/pools", R"({"name":"a","directory":"/p","max_bytes":-1})", 400, "bad_request"},
      {"a number too large", "POST", "/pools", R"({"name":"a","directory":"/p","max_bytes":18446744073709551615})", 400,
       "bad_request"},
      {"neither url nor directory", "POST", "/pools", R"({"name":"a"})", 422, "invalid"},
      {"a relative directory", "POST", "/pools", R"({"name":"a","directory":"p"})", 422, "invalid"},
      {"a directory that climbs", "POST", "/pools", R"({"name":"a","directory":"/p/../q"})", 422, "invalid"},
      {"another scheme", "POST", "/pools", R"({"name":"a","url":"ftp://x/y"})", 422, "invalid"},
  };
  for (const Bad_Request& row : rows) {
    const Answer answer = server.request(row.method, row.path, row.body);
    EXPECT_EQ(answer.status, row.status) << row.name << ": " << answer.text;
    EXPECT_EQ(answer.error_code(), row.code) << row.name;
    EXPECT_FALSE(answer.error_message().empty()) << row.name;
  }
  EXPECT_EQ(server.request("GET", "/pools").number_of("total"), 0);
}

TEST(Rest_Handler, Refuses_A_Body_Above_The_Limit) {
  Memory_Server server;
  const std::string body = R"({"name":")" + std::string(net::http_body_limit_bytes, 'x') + "\"}";
  const Answer answer = server.request("POST", "/pools", body);
  EXPECT_EQ(answer.status, 413U);
  EXPECT_EQ(answer.error_code(), "too_large");
}

/// What each role may do, as docs/backupd-api.md says it.
TEST(Rest_Handler, Lets_Each_Role_Do_What_The_Table_Says_And_Nothing_Else) {
  Memory_Server server;
  const std::vector<std::pair<backupd::Role, std::string>> roles = {{backupd::role_agent, server.agent_key},
                                                                    {backupd::role_viewer, server.viewer_key},
                                                                    {backupd::role_operator, server.operator_key}};
  for (const backupd::Route& route : server.core->router().routes()) {
    std::string path = route.pattern;
    for (std::size_t at = path.find('<'); at != std::string::npos; at = path.find('<'))
      path.replace(at, path.find('>', at) - at + 1, uuid_of(1));
    for (const auto& [role, key] : roles) {
      const Answer answer = server.raw(route.method, path, "", key);
      const bool allowed = (route.roles & role) != 0;
      EXPECT_EQ(answer.status == 403, !allowed) << route.method << " " << path << " as " << backupd::role_name(role);
      EXPECT_NE(answer.status, 500U) << route.method << " " << path;
    }
  }
}

TEST(Rest_Handler, Lets_A_Viewer_Change_Nothing) {
  Memory_Server server;
  for (const backupd::Route& route : server.core->router().routes()) {
    // What a viewer may ask of an agent is the gate's to say: see agent_gate_test.cpp.
    const bool question = route.method == "GET" || route.pattern == "/q5/r/v2/catalog/<module>/<view>" ||
                          route.pattern == "/q5/r/v2/restore/plan" ||
                          route.pattern == "/q5/r/v2/agents/<host uuid>/call";
    if (!question) {
      EXPECT_EQ(route.roles & backupd::role_viewer, 0U) << route.method << " " << route.pattern;
    }
  }
}

TEST(Rest_Handler, Opens_WebSockets_For_Agents_Only) {
  Memory_Server server;
  struct Row {
    const char* target;
    std::string key;
    unsigned status;
  };
  for (const Row& row :
       {Row{"/q5/rpc", server.operator_key, 403}, Row{"/q5/rpc", "x", 401}, Row{"/q5/other", server.agent_key, 404}}) {
    unsigned status = 0;
    net::Http_Headers headers;
    headers.set("Authorization", "Bearer " + row.key);
    EXPECT_FALSE(server.core->handler().accept_web_socket(row.target, headers, status)) << row.target;
    EXPECT_EQ(status, row.status);
  }
}

}  // namespace
