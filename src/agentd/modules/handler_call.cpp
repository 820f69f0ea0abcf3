#include "agentd/modules/handler_call.h"

#include <mutex>

#include "agentd/jobs/job_table.h"
#include "platform/clock.h"

namespace agentd {

namespace {

/// Where the one who waits finds the first answer.
class Answer_Place {
 public:
  /// -1 when there is an answer already.
  int keep(JSON_RPC_Answer answer) {
    const std::lock_guard lock(mutex_);
    if (answered_) return -1;
    answer_ = std::move(answer);
    answered_ = true;
    settled_.set();
    return 0;
  }
  /// No answer will come any more.
  void let_go() { settled_.set(); }

  /// The answer, or `otherwise` when the handler let the request go without one, or `late` when `limit` has passed.
  JSON_RPC_Answer wait(std::chrono::seconds limit, const JSON_RPC_Answer& otherwise, const JSON_RPC_Answer& late) {
    const bool settled = platform::Clock::current().wait_for(settled_, limit);
    const std::lock_guard lock(mutex_);
    if (answered_) return answer_;
    return settled ? otherwise : late;
  }

 private:
  std::mutex mutex_;
  JSON_RPC_Answer answer_;
  bool answered_ = false;
  platform::Wait_Event settled_;  ///< answered, or let go
};

/// The requester as a module's handler sees it. What answers an object without an id is dropped.
class Answer_Catcher : public JSON_RPC_Channel {
 public:
  explicit Answer_Catcher(std::shared_ptr<Answer_Place> place) : place_(std::move(place)) {}
  ~Answer_Catcher() override { place_->let_go(); }
  int close() override { return 0; }

  int send(std::shared_ptr<JSON_RPC_Object> object) override {
    if (object != nullptr && object->id().is_null()) return 0;
    JSON_RPC_Answer answer;
    if (const auto* response = dynamic_cast<const JSON_RPC_Response*>(object.get())) {
      answer.ok = true;
      answer.result = response->result;
    } else {
      answer = refusal_answer(JSON_RPC_E_INTERNAL, "the module answered with something that is no response");
    }
    return place_->keep(std::move(answer));
  }

  int send_error(int code, const json_spirit::Value& id, const std::string& message,
                 const json_spirit::Value& data) override {
    if (id.is_null()) return 0;
    JSON_RPC_Answer answer = refusal_answer(code, message);
    answer.result = data;
    return place_->keep(std::move(answer));
  }

 private:
  std::shared_ptr<Answer_Place> place_;
};

/// The message as the handler's object. It holds the requester: once nobody has either, no answer can come.
std::shared_ptr<JSON_RPC_Object> object_of(const JSON_RPC_Message& message,
                                           const std::shared_ptr<Answer_Catcher>& requester) {
  const auto with_requester = [requester](const JSON_RPC_Object* object) { delete object; };
  if (message.kind == JSON_RPC_Message::notification)
    return {new JSON_RPC_Request(message.method, message.params), with_requester};
  return {new JSON_RPC_Request(message.id, message.method, message.params), with_requester};
}

/// Hands the message over and keeps nothing of it.
void hand_over(JSON_RPC_Handler& handler, const JSON_RPC_Message& message, const std::shared_ptr<Answer_Place>& place) {
  const auto requester = std::make_shared<Answer_Catcher>(place);
  (void)handler.handle_object(requester, object_of(message, requester));
}

}  // namespace

JSON_RPC_Answer call_handler(JSON_RPC_Handler& handler, const JSON_RPC_Message& message, std::chrono::seconds limit) {
  const auto place = std::make_shared<Answer_Place>();
  hand_over(handler, message, place);
  return place->wait(limit,
                     refusal_answer(JSON_RPC_E_INTERNAL, "the module gave no answer to " + message.method +
                                                             "; is the instance known on this host? Run discover"),
                     refusal_answer(JSON_RPC_E_TIMEOUT, "the module did not answer " + message.method + " in time"));
}

}  // namespace agentd
