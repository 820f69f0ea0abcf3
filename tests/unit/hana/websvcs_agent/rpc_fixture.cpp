#include "unit/hana/websvcs_agent/rpc_fixture.h"

#include <unistd.h>

#include "net/json_rpc.h"

namespace rpc_test {

int Wire_Channel::send(std::shared_ptr<JSON_RPC_Object> object) {
  const auto* response = dynamic_cast<const JSON_RPC_Response*>(object.get());
  EXPECT_NE(response, nullptr);
  if (response == nullptr || response->id().is_null()) return 0;
  sent.push_back(json_rpc_result_text(response->id(), response->result));
  return result;
}

int Wire_Channel::send_error(int code, const json_spirit::Value& id, const std::string& message,
                             const json_spirit::Value& data) {
  if (id.is_null()) return 0;
  sent.push_back(json_rpc_error_text(id, code, message, data));
  return result;
}

std::shared_ptr<JSON_RPC_Object> object_of(const std::string& text) {
  const JSON_RPC_Message message = JSON_RPC_Message::parse(text);
  EXPECT_NE(message.kind, JSON_RPC_Message::invalid) << message.error_message << "\n" << text;
  switch (message.kind) {
    case JSON_RPC_Message::request:
      return std::make_shared<JSON_RPC_Request>(message.id, message.method, message.params);
    case JSON_RPC_Message::notification:
      return std::make_shared<JSON_RPC_Request>(message.method, message.params);
    default:
      return std::make_shared<JSON_RPC_Object>(JSON_RPC_Object::KIND_RESPONSE, message.id);
  }
}

JSON_RPC_Answer Definitions_Channel::call(const std::string& method, const json_spirit::Value& params,
                                          std::chrono::nanoseconds /*timeout*/) {
  const std::lock_guard lock(mutex_);
  meanwhile();
  asked.push_back(method + " " + json_spirit::dump_json(params));
  std::string id;
  EXPECT_TRUE(json_spirit::object_get(params.get_obj(), "uuid", id));
  const auto found = answers.find(id);
  return found == answers.end() ? JSON_RPC_Answer{true, json_spirit::Array(), 0, {}} : found->second;
}

void Definitions_Channel::know(const std::string& id) {
  answers[id] = {true, json_spirit::Array{json_spirit::Object{{"id", id}}}, 0, {}};
}

Rpc_Test::Rpc_Test() {
  root_.write("/etc/group", "sapsys:x:" + std::to_string(::getgid()) + ":\n");
  EXPECT_TRUE(registry_.open());
  keep("HDB_HDB00", {{"sid", "HDB"}, {"instance_number", 0}, {"instance_name", "HDB00"}});
  add_account("HDB_HDB00");
}

void Rpc_Test::keep(const std::string& name, json_spirit::Object options) {
  auto instance = std::make_shared<Instance>();
  instance->type = "hana";
  instance->name = name;
  instance->options = std::move(options);
  EXPECT_TRUE(registry_.store({{name, instance}}));
}

void Rpc_Test::add_account(const std::string& instance, const std::string& uid) {
  EXPECT_TRUE(registry_.set_account("hana", instance, uid, "BACKUP" + uid, secure_string(hana_test::password)));
}

std::string Rpc_Test::answer_of(JSON_RPC_Handler& handler, const std::string& request) {
  return answer_to(handler, object_of(request));
}

std::string Rpc_Test::answer_to(JSON_RPC_Handler& handler, std::shared_ptr<JSON_RPC_Object> object) {
  channel_->sent.clear();
  result_ = handler.handle_object(channel_, std::move(object));
  EXPECT_LE(channel_->sent.size(), 1U) << "a request has one answer";
  return channel_->sent.empty() ? std::string() : channel_->sent.front();
}

int Rpc_Test::handle_without_requester(JSON_RPC_Handler& handler, const std::string& request) {
  std::weak_ptr<JSON_RPC_Channel> gone;
  gone = std::make_shared<Wire_Channel>();
  return handler.handle_object(gone, object_of(request));
}

}  // namespace rpc_test
