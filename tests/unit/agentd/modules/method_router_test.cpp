#include "agentd/modules/method_router.h"

#include <future>
#include <latch>
#include <thread>

#include "agentd/backupd_link/server_link.h"
#include "agentd/modules/handler_call.h"
#include "support/virtual_clock.h"
#include "unit/agentd/modules/module_fixture.h"

using namespace agentd;

namespace {

class Method_Router_Test : public Module_Fixture {
 protected:
  Modules modules;
  Method_Router router{modules};
};

/// Answers as it is told.
class Told_Handler : public JSON_RPC_Handler {
 public:
  using Action = std::function<int(const std::shared_ptr<JSON_RPC_Channel>&, const JSON_RPC_Request&)>;
  explicit Told_Handler(Action action) : action_(std::move(action)) {}
  int handle_object(std::weak_ptr<JSON_RPC_Channel> channel, std::shared_ptr<JSON_RPC_Object> object) override {
    return action_(channel.lock(), dynamic_cast<const JSON_RPC_Request&>(*object));
  }

 private:
  Action action_;
};

JSON_RPC_Message message(const std::string& method, json_spirit::Value params = {}, const char* role = nullptr) {
  JSON_RPC_Message made;
  made.kind = JSON_RPC_Message::request;
  made.id = 1;
  made.method = method;
  made.params = std::move(params);
  if (role != nullptr) made.requester = json_spirit::Object{{"role", role}};
  return made;
}

JSON_RPC_Answer call(Told_Handler::Action action) {
  Told_Handler handler(std::move(action));
  return call_handler(handler, message("hana.instance.list"), std::chrono::seconds(10));
}

json_spirit::Object control(const char* action) {
  return {{"sid", "PRD"}, {"instance_name", "HDB00"}, {"action", action}};
}

/// With the module of the tests loaded.
class Module_Requests_Test : public Method_Router_Test {
 protected:
  Module_Requests_Test() { EXPECT_TRUE(modules.load({"testing"})); }
};

}  // namespace

TEST_F(Method_Router_Test, Finds_The_Method_And_Hands_It_The_Params) {
  router.add("echo", [](const json_spirit::Object& params) {
    JSON_RPC_Answer answer;
    answer.ok = true;
    answer.result = params;
    return answer;
  });
  EXPECT_EQ(json_spirit::dump_json(router.call("echo", json_spirit::Object{{"a", 1}}).result), R"({"a":1})");
  EXPECT_EQ(json_spirit::dump_json(router.call("echo", nullptr).result), "{}");
  EXPECT_EQ(router.call("echo", json_spirit::Array()).code, JSON_RPC_E_INVALID_PARAMS);
}

TEST_F(Method_Router_Test, Unknown_Methods_And_Those_Of_Absent_Handlers_Are_Not_Found) {
  EXPECT_EQ(router.call("nonsense", nullptr).code, JSON_RPC_E_METHOD_NOT_FOUND);
  EXPECT_EQ(router.call("hana.instance.control", nullptr).code, JSON_RPC_E_METHOD_NOT_FOUND);
}

TEST_F(Method_Router_Test, What_Needs_A_Right_Is_Refused_To_Others_Although_It_Is_The_Agents_Own) {
  int asked = 0;
  router.add("staged.remove", [&](const json_spirit::Object&) {
    ++asked;
    return JSON_RPC_Answer{true, 1, 0, {}};
  });
  for (const char* role : {static_cast<const char*>(nullptr), "viewer", "operator"})
    EXPECT_EQ(router.call(message("staged.remove", json_spirit::Object(), role)).code, JSON_RPC_E_INVALID_PARAMS);
  EXPECT_EQ(asked, 0);
  EXPECT_TRUE(router.call(message("staged.remove", json_spirit::Object(), "agent")).ok);
  EXPECT_EQ(asked, 1);
  EXPECT_FALSE(Method_Router::is_for_modules(message("staged.remove")));
}

TEST_F(Method_Router_Test, A_Method_May_Go_By_Who_Asks) {
  std::string asked_by;
  router.add_for_requesters("staged.remove", [&](const json_spirit::Object&, const Requester& by) {
    asked_by = by.host_uuid;
    return JSON_RPC_Answer{true, 1, 0, {}};
  });
  JSON_RPC_Message request = message("staged.remove", json_spirit::Object());
  request.requester = json_spirit::Object{{"role", "agent"}, {"host_uuid", "h-2"}};
  EXPECT_TRUE(router.call(request).ok);
  EXPECT_EQ(asked_by, "h-2");
}

