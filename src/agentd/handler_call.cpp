#include "agentd/handler_call.h"

#include <mutex>

#include "agentd/job_table.h"
#include "platform/clock.h"

namespace agentd {

namespace {

/// The requester as a module's handler sees it: takes the first answer, drops what comes after it.
class Answer_Catcher : public JSON_RPC_Channel {
 public:
  int close() override { return 0; }

  int send(std::shared_ptr<JSON_RPC_Object> object) override {
    JSON_RPC_Answer answer;
    if (const auto* response = dynamic_cast<const JSON_RPC_Response*>(object.get())) {
      answer.ok = true;
      answer.result = response->result;
    } else {
      answer = refusal_answer(JSON_RPC_E_INTERNAL, "the module answered with something that is no response");
    }
    return keep(std::move(answer));
  }

  int send_error(int code, const json_spirit::Value&, const std::string& message, const json_spirit::Value&) override {
    return keep(refusal_answer(code, message));
  }

  /// False when no answer came in time.
  bool wait(std::chrono::seconds limit) { return platform::Clock::current().wait_for(answered_, limit); }
  JSON_RPC_Answer answer() {
    const std::lock_guard lock(mutex_);
    return answer_;
  }

 private:
  int keep(JSON_RPC_Answer answer) {
    const std::lock_guard lock(mutex_);
    if (answered_.is_set()) return -1;
    answer_ = std::move(answer);
    answered_.set();
    return 0;
  }

  std::mutex mutex_;
  JSON_RPC_Answer answer_;
  platform::Wait_Event answered_;
};

}  // namespace

JSON_RPC_Answer call_handler(JSON_RPC_Handler& handler, const std::string& method, const json_spirit::Value& params,
                             std::chrono::seconds limit) {
  const json_spirit::Value only_request = 1;
  const auto channel = std::make_shared<Answer_Catcher>();
  const auto request = std::make_shared<JSON_RPC_Request>(only_request, method, params);
  if (handler.handle_object(channel, request) < 0 && !channel->wait(std::chrono::seconds(0)))
    return refusal_answer(JSON_RPC_E_INTERNAL, "the module did not answer " + method);
  if (!channel->wait(limit))
    return refusal_answer(JSON_RPC_E_TIMEOUT, "the module did not answer " + method + " in time");
  return channel->answer();
}

}  // namespace agentd
