#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace standin {

std::string upper(std::string_view text);
std::string lower(std::string_view text);
std::string_view trim(std::string_view text);
std::vector<std::string> split(std::string_view text, char separator);
std::string join(const std::vector<std::string>& parts, std::string_view separator);
std::string replace_all(std::string text, std::string_view from, std::string_view to);
bool contains_without_case(std::string_view text, std::string_view part);
/// A whole decimal number with an optional sign, nothing else.
std::optional<std::int64_t> parse_number(std::string_view text);
std::string hex(const void* data, std::size_t size);
/// `name` as one part of a path: bytes other than letters, digits, '_', '-' and '.' as %XX.
std::string path_part(std::string_view name);
/// Compares two dotted version texts number by number.
bool version_below(std::string_view left, std::string_view right);

}  // namespace standin