TEST_F(Method_Router_Test, Slow_Requests_And_Questions_Leave_Room_For_Quick_Ones) {
  using Pace = Method_Router::Pace;
  for (const auto& [held, other] : {std::pair{Pace::slow, Pace::asking}, std::pair{Pace::asking, Pace::slow}}) {
    std::latch all_run(Method_Router::slow_at_once);
    std::promise<void> release;
    const std::shared_future<void> released = release.get_future().share();
    const auto good = [](const json_spirit::Object&) { return JSON_RPC_Answer{true, 1, 0, {}}; };
    router.add("quick", good);
    router.add("other", good, other);
    router.add(
        "held",
        [&](const json_spirit::Object& params) {
          all_run.count_down();
          released.wait();
          return good(params);
        },
        held);
    std::vector<std::future<bool>> running;
    for (unsigned i = 0; i < Method_Router::slow_at_once; ++i)
      running.push_back(std::async(std::launch::async, [&] { return router.call("held", nullptr).ok; }));
    all_run.wait();
    const JSON_RPC_Answer refused = router.call("held", nullptr);
    EXPECT_EQ(refused.code, JSON_RPC_E_SERVER);
    EXPECT_NE(refused.message.find("busy with 4 long requests"), std::string::npos) << refused.message;
    EXPECT_TRUE(router.call("quick", nullptr).ok);
    EXPECT_TRUE(router.call("other", nullptr).ok) << "they have places of their own";
    release.set_value();
    for (std::future<bool>& one : running) EXPECT_TRUE(one.get());
    router.add("held", good, held);
    EXPECT_TRUE(router.call("held", nullptr).ok) << "the places are free again";
  }
  static_assert(2 * Method_Router::slow_at_once < Server_Link::workers);
}

TEST_F(Method_Router_Test, An_Exception_Becomes_An_Internal_Error) {
  router.add("bad", [](const json_spirit::Object& params) -> JSON_RPC_Answer {
    (void)json_spirit::object_require<std::string>(params, "x");
    return {};
  });
  EXPECT_EQ(router.call("bad", nullptr).code, JSON_RPC_E_INTERNAL);
  EXPECT_EQ(log.claim_containing("Failed to answer bad"), 1U);
}

TEST(Handler_Call, Passes_On_What_The_Handler_Sends) {
  const JSON_RPC_Answer answer = call([](const auto& channel, const JSON_RPC_Request& request) {
    auto response = std::make_shared<JSON_RPC_Response>(request);
    response->result = request.method();
    return channel->send(response);
  });
  ASSERT_TRUE(answer.ok) << answer.message;
  EXPECT_EQ(answer.result.get_str(), "hana.instance.list");
}

TEST(Handler_Call, Waits_For_An_Answer_From_Another_Thread) {
  std::thread worker;
  const JSON_RPC_Answer answer = call([&worker](const auto& channel, const JSON_RPC_Request& request) {
    worker = std::thread([channel, id = request.id()] { channel->send_error(-32602, id, "Invalid params"); });
    return 0;
  });
  worker.join();
  EXPECT_EQ(answer.code, -32602);
  EXPECT_EQ(answer.message, "Invalid params");
}

TEST(Handler_Call, Keeps_The_First_Answer_And_The_Data_Of_An_Error) {
  const JSON_RPC_Answer answer = call([](const auto& channel, const JSON_RPC_Request& request) {
    EXPECT_EQ(channel->send_error(-32603, request.id(), "first", json_spirit::Object{{"a", 1}}), 0);
    EXPECT_EQ(channel->send(std::make_shared<JSON_RPC_Response>(request)), -1);
    return 0;
  });
  EXPECT_EQ(answer.message, "first");
  EXPECT_EQ(json_spirit::dump_json(answer.result), R"({"a":1})");
}

TEST(Handler_Call, Answers_At_Once_For_A_Handler_That_Lets_The_Request_Go) {
  support::Virtual_Clock clock;
  for (const int result : {-1, 0}) {
    const JSON_RPC_Answer answer = call([result](const auto&, const auto&) { return result; });
    EXPECT_EQ(answer.code, JSON_RPC_E_INTERNAL);
    EXPECT_EQ(answer.message,
              "the module gave no answer to hana.instance.list; is the instance known on this host? Run discover");
  }
  EXPECT_TRUE(clock.sleeps().empty());
}

/// Keeps what it is handed and never answers.
class Hoarder : public JSON_RPC_Handler {
 public:
  int handle_object(std::weak_ptr<JSON_RPC_Channel>, std::shared_ptr<JSON_RPC_Object> object) override {
    kept = std::move(object);
    return 0;
  }
  std::shared_ptr<JSON_RPC_Object> kept;
};

TEST(Handler_Call, A_Handler_That_Keeps_The_Request_Is_Given_Up) {
  support::Virtual_Clock clock;
  Hoarder handler;
  EXPECT_EQ(call_handler(handler, message("m"), std::chrono::seconds(10)).code, JSON_RPC_E_TIMEOUT);
}

TEST(Handler_Call, A_Notification_Stays_One_And_Its_Answer_Is_Dropped) {
  Told_Handler handler([](const auto& channel, const JSON_RPC_Request& request) {
    EXPECT_EQ(request.kind(), JSON_RPC_Object::KIND_NOTIFICATION);
    EXPECT_EQ(channel->send(std::make_shared<JSON_RPC_Response>(request)), 0);
    EXPECT_EQ(channel->send_error(-32603, request.id(), "no"), 0);
    return 0;
  });
  JSON_RPC_Message notification = message("m");
  notification.kind = JSON_RPC_Message::notification;
  notification.id = nullptr;
  EXPECT_FALSE(call_handler(handler, notification, std::chrono::seconds(10)).ok);
}

