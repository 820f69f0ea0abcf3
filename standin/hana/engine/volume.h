#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "base/files.h"
#include "engine/ballast.h"

namespace standin {

/// Pages behind one index page of a stream.
inline constexpr std::uint64_t items_per_group = 510;
/// Lower numbers are pages of tables.
inline constexpr std::uint64_t ballast_numbers_from = 1ULL << 40;

/// The database as it was at one moment: a copy of its tables' pages, whose changes since earlier savepoints are known.
struct Savepoint {
  std::int64_t id = 0;
  std::int64_t ms = 0;                 ///< when it was: later commits are not in
  std::int64_t redo = 0;               ///< position in the redo log up to which commits are in
  std::string snapshot;                ///< file with the pages
  std::vector<std::uint64_t> changed;  ///< pages written after the base, all of them for a full backup
  std::int64_t ballast_since = 0;      ///< the base's newest change of ballast
  std::int64_t ballast_until = 0;      ///< the newest change of ballast that is in
};

/// Takes a savepoint; `base` is the savepoint that a delta starts from, 0 for a full backup.
std::optional<Savepoint> take_savepoint(System_State& state, const std::string& database, std::int64_t id,
                                        std::int64_t base);
void drop_savepoint_file(const Savepoint& savepoint);
/// Removes what backups left when their server died.
void drop_left_files(const Layout& layout);

/// What one service writes into one destination: a header page, then groups of an index page (numbers of the pages that
/// follow, 8 bytes each) and up to 510 pages. Never holds more than the caller's buffer.
class Volume_Stream {
 public:
  struct Content {
    std::string header;    ///< text of the header page
    std::string snapshot;  ///< file of the tables' pages
    std::vector<std::uint64_t> table_pages;
    std::vector<Ballast_Range> ballast;
    std::uint64_t ballast_seed = 0;
  };
  explicit Volume_Stream(Content content);
  [[nodiscard]] std::uint64_t size() const { return pages_ * page_bytes; }
  /// Fills whole pages; the bytes written, 0 at the end, nothing when the snapshot cannot be read.
  std::optional<std::size_t> read(char* buffer, std::size_t size);

 private:
  struct Place {
    std::uint64_t number = 0;  ///< of the table's or the ballast's page
    std::uint64_t version = 0;
    bool ballast = false;
  };
  [[nodiscard]] std::uint64_t items() const;
  [[nodiscard]] Place place_of(std::uint64_t item) const;
  [[nodiscard]] std::uint64_t page_number(std::uint64_t item) const;
  bool fill(std::uint64_t page, char* buffer);
  void fill_index(std::uint64_t group, char* buffer) const;
  Content content_;
  std::vector<std::uint64_t> ballast_ends_;  ///< of each range, in places of ballast pages
  Descriptor snapshot_;
  std::uint64_t pages_ = 0;
  std::uint64_t next_ = 0;
};

}  // namespace standin
