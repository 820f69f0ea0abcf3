#pragma once

#include <ctime>
#include <map>
#include <string>
#include <vector>

namespace histories {

/// The rows of a database.
using Content = std::map<std::string, std::string>;

/// What is asked of a restore: a backup set, or else a second of POSIX time.
struct Target {
  std::time_t time = 0;
  std::string set;  ///< uuid; empty: the time is wanted
  bool ignore_delta = false;
};

/// What must come of a restore.
struct Expectation {
  std::string refusal;  ///< code of the plan's only refusal; empty: it is carried out
  Content content;
};

/// What a database was at each second, and what of it can be had again. A few rules, written from the description of
/// the product and of HANA; shares nothing with their code. It is told the times of what happened. All that happens
/// lies some seconds apart, but for a commit in the second at which a full backup's record begins.
class History_Model {
 public:
  enum class Kind { full, differential, incremental };

  /// `old`: of a HANA without deltas, which recovers by its own catalog alone.
  explicit History_Model(bool old = false) : old_(old) {}

  /// Without a value: deleted.
  void committed(std::time_t at, const std::string& key, const std::string& value);
  /// What a data backup to this pool becomes when `wanted` is asked for.
  [[nodiscard]] Kind kind_of_next(Kind wanted, const std::string& pool) const;
  /// HANA cannot make such a backup.
  [[nodiscard]] bool refuses(Kind kind) const { return old_ && kind != Kind::full; }
  /// A data backup was recorded, as `first` and `last` say; `first` is one second later than HANA began it.
  void backed_up(Kind kind, const std::string& pool, const std::string& uuid, std::time_t first, std::time_t last);
  /// HANA keeps logs from the first full backup on.
  [[nodiscard]] bool keeps_logs() const { return keeps_logs_; }
  void logs_saved(std::time_t first);
  /// The object of a log is gone, counted from the first.
  void log_lost(std::size_t number);
  [[nodiscard]] std::size_t logs() const;
  /// HANA backs its catalog up behind that, as a set.
  void backed_up_to_files(std::time_t first_of_catalog);
  void restored(std::time_t at, const Target& target);
  /// A new tenant has the content of another one, and nothing of its past.
  void begun_as_copy(std::time_t at, const Content& content) { moments_.push_back({at, content}); }

  /// Moments and sets worth asking for. Never a second in which something else happened than the model can tell.
  [[nodiscard]] std::vector<Target> targets() const;
  [[nodiscard]] Expectation expect(const Target& target) const;
  /// In another database, which knows nothing of this one.
  [[nodiscard]] Expectation expect_copy(const Target& target) const;
  /// An old HANA has the logs of all branches in its one catalog, and takes none of a branch that was left when
  /// positions are there twice: whatever the plan says, it is not tried.
  [[nodiscard]] bool is_beyond_old_hana(const Target& target) const;
  [[nodiscard]] const Content& content() const { return moments_.back().content; }
  /// A moment in which nothing happens.
  void quiet(std::time_t at) { quiet_.push_back(at); }

 private:
  struct Moment {
    std::time_t at = 0;
    Content content;
  };
  struct Data_Set {
    Kind kind = Kind::full;
    std::string pool;
    std::string uuid;
    std::time_t first = 0;
    std::time_t last = 0;
    int lifeline = 0;
    bool based_on_set = true;  ///< HANA built it on a full backup that is a set
    Content content;
    int order = 0;  ///< of all sets
  };
  struct Other_Set {
    std::time_t first = 0;
    int lifeline = 0;
    bool holds_logs = true;
    int order = 0;
    bool lost = false;
  };

  [[nodiscard]] const Data_Set* newest_full() const;
  [[nodiscard]] const Content& content_at(std::time_t at) const;
  [[nodiscard]] int lifeline_at(std::time_t at) const;
  [[nodiscard]] const Data_Set* full_for(std::time_t at) const;
  [[nodiscard]] bool logs_hold(std::time_t at, int lifeline) const;
  [[nodiscard]] bool lacks_log(std::time_t at, const Data_Set& full, bool ignore_delta) const;
  [[nodiscard]] std::string refusal_of_logs(std::time_t at, const Data_Set& full, bool ignore_delta,
                                            bool needs_logs) const;
  [[nodiscard]] const Data_Set& set_of(const Target& target) const;
  [[nodiscard]] Expectation expect_set(const Data_Set& set, bool ignore_delta) const;
  [[nodiscard]] Expectation expect_time(std::time_t at, bool ignore_delta) const;
  int lifeline_of_next();

  bool old_ = false;
  std::vector<Moment> moments_{{}};
  std::vector<Data_Set> data_;
  std::vector<Other_Set> others_;
  std::vector<std::time_t> quiet_;
  int sets_ = 0;
  int lifeline_ = 0;
  bool new_lifeline_ = true;  ///< the next set begins one
  bool restored_ = false;     ///< since the newest full backup that is a set
  bool keeps_logs_ = false;
  bool files_are_base_ = false;  ///< HANA's newest full backup lies in files
};

}  // namespace histories
