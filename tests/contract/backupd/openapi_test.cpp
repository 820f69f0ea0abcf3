#include <gtest/gtest.h>

#include <csignal>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

#include "backupd/server_core.h"
#include "contract/backupd/running_server.h"

namespace {

/// "GET /q5/r/v2/server" with the roles that may ask.
using Operations = std::map<std::string, std::set<std::string>>;

std::string with_braces(std::string pattern) {
  for (char& c : pattern) c = c == '<' ? '{' : c == '>' ? '}' : c;
  const std::size_t dots = pattern.find("...");
  return dots == std::string::npos ? pattern : pattern.erase(dots, 3);
}

Operations operations_of_router() {
  support::Temp_Root root;
  root.make_directory("/var");
  backupd::Database database;
  std::string error;
  EXPECT_TRUE(database.open("/var/test.db", error)) << error;
  const backupd::Server_Core core(database, {"http://localhost", "", "1"});
  Operations operations;
  for (const backupd::Route& route : core.router().routes()) {
    std::set<std::string>& roles = operations[route.method + " " + with_braces(route.pattern)];
    for (const backupd::Role role : {backupd::role_agent, backupd::role_viewer, backupd::role_operator})
      if ((route.roles & role) != 0) roles.insert(backupd::role_name(role));
  }
  return operations;
}

/// Reads the lines that name paths, methods and roles; the file keeps them in one form.
Operations operations_of_description() {
  std::ifstream file(OPENAPI_FILE);
  EXPECT_TRUE(file);
  Operations operations;
  std::string path;
  std::string method;
  for (std::string line; std::getline(file, line);) {
    if (line.starts_with("  \"/")) {
      path = line.substr(3, line.rfind('"') - 3);
    } else if (!path.empty() && line.starts_with("    ") && line[4] != ' ' && line.ends_with(':')) {
      method = line.substr(4, line.size() - 5);
      for (char& c : method) c = static_cast<char>(std::toupper(c));
      operations[method + " " + path];
    } else if (line.starts_with("      x-roles: [")) {
      std::istringstream words(line.substr(line.find('[') + 1));
      for (std::string word; words >> word;)
        operations[method + " " + path].insert(word.substr(0, word.find_first_of(",]")));
    } else if (line.starts_with("components:")) {
      break;
    }
  }
  return operations;
}

TEST(OpenAPI, Describes_Every_Route_And_No_Other) {
  const Operations described = operations_of_description();
  EXPECT_FALSE(described.empty());
  EXPECT_EQ(described, operations_of_router());
}

TEST(OpenAPI, Describes_What_The_Running_Server_Answers) {
  contract::Running_Server server;
  const std::string host = "11111111-1111-4111-8111-111111111111";
  const std::map<std::string, std::string> keys = {{"agent", server.make_key("agent", host)},
                                                   {"viewer", server.make_key("viewer")},
                                                   {"operator", server.make_key("operator")}};
  server.start();
  for (const auto& [operation, roles] : operations_of_description()) {
    const std::string method = operation.substr(0, operation.find(' '));
    std::string target = operation.substr(operation.find(' ') + 1);
    for (std::size_t at = target.find('{'); at != std::string::npos; at = target.find('{'))
      target.replace(at, target.find('}') - at + 1, "x");
    for (const auto& [role, key] : keys) {
      net::Http_Response response;
      ASSERT_TRUE(server.ask(method, target, key, "", response)) << operation << " as " << role;
      EXPECT_EQ(response.status == 403, !roles.contains(role)) << operation << " as " << role << ": " << response.body;
      EXPECT_NE(response.status, 405U) << operation;
      EXPECT_NE(response.status, 500U) << operation << ": " << response.body;
      EXPECT_EQ(response.body.find("there is nothing at this path"), std::string::npos) << operation;
    }
    net::Http_Response response;
    ASSERT_TRUE(server.ask(method, target, "", "", response)) << operation;
    EXPECT_EQ(response.status, 401U) << operation;
  }
  EXPECT_EQ(server.end(SIGTERM), 0);
}

}  // namespace
