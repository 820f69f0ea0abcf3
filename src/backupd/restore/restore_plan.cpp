#include "backupd/restore/restore_plan.h"

#include <algorithm>

#include "backupd/restore/restore_plan_logs.h"

namespace backupd {

namespace {

/// Backup sets that are tried as the nearest one: each is a plan of its own.
constexpr int most_tries = 8;

std::string service_label(const Service_Logs& service) {
  return "volume " + std::to_string(service.volume) +
         (service.partition == 0 ? "" : "." + std::to_string(service.partition));
}

class Planner {
 public:
  explicit Planner(const Restore_Question& question) : question_(question) { plan_.time = question.time; }

  Restore_Plan plan() {
    if (question_.waiting_logs > 0) note_waiting();
    if (!check_wish()) return std::move(plan_);
    plan_.full = question_.full;
    plan_.lifeline = question_.full->lifeline;
    plan_.full_only =
        question_.wanted == nullptr ? question_.full->first_time == question_.time : question_.wanted->is_full();
    check_usable(*plan_.full);
    if (plan_.full_only)
      plan_full();
    else
      plan_recovery();
    return std::move(plan_);
  }

 private:
  void refuse(const char* code, std::string message, json_spirit::Object details = {}) {
    plan_.refusals.push_back({code, std::move(message), std::move(details)});
  }
  void note(const char* code, std::string message) { plan_.notes.push_back({code, std::move(message), {}}); }

  bool check_wish() {
    if (question_.wanted != nullptr && !question_.wanted->is_full() && !question_.wanted->is_delta()) {
      refuse(refusal::not_restorable, "the backup set " + question_.wanted->uuid + " holds a " +
                                          question_.wanted->type +
                                          " backup, which is no start of a restore; name a full, incremental or "
                                          "differential one, or a time");
      return false;
    }
    if (question_.full == nullptr) {
      refuse_without_full();
      return false;
    }
    if (question_.wanted == nullptr || question_.wanted->lifeline == question_.full->lifeline) return true;
    refuse(refusal::not_restorable, set_label(*question_.wanted) +
                                        " is no longer the newest part of the history at its end, so HANA would be "
                                        "given another one; choose a time and its lifeline");
    return false;
  }

  void refuse_without_full() {
    std::string message = "no full backup of " + question_.database + " that still lies on a pool had begun by " +
                          question_.time + " UTC in that part of its history";
    find_after();
    if (const Plan_Set* const earlier = earlier_full()) {
      message += "; the database was recovered since " + set_label(*earlier) + ", to which you can go back as a set";
      plan_.before = whole(*earlier);
    } else if (plan_.after) {
      message += "; the first one can be had at " + plan_.after->time;
    } else {
      message += "; make one";
    }
    refuse(refusal::no_full, std::move(message));
  }

  /// The newest full backup of another branch that can be had as a set; null: none.
  [[nodiscard]] const Plan_Set* earlier_full() const {
    int tries = 0;
    for (auto set = question_.data.rbegin(); set != question_.data.rend() && tries < most_tries; ++set) {
      if (!set->is_full() || set->pool_uuid.empty() || set->first_time > question_.time) continue;
      ++tries;
      if (can_be_had(whole(*set))) return &*set;
    }
    return nullptr;
  }

  void check_usable(const Plan_Set& set) {
    if (!set.pool_uuid.empty()) return;
    std::string message = set_label(set) + " lies on no pool any more";
    if (set.is_delta()) message += "; leave the deltas out (ignore_delta): logs from the full backup on take its place";
    refuse(refusal::set_missing, std::move(message), {{"set", set.uuid}});
  }

  void plan_full() {
    if (question_.wanted != nullptr) return;
    if (question_.ancient && question_.copy) return refuse_foreign_catalog();
    if (question_.ancient) return;
    const Plan_Set* const catalog = question_.newest_catalog;
    if (catalog != nullptr && catalog->lifeline == plan_.lifeline && catalog->knows(*plan_.full)) {
      plan_.catalog = catalog;
      check_usable(*catalog);
      return;
    }
    const std::string way_out = "; restore it by its set instead: " + plan_.full->uuid;
    if (can_be_had(whole(*plan_.full))) plan_.before = whole(*plan_.full);
    if (catalog == nullptr)
      refuse(refusal::no_catalog, "HANA would look " + set_label(*plan_.full) +
                                      " up in its catalog, and no backup of that is here" + way_out);
    else
      refuse(refusal::other_catalog, "HANA would look " + set_label(*plan_.full) +
                                         " up in the newest backup of its catalog, of " + catalog->first_time +
                                         ", which need not list it" + way_out);
  }

