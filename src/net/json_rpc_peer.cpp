#include "net/json_rpc_peer.h"

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <thread>
#include <vector>

#include "platform/clock.h"
#include "platform/log.h"
#include "platform/secure_string.h"

using json_spirit::Value;

namespace {

constexpr const char* not_connected = "there is no connection to the other side";

JSON_RPC_Answer failure(int code, std::string message) {
  JSON_RPC_Answer answer;
  answer.code = code;
  answer.message = std::move(message);
  return answer;
}

/// A message may hold a password.
void wipe(std::string& text) { platform::wipe_memory(text.data(), text.size()); }

}  // namespace

struct JSON_RPC_Peer::Impl {
  /// A call of ours that waits for its answer.
  struct Open_Call {
    platform::Wait_Event wake;  ///< answered, or given up
    bool answered = false;      ///< guarded by the peer's mutex, as the answer
    JSON_RPC_Answer answer;

    void take(JSON_RPC_Answer an_answer) {
      answer = std::move(an_answer);
      answered = true;
      wake.set();
    }
  };

  /// Requests in the order in which they came, and what wakes the workers that take them.
  struct Lane {
    std::condition_variable work;
    std::deque<JSON_RPC_Message> requests;  ///< guarded by the peer's mutex
  };

  net::Web_Socket& socket;
  const Message_Handler handler;
  const Side_Lane side_lane;
  Lane main_requests;
  Lane side_requests;
  std::mutex mutex;
  std::map<std::int64_t, std::shared_ptr<Open_Call>> calls;  // guarded by mutex, as all below
  std::int64_t next_id = 1;
  bool ended = false;
  std::vector<std::thread> workers;  ///< changed by constructor and finish only

  Impl(net::Web_Socket& a_socket, Message_Handler a_handler, unsigned count, Side_Lane a_lane)
      : socket(a_socket), handler(std::move(a_handler)), side_lane(std::move(a_lane)) {
    for (unsigned i = 0; i < count; ++i) workers.emplace_back([this] { run_requests(main_requests); });
    for (unsigned i = 0; i < side_lane.workers; ++i) workers.emplace_back([this] { run_requests(side_requests); });
  }

  void send(const std::string& text) {
    net::Net_Error error;
    // A broken socket shows itself to the reader, which reports and ends the peer.
    (void)socket.send(text, error);
  }

  void sort(const std::string& text) {
    JSON_RPC_Message message = JSON_RPC_Message::parse(text);
    switch (message.kind) {
      case JSON_RPC_Message::request:
      case JSON_RPC_Message::notification:
        queue(std::move(message));
        return;
      case JSON_RPC_Message::result:
      case JSON_RPC_Message::error:
        take_answer(message);
        return;
      case JSON_RPC_Message::invalid:
        D3_WARNING("Refused a malformed JSON-RPC message: %C\n", platform::cut_for_log(message.error_message).c_str());
        send(json_rpc_error_text(message.id, message.error_code, message.error_message));
        return;
    }
  }

  void queue(JSON_RPC_Message message) {
    Lane& lane = side_lane.workers > 0 && side_lane.takes(message) ? side_requests : main_requests;
    {
      const std::lock_guard lock(mutex);
      if (lane.requests.size() < waiting_limit) {
        lane.requests.push_back(std::move(message));
        lane.work.notify_one();
        return;
      }
    }
    if (message.kind == JSON_RPC_Message::request)
      send(json_rpc_error_text(message.id, JSON_RPC_E_SERVER, "too many requests are waiting; try again later"));
  }

  void take_answer(JSON_RPC_Message& message) {
    if (message.id.type() != json_spirit::int_type || message.id.is_uint64()) return;
    const bool ok = message.kind == JSON_RPC_Message::result;
    const std::lock_guard lock(mutex);
    const auto found = calls.find(message.id.get_int64());
    if (found == calls.end()) return;  // its caller has given up, or it never was
    found->second->take({ok, std::move(ok ? message.result_value : message.error_data), message.error_code,
                         std::move(message.error_message)});
    calls.erase(found);
  }

  void run_requests(Lane& lane) {
    for (;;) {
      JSON_RPC_Message request;
      {
        std::unique_lock lock(mutex);
        lane.work.wait(lock, [this, &lane] { return ended || !lane.requests.empty(); });
        if (ended) return;
        request = std::move(lane.requests.front());
        lane.requests.pop_front();
      }
      answer(request);
    }
  }

