#pragma once

#include <memory>
#include <vector>

#include "job/job_alert.h"

namespace agentd {

/// Passes alerts on and, for who asks on the thread that raises them, keeps a copy. Any thread.
class Alert_Tap : public Alert_Sink {
 public:
  explicit Alert_Tap(std::shared_ptr<Alert_Sink> next) : next_(std::move(next)) {}
  void raise(const Job_Alert& alert) override;

  /// The alerts that the calling thread raises during the life of this object. Not nested.
  class Copies {
   public:
    Copies();
    ~Copies();
    Copies(const Copies&) = delete;
    Copies& operator=(const Copies&) = delete;
    [[nodiscard]] const std::vector<Job_Alert>& alerts() const { return alerts_; }

   private:
    std::vector<Job_Alert> alerts_;
  };

 private:
  const std::shared_ptr<Alert_Sink> next_;
};

}  // namespace agentd
