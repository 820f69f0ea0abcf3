#include "agent/api/json_rpc_thread_handler.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <future>
#include <latch>
#include <set>
#include <stdexcept>

#include "support/log_capture.h"

namespace {

class Channel : public JSON_RPC_Channel {
 public:
  int close() override { return 0; }
  int send(std::shared_ptr<JSON_RPC_Object>) override { return 0; }
  int send_error(int code, const json_spirit::Value& id, const std::string&, const json_spirit::Value&) override {
    refused = code;
    refused_id = id;
    return 0;
  }
  int refused = 0;
  json_spirit::Value refused_id;
};

class Handler : public JSON_RPC_Thread_Handler {
 public:
  using Action = std::function<void(const std::shared_ptr<JSON_RPC_Channel>&, const JSON_RPC_Object&)>;
  explicit Handler(Action action) : action_(std::move(action)) {}
  ~Handler() override { end_work(); }
  using JSON_RPC_Thread_Handler::end_work;

 protected:
  int handle_object_i(std::shared_ptr<JSON_RPC_Channel> channel, std::shared_ptr<JSON_RPC_Object> object) override {
    action_(channel, *object);
    return 0;
  }

 private:
  Action action_;
};

std::shared_ptr<JSON_RPC_Object> request(int id) { return std::make_shared<JSON_RPC_Request>(id, "m", nullptr); }

}  // namespace

TEST(JSON_RPC_Thread_Handler, Runs_A_Request_On_Another_Thread) {
  std::promise<std::thread::id> ran;
  const auto channel = std::make_shared<Channel>();
  Handler handler([&](const auto& requester, const JSON_RPC_Object& object) {
    EXPECT_EQ(requester, channel);
    EXPECT_EQ(object.id().get_int(), 5);
    ran.set_value(std::this_thread::get_id());
  });
  EXPECT_EQ(handler.handle_object(channel, request(5)), 0);
  EXPECT_NE(ran.get_future().get(), std::this_thread::get_id());
}

TEST(JSON_RPC_Thread_Handler, Gives_No_Channel_When_The_Requester_Has_Gone) {
  std::promise<bool> gone;
  Handler handler([&](const auto& requester, const JSON_RPC_Object&) { gone.set_value(requester == nullptr); });
  EXPECT_EQ(handler.handle_object(std::make_shared<Channel>(), request(1)), 0);
  EXPECT_TRUE(gone.get_future().get());
}

TEST(JSON_RPC_Thread_Handler, Runs_A_Few_At_Once_And_The_Others_In_Turn) {
  constexpr int count = 100;
  std::atomic<std::size_t> running{0};
  std::atomic<std::size_t> most{0};
  std::promise<void> all_at_work;
  std::promise<void> release;
  const std::shared_future<void> released = release.get_future().share();
  std::promise<void> done;
  std::atomic<int> left{count};
  Handler handler([&](const auto&, const JSON_RPC_Object&) {
    const std::size_t now = ++running;
    std::size_t before = most;
    while (now > before && !most.compare_exchange_weak(before, now)) {
    }
    if (now == JSON_RPC_Thread_Handler::threads_at_most && before < now) all_at_work.set_value();
    released.wait();
    --running;
    if (--left == 0) done.set_value();
  });
  const auto channel = std::make_shared<Channel>();
  for (int i = 0; i < count; ++i) EXPECT_EQ(handler.handle_object(channel, request(i)), 0);
  all_at_work.get_future().wait();
  release.set_value();
  done.get_future().wait();
  EXPECT_EQ(most, JSON_RPC_Thread_Handler::threads_at_most);
}

TEST(JSON_RPC_Thread_Handler, Refuses_What_Is_Too_Much) {
  std::promise<void> release;
  const std::shared_future<void> released = release.get_future().share();
  Handler handler([&](const auto&, const JSON_RPC_Object&) { released.wait(); });
  const auto channel = std::make_shared<Channel>();
  int id = 0;
  while (channel->refused == 0 && id < 2000) EXPECT_EQ(handler.handle_object(channel, request(++id)), 0);
  EXPECT_EQ(channel->refused, -32000);
  EXPECT_EQ(channel->refused_id.get_int(), id);
  EXPECT_GT(static_cast<std::size_t>(id), JSON_RPC_Thread_Handler::waiting_at_most);
  release.set_value();
}

TEST(JSON_RPC_Thread_Handler, Lets_The_Object_Go_When_It_Has_Been_Handled) {
  support::Log_Capture log;
  std::promise<void> let_go;
  Handler handler([](const auto&, const JSON_RPC_Object&) { throw std::runtime_error("on purpose"); });
  std::shared_ptr<JSON_RPC_Object> object(new JSON_RPC_Request(1, "m", nullptr), [&](JSON_RPC_Object* freed) {
    delete freed;
    let_go.set_value();
  });
  EXPECT_EQ(handler.handle_object(std::make_shared<Channel>(), std::move(object)), 0);
  let_go.get_future().wait();
  EXPECT_TRUE(log.claim("A JSON-RPC request failed, on purpose\n"));
}

TEST(JSON_RPC_Thread_Handler, Takes_Nothing_After_Its_End) {
  std::atomic<int> ran{0};
  Handler handler([&](const auto&, const JSON_RPC_Object&) { ++ran; });
  handler.end_work();
  handler.end_work();
  EXPECT_EQ(handler.handle_object(std::make_shared<Channel>(), request(1)), -1);
  EXPECT_EQ(ran, 0);
}

TEST(JSON_RPC_Thread_Handler, Its_End_Waits_For_What_Runs_And_Drops_What_Waits) {
  std::atomic<int> ran{0};
  std::latch all_run(JSON_RPC_Thread_Handler::threads_at_most);
  std::promise<void> release;
  const std::shared_future<void> released = release.get_future().share();
  Handler handler([&](const auto&, const JSON_RPC_Object&) {
    all_run.count_down();
    released.wait();
    ++ran;
  });
  const auto channel = std::make_shared<Channel>();
  for (std::size_t i = 0; i < JSON_RPC_Thread_Handler::threads_at_most; ++i)
    EXPECT_EQ(handler.handle_object(channel, request(static_cast<int>(i))), 0);
  all_run.wait();
  const auto waiting = request(99);
  EXPECT_EQ(handler.handle_object(channel, waiting), 0);
  std::future<void> ended = std::async(std::launch::async, [&] { handler.end_work(); });
  while (handler.handle_object(channel, request(100)) == 0) std::this_thread::yield();
  EXPECT_EQ(ended.wait_for(std::chrono::seconds(0)), std::future_status::timeout) << "what runs is waited for";
  release.set_value();
  ended.get();
  EXPECT_EQ(ran, static_cast<int>(JSON_RPC_Thread_Handler::threads_at_most));
  EXPECT_EQ(waiting.use_count(), 1) << "nobody keeps it";
}
