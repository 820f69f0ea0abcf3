#include "support/log_capture.h"

#include <ace/Log_Msg.h>
#include <ace/Log_Record.h>
#include <gtest/gtest.h>

namespace support {

struct Captured {
  Log_Line line;
  bool claimed = false;
};

class Log_Capture::Backend : public ACE_Log_Msg_Backend {
 public:
  int open(const ACE_TCHAR*) override { return 0; }
  int reset() override { return 0; }
  int close() override { return 0; }
  ssize_t log(ACE_Log_Record& record) override {
    const std::lock_guard guard(mutex);
    captured.push_back({{static_cast<int>(record.type()), record.msg_data()}, false});
    return 0;
  }

  std::mutex mutex;
  std::vector<Captured> captured;
};

Log_Capture::Log_Capture() : backend_(std::make_unique<Backend>()), previous_flags_(ACE_LOG_MSG->flags()) {
  previous_ = ACE_Log_Msg::msg_backend(backend_.get());
  ACE_LOG_MSG->clr_flags(previous_flags_);
  ACE_LOG_MSG->set_flags(ACE_Log_Msg::CUSTOM);
}

Log_Capture::~Log_Capture() {
  ACE_LOG_MSG->clr_flags(ACE_Log_Msg::CUSTOM);
  ACE_LOG_MSG->set_flags(previous_flags_);
  ACE_Log_Msg::msg_backend(previous_);
  const std::lock_guard guard(backend_->mutex);
  for (const Captured& entry : backend_->captured)
    if (!entry.claimed && entry.line.priority >= LM_ERROR)
      ADD_FAILURE() << "log line nobody expected: " << entry.line.text;
}

bool Log_Capture::claim(const std::string& text, ACE_Log_Priority priority) {
  const std::lock_guard guard(backend_->mutex);
  for (Captured& entry : backend_->captured)
    if (!entry.claimed && entry.line.priority == priority && entry.line.text == text) {
      entry.claimed = true;
      return true;
    }
  return false;
}

std::size_t Log_Capture::claim_containing(const std::string& part, ACE_Log_Priority priority) {
  const std::lock_guard guard(backend_->mutex);
  std::size_t claimed = 0;
  for (Captured& entry : backend_->captured)
    if (!entry.claimed && entry.line.priority == priority && entry.line.text.find(part) != std::string::npos) {
      entry.claimed = true;
      ++claimed;
    }
  return claimed;
}

bool Log_Capture::has(const std::string& text) const {
  const std::lock_guard guard(backend_->mutex);
  for (const Captured& entry : backend_->captured)
    if (entry.line.text == text) return true;
  return false;
}

bool Log_Capture::has_containing(const std::string& part) const {
  const std::lock_guard guard(backend_->mutex);
  for (const Captured& entry : backend_->captured)
    if (entry.line.text.find(part) != std::string::npos) return true;
  return false;
}

std::vector<Log_Line> Log_Capture::lines() const {
  const std::lock_guard guard(backend_->mutex);
  std::vector<Log_Line> all;
  for (const Captured& entry : backend_->captured) all.push_back(entry.line);
  return all;
}

std::string Log_Capture::dump() const {
  std::string text;
  for (const Log_Line& line : lines()) text += line.text;
  return text;
}

void Log_Capture::claim_all() {
  const std::lock_guard guard(backend_->mutex);
  for (Captured& entry : backend_->captured) entry.claimed = true;
}

}  // namespace support
