#pragma once

#include <set>
#include <string>
#include <vector>

#include "histories/history.h"
#include "histories/history_model.h"
#include "histories/history_system.h"

namespace histories {

/// Lets a history happen to databases of its own, and compares what backupd plans and HANA brings back with the model.
class History_Runner {
 public:
  explicit History_Runner(History_System& system) : system_(system) { begin_life(); }
  ~History_Runner();
  History_Runner(const History_Runner&) = delete;
  History_Runner& operator=(const History_Runner&) = delete;

  /// Throws std::runtime_error, with what was expected and what came, at the first difference.
  void live(const History& history);

  /// That it has had.
  [[nodiscard]] const std::vector<Database>& databases() const { return databases_; }

 private:
  /// Of one database: what the other one does must not change it.
  struct Life {
    Database database;
    std::vector<std::string> log_ids;  ///< HANA's, in the model's order
    std::set<std::size_t> lost;        ///< of them
    History_Model model;
    std::string pool = "first";
    std::size_t known_sets = 0;
    long looks_at_full = -1;  ///< of HANA's log writer, behind the first full backup; -1: none, or long ago
  };

  void begin_life();
  void happen(const Step& step);
  void commit(unsigned choice);
  void commit_at_begin(unsigned choice);
  void back_up(History_Model::Kind kind);
  void let_log_begin();
  void save_logs();
  void save_logs_of(Life& life, std::time_t from);
  void back_up_to_files();
  void lose_log(unsigned choice);
  void restore(const Wish& wish);
  void copy(const Wish& wish);
  /// Restores and compares; the content.
  Content carry_out(const Target& target, const Database& into);
  [[nodiscard]] Expectation expected_of(const Target& target, const Database& into) const;
  /// Compares the plan; true when it can be carried out.
  bool ask(const Target& target, const Database& into);
  void ask_nearest(const Target& target, const Database& into, const json_spirit::Object& plan);
  [[nodiscard]] bool choose(const Wish& wish, Target& target) const;
  void let_time_pass();
  /// Waits for this many more sets.
  std::vector<json_spirit::Object> new_sets(Life& life, std::size_t count);
  void check_begin(const json_spirit::Object& set, std::time_t from) const;
  [[nodiscard]] Content rows(const Database& database) const;

  [[nodiscard]] Life& life() { return lives_[current_]; }
  [[nodiscard]] const Life& life() const { return lives_[current_]; }

  History_System& system_;
  std::vector<Life> lives_;
  std::size_t current_ = 0;
  std::vector<Database> databases_;
  int values_ = 0;
  std::time_t begin_of_full_ = 0;  ///< of its record, when nothing has happened since
};

}  // namespace histories
