#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

/// What the name of a log backup's object tells: "log_backup_<volume>_<partition>_<first>_<last>", as HANA names the
/// pipe, also with ".<backup id>" behind it.
struct Log_Name {
  std::uint64_t volume = 0;
  std::uint64_t partition = 0;
  std::uint64_t first = 0;  ///< log position it begins at
  std::uint64_t last = 0;   ///< log position it ends before: the next one begins there

  /// None for another name, for that of HANA's own catalog, and for positions that run backwards.
  [[nodiscard]] static std::optional<Log_Name> parse(std::string_view filename);
};

/// True for the name of HANA's own catalog among log backups.
[[nodiscard]] bool is_catalog_name(std::string_view filename);

/// Volume of a data backup's object, "<prefix>_databackup_<volume>_<part>"; none for another name.
[[nodiscard]] std::optional<std::uint64_t> data_volume(std::string_view filename);

/// HANA's id of the backup that a delta builds on, by its object
/// "<prefix>_databackup_<kind>_<base>_<id>_<volume>_<part>", kind "incremental" or "differential"; none for another
/// name.
[[nodiscard]] std::optional<std::uint64_t> delta_base(std::string_view filename);

/// How the logs of a service begin behind a data backup. Its own position stands in no name, but it is not before the
/// end of a log that was saved before it.
enum class Log_Start {
  joined,    ///< the logs from before it end where those behind it begin, or later
  unproven,  ///< none from before it are known
  gap        ///< positions in between are in no log that is known
};

/// `end_before`: where the last log ends that was saved before the data backup; `first`: where the first one behind it
/// begins.
[[nodiscard]] Log_Start log_start(std::optional<std::uint64_t> end_before, std::uint64_t first);

/// The log positions of one service that are backed up, put together from backups in HANA's order. Logs may come late
/// and fill a gap. After a recovery HANA writes positions again that it had written before: such a log begins a branch,
/// and what the former one holds from there on does not belong to it. Positions are half open: [first, last).
class Log_Positions {
 public:
  /// One backup's share. `set` is the caller's number of the backup set.
  struct Piece {
    std::uint64_t first = 0;
    std::uint64_t last = 0;
    std::size_t set = 0;
  };
  struct Gap {
    std::uint64_t from = 0;
    std::uint64_t to = 0;
    std::size_t after = 0;   ///< set that ends before it
    std::size_t before = 0;  ///< set that begins behind it
  };
  /// Where the positions were written a second time.
  struct Overlap {
    std::uint64_t from = 0;
    std::uint64_t to = 0;    ///< where the former branch ended
    std::size_t former = 0;  ///< set of the former branch that held `from`, or the first one behind it
    std::size_t set = 0;     ///< set that begins the branch
  };

  /// Takes the next backup. A repeated one (same positions) changes nothing.
  void add(const Piece& piece);

  [[nodiscard]] bool empty() const { return pieces_.empty(); }
  [[nodiscard]] std::uint64_t first() const { return pieces_.front().first; }
  [[nodiscard]] std::uint64_t last() const { return pieces_.back().last; }
  [[nodiscard]] std::vector<Gap> gaps() const;
  [[nodiscard]] const std::vector<Overlap>& overlaps() const { return overlaps_; }
  /// The last one before the first gap. Not for an empty object.
  [[nodiscard]] const Piece& end_of_first_run() const;
  [[nodiscard]] const Piece& front() const { return pieces_.front(); }

 private:
  void begin_branch(const Piece& piece);

  std::vector<Piece> pieces_;  ///< by position, none overlaps another
  std::vector<Overlap> overlaps_;
};
