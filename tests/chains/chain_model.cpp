#include "chains/chain_model.h"

#include <algorithm>

namespace chains {

namespace {

bool is_recorded_full(const Backup& backup) { return backup.is_set() && backup.kind == Kind::full; }
bool is_full(const Backup& backup) { return backup.successful && backup.kind == Kind::full; }

}  // namespace

template <typename Condition>
std::optional<std::size_t> Chain_Model::newest(Condition condition) const {
  for (std::size_t place = backups_.size(); place-- > 0;)
    if (condition(backups_[place])) return place;
  return std::nullopt;
}

void Chain_Model::scheduled(std::time_t at, Kind wanted, const std::string& pool) {
  Backup fresh;
  fresh.at = at;
  fresh.wanted = wanted;
  fresh.pool = pool;
  fresh.lift_reason = reason_for_full(wanted, pool);
  fresh.kind = fresh.lift_reason.empty() ? wanted : Kind::full;
  fresh.base = base_in_hana(fresh.kind);
  count_to_chains(fresh);
  backups_.push_back(fresh);
}

void Chain_Model::failed(std::time_t at, Kind wanted, const std::string& pool) {
  scheduled(at, wanted, pool);
  backups_.back().successful = false;
}

void Chain_Model::made_to_files(std::time_t at) {
  Backup fresh;
  fresh.at = at;
  fresh.destination = Destination::files;
  backups_.push_back(fresh);
}

// A delta needs a full backup that was recorded, on the same pool, of data that was not replaced by a recovery since.
std::string Chain_Model::reason_for_full(Kind wanted, const std::string& pool) const {
  if (wanted == Kind::full) return "";
  const auto full = newest(is_recorded_full);
  if (!full) return "no full backup";
  if (backups_[*full].pool != pool) return "pool changed";
  if (recovered_ > backups_[*full].at) return "restored";
  return "";
}

// A lifeline goes on until the database is recovered. A full backup and what begins a lifeline begin an incarnation,
// a delta is counted to the newest full backup among the sets.
void Chain_Model::count_to_chains(Backup& fresh) const {
  const std::size_t own = backups_.size();
  const auto last = newest([](const Backup& backup) { return backup.is_set(); });
  const bool begins_lifeline = !last || recovered_ > backups_[*last].at;
  fresh.lifeline = begins_lifeline ? own : backups_[*last].lifeline;
  const auto full = newest(is_recorded_full);
  fresh.incarnation = begins_lifeline || fresh.kind == Kind::full ? own : full.value_or(own);
}

// HANA asks neither for the destination nor for the product: a differential backup builds on the newest full one, an
// incremental one on the newest data backup.
std::optional<std::size_t> Chain_Model::base_in_hana(Kind kind) const {
  if (kind == Kind::full) return std::nullopt;
  if (kind == Kind::differential) return newest(is_full);
  return newest([](const Backup& backup) { return backup.successful; });
}

std::vector<std::size_t> Chain_Model::needed_by_hana(std::size_t place) const {
  std::vector<std::size_t> chain{place};
  while (backups_[chain.back()].base) chain.push_back(*backups_[chain.back()].base);
  std::reverse(chain.begin(), chain.end());
  return chain;
}

bool Chain_Model::is_recorded_whole(std::size_t place) const {
  const std::vector<std::size_t> chain = needed_by_hana(place);
  return std::all_of(chain.begin(), chain.end(), [&](std::size_t link) {
    return backups_[link].is_set() && backups_[link].incarnation == backups_[place].incarnation;
  });
}

}  // namespace chains
