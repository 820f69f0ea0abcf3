#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "engine/system_state.h"

namespace standin {

inline constexpr std::size_t page_bytes = 4096;

/// Pages of a service that stand for a real database's size: made when they are read, from their numbers and `version`,
/// which is 0 until they change.
struct Ballast_Range {
  std::uint64_t first = 0;
  std::uint64_t pages = 0;
  std::uint64_t version = 0;
};

/// What a ballast page begins with: its number and its version, 8 bytes each. The rest is half text, half noise made
/// from `seed`, number and version; it compresses to a little more than a half.
void fill_ballast_page(std::uint64_t seed, std::uint64_t page, std::uint64_t version, char* buffer);

/// Gives the next `pages` pages of the service a new content, going on behind the last change and round to the first
/// page; at most all pages. What was changed; nothing when there is no such service or no ballast.
std::optional<Ballast_Range> change_ballast(System_State& state, const std::string& database,
                                            const std::string& service, std::uint64_t pages);
/// The number of the newest change in the database, 0 for none.
std::int64_t newest_ballast_change(System_State& state, const std::string& database);
/// All pages as they were after the change `until`, in ascending order.
std::vector<Ballast_Range> ballast_at(System_State& state, const std::string& database, const Service& service,
                                      std::int64_t until);
/// The pages that changed after `since`, as they were after `until`, in ascending order.
std::vector<Ballast_Range> ballast_changed(System_State& state, const std::string& database, const Service& service,
                                           std::int64_t since, std::int64_t until);
std::uint64_t count_pages(const std::vector<Ballast_Range>& ranges);
/// The pages from the one at place `from` up to before the one at place `to`.
std::vector<Ballast_Range> slice(const std::vector<Ballast_Range>& ranges, std::uint64_t from, std::uint64_t to);

}  // namespace standin
