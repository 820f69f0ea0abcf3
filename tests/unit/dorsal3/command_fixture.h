#pragma once

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "dorsal3/command.h"
#include "dorsal3/exit_codes.h"
#include "support/fake_http_transport.h"
#include "support/temp_root.h"
#include "support/virtual_clock.h"
#include "unit/dorsal3/fake_server.h"

inline constexpr const char* resource_uuid = "0d0c1a4e-16f3-4f0a-8d5c-2f9f0a5b7e21";
inline constexpr const char* resources_answer =
    R"({"total":1,"rows":[{"uuid":"0d0c1a4e-16f3-4f0a-8d5c-2f9f0a5b7e21","name":"PRD_HDB00","type":"hana","instances":[)"
    R"({"name":"PRD_HDB00","host_uuid":"h1","extended_attrs":{"sid":"PRD","instance_name":"HDB00",)"
    R"("version":"2.00.059","localhost":"hana01","multi_container":true}}]}]})";
inline constexpr const char* pools_answer = R"({"total":1,"rows":[{"uuid":"p1","name":"main","directory":"/pool"}]})";
inline constexpr const char* databases_answer =
    R"({"databases":[{"name":"SYSTEMDB","active":true},{"name":"TN1","active":true}]})";

/// The command with a server that answers what a test says, on virtual time.
class Command_Fixture : public ::testing::Test {
 protected:
  Command_Fixture() {
    root.write("/etc/opt/tarvex/dorsal3/dorsal3.toml", "server = \"http://127.0.0.1:8443\"\nkey_file = \"/etc/key\"\n");
    root.write("/etc/key", Fake_Server::key, 0600);
    server.answer("GET /resources", resources_answer);
    server.answer("GET /pools", pools_answer);
  }

  int run(const std::vector<std::string>& arguments) {
    out.str("");
    error.str("");
    return dorsal3::run_command(arguments, terminal, "", out, error);
  }

  json_spirit::Object json() {
    json_spirit::Value value;
    EXPECT_TRUE(json_spirit::load_json(out.str(), value)) << out.str();
    return value.is_object() ? value.get_obj() : json_spirit::Object();
  }

  std::string error_code() {
    json_spirit::Object inner;
    std::string code;
    const json_spirit::Object whole = json();
    EXPECT_TRUE(json_spirit::object_get(whole, "error", inner));
    EXPECT_TRUE(json_spirit::object_get(inner, "code", code));
    return code;
  }

  void let_backups_start() {
    server.answer("POST /agents/h1/call", databases_answer);
    server.answer("POST /job-definitions", "{}");
  }

  /// A backup with these arguments starts as run a1. The definition's id follows from the arguments: a first try, which
  /// finds nothing at the start's path, tells it.
  void let_start(const std::vector<std::string>& arguments) {
    let_backups_start();
    EXPECT_EQ(run(arguments), dorsal3::exit_not_found);
    server.answer("POST /job-definitions/" + definition_id() + "/start", R"({"job_act_id":"a1"})");
  }

  /// The path of the start request depends on the definition's id, which the posted definition tells.
  std::string definition_id() {
    json_spirit::Value value;
    std::string id;
    const auto bodies = server.bodies("POST /job-definitions");
    if (!bodies.empty() && json_spirit::load_json(bodies.back(), value))
      (void)json_spirit::object_get(value.get_obj(), "id", id);
    return id;
  }

  dorsal3::Terminal terminal;
  support::Temp_Root root;
  support::Virtual_Clock clock;
  Fake_Server server;
  support::Fake_Http_Transport transport{server};
  std::ostringstream out;
  std::ostringstream error;
};
