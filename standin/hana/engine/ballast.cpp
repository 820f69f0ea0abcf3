#include "engine/ballast.h"

#include <algorithm>
#include <cstring>

namespace standin {

namespace {

constexpr std::size_t noise_bytes = page_bytes / 2;

/// `ranges` with `fresh` laid over them.
std::vector<Ballast_Range> laid_over(const std::vector<Ballast_Range>& ranges, const Ballast_Range& fresh) {
  const std::uint64_t fresh_end = fresh.first + fresh.pages;
  std::vector<Ballast_Range> result;
  for (const Ballast_Range& range : ranges) {
    const std::uint64_t end = range.first + range.pages;
    const std::uint64_t left_end = std::min(end, fresh.first);
    const std::uint64_t right_first = std::max(range.first, fresh_end);
    if (range.first < left_end) result.push_back({range.first, left_end - range.first, range.version});
    if (right_first < end) result.push_back({right_first, end - right_first, range.version});
  }
  result.push_back(fresh);
  return result;
}

std::vector<Ballast_Range> with_changes(System_State& state, const std::string& database, const Service& service,
                                        std::int64_t since, std::int64_t until, std::vector<Ballast_Range> ranges) {
  Statement rows = state.sqlite().prepare(
      "SELECT coalesce(version,id), first, pages FROM ballast_changes WHERE db=? AND service=? AND id>? "
      "AND id<=? ORDER BY id");
  rows.bind(1, database).bind(2, service.name).bind(3, since).bind(4, until);
  while (rows.step())
    ranges = laid_over(ranges, {static_cast<std::uint64_t>(rows.number(1)), static_cast<std::uint64_t>(rows.number(2)),
                                static_cast<std::uint64_t>(rows.number(0))});
  std::sort(ranges.begin(), ranges.end(),
            [](const Ballast_Range& left, const Ballast_Range& right) { return left.first < right.first; });
  return ranges;
}

std::uint64_t next_noise(std::uint64_t& state) {
  state ^= state << 13;
  state ^= state >> 7;
  state ^= state << 17;
  return state;
}

}  // namespace

void fill_ballast_page(std::uint64_t seed, std::uint64_t page, std::uint64_t version, char* buffer) {
  static constexpr char line[] =
      "region=EMEA;status=released;currency=EUR;plant=1000;unit=PC;flag=0;text=standard item;";
  std::uint64_t state =
      (seed + 1) * 0x9e3779b97f4a7c15ULL ^ (page + 1) * 0xbf58476d1ce4e5b9ULL ^ version * 0x94d049bb133111ebULL;
  if (state == 0) state = 1;
  for (std::size_t at = 0; at < noise_bytes; at += sizeof line - 1)
    std::memcpy(buffer + at, line, std::min(sizeof line - 1, noise_bytes - at));
  std::memcpy(buffer, &page, sizeof page);
  std::memcpy(buffer + sizeof page, &version, sizeof version);
  for (std::size_t at = noise_bytes; at < page_bytes; at += sizeof state) {
    const std::uint64_t noise = next_noise(state);
    std::memcpy(buffer + at, &noise, sizeof noise);
  }
}

std::optional<Ballast_Range> change_ballast(System_State& state, const std::string& database,
                                            const std::string& service, std::uint64_t pages) {
  if (!state.sqlite().execute("BEGIN IMMEDIATE")) return std::nullopt;
  Statement size = state.sqlite().prepare("SELECT ballast FROM services WHERE db=? AND name=?");
  size.bind(1, database).bind(2, service);
  const auto all = size.step() ? static_cast<std::uint64_t>(size.number(0)) : 0;
  Statement last = state.sqlite().prepare(
      "SELECT first+pages FROM ballast_changes WHERE db=? AND service=? ORDER BY id "
      "DESC LIMIT 1");
  last.bind(1, database).bind(2, service);
  const std::uint64_t first = all != 0 && last.step() ? static_cast<std::uint64_t>(last.number(0)) % all : 0;
  const std::uint64_t wanted = std::min(pages, all);
  const std::uint64_t before_end = std::min(wanted, all - first);
  Statement row = state.sqlite().prepare(
      "INSERT INTO ballast_changes(db,service,first,pages,version) SELECT ?1,?2,?3,?4,1+max((SELECT "
      "coalesce(max(version),0) FROM ballast_changes WHERE db=?1),(SELECT coalesce(max(seq),0) FROM sqlite_sequence))");
  const auto note = [&](std::uint64_t from, std::uint64_t count) {
    row.bind(1, database).bind(2, service).bind(3, static_cast<std::int64_t>(from));
    return count == 0 || row.bind(4, static_cast<std::int64_t>(count)).run();
  };
  const bool good = wanted != 0 && note(first, before_end) && note(0, wanted - before_end);
  sqlite3_reset(size.raw());
  sqlite3_reset(last.raw());
  if (!state.sqlite().execute(good ? "COMMIT" : "ROLLBACK") || !good) return std::nullopt;
  return Ballast_Range{first, wanted, 0};
}

std::int64_t newest_ballast_change(System_State& state, const std::string& database) {
  Statement row = state.sqlite().prepare("SELECT coalesce(max(id),0) FROM ballast_changes WHERE db=?");
  return row.bind(1, database).step() ? row.number(0) : 0;
}

std::vector<Ballast_Range> ballast_at(System_State& state, const std::string& database, const Service& service,
                                      std::int64_t until) {
  std::vector<Ballast_Range> ranges;
  if (service.ballast_pages > 0) ranges.push_back({0, static_cast<std::uint64_t>(service.ballast_pages), 0});
  return with_changes(state, database, service, 0, until, std::move(ranges));
}

std::vector<Ballast_Range> ballast_changed(System_State& state, const std::string& database, const Service& service,
                                           std::int64_t since, std::int64_t until) {
  return with_changes(state, database, service, since, until, {});
}

std::uint64_t count_pages(const std::vector<Ballast_Range>& ranges) {
  std::uint64_t pages = 0;
  for (const Ballast_Range& range : ranges) pages += range.pages;
  return pages;
}

std::vector<Ballast_Range> slice(const std::vector<Ballast_Range>& ranges, std::uint64_t from, std::uint64_t to) {
  std::vector<Ballast_Range> result;
  std::uint64_t place = 0;
  for (const Ballast_Range& range : ranges) {
    const std::uint64_t begin = std::max(from, place);
    const std::uint64_t end = std::min(to, place + range.pages);
    if (begin < end) result.push_back({range.first + (begin - place), end - begin, range.version});
    place += range.pages;
  }
  return result;
}

}  // namespace standin
