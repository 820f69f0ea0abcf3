#include "server/recovery_strategy.h"

#include <algorithm>

namespace standin {

namespace {

using Entry = Catalog_Image::Entry;

constexpr const char* successful = "successful";

bool is_good(const Entry& entry) { return entry.state == successful; }

std::int64_t state_ms(const Entry& entry) { return entry.savepoint_ms != 0 ? entry.savepoint_ms : entry.start_ms; }

std::int64_t redo_of(const Entry& entry) {
  std::int64_t redo = 0;
  for (const auto& file : entry.files) redo = std::max(redo, file.redo);
  return redo;
}

/// Deltas of that full backup, which end where the next full one begins.
std::vector<const Entry*> deltas_of(const Catalog_Image& image, const Entry& full, std::int64_t limit_ms) {
  std::vector<const Entry*> found;
  for (const Entry& entry : image.entries) {
    if (!is_good(entry) || entry.type == log_backup || entry.backup_id <= full.backup_id) continue;
    if (entry.type == complete_backup) break;
    if (entry.branch == full.branch && state_ms(entry) <= limit_ms) found.push_back(&entry);
  }
  return found;
}

/// The newest differential and the incrementals behind it; each incremental starts from the delta before it.
void add_deltas(const Catalog_Image& image, const Entry& full, std::int64_t limit_ms, Recovery_Plan& plan) {
  const auto deltas = deltas_of(image, full, limit_ms);
  std::size_t first = 0;
  for (std::size_t i = 0; i < deltas.size(); ++i)
    if (deltas[i]->type == differential_backup) first = i;
  for (std::size_t i = first; i < deltas.size(); ++i) plan.data.push_back(*deltas[i]);
}

/// What log backups of each volume hold behind the position where the data backups end.
std::map<std::int64_t, std::vector<Log_Piece>> logs_behind(const Catalog_Image& image, const Entry& base,
                                                           std::int64_t position) {
  std::map<std::int64_t, std::vector<Log_Piece>> logs;
  for (const Entry& entry : image.entries) {
    // A log that is older than the data backup holds nothing that it lacks, whatever another branch's positions say.
    if (!entry.is_log || !is_good(entry) || entry.files.empty() || entry.backup_id < base.backup_id) continue;
    if (entry.log.last > position)
      logs[entry.files.front().source_id].push_back({entry.files.front(), entry.log, entry.branch, entry.backup_id});
  }
  for (auto& [volume, pieces] : logs)
    std::sort(pieces.begin(), pieces.end(), [](const Log_Piece& left, const Log_Piece& right) {
      return left.log.first != right.log.first ? left.log.first < right.log.first : left.backup_id < right.backup_id;
    });
  return logs;
}

/// A log may go on in another branch where that one began, nowhere else.
bool goes_on(const Catalog_Image& image, std::int64_t branch, std::int64_t position, const Log_Piece& next) {
  if (next.branch == branch) return true;
  return std::any_of(image.branches.begin(), image.branches.end(), [&](const Catalog_Image::Branch& known) {
    return known.id == next.branch && known.parent == branch && known.fork == position && next.log.first == position;
  });
}

struct Chain {
  std::int64_t position = 0, branch = 0, until_ms = 0;
  bool covers = false;
};

/// Follows one volume's logs up to the one that holds the target; the error's text.
std::string follow(const Catalog_Image& image, std::int64_t volume, std::vector<Log_Piece>& pieces, std::int64_t limit,
                   Chain& chain) {
  const std::string name = "the log of volume " + std::to_string(volume);
  std::size_t used = 0;
  for (; used < pieces.size() && !chain.covers; ++used) {
    const Log_Piece& piece = pieces[used];
    const std::string place =
        " between positions " + std::to_string(chain.position) + " and " + std::to_string(piece.log.first);
    if (piece.log.first > chain.position) return "[110093] " + name + " has a gap" + place;
    const bool overlaps = used > 0 && piece.log.first < chain.position;
    if (overlaps || !goes_on(image, chain.branch, chain.position, piece))
      return "[110094] " + name + " overlaps: backup " + std::to_string(piece.backup_id) + " begins at position " +
             std::to_string(piece.log.first) + ", the one before it ends at " + std::to_string(chain.position);
    chain = {piece.log.last, piece.branch, piece.log.until_ms, piece.log.until_ms > limit};
  }
  pieces.resize(used);
  return {};
}

std::string add_logs(const Catalog_Image& image, const Entry& full, std::int64_t limit, Recovery_Plan& plan) {
  const Entry& base = plan.data.back();
  const Chain start{redo_of(base), base.branch, state_ms(base), false};
  auto logs = logs_behind(image, base, start.position);
  std::vector<Chain> chains;
  for (const auto& file : full.files) {
    if (file.source_type != "volume") continue;
    if (plan.logs.contains(file.source_id)) continue;
    Chain chain = start;
    auto& pieces = plan.logs[file.source_id] = std::move(logs[file.source_id]);
    if (std::string error = follow(image, file.source_id, pieces, limit, chain); !error.empty()) return error;
    chains.push_back(chain);
  }
  // The volumes are consistent where the shortest of their logs ends.
  const auto shortest = std::min_element(chains.begin(), chains.end(), [](const Chain& left, const Chain& right) {
    return left.position < right.position;
  });
  if (shortest == chains.end()) return "[110095] the data backup has no volumes";
  plan.position = shortest->position;
  for (const Chain& chain : chains)
    if (!chain.covers) plan.short_at_ms = std::min(plan.short_at_ms.value_or(chain.until_ms), chain.until_ms);
  return {};
}

}  // namespace

std::string find_strategy(const Catalog_Image& image, const Strategy_Request& request, Recovery_Plan& plan) {
  const std::string name = "backup " + std::to_string(request.backup_id);
  const Entry* const full = image.data_backup(request.backup_id);
  if (full == nullptr) return "[110090] " + name + " is not in the backup catalog";
  if (full->type != complete_backup) return "[110090] " + name + " is no complete data backup";
  if (!is_good(*full)) return "[110090] " + name + " is " + full->state;
  plan.data = {*full};
  plan.position = redo_of(*full);
  if (!request.with_logs) return {};
  if (state_ms(*full) > request.limit_ms) return "[110092] " + name + " is newer than the time to recover to";
  if (request.with_deltas) add_deltas(image, *full, request.limit_ms, plan);
  return add_logs(image, *full, request.limit_ms, plan);
}

}  // namespace standin
