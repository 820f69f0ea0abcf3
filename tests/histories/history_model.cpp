#include "histories/history_model.h"

#include <algorithm>

namespace histories {

// What happens

void History_Model::committed(std::time_t at, const std::string& key, const std::string& value) {
  Content content = moments_.back().content;
  if (value.empty())
    content.erase(key);
  else
    content[key] = value;
  moments_.push_back({at, content});
}

// A delta needs a full backup that is a set, on the same pool, of data that no restore has replaced since.
History_Model::Kind History_Model::kind_of_next(Kind wanted, const std::string& pool) const {
  const Data_Set* const full = newest_full();
  return full == nullptr || full->pool != pool || restored_ ? Kind::full : wanted;
}

void History_Model::backed_up(Kind kind, const std::string& pool, const std::string& uuid, std::time_t first,
                              std::time_t last) {
  if (kind == Kind::full) {
    keeps_logs_ = true;
    restored_ = false;
    files_are_base_ = false;
  }
  data_.push_back({kind, pool, uuid, first, last, lifeline_of_next(), !files_are_base_, content(), ++sets_});
}

void History_Model::logs_saved(std::time_t first) { others_.push_back({first, lifeline_of_next(), true, ++sets_}); }

void History_Model::log_lost(std::size_t number) {
  for (Other_Set& set : others_)
    if (set.holds_logs && number-- == 0) set.lost = true;
}

std::size_t History_Model::logs() const {
  return static_cast<std::size_t>(
      std::count_if(others_.begin(), others_.end(), [](const Other_Set& set) { return set.holds_logs; }));
}

void History_Model::backed_up_to_files(std::time_t first_of_catalog) {
  files_are_base_ = true;
  others_.push_back({first_of_catalog, lifeline_of_next(), false, ++sets_});
}

void History_Model::restored(std::time_t at, const Target& target) {
  moments_.push_back({at, expect(target).content});
  new_lifeline_ = true;
  restored_ = true;
}

/// A lifeline goes on until the database is restored.
int History_Model::lifeline_of_next() {
  if (new_lifeline_) ++lifeline_;
  new_lifeline_ = false;
  return lifeline_;
}

// What can be had

const History_Model::Data_Set* History_Model::newest_full() const {
  const auto full =
      std::find_if(data_.rbegin(), data_.rend(), [](const Data_Set& set) { return set.kind == Kind::full; });
  return full == data_.rend() ? nullptr : &*full;
}

const Content& History_Model::content_at(std::time_t at) const {
  return std::find_if(moments_.rbegin(), moments_.rend() - 1, [&](const Moment& moment) { return moment.at <= at; })
      ->content;
}

/// That of the newest set whose record begins by then.
int History_Model::lifeline_at(std::time_t at) const {
  int lifeline = 0;
  for (const Data_Set& set : data_)
    if (set.first <= at) lifeline = std::max(lifeline, set.lifeline);
  for (const Other_Set& set : others_)
    if (set.first <= at) lifeline = std::max(lifeline, set.lifeline);
  return lifeline;
}

const History_Model::Data_Set* History_Model::full_for(std::time_t at) const {
  const Data_Set* found = nullptr;
  for (const Data_Set& set : data_)
    if (set.kind == Kind::full && set.first <= at && set.lifeline == lifeline_at(at)) found = &set;
  return found;
}

/// HANA began to save a log in a later second. A record begins one second later than HANA.
bool History_Model::logs_hold(std::time_t at, int lifeline) const {
  return std::any_of(others_.begin(), others_.end(), [&](const Other_Set& set) {
    return set.holds_logs && set.lifeline == lifeline && set.first - 1 > at;
  });
}

/// HANA reads the logs behind the newest delta that it began by then, up to the first one that it began later: of each
/// volume, and it begins those of all volumes at once.
bool History_Model::lacks_log(std::time_t at, const Data_Set& full, bool ignore_delta) const {
  int base = full.order;
  for (const Data_Set& set : data_)
    if (!ignore_delta && set.kind != Kind::full && set.lifeline == full.lifeline && set.based_on_set &&
        set.first - 1 <= at)
      base = std::max(base, set.order);
  std::time_t last = 0;
  for (const Other_Set& set : others_) {
    if (!set.holds_logs || set.lifeline != full.lifeline || set.order < base) continue;
    if (last != 0 && set.first != last) return false;
    if (set.lost) return true;
    if (set.first - 1 > at) last = set.first;
  }
  return false;
}

std::string History_Model::refusal_of_logs(std::time_t at, const Data_Set& full, bool ignore_delta,
                                           bool needs_logs) const {
  std::string codes;
  if (needs_logs && !logs_hold(at, full.lifeline)) codes = "logs_too_short";
  if (lacks_log(at, full, ignore_delta)) codes += codes.empty() ? "object_missing" : " object_missing";
  return codes;
}

Expectation History_Model::expect(const Target& target) const {
  if (target.set.empty()) return expect_time(target.time, target.ignore_delta);
  return expect_set(set_of(target), target.ignore_delta);
}

const History_Model::Data_Set& History_Model::set_of(const Target& target) const {
  return *std::find_if(data_.begin(), data_.end(), [&](const Data_Set& set) { return set.uuid == target.set; });
}

/// The other one's own catalog does not list this one's backups. Those that a full backup's name alone leads to can be
/// had.
Expectation History_Model::expect_copy(const Target& target) const {
  const Expectation here = expect(target);
  const bool by_name = !target.set.empty() && set_of(target).kind == Kind::full;
  if (!old_ || by_name || here.refusal == "unknown" || here.refusal == "no_full_backup") return here;
  return {"no_catalog", {}};
}

bool History_Model::is_beyond_old_hana(const Target& target) const {
  if (!old_ || !target.set.empty()) return false;
  const Data_Set* const full = full_for(target.time);
  return full != nullptr && full->first != target.time && full->lifeline != lifeline_;
}

Expectation History_Model::expect_set(const Data_Set& set, bool ignore_delta) const {
  if (set.kind == Kind::full) return {"", set.content};
  // HANA is told the time at which the delta ended. It takes the delta when it may, and when that builds on the full
  // backup of a set; else it needs logs.
  const Data_Set* const full = full_for(set.last);
  if (full == nullptr) return {"no_full_backup", {}};
  if (full->lifeline != set.lifeline) return {"not_restorable", {}};
  const std::string refusal = refusal_of_logs(set.last, *full, ignore_delta, ignore_delta || !set.based_on_set);
  return {refusal, refusal.empty() ? set.content : Content()};
}

Expectation History_Model::expect_time(std::time_t at, bool ignore_delta) const {
  if (data_.empty()) return {"unknown", {}};
  const Data_Set* const full = full_for(at);
  if (full == nullptr) return {"no_full_backup", {}};
  // The very begin of a full backup is that backup, found in HANA's newest catalog: which another branch may have
  // written.
  if (full->first == at) {
    if (full->lifeline != lifeline_ && !old_) return {"catalog_of_another_branch", {}};
    return {"", full->content};
  }
  const std::string refusal = refusal_of_logs(at, *full, ignore_delta, true);
  return {refusal, refusal.empty() ? content_at(at) : Content()};
}

std::vector<Target> History_Model::targets() const {
  std::vector<Target> targets;
  for (const std::time_t at : quiet_) targets.push_back({at, ""});
  for (const Moment& moment : moments_)
    if (moment.at != 0) targets.push_back({moment.at, ""});
  for (const Data_Set& set : data_) {
    targets.push_back({0, set.uuid});
    if (set.kind == Kind::full) targets.push_back({set.first, ""});
  }
  return targets;
}

}  // namespace histories
