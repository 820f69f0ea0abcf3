#include "records/log_positions.h"

#include <algorithm>

#include "scrt/numbers.h"

namespace {

constexpr std::string_view log_prefix = "log_backup_";
constexpr std::string_view catalog_numbers = "0_0_0_0";
constexpr std::string_view data_mark = "_databackup_";
constexpr std::string_view delta_kinds[] = {"incremental_", "differential_"};

/// Takes the number before the next '_', or the rest.
bool take_number(std::string_view& text, std::uint64_t& value) {
  const std::size_t end = std::min(text.find('_'), text.size());
  if (!parse_uint64(text.substr(0, end), value)) return false;
  text.remove_prefix(std::min(end + 1, text.size()));
  return true;
}

/// What stands between the prefix and a backup id; empty for another name.
std::string_view numbers_of(std::string_view filename) {
  if (!filename.starts_with(log_prefix)) return {};
  filename.remove_prefix(log_prefix.size());
  return filename.substr(0, filename.find('.'));
}

}  // namespace

std::optional<Log_Name> Log_Name::parse(std::string_view filename) {
  std::string_view numbers = numbers_of(filename);
  // Each number ends at a '_' but the last one.
  if (std::count(numbers.begin(), numbers.end(), '_') != 3 || numbers == catalog_numbers) return std::nullopt;
  Log_Name name;
  for (std::uint64_t* number : {&name.volume, &name.partition, &name.first, &name.last})
    if (!take_number(numbers, *number)) return std::nullopt;
  if (name.last < name.first) return std::nullopt;
  return name;
}

bool is_catalog_name(std::string_view filename) { return numbers_of(filename) == catalog_numbers; }

std::optional<std::uint64_t> data_volume(std::string_view filename) {
  const std::size_t mark = filename.rfind(data_mark);
  std::uint64_t volume = 0;
  if (mark == std::string_view::npos) return std::nullopt;
  filename.remove_prefix(mark + data_mark.size());
  if (!take_number(filename, volume)) return std::nullopt;
  return volume;
}

std::optional<std::uint64_t> delta_base(std::string_view filename) {
  const std::size_t mark = filename.rfind(data_mark);
  if (mark == std::string_view::npos) return std::nullopt;
  filename.remove_prefix(mark + data_mark.size());
  for (const std::string_view kind : delta_kinds) {
    if (!filename.starts_with(kind)) continue;
    filename.remove_prefix(kind.size());
    std::uint64_t base = 0;
    if (std::count(filename.begin(), filename.end(), '_') == 3 && take_number(filename, base)) return base;
  }
  return std::nullopt;
}

Log_Start log_start(std::optional<std::uint64_t> end_before, std::uint64_t first) {
  if (!end_before) return Log_Start::unproven;
  return *end_before < first ? Log_Start::gap : Log_Start::joined;
}

void Log_Positions::add(const Piece& piece) {
  if (piece.first >= piece.last) return;
  const auto meets = [&](const Piece& known) { return piece.first < known.last && known.first < piece.last; };
  const auto known = std::find_if(pieces_.begin(), pieces_.end(), meets);
  if (known != pieces_.end()) {
    if (known->first == piece.first && known->last == piece.last) return;
    begin_branch(piece);
  }
  const auto place =
      std::find_if(pieces_.begin(), pieces_.end(), [&](const Piece& later) { return later.first >= piece.last; });
  pieces_.insert(place, piece);
}

void Log_Positions::begin_branch(const Piece& piece) {
  const auto former =
      std::find_if(pieces_.begin(), pieces_.end(), [&](const Piece& known) { return known.last > piece.first; });
  overlaps_.push_back({piece.first, pieces_.back().last, former->set, piece.set});
  if (former->first < piece.first) {
    former->last = piece.first;
    pieces_.erase(std::next(former), pieces_.end());
  } else {
    pieces_.erase(former, pieces_.end());
  }
}

std::vector<Log_Positions::Gap> Log_Positions::gaps() const {
  std::vector<Gap> gaps;
  for (std::size_t i = 1; i < pieces_.size(); ++i)
    if (const Piece& before = pieces_[i - 1], &after = pieces_[i]; before.last < after.first)
      gaps.push_back({before.last, after.first, before.set, after.set});
  return gaps;
}

const Log_Positions::Piece& Log_Positions::end_of_first_run() const {
  std::size_t end = 0;
  while (end + 1 < pieces_.size() && pieces_[end].last >= pieces_[end + 1].first) ++end;
  return pieces_[end];
}