TEST_F(Module_Requests_Test, Reach_The_Handler_That_Serves_The_Method) {
  const JSON_RPC_Answer list =
      router.call(message("hana.database.list", json_spirit::Object{{"instance", "I"}}, "viewer"));
  ASSERT_TRUE(list.ok) << list.message;
  EXPECT_EQ(list.result.get_obj().find("instance")->get_str(), "I");
  const JSON_RPC_Answer state = router.call(message("hana.instance.control", control("state"), "agent"));
  EXPECT_EQ(json_spirit::dump_json(state.result), R"({"action":"state"})");
  EXPECT_EQ(router.call(message("hana.file.download", json_spirit::Object(), "agent")).code,
            JSON_RPC_E_METHOD_NOT_FOUND)
      << "the module of the tests has no such handler";
  for (const char* old : {"hana.list.instances", "hana.list.databases", "database.list"})
    EXPECT_EQ(router.call(message(old, nullptr, "operator")).code, JSON_RPC_E_METHOD_NOT_FOUND) << old;
}

TEST_F(Module_Requests_Test, Are_Refused_To_Who_May_Not_Ask) {
  const struct {
    const char* method;
    json_spirit::Value params;
    const char* role;
  } rows[] = {{"hana.instance.control", control("stop"), "viewer"},
              {"hana.instance.control", control("start"), "viewer"},
              {"hana.instance.control", control("State"), "viewer"},
              {"hana.instance.control", nullptr, "viewer"},
              {"hana.instance.control", control("state"), nullptr},
              {"hana.instance.control", control("state"), "root"},
              {"hana.database.create", control("state"), "viewer"},
              {"hana.database.create", control("state"), "agent"},
              {"hana.database.create", control("state"), nullptr},
              {"hana.database.list", json_spirit::Object{{"instance", "I"}}, nullptr}};
  for (const auto& row : rows) {
    const JSON_RPC_Answer answer = router.call(message(row.method, row.params, row.role));
    EXPECT_EQ(answer.code, JSON_RPC_E_INVALID_PARAMS) << row.method;
    EXPECT_EQ(answer.message, std::string("this requester may not ask for ") + row.method);
  }
  EXPECT_TRUE(log.has("Refused hana.instance.control to a requester who may not ask for it\n"));
}

TEST_F(Module_Requests_Test, Are_Seen_By_Who_Watches_Unless_They_Are_Refused) {
  std::string seen;
  router.watch("hana.instance.control", [&](const json_spirit::Object& params, const Requester& by) {
    seen += json_spirit::dump_json(params) + (by.role == Requester::agent ? " agent" : " other");
  });
  EXPECT_FALSE(router.call(message("hana.instance.control", control("stop"), "viewer")).ok);
  EXPECT_EQ(log.claim_containing("Refused hana.instance.control", LM_WARNING), 1U);
  EXPECT_EQ(seen, "");
  EXPECT_TRUE(router.call(message("hana.instance.control", control("state"), "agent")).ok);
  EXPECT_EQ(seen, json_spirit::dump_json(control("state")) + " agent");
}

TEST_F(Module_Requests_Test, Actions_Leave_Room_For_States_And_Lists) {
  std::vector<std::future<bool>> running;
  for (unsigned i = 0; i < Method_Router::slow_at_once; ++i)
    running.push_back(std::async(std::launch::async, [&] {
      // One that meets the question below finds no room for a moment.
      while (!router.call(message("hana.instance.control", control("restart"), "operator")).ok)
        std::this_thread::yield();
      return true;
    }));
  // A further action is refused once all of them are at work; asking for one that ends at once does no harm.
  while (router.call(message("hana.instance.control", control("stop"), "operator")).ok) std::this_thread::yield();
  EXPECT_TRUE(router.call(message("hana.instance.control", control("state"), "viewer")).ok);
  EXPECT_TRUE(router.call(message("hana.database.list", json_spirit::Object{{"instance", "I"}}, "viewer")).ok);
  const auto good = [](const json_spirit::Object&) { return JSON_RPC_Answer{true, 1, 0, {}}; };
  router.add("own", good, Method_Router::Pace::slow);
  EXPECT_TRUE(router.call("own", nullptr).ok) << "the agent's own slow requests have places of their own";
  ASSERT_EQ(call_module("test_module_release_stop"), 1);
  for (std::future<bool>& one : running) EXPECT_TRUE(one.get());
  static_assert(Method_Router::slow_at_once < Method_Router::module_workers);
}

TEST_F(Module_Requests_Test, Have_Workers_Of_Their_Own) {
  for (const char* method : {"hana.instance.list", "hana.database.list", "hana.instance.control",
                             "hana.database.create", "hana.file.download"})
    EXPECT_TRUE(Method_Router::is_for_modules(message(method))) << method;
  for (const char* method : {"job.start", "instance.probe", "hana", ""})
    EXPECT_FALSE(Method_Router::is_for_modules(message(method))) << method;
}
