#include "dorsal3/log_backup/log_chain.h"

#include <algorithm>
#include <set>

#include "dorsal3/chains/chains.h"
#include "dorsal3/chains/set_list.h"
#include "dorsal3/server/resources.h"
#include "records/log_positions.h"
#include "scrt/time_text.h"

namespace dorsal3 {

namespace {

using Set = const json_spirit::Object*;

/// A set's "start_time" is a second later than HANA's own begin, and HANA ends a log's segment a moment before it saves
/// it: so much earlier lies the last second that is surely in the log as a whole. A restore is planned by the same.
constexpr std::time_t start_shift_seconds = 2;

/// Positions of one service that one set holds.
struct Share {
  Log_Positions::Piece piece;
  std::uint64_t backup_id = 0;
  bool online = false;
};

struct Service_Id {
  std::uint64_t volume = 0;
  std::uint64_t partition = 0;
  auto operator<=>(const Service_Id&) const = default;
};

std::uint64_t backup_id(Set set) { return number_member(*set, "database_backup_id"); }

/// All that was committed by then is in the logs up to this one.
std::string held_until(Set set) {
  const std::string text = text_member(*set, "start_time");
  std::time_t time = 0;
  return iso8601_to_posix_time(text.c_str(), time) ? posix_time_to_utc_text(time - start_shift_seconds) : text;
}

class Log_Chain_Model {
 public:
  explicit Log_Chain_Model(const Log_Chain_Source& source) : source_(source), full_(newest_full(source.data_sets)) {
    for (const auto& set : source.log_sets) sets_.push_back(&set);
    std::stable_sort(sets_.begin(), sets_.end(), [](Set left, Set right) {
      return backup_id(left) != backup_id(right) ? backup_id(left) < backup_id(right)
                                                 : number_member(*left, "id") < number_member(*right, "id");
    });
    read_shares();
  }

  [[nodiscard]] json_spirit::Object model() const {
    const std::string current = current_lifeline();
    const bool has_full = full_ != nullptr && text_member(*full_, "lifeline") == current;
    json_spirit::Object model;
    json_spirit::Array branches;
    std::string state = has_full ? "complete" : "no_full";
    for (const std::string& lifeline : lifelines(current)) {
      const json_spirit::Object branch = branch_model(lifeline, lifeline == current);
      if (lifeline == current && has_full) {
        model["newest_recoverable_time"] = recoverable_time(branch);
        if (has_gap(branch)) state = "gap";
      }
      branches.emplace_back(branch);
    }
    model["state"] = state;
    if (full_ != nullptr) model["full"] = set_model(full_);
    if (Set catalog = newest_catalog(); catalog != nullptr) model["catalog"] = set_model(catalog);
    model["branches"] = std::move(branches);
    model["unread"] = json_spirit::Array(unread_.begin(), unread_.end());
    model["waiting"] = to_array(source_.waiting_runs);
    return model;
  }

 private:
  using Shares = std::map<Service_Id, std::vector<Share>>;

  void read_shares() {
    for (std::size_t i = 0; i < sets_.size(); ++i)
      for (const auto& file : object_rows(*sets_[i], "files")) {
        const std::string filename = text_member(file, "filename");
        if (is_catalog_name(filename)) continue;
        const auto name = Log_Name::parse(filename);
        if (name)
          shares_[text_member(*sets_[i], "lifeline")][{name->volume, name->partition}].push_back(
              {{name->first, name->last, i}, backup_id(sets_[i]), is_online(*sets_[i])});
        else
          unread_.push_back(filename);
      }
  }

  [[nodiscard]] bool is_since_full(std::uint64_t id) const { return full_ == nullptr || id >= backup_id(full_); }

