#include "engine/volume_reader.h"

#include <algorithm>
#include <cstring>

#include "base/text.h"

namespace standin {

namespace {
constexpr std::string_view first_line = "hana backup 1";
}

bool Volume_Reader::fail(const std::string& why) {
  if (problem_.empty()) problem_ = why;
  return false;
}

bool Volume_Reader::read_header(const char* page) {
  const std::string text(page, ::strnlen(page, page_bytes));
  const auto lines = split(text, '\n');
  if (lines.front() != first_line) return fail("the header page is not one of a backup");
  for (const std::string& line : lines) {
    const std::size_t equals = line.find('=');
    if (equals != std::string::npos) headers_[line.substr(0, equals)] = line.substr(equals + 1);
  }
  return !headers_.empty() || fail("the header page is empty");
}

bool Volume_Reader::read_index(const char* page) {
  std::uint64_t count = 0;
  std::memcpy(&count, page, sizeof count);
  if (count == 0 || count > items_per_group) return fail("an index page is damaged");
  group_.resize(count);
  std::memcpy(group_.data(), page + sizeof count, count * sizeof count);
  next_ = 0;
  return true;
}

bool Volume_Reader::take_page(const char* page) {
  if (headers_.empty()) return read_header(page);
  if (next_ == group_.size()) return read_index(page);
  const std::uint64_t number = group_[next_++];
  const bool ballast = number >= ballast_numbers_from;
  const std::uint64_t own = ballast ? number - ballast_numbers_from : number;
  return taker_(own, ballast, page) || fail("page " + std::to_string(own) + " is damaged");
}

bool Volume_Reader::take(const char* data, std::size_t size) {
  if (!problem_.empty()) return false;
  if (!part_.empty()) {
    const std::size_t more = std::min(size, page_bytes - part_.size());
    part_.append(data, more);
    data += more;
    size -= more;
    if (part_.size() < page_bytes) return true;
    const std::string page = std::move(part_);
    part_.clear();
    if (!take_page(page.data())) return false;
  }
  for (; size >= page_bytes; data += page_bytes, size -= page_bytes)
    if (!take_page(data)) return false;
  part_.assign(data, size);
  return true;
}

bool Volume_Reader::finish() {
  if (!problem_.empty()) return false;
  if (headers_.empty()) return fail("the stream is empty");
  return (part_.empty() && next_ == group_.size()) || fail("the stream ends before its end");
}

std::string Volume_Reader::header(const std::string& key) const {
  const auto found = headers_.find(key);
  return found == headers_.end() ? std::string() : found->second;
}

std::int64_t Volume_Reader::number(const std::string& key) const { return parse_number(header(key)).value_or(0); }

}  // namespace standin
