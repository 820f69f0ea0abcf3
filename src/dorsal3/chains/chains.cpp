#include "dorsal3/chains/chains.h"

#include <algorithm>
#include <set>

#include "dorsal3/server/resources.h"

namespace dorsal3 {

namespace {

constexpr std::size_t shortest_id = 8;

using Set = const json_spirit::Object*;

/// A full backup and what builds on it.
struct Chain {
  std::string lifeline;
  std::string incarnation;
  Set full = nullptr;
  std::vector<Set> deltas;  ///< oldest first
};

bool is_kind(Set set, const char* kind) { return text_member(*set, "type") == kind; }

bool is_online(Set set) { return dorsal3::is_online(*set); }

/// HANA's ids grow with time. Sets of one id, or without one, keep the order in which they were committed.
bool is_older(Set left, Set right) {
  const std::uint64_t left_id = number_member(*left, "database_backup_id");
  const std::uint64_t right_id = number_member(*right, "database_backup_id");
  return left_id != right_id ? left_id < right_id : number_member(*left, "id") < number_member(*right, "id");
}

std::vector<Chain> to_chains(std::vector<Set> sets) {
  std::stable_sort(sets.begin(), sets.end(), is_older);
  std::vector<Chain> chains;
  std::map<std::pair<std::string, std::string>, std::size_t> places;
  for (Set set : sets) {
    const std::string lifeline = text_member(*set, "lifeline");
    const std::string incarnation = text_member(*set, "incarnation");
    const auto [place, is_new] = places.try_emplace({lifeline, incarnation}, chains.size());
    if (is_new) chains.push_back({lifeline, incarnation, nullptr, {}});
    Chain& chain = chains[place->second];
    // Only the full backup that began the incarnation is its root.
    if (is_kind(set, kind_full) && chain.full == nullptr)
      chain.full = set;
    else
      chain.deltas.push_back(set);
  }
  return chains;
}

/// For each delta, and at the end for an incremental that would come next, the set that it builds on and that is not
/// there; null when all are. A differential backup builds on the full one, an incremental on the data backup before it.
std::vector<Set> missing_bases(const Chain& chain) {
  const Set without_full = chain.full == nullptr || is_online(chain.full) ? nullptr : chain.full;
  Set without_last = without_full;
  std::vector<Set> missing;
  for (Set delta : chain.deltas) {
    missing.push_back(is_kind(delta, kind_incremental) ? without_last : without_full);
    without_last = is_online(delta) ? missing.back() : delta;
  }
  missing.push_back(without_last);
  return missing;
}

class Chain_Model {
 public:
  explicit Chain_Model(const Chain_Source& source) : source_(source), chains_(to_chains(source.sets)) {}

  [[nodiscard]] json_spirit::Object model() const {
    return {{"lifelines", lifelines()},
            {"next_incremental", next(kind_incremental)},
            {"next_differential", next(kind_differential)}};
  }

 private:
  [[nodiscard]] json_spirit::Array lifelines() const {
    std::vector<std::pair<std::string, json_spirit::Array>> lifelines;
    for (const Chain& chain : chains_) {
      auto found = std::find_if(lifelines.begin(), lifelines.end(),
                                [&](const auto& lifeline) { return lifeline.first == chain.lifeline; });
      if (found == lifelines.end()) found = lifelines.insert(found, {chain.lifeline, {}});
      found->second.emplace_back(chain_model(chain));
    }
    json_spirit::Array list;
    for (auto& [lifeline, chains] : lifelines)
      list.emplace_back(
          json_spirit::Object{{"lifeline", lifeline}, {"short_id", name(lifeline)}, {"chains", std::move(chains)}});
    return list;
  }

  [[nodiscard]] json_spirit::Object chain_model(const Chain& chain) const {
    json_spirit::Object model{{"incarnation", chain.incarnation}};
    if (chain.full != nullptr)
      model["full"] = set_model(chain.full, "");
    else
      model["broken"] = why_rootless(chain);
    const std::vector<Set> missing = missing_bases(chain);
    json_spirit::Array deltas;
    for (std::size_t i = 0; i < chain.deltas.size(); ++i)
      deltas.emplace_back(set_model(chain.deltas[i], missing_text(missing[i])));
    model["deltas"] = std::move(deltas);
    return model;
  }

  [[nodiscard]] std::string why_rootless(const Chain& chain) const {
    for (Set set : source_.sets)
      if (text_member(*set, "uuid") == chain.incarnation)
        return is_kind(set, kind_full) ? "its full backup " + name(set) + " belongs to another lifeline"
                                       : "it was begun without a full backup";
    return source_.list->is_complete(kind_full) ? "its full backup is gone"
                                                : "its full backup is not among the sets shown";
  }

  [[nodiscard]] std::string missing_text(Set missing) const {
    return missing == nullptr ? "" : "builds on " + name(missing) + ", which is missing";
  }