  /// An old HANA asks nobody for a catalog. A set's name alone leads it to a full backup that its own does not list.
  void refuse_foreign_catalog() {
    std::string message =
        "this version of HANA looks backups up in its own catalog alone, and that of another database "
        "lists none of " +
        question_.database;
    if (can_be_had(whole(*plan_.full))) {
      plan_.before = whole(*plan_.full);
      message += "; restore " + set_label(*plan_.full) + " by its set instead: " + plan_.full->uuid;
    }
    refuse(refusal::no_catalog, std::move(message));
  }

  void plan_recovery() {
    if (question_.ancient && question_.copy) return refuse_foreign_catalog();
    plan_.catalog = question_.catalog;
    plan_.staged = true;
    if (plan_.catalog == nullptr)
      return refuse(refusal::no_catalog, "HANA's own catalog was not backed up since " + set_label(*plan_.full) +
                                             ", and a recovery needs it; restore that backup by its set, or let HANA "
                                             "back its catalog up through Backint");
    check_usable(*plan_.catalog);
    check_catalog_knows(*plan_.full);
    if (!question_.ignore_delta) choose_deltas();
    const bool wanted_used =
        question_.wanted != nullptr && !plan_.deltas.empty() && plan_.deltas.back()->uuid == question_.wanted->uuid;
    const Plan_Set& base = plan_.deltas.empty() ? *plan_.full : *plan_.deltas.back();
    take_logs(base, wanted_used);
  }

  void check_catalog_knows(const Plan_Set& set) {
    if (plan_.catalog->knows(set)) return;
    refuse(refusal::old_catalog, "the newest backup of HANA's catalog, of " + plan_.catalog->first_time +
                                     ", does not list " + set_label(set) + " yet; wait for the next one");
  }

  /// Those that HANA takes: the newest differential backup, then the incremental ones behind it.
  void choose_deltas() {
    for (const Plan_Set& set : question_.data) {
      if (!set.is_delta() || set.lifeline != plan_.lifeline || set.backup_id <= plan_.full->backup_id ||
          set.begin() > plan_.time)
        continue;
      if (question_.ancient)
        note(plan_note::ancient,
             "this version of HANA takes no delta in a recovery; the logs from the full backup on "
             "take the place of " +
                 set_label(set));
      else if (set.incarnation != plan_.full->incarnation)
        note(plan_note::no_base, set_label(set) + " builds on a full backup that is not the one of this restore (" +
                                     set.incarnation + ") and is left out; logs take its place");
      else if (!builds_on_taken(set))
        note(plan_note::no_base, set_label(set) + " builds on a backup that is none of this restore's (" +
                                     std::to_string(*set.base_id()) + ") and is left out; logs take its place");
      else if (!plan_.catalog->knows(set))
        check_wanted_is_known(set);
      else
        take_delta(set);
    }
    for (const Plan_Set* set : plan_.deltas) check_usable(*set);
  }

  /// HANA tells in a delta's names what it builds on. That is no backup that is known here when HANA has made one into
  /// files meanwhile.
  [[nodiscard]] bool builds_on_taken(const Plan_Set& set) const {
    const auto base = set.base_id();
    return !base || *base <= plan_.full->backup_id ||
           std::any_of(plan_.deltas.begin(), plan_.deltas.end(),
                       [&](const Plan_Set* taken) { return taken->backup_id == *base; });
  }

  void check_wanted_is_known(const Plan_Set& set) {
    if (question_.wanted != nullptr && question_.wanted->uuid == set.uuid) check_catalog_knows(set);
  }

  void take_delta(const Plan_Set& set) {
    if (set.type == type_differential) plan_.deltas.clear();
    plan_.deltas.push_back(&set);
  }

  /// `whole`: the data backups alone give what is wanted; logs behind them are replayed, but need not reach the time.
  void take_logs(const Plan_Set& base, bool whole) {
    const auto services = logs_behind(question_.logs, *plan_.full, base, *plan_.catalog, plan_.time);
    std::string reached;
    bool short_of = services.empty();
    for (const Service_Logs& service : services) {
      plan_.logs.insert(plan_.logs.end(), service.steps.begin(), service.steps.end());
      for (const Plan_Log& log : service.steps) check_usable(*log.set);
      refuse_gaps(service);
      if (service.unproven)
        note(plan_note::unproven, service_label(service) + ": no log on a pool joins " + set_label(base) +
                                      " and the first log behind it; HANA tells when it begins");
      if (service.reaches) continue;
      short_of = true;
      // What a service without a log has is what the data backup holds.
      const std::string end = std::max(service.end, base.first_time);
      if (reached.empty() || end < reached) reached = end;
    }
    if (short_of && !whole) refuse_short(services, base, reached);
  }