  /// That of the set which was committed last.
  [[nodiscard]] std::string current_lifeline() const {
    Set newest = nullptr;
    const auto look_at = [&](const json_spirit::Object& set) {
      if (newest == nullptr || number_member(*newest, "id") < number_member(set, "id")) newest = &set;
    };
    for (const auto& set : source_.data_sets) look_at(set);
    for (const auto& set : source_.log_sets) look_at(set);
    return newest == nullptr ? std::string() : text_member(*newest, "lifeline");
  }

  /// Those with the newest full backup or with logs since, as they followed each other; the current one last.
  [[nodiscard]] std::vector<std::string> lifelines(const std::string& current) const {
    std::vector<std::string> found;
    const auto add = [&](const std::string& lifeline) {
      if (lifeline != current && std::find(found.begin(), found.end(), lifeline) == found.end())
        found.push_back(lifeline);
    };
    if (full_ != nullptr) add(text_member(*full_, "lifeline"));
    for (Set set : sets_)
      if (is_since_full(backup_id(set))) add(text_member(*set, "lifeline"));
    if (full_ != nullptr || !sets_.empty()) found.push_back(current);
    return found;
  }

  [[nodiscard]] json_spirit::Object branch_model(const std::string& lifeline, bool current) const {
    const bool has_full = full_ != nullptr && text_member(*full_, "lifeline") == lifeline;
    Shares shares;
    if (const auto found = shares_.find(lifeline); found != shares_.end()) shares = found->second;
    // A service without any log shows by its part of the full backup.
    if (has_full)
      for (const std::uint64_t volume : volumes_of_full())
        if (shares.lower_bound({volume, 0}) == shares.lower_bound({volume + 1, 0})) shares[{volume, 0}];
    json_spirit::Array services;
    for (const auto& [id, list] : shares)
      if (auto service = service_model(list, has_full); has_full || text_member(service, "start") != "none") {
        service["volume"] = id.volume;
        service["partition"] = id.partition;
        services.emplace_back(std::move(service));
      }
    return {{"lifeline", lifeline},
            {"short_id", name(lifeline)},
            {"current", current},
            {"has_full", has_full},
            {"services", std::move(services)}};
  }

  [[nodiscard]] std::set<std::uint64_t> volumes_of_full() const {
    std::set<std::uint64_t> volumes;
    for (const auto& file : object_rows(*full_, "files"))
      if (const auto volume = data_volume(text_member(file, "filename")); volume && *volume != 0)
        volumes.insert(*volume);
    return volumes;
  }

  /// What the sets of one branch hold of one service.
  struct Service {
    Log_Positions positions;        ///< since the newest full backup
    const Share* before = nullptr;  ///< the last one before it
    const Share* newest = nullptr;
    std::uint64_t log_backups = 0;
  };

  [[nodiscard]] Service gather(const std::vector<Share>& shares) const {
    Service service;
    for (const Share& share : shares) {
      const bool counts = is_since_full(share.backup_id);
      service.log_backups += counts ? 1 : 0;
      if (!share.online) continue;
      (counts ? service.newest : service.before) = &share;
      if (counts) service.positions.add(share.piece);
    }
    return service;
  }

  [[nodiscard]] static std::string start_of(const Service& service, bool has_full) {
    if (service.positions.empty()) return "none";
    if (!has_full) return "no_full";
    std::optional<std::uint64_t> end_before;
    if (service.before != nullptr) end_before = service.before->piece.last;
    switch (log_start(end_before, service.positions.first())) {
      case Log_Start::unproven:
        return "unproven";
      case Log_Start::gap:
        return "gap";
      default:
        return "joined";
    }
  }

