#include "records/request_rights.h"

#include <gtest/gtest.h>

namespace {

json_spirit::Value action(const char* name) { return json_spirit::Object{{"action", name}}; }

}  // namespace

TEST(Request_Rights, Tell_Who_May_Ask_What) {
  const struct {
    const char* method;
    json_spirit::Value params;
    bool viewer;
    bool oper;
    bool agent;
    bool control;
  } rows[] = {{"hana.instance.list", nullptr, true, true, true, false},
              {"hana.database.list", json_spirit::Object(), true, true, true, false},
              {"hana.instance.control", action("state"), true, true, true, false},
              {"hana.instance.control", action("start"), false, true, true, true},
              {"hana.instance.control", action("stop"), false, true, true, true},
              {"hana.instance.control", action("restart"), false, true, true, true},
              // What the module will refuse counts as an action until then.
              {"hana.instance.control", action("State"), false, true, true, true},
              {"hana.instance.control", action(""), false, true, true, true},
              {"hana.instance.control", json_spirit::Object(), false, true, true, true},
              {"hana.instance.control", json_spirit::Array{"state"}, false, true, true, true},
              {"hana.database.create", json_spirit::Object{{"database", "QA1"}}, false, true, false, true},
              {"hana.database.create", nullptr, false, true, false, true},
              {"hana.file.download", json_spirit::Object(), false, false, true, true},
              {"job.start", nullptr, false, false, false, false},
              {"hana.other", nullptr, false, false, false, false},
              {"", nullptr, false, false, false, false}};
  for (const auto& row : rows) {
    const std::string name = row.method + json_spirit::dump_json(row.params);
    EXPECT_EQ(may_ask(Requester::viewer, row.method, row.params), row.viewer) << name;
    EXPECT_EQ(may_ask(Requester::oper, row.method, row.params), row.oper) << name;
    EXPECT_EQ(may_ask(Requester::agent, row.method, row.params), row.agent) << name;
    EXPECT_FALSE(may_ask(Requester::nobody, row.method, row.params)) << name;
    EXPECT_EQ(is_control_action(row.method, row.params), row.control) << name;
    EXPECT_EQ(is_module_method(row.method), row.agent || row.oper) << name;
  }
}

TEST(Request_Rights, Let_Agents_Alone_Have_Staged_Files_Removed) {
  const char* const method = "staged.remove";
  EXPECT_TRUE(needs_right(method));
  EXPECT_TRUE(may_ask(Requester::agent, method, nullptr));
  for (const Requester::Role role : {Requester::nobody, Requester::viewer, Requester::oper})
    EXPECT_FALSE(may_ask(role, method, nullptr)) << role;
  EXPECT_TRUE(is_control_action(method, nullptr)) << "it is written down";
  EXPECT_FALSE(is_module_method(method));
  EXPECT_FALSE(needs_right("job.start"));
}

TEST(Requester, Is_Read_Back_As_Written) {
  for (const Requester::Role role : {Requester::viewer, Requester::oper, Requester::agent}) {
    const Requester read = Requester::from_json(Requester{role, "h"}.to_json());
    EXPECT_EQ(read.role, role);
    EXPECT_EQ(read.host_uuid, "h");
  }
  EXPECT_EQ(json_spirit::dump_json(Requester{Requester::oper, ""}.to_json()), R"({"role":"operator"})");
}

TEST(Requester, Is_Nobody_Unless_A_Role_Is_Named) {
  for (const char* text : {"null", "[]", "{}", R"({"role":""})", R"({"role":"Operator"})", R"({"role":1})"}) {
    json_spirit::Value value;
    ASSERT_TRUE(json_spirit::load_json(text, value));
    EXPECT_EQ(Requester::from_json(value).role, Requester::nobody) << text;
  }
}