  [[nodiscard]] json_spirit::Object set_model(Set set, const std::string& broken) const {
    json_spirit::Array pools;
    for (const auto& storage : object_rows(*set, "storages"))
      pools.emplace_back(pool_name(text_member(storage, "pool_uuid")));
    json_spirit::Object model{{"uuid", text_member(*set, "uuid")},
                              {"short_id", name(set)},
                              {"type", text_member(*set, "type")},
                              {"database_backup_id", number_member(*set, "database_backup_id")},
                              {"start_time", text_member(*set, "start_time")},
                              {"last_time", text_member(*set, "last_time")},
                              {"source_size", number_member(*set, "source_size")},
                              {"stored_size", stored_size(*set)},
                              {"state", is_online(set) ? "online" : "missing"},
                              {"pools", std::move(pools)}};
    for (const char* key : {"requested_type", "lift_reason"})
      if (const std::string text = text_member(*set, key); !text.empty()) model[key] = text;
    if (!broken.empty()) model["broken"] = broken;
    return model;
  }

  /// What becomes of the next backup that is asked for as `kind`, by what the server knows; that HANA itself knows of a
  /// restore since shows only when it runs.
  [[nodiscard]] json_spirit::Object next(const char* kind) const {
    const Chain* newest = nullptr;
    Set last = nullptr;
    for (const Chain& chain : chains_) {
      if (chain.full != nullptr && (newest == nullptr || is_older(newest->full, chain.full))) newest = &chain;
      for (Set set : chain.deltas)
        if (last == nullptr || is_older(last, set)) last = set;
    }
    if (newest == nullptr)
      return becomes_full(source_.list->is_complete(kind_full) ? "there is no full backup"
                                                               : "there is no full backup among the sets shown");
    if (!is_online(newest->full))
      return becomes_full("the newest full backup " + name(newest->full) + " is not on its pool any more");
    if (last != nullptr && is_older(newest->full, last) && text_member(*last, "lifeline") != newest->lifeline)
      return becomes_full("the database was restored after its newest full backup " + name(newest->full));
    const bool on_last = kind == std::string(kind_incremental) && !newest->deltas.empty();
    return builds_on(kind, on_last ? newest->deltas.back() : newest->full,
                     on_last ? missing_bases(*newest).back() : nullptr, newest->full);
  }

  static json_spirit::Object becomes_full(const std::string& reason) {
    return {{"becomes", kind_full}, {"reason", reason}};
  }

  [[nodiscard]] json_spirit::Object builds_on(const char* kind, Set base, Set missing, Set full) const {
    json_spirit::Object next{{"becomes", kind},
                             {"based_on", text_member(*base, "uuid")},
                             {"based_on_short_id", name(base)},
                             {"pool", pool_name(text_member(*full, "pool_uuid"))}};
    if (missing != nullptr)
      next["warning"] = "it " + missing_text(missing) + ", and could not be restored: make a full backup";
    return next;
  }

  [[nodiscard]] std::string name(Set set) const { return name(text_member(*set, "uuid")); }

  [[nodiscard]] std::string name(const std::string& uuid) const {
    const auto found = source_.short_ids.find(uuid);
    return found == source_.short_ids.end() ? uuid : found->second;
  }

  [[nodiscard]] std::string pool_name(const std::string& uuid) const {
    const auto found = source_.pool_names.find(uuid);
    return found == source_.pool_names.end() ? uuid : found->second;
  }

  const Chain_Source& source_;
  const std::vector<Chain> chains_;
};

}  // namespace

json_spirit::Object database_chains(const Chain_Source& source) { return Chain_Model(source).model(); }

std::map<std::string, std::string> short_ids(const std::vector<std::string>& ids) {
  // Of sorted ids only neighbours can share more than any other two.
  const std::set<std::string> sorted(ids.begin(), ids.end());
  const auto shared = [](const std::string& left, const std::string& right) {
    return static_cast<std::size_t>(std::mismatch(left.begin(), left.end(), right.begin(), right.end()).first -
                                    left.begin());
  };
  std::map<std::string, std::string> names;
  for (auto id = sorted.begin(); id != sorted.end(); ++id) {
    std::size_t length = shortest_id;
    if (id != sorted.begin()) length = std::max(length, shared(*id, *std::prev(id)) + 1);
    if (std::next(id) != sorted.end()) length = std::max(length, shared(*id, *std::next(id)) + 1);
    names[*id] = id->substr(0, length);
  }
  return names;
}

bool is_online(const json_spirit::Object& set) {
  for (const auto& storage : object_rows(set, "storages")) {
    json_spirit::Array states;
    if (json_spirit::object_get(storage, "state", states) && !states.empty()) return true;
  }
  return false;
}

std::uint64_t stored_size(const json_spirit::Object& set) {
  std::uint64_t stored = 0;
  for (const auto& file : object_rows(set, "files")) stored += number_member(file, "storage_size");
  return stored > 0 ? stored : number_member(set, "total_size");
}

}  // namespace dorsal3
