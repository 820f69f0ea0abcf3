#include "agentd/backupd_link/alert_tap.h"

namespace agentd {

namespace {

thread_local std::vector<Job_Alert>* copies = nullptr;

}  // namespace

void Alert_Tap::raise(const Job_Alert& alert) {
  if (copies != nullptr) copies->push_back(alert);
  if (next_) next_->raise(alert);
}

Alert_Tap::Copies::Copies() { copies = &alerts_; }
Alert_Tap::Copies::~Copies() { copies = nullptr; }

}  // namespace agentd