  void answer(const JSON_RPC_Message& request) {
    JSON_RPC_Answer answer;
    try {
      answer = handler(request);
    } catch (const std::exception& caught) {
      D3_ERROR("JSON-RPC method %C failed: %C\n", platform::cut_for_log(request.method).c_str(), caught.what());
      answer = failure(JSON_RPC_E_INTERNAL, caught.what());
    }
    if (request.kind == JSON_RPC_Message::notification) return;
    send(answer.ok ? json_rpc_result_text(request.id, answer.result)
                   : json_rpc_error_text(request.id, answer.code, answer.message, answer.result));
  }

  /// Ends every open call and waits for the workers.
  void finish() {
    {
      const std::lock_guard lock(mutex);
      ended = true;
      for (const auto& [id, call] : calls)
        call->take(failure(JSON_RPC_E_NOT_CONNECTED, "the connection ended before the answer"));
      calls.clear();
      main_requests.work.notify_all();
      side_requests.work.notify_all();
    }
    for (std::thread& worker : workers) worker.join();
    workers.clear();
  }

  /// Null when the connection has ended.
  std::shared_ptr<Open_Call> open_call(std::int64_t& id) {
    const std::lock_guard lock(mutex);
    if (ended) return nullptr;
    id = next_id++;
    return calls.emplace(id, std::make_shared<Open_Call>()).first->second;
  }

  /// Nobody waits for the call any more: its answer, or `otherwise` when none has come.
  JSON_RPC_Answer end_call(std::int64_t id, Open_Call& call, JSON_RPC_Answer otherwise) {
    const std::lock_guard lock(mutex);
    calls.erase(id);
    return call.answered ? std::move(call.answer) : std::move(otherwise);
  }
};

void JSON_RPC_Call_Group::give_up() {
  const std::lock_guard lock(mutex_);
  given_up_ = true;
  for (platform::Wait_Event* wake : calls_) wake->set();
}

bool JSON_RPC_Call_Group::enter(platform::Wait_Event& wake) {
  const std::lock_guard lock(mutex_);
  if (!given_up_) calls_.insert(&wake);
  return !given_up_;
}

void JSON_RPC_Call_Group::leave(platform::Wait_Event& wake) {
  const std::lock_guard lock(mutex_);
  calls_.erase(&wake);
}

JSON_RPC_Peer::JSON_RPC_Peer(net::Web_Socket& socket, Handler handler, unsigned workers)
    : JSON_RPC_Peer(
          socket,
          [handler = std::move(handler)](const JSON_RPC_Message& message) {
            return handler(message.method, message.params);
          },
          workers, Side_Lane{}) {}

JSON_RPC_Peer::JSON_RPC_Peer(net::Web_Socket& socket, Message_Handler handler, unsigned workers, Side_Lane side_lane)
    : impl_(std::make_unique<Impl>(socket, std::move(handler), workers, std::move(side_lane))) {}

JSON_RPC_Peer::~JSON_RPC_Peer() {
  close();
  impl_->finish();
}

void JSON_RPC_Peer::serve(const std::function<void()>& closed) {
  std::string text;
  net::Net_Error error;
  while (impl_->socket.receive(text, error)) {
    impl_->sort(text);
    wipe(text);
  }
  if (closed) closed();
  impl_->finish();
}

JSON_RPC_Answer JSON_RPC_Peer::call(const std::string& method, const Value& params, std::chrono::nanoseconds timeout,
                                    JSON_RPC_Call_Group* group, const Value& requester) {
  std::int64_t id = 0;
  const std::shared_ptr<Impl::Open_Call> call = impl_->open_call(id);
  if (!call) return failure(JSON_RPC_E_NOT_CONNECTED, not_connected);
  const JSON_RPC_Answer given_up = failure(JSON_RPC_E_NOT_CONNECTED, "the call was given up");
  if (group != nullptr && !group->enter(call->wake)) return impl_->end_call(id, *call, given_up);
  net::Net_Error error;
  std::string text = json_rpc_request_text(id, method, params, requester);
  const bool sent = impl_->socket.send(text, error);
  wipe(text);
  const bool woken = sent && platform::Clock::current().wait_for(call->wake, timeout);
  if (group != nullptr) group->leave(call->wake);
  if (!sent)
    return impl_->end_call(id, *call,
                           failure(JSON_RPC_E_NOT_CONNECTED, std::string(not_connected) + ": " + error.text));
  return impl_->end_call(id, *call,
                         woken ? given_up : failure(JSON_RPC_E_TIMEOUT, "no answer to " + method + " in time"));
}

void JSON_RPC_Peer::notify(const std::string& method, const Value& params) {
  impl_->send(json_rpc_request_text({}, method, params));
}

void JSON_RPC_Peer::close() { impl_->socket.close(); }