  [[nodiscard]] json_spirit::Object service_model(const std::vector<Share>& shares, bool has_full) const {
    const Service service = gather(shares);
    const Log_Positions& positions = service.positions;
    const std::string start = start_of(service, has_full);
    json_spirit::Object model{{"log_backups", service.log_backups}, {"start", start}};
    json_spirit::Array gaps;
    if (start == "gap")
      gaps.emplace_back(
          gap_model({service.before->piece.last, positions.first(), service.before->piece.set, positions.front().set},
                    true, shares));
    for (const auto& gap : positions.gaps()) gaps.emplace_back(gap_model(gap, false, shares));
    json_spirit::Array overlaps;
    for (const auto& overlap : positions.overlaps())
      overlaps.emplace_back(json_spirit::Object{{"from", overlap.from},
                                                {"to", overlap.to},
                                                {"former", set_model(sets_[overlap.former])},
                                                {"set", set_model(sets_[overlap.set])}});
    model["gaps"] = std::move(gaps);
    model["overlaps"] = std::move(overlaps);
    if (positions.empty()) return model;
    model["first_position"] = positions.first();
    model["last_position"] = positions.last();
    model["newest_time"] = text_member(*sets_[service.newest->piece.set], "last_time");
    if (has_full)
      model["recoverable_time"] =
          start == "gap" ? text_member(*full_, "last_time") : held_until(sets_[positions.end_of_first_run().set]);
    return model;
  }

  [[nodiscard]] json_spirit::Object gap_model(const Log_Positions::Gap& gap, bool at_full,
                                              const std::vector<Share>& shares) const {
    json_spirit::Array missing;
    for (const Share& share : shares)
      if (!share.online && share.piece.first < gap.to && gap.from < share.piece.last)
        missing.emplace_back(set_model(sets_[share.piece.set]));
    return {{"from", gap.from},
            {"to", gap.to},
            {"at_full", at_full},
            {"after", set_model(sets_[gap.after])},
            {"before", set_model(sets_[gap.before])},
            {"missing", std::move(missing)}};
  }

  static bool has_gap(const json_spirit::Object& branch) {
    const auto services = object_rows(branch, "services");
    return std::any_of(services.begin(), services.end(),
                       [](const auto& service) { return !object_rows(service, "gaps").empty(); });
  }

  /// No service without a log limits it: there may have been nothing to write. At least the full backup itself.
  [[nodiscard]] std::string recoverable_time(const json_spirit::Object& branch) const {
    std::string time;
    for (const auto& service : object_rows(branch, "services"))
      if (const std::string own = text_member(service, "recoverable_time");
          !own.empty() && (time.empty() || own < time))
        time = own;
    return std::max(time, text_member(*full_, "last_time"));
  }

  [[nodiscard]] Set newest_catalog() const {
    const auto found = std::find_if(sets_.rbegin(), sets_.rend(), [](Set set) {
      return text_member(*set, "type") == kind_catalog && is_online(*set);
    });
    return found == sets_.rend() ? nullptr : *found;
  }

  [[nodiscard]] json_spirit::Object set_model(Set set) const {
    return {{"uuid", text_member(*set, "uuid")},
            {"short_id", name(text_member(*set, "uuid"))},
            {"type", text_member(*set, "type")},
            {"database_backup_id", backup_id(set)},
            {"start_time", text_member(*set, "start_time")},
            {"last_time", text_member(*set, "last_time")}};
  }

  [[nodiscard]] std::string name(const std::string& uuid) const {
    const auto found = source_.short_ids.find(uuid);
    return found == source_.short_ids.end() ? uuid : found->second;
  }

  const Log_Chain_Source& source_;
  const Set full_;
  std::vector<Set> sets_;                 ///< of logs and catalogs, in HANA's order
  std::map<std::string, Shares> shares_;  ///< by lifeline
  std::vector<std::string> unread_;
};

}  // namespace

json_spirit::Object log_chain(const Log_Chain_Source& source) { return Log_Chain_Model(source).model(); }

const json_spirit::Object* newest_full(const std::vector<json_spirit::Object>& sets) {
  Set newest = nullptr;
  for (const auto& set : sets)
    if (text_member(set, "type") == kind_full && is_online(set) &&
        (newest == nullptr || backup_id(newest) < backup_id(&set)))
      newest = &set;
  return newest;
}

}  // namespace dorsal3
