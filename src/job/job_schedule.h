#pragma once

/// When a job runs.
enum Job_Schedule_Type {
  JOB_SCHEDULE_NONE = 0,     ///< on request only
  JOB_SCHEDULE_ONDEMAND = 7  ///< whenever its source asks: set up and removed at the source
};

class Job_Schedule {
 public:
  explicit Job_Schedule(int type = JOB_SCHEDULE_NONE) : type_(type) {}
  virtual ~Job_Schedule() = default;
  [[nodiscard]] int type() const { return type_; }

 private:
  int type_;
};
