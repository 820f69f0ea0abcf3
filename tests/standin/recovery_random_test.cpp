#include <map>
#include <random>

#include "standin/recovered_hana.h"

namespace {

using namespace standin_test;

/// Random histories of a tenant whose content is known at each mark.
class Recovery_Of_History : public Recovered_HANA, public ::testing::WithParamInterface<unsigned> {
 protected:
  struct Mark {
    std::string time, rows, full;
  };
  int below(int limit) { return std::uniform_int_distribution<int>(0, limit - 1)(random_); }

  void change() {
    const std::string key = "k" + std::to_string(below(6));
    if (below(4) == 0) {
      ASSERT_EQ(sql("DELETE FROM KV WHERE K='" + key + "'", "TN1").code, 0);
      model_.erase(key);
      return;
    }
    const std::string value = std::to_string(++changes_);
    put(key, value);
    model_[key] = value;
  }
  [[nodiscard]] std::string model_rows() const {
    std::string text;
    for (const auto& [key, value] : model_) {
      text += key;
      text += "," + value + "\n";
    }
    return text;
  }
  /// A second in which nothing happens.
  void mark() {
    next_second();
    marks_.push_back({now(), model_rows(), full_});
    next_second();
  }
  void live(int steps) {
    for (int i = 0; i < steps; ++i) {
      switch (below(8)) {
        case 0:
          backed_up("INCREMENTAL", "p" + std::to_string(++backups_));
          break;
        case 1:
          backed_up("DIFFERENTIAL", "p" + std::to_string(++backups_));
          break;
        case 2:
          save_logs();
          break;
        case 3:
          if (below(3) == 0) full_ = backed_up("", "p" + std::to_string(++backups_));
          break;
        default:
          change();
          break;
      }
      next_second();
      if (below(3) == 0) mark();
    }
    change();
    mark();
    save_logs();
  }
  void expect_recovery(const Mark& mark, bool with_deltas) {
    const Output got = recover("DATABASE FOR TN1 UNTIL TIMESTAMP '" + mark.time +
                               "' CLEAR LOG  USING CATALOG BACKINT USING BACKUP_ID " + mark.full + " CHECK ACCESS ALL" +
                               (with_deltas ? "" : " IGNORE DELTA DATA BACKUPS"));
    ASSERT_EQ(got.code, 0) << got.err << backup_log();
    EXPECT_EQ(rows(), mark.rows) << mark.time << (with_deltas ? "" : " without deltas");
    EXPECT_EQ(reached(), mark.time);
  }
  std::mt19937 random_{GetParam()};
  std::map<std::string, std::string> model_;
  std::vector<Mark> marks_;
  std::string full_;
  int changes_ = 0, backups_ = 0;
};

TEST_P(Recovery_Of_History, Has_The_Content_Of_Each_Mark) {
  RecordProperty("seed", static_cast<int>(GetParam()));
  install_with_logs();
  full_ = backed_up("", "first");
  next_second();
  constexpr int steps = 14, looks = 4;
  live(steps);
  for (int i = 0; i < looks; ++i)
    expect_recovery(marks_[static_cast<std::size_t>(below(static_cast<int>(marks_.size())))], below(2) == 0);
  // Another life after the last one of these, from a new full backup on.
  const std::string left = rows();
  model_.clear();
  for (std::size_t at = 0, end = 0; (end = left.find('\n', at)) != std::string::npos; at = end + 1) {
    const std::string line = left.substr(at, end - at);
    model_[line.substr(0, line.find(','))] = line.substr(line.find(',') + 1);
  }
  change();
  full_ = backed_up("", "second");
  next_second();
  marks_.clear();
  live(steps / 2);
  for (int i = 0; i < looks / 2; ++i)
    expect_recovery(marks_[static_cast<std::size_t>(below(static_cast<int>(marks_.size())))], below(2) == 0);
}

INSTANTIATE_TEST_SUITE_P(Seeds, Recovery_Of_History, ::testing::Values(1U, 2U, 3U));

}  // namespace
