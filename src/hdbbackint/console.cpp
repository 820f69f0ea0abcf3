#include "hdbbackint/console.h"

#include <ace/Log_Msg_Callback.h>
#include <ace/Log_Record.h>
#include <unistd.h>

#include <algorithm>
#include <memory>

#include "platform/log.h"
#include "platform/log_file.h"
#include "platform/product_paths.h"

namespace hdbbackint {

void report_failure(std::string_view text) {
  std::string line = "hdbbackint: " + std::string(text);
  std::replace_if(
      line.begin(), line.end(), [](char c) { return c == '\n' || c == '\r'; }, ' ');
  D3_ERROR("%C\n", platform::cut_for_log(line).c_str());
  line += '\n';
  // Nobody may be listening; there is then no one left to tell.
  [[maybe_unused]] const ssize_t written = ::write(STDERR_FILENO, line.data(), line.size());
}

struct Cause_Capture::Callback : public ACE_Log_Msg_Callback {
  void log(ACE_Log_Record& record) override {
    if (record.type() == LM_ERROR || record.type() == LM_EMERGENCY) last = record.msg_data();
    if (previous != nullptr && had_callback) previous->log(record);
  }
  std::string last;
  ACE_Log_Msg_Callback* previous = nullptr;
  bool had_callback = false;
};

Cause_Capture::Cause_Capture() : callback_(std::make_unique<Callback>()) {
  ACE_Log_Msg* log = ACE_LOG_MSG;
  callback_->had_callback = (log->flags() & ACE_Log_Msg::MSG_CALLBACK) != 0;
  callback_->previous = log->msg_callback(callback_.get());
  log->set_flags(ACE_Log_Msg::MSG_CALLBACK);
}

Cause_Capture::~Cause_Capture() { ACE_LOG_MSG->msg_callback(callback_->previous); }

std::string Cause_Capture::text() const {
  std::string text = callback_->last;
  while (!text.empty() && (text.back() == '\n' || text.back() == '\0')) text.pop_back();
  return text.empty() ? "the cause is not known" : text;
}

void open_log() {
  ACE_Log_Msg* log = ACE_Log_Msg::instance();
  unsigned long flags = 0;
  if (platform::log_to_file(platform::product_paths::backint_log()))
    flags = ACE_Log_Msg::OSTREAM | ACE_Log_Msg::VERBOSE_LITE;
  log->open("hdbbackint", flags);
  log->clr_flags(ACE_Log_Msg::STDERR);
}

}  // namespace hdbbackint