  void refuse_gaps(const Service_Logs& service) {
    for (const auto& gap : service.gaps)
      refuse(refusal::gap,
             "the logs of " + service_label(service) + " have a gap: from position " + std::to_string(gap.from) +
                 " to " + std::to_string(gap.to) + ", between " + set_label(*service.sources[gap.after]) + " and " +
                 set_label(*service.sources[gap.before]),
             gap_details(service, gap.from, gap.to));
    for (const auto& overlap : service.overlaps)
      refuse(refusal::overlap,
             "the logs of " + service_label(service) + " hold the positions from " + std::to_string(overlap.from) +
                 " to " + std::to_string(overlap.to) + " twice, in " + set_label(*service.sources[overlap.former]) +
                 " and " + set_label(*service.sources[overlap.set]) + "; HANA refuses them",
             gap_details(service, overlap.from, overlap.to));
  }

  static json_spirit::Object gap_details(const Service_Logs& service, std::uint64_t from, std::uint64_t to) {
    return {{"volume", service.volume}, {"partition", service.partition}, {"from", from}, {"to", to}};
  }

  void refuse_short(const std::vector<Service_Logs>& services, const Plan_Set& base, const std::string& reached) {
    json_spirit::Array volumes;
    for (const Service_Logs& service : services)
      if (!service.reaches) volumes.emplace_back(service.volume);
    // The data backup that the logs follow can be had whole, as a set.
    if (services.empty() || reached <= base.first_time)
      find_before(whole(base));
    else
      find_before({reached, {}});
    find_after();
    // A clock that is behind HANA's own does not keep from a time that the logs hold.
    const bool future = question_.time > question_.now;
    std::string message = why_short(services, base, future);
    message += "; nearest before it: " + label_of(plan_.before) + ", after it: " + label_of(plan_.after);
    refuse(future ? refusal::future : refusal::too_short, std::move(message), {{"volumes", volumes}});
  }

  [[nodiscard]] std::string why_short(const std::vector<Service_Logs>& services, const Plan_Set& base,
                                      bool future) const {
    if (future) return "the time " + plan_.time + " UTC lies in the future (now is " + question_.now + ")";
    if (services.empty()) return "no logs of " + question_.database + " are backed up since " + set_label(base);
    return "the logs of " + question_.database + " do not reach " + plan_.time + " UTC";
  }

  static Recoverable whole(const Plan_Set& set) { return {set.is_full() ? set.first_time : set.last_time, set.uuid}; }

  static std::string label_of(const std::optional<Recoverable>& point) {
    if (!point) return "none";
    return point->time + (point->set.empty() ? "" : " (set " + point->set + ")");
  }

  [[nodiscard]] bool can_be_had(const Recoverable& point) const {
    return !question_.can_be_had || question_.can_be_had(point);
  }

  /// What the logs tell, or else the next older data backup that can be had as a set.
  void find_before(const Recoverable& best) {
    if (can_be_had(best)) {
      plan_.before = best;
      return;
    }
    int tries = 0;
    for (auto set = question_.data.rbegin(); set != question_.data.rend() && tries < most_tries; ++set) {
      const Recoverable point = whole(*set);
      if (set->pool_uuid.empty() || point.set == best.set || point.time > best.time) continue;
      ++tries;
      if (!can_be_had(point)) continue;
      plan_.before = point;
      return;
    }
  }

  /// The next data backup that can be had as a set.
  void find_after() {
    int tries = 0;
    for (const Plan_Set& set : question_.data) {
      if (set.first_time <= question_.time || set.pool_uuid.empty()) continue;
      const bool follows = set.is_delta() && !question_.ignore_delta && plan_.full != nullptr &&
                           set.lifeline == plan_.lifeline && set.incarnation == plan_.full->incarnation;
      if (!set.is_full() && !follows) continue;
      if (tries++ == most_tries) return;
      if (!can_be_had(whole(set))) continue;
      plan_.after = whole(set);
      return;
    }
  }

  void note_waiting() {
    note(plan_note::waiting, std::to_string(question_.waiting_logs) + " backups of logs of " + question_.database +
                                 " are saved and wait to be recorded; a plan does not know them yet");
  }

  const Restore_Question& question_;
  Restore_Plan plan_;
};

}  // namespace

Restore_Plan plan_restore(const Restore_Question& question) { return Planner(question).plan(); }

}  // namespace backupd
