#include "engine/volume.h"

#include <fcntl.h>
#include <openssl/sha.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>

#include "base/clock.h"
#include "engine/tables.h"

namespace standin {

namespace {

/// Reads through a connection of its own: the one that keeps writers away cannot be copied from.
bool copy_tables(const std::string& tables, const std::string& path) {
  ::unlink(path.c_str());
  Sqlite from, to;
  if (!from.open(tables) || !to.open(path)) return false;
  sqlite3_backup* const copy = sqlite3_backup_init(to.raw(), "main", from.raw(), "main");
  if (copy == nullptr) return false;
  sqlite3_backup_step(copy, -1);
  return sqlite3_backup_finish(copy) == SQLITE_OK;
}

/// The log is held meanwhile: a commit needs it before it writes its pages, so the position fits them, and transactions
/// that are open do not keep a backup waiting.
bool copy_with_position(System_State& state, const std::string& database, Savepoint& savepoint) {
  Sqlite tables;
  if (!open_tables(tables, state.tables_file(database))) return false;
  if (!state.sqlite().execute("BEGIN IMMEDIATE")) return false;
  {
    Statement top = state.sqlite().prepare("SELECT coalesce(max(position),0) FROM redo WHERE db=?");
    if (top.bind(1, database).step()) savepoint.redo = top.number(0);
  }
  savepoint.ms = now_ms();
  savepoint.ballast_until = newest_ballast_change(state, database);
  const bool good = copy_tables(state.tables_file(database), savepoint.snapshot);
  return state.sqlite().execute("COMMIT") && good;
}

bool note_changes(System_State& state, const std::string& database, const Savepoint& savepoint) {
  const Descriptor file(::open(savepoint.snapshot.c_str(), O_RDONLY | O_CLOEXEC));
  if (!file.valid() || !state.sqlite().execute("BEGIN IMMEDIATE")) return false;
  Statement known = state.sqlite().prepare("SELECT hash FROM pages WHERE db=? AND page=?");
  Statement write = state.sqlite().prepare("INSERT OR REPLACE INTO pages VALUES(?,?,?,?)");
  char page[page_bytes];
  std::int64_t number = 0;
  bool good = true;
  for (; good && ::pread(file.get(), page, sizeof page, number * static_cast<off_t>(page_bytes)) ==
                     static_cast<ssize_t>(page_bytes);
       ++number) {
    std::string hash(SHA256_DIGEST_LENGTH, '\0');
    SHA256(reinterpret_cast<const unsigned char*>(page), sizeof page, reinterpret_cast<unsigned char*>(hash.data()));
    sqlite3_reset(known.raw());
    if (known.bind(1, database).bind(2, number).step() && known.text(0) == hash) continue;
    good = write.bind(1, database).bind(2, number).bind_blob(3, hash).bind(4, savepoint.id).run();
  }
  sqlite3_reset(known.raw());
  Statement shorter = state.sqlite().prepare("DELETE FROM pages WHERE db=? AND page>=?");
  good = good && shorter.bind(1, database).bind(2, number).run();
  Statement row = state.sqlite().prepare("INSERT OR REPLACE INTO savepoints VALUES(?,?,?,?,?)");
  row.bind(1, database).bind(2, savepoint.id).bind(3, savepoint.ms).bind(4, savepoint.redo);
  good = good && row.bind(5, savepoint.ballast_until).run();
  return state.sqlite().execute(good ? "COMMIT" : "ROLLBACK") && good;
}

}  // namespace

std::optional<Savepoint> take_savepoint(System_State& state, const std::string& database, std::int64_t id,
                                        std::int64_t base) {
  Savepoint savepoint;
  savepoint.id = id;
  savepoint.snapshot = state.tables_file(database) + ".savepoint." + std::to_string(id);
  if (!copy_with_position(state, database, savepoint) || !note_changes(state, database, savepoint)) {
    drop_savepoint_file(savepoint);
    return std::nullopt;
  }
  Statement rows = state.sqlite().prepare("SELECT page FROM pages WHERE db=? AND savepoint>? ORDER BY page");
  rows.bind(1, database).bind(2, base);
  while (rows.step()) savepoint.changed.push_back(static_cast<std::uint64_t>(rows.number(0)));
  Statement older = state.sqlite().prepare("SELECT ballast FROM savepoints WHERE db=? AND id=?");
  if (older.bind(1, database).bind(2, base).step()) savepoint.ballast_since = older.number(0);
  return savepoint;
}

void drop_savepoint_file(const Savepoint& savepoint) { ::unlink(savepoint.snapshot.c_str()); }

void drop_left_files(const Layout& layout) {
  std::error_code error;
  std::vector<std::filesystem::path> left;
  for (const auto& entry : std::filesystem::directory_iterator(layout.shared("data"), error)) {
    const std::string name = entry.path().filename();
    if (name.find(".db.savepoint.") != std::string::npos || name.find(".db.text.") != std::string::npos ||
        name.find(".db.recovery") != std::string::npos)
      left.push_back(entry.path());
  }
  for (const auto& path : left) std::filesystem::remove(path, error);
}

Volume_Stream::Volume_Stream(Content content) : content_(std::move(content)) {
  if (!content_.table_pages.empty()) snapshot_ = Descriptor(::open(content_.snapshot.c_str(), O_RDONLY | O_CLOEXEC));
  std::uint64_t end = 0;
  for (const Ballast_Range& range : content_.ballast) ballast_ends_.push_back(end += range.pages);
  pages_ = 1 + items() + (items() + items_per_group - 1) / items_per_group;
}

std::uint64_t Volume_Stream::items() const {
  return content_.table_pages.size() + (ballast_ends_.empty() ? 0 : ballast_ends_.back());
}

Volume_Stream::Place Volume_Stream::place_of(std::uint64_t item) const {
  const std::uint64_t tables = content_.table_pages.size();
  if (item < tables) return {content_.table_pages[item], 0, false};
  const std::uint64_t place = item - tables;
  const auto end = std::upper_bound(ballast_ends_.begin(), ballast_ends_.end(), place);
  const Ballast_Range& range = content_.ballast[static_cast<std::size_t>(end - ballast_ends_.begin())];
  return {range.first + range.pages - (*end - place), range.version, true};
}

void Volume_Stream::fill_index(std::uint64_t group, char* buffer) const {
  std::memset(buffer, 0, page_bytes);
  const std::uint64_t first = group * items_per_group;
  const std::uint64_t count = std::min(items_per_group, items() - first);
  std::memcpy(buffer, &count, sizeof count);
  for (std::uint64_t i = 0; i < count; ++i) {
    const Place place = place_of(first + i);
    const std::uint64_t number = place.number + (place.ballast ? ballast_numbers_from : 0);
    std::memcpy(buffer + (i + 1) * sizeof number, &number, sizeof number);
  }
}

bool Volume_Stream::fill(std::uint64_t page, char* buffer) {
  if (page == 0) {
    std::memset(buffer, 0, page_bytes);
    std::memcpy(buffer, content_.header.data(), std::min(content_.header.size(), page_bytes));
    return true;
  }
  const std::uint64_t group = (page - 1) / (items_per_group + 1);
  const std::uint64_t within = (page - 1) % (items_per_group + 1);
  if (within == 0) {
    fill_index(group, buffer);
    return true;
  }
  const Place place = place_of(group * items_per_group + within - 1);
  if (place.ballast) {
    fill_ballast_page(content_.ballast_seed, place.number, place.version, buffer);
    return true;
  }
  return ::pread(snapshot_.get(), buffer, page_bytes, static_cast<off_t>(place.number * page_bytes)) ==
         static_cast<ssize_t>(page_bytes);
}

std::optional<std::size_t> Volume_Stream::read(char* buffer, std::size_t size) {
  std::size_t done = 0;
  for (; done + page_bytes <= size && next_ < pages_; ++next_, done += page_bytes)
    if (!fill(next_, buffer + done)) return std::nullopt;
  return done;
}

}  // namespace standin
