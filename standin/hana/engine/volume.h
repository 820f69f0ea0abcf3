#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "base/files.h"
#include "engine/system_state.h"

namespace standin {

inline constexpr std::size_t page_bytes = 4096;

/// The database as it was at one moment: a copy of its tables' pages, whose changes since earlier savepoints are known.
struct Savepoint {
  std::int64_t id = 0;
  std::int64_t redo = 0;  ///< position in the redo log up to which commits are in
  std::string snapshot;   ///< file with the pages
  std::vector<std::uint64_t> changed;  ///< pages written after the base, all of them for a full backup
};

/// Takes a savepoint; `base` is the savepoint that a delta starts from, 0 for a full backup.
std::optional<Savepoint> take_savepoint(System_State& state, const std::string& database, std::int64_t id,
                                        std::int64_t base);
void drop_savepoint_file(const Savepoint& savepoint);

/// What one service writes into one destination: a header page, then groups of an index page (numbers of the pages that
/// follow, 8 bytes each) and up to 510 pages. Never holds more than the caller's buffer.
class Volume_Stream {
 public:
  struct Content {
    std::string header;   ///< text of the header page
    std::string snapshot; ///< file of the tables' pages
    std::vector<std::uint64_t> table_pages;
    std::uint64_t ballast_first = 0;
    std::uint64_t ballast_pages = 0;
    std::uint64_t ballast_seed = 0;
  };
  explicit Volume_Stream(Content content);
  [[nodiscard]] std::uint64_t size() const { return pages_ * page_bytes; }
  /// Fills whole pages; the bytes written, 0 at the end, nothing when the snapshot cannot be read.
  std::optional<std::size_t> read(char* buffer, std::size_t size);

 private:
  [[nodiscard]] std::uint64_t items() const { return content_.table_pages.size() + content_.ballast_pages; }
  [[nodiscard]] std::uint64_t page_number(std::uint64_t item) const;
  bool fill(std::uint64_t page, char* buffer);
  void fill_index(std::uint64_t group, char* buffer) const;
  Content content_;
  Descriptor snapshot_;
  std::uint64_t pages_ = 0;
  std::uint64_t next_ = 0;
};

}  // namespace standin
