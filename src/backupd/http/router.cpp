#include "backupd/http/router.h"

#include <algorithm>

#include "net/http_string.h"
#include "platform/log.h"
#include "scrt/numbers.h"

namespace backupd {

namespace {

constexpr std::size_t quoted_limit = 200;

std::vector<std::string> split(std::string_view text, char separator) {
  std::vector<std::string> parts;
  std::size_t begin = 0;
  while (begin <= text.size()) {
    const std::size_t end = std::min(text.find(separator, begin), text.size());
    parts.emplace_back(text.substr(begin, end - begin));
    begin = end + 1;
  }
  return parts;
}

bool is_hex(char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'); }

bool is_encoded(std::string_view text) {
  for (std::size_t i = 0; i < text.size(); ++i)
    if (text[i] == '%' && (i + 2 >= text.size() || !is_hex(text[i + 1]) || !is_hex(text[i + 2]))) return false;
  return true;
}

bool is_parameter(const std::string& segment) { return segment.starts_with('<') && segment.ends_with('>'); }
bool is_rest(const std::string& segment) { return segment.starts_with('<') && segment.ends_with("...>"); }

bool matches(const std::vector<std::string>& pattern, const std::vector<std::string>& segments,
             std::vector<std::string>& parameters) {
  parameters.clear();
  for (std::size_t i = 0; i < pattern.size(); ++i) {
    if (is_rest(pattern[i])) {
      if (i >= segments.size()) return false;
      parameters.insert(parameters.end(), segments.begin() + static_cast<std::ptrdiff_t>(i), segments.end());
      return true;
    }
    if (i >= segments.size()) return false;
    if (is_parameter(pattern[i])) {
      if (segments[i].empty()) return false;
      parameters.push_back(segments[i]);
    } else if (pattern[i] != segments[i]) {
      return false;
    }
  }
  return pattern.size() == segments.size();
}

Outcome read_number(const Request& request, const char* key, std::int64_t limit, std::int64_t& number) {
  const std::string text = request.parameter(key);
  if (text.empty()) return {};
  std::uint64_t value = 0;
  if (!parse_uint64(text, value) || value > static_cast<std::uint64_t>(limit))
    return Outcome::refuse(Outcome::bad_request, std::string("the parameter \"") + key +
                                                     "\" must be a number from 0 to " + std::to_string(limit));
  number = static_cast<std::int64_t>(value);
  return {};
}

/// Who asks for the one with an empty id has lost it; all of them would be an answer to another question.
Outcome check_ids(const Request& request) {
  for (const auto& [key, value] : request.query)
    if (value.empty() && (key == "uuid" || key.ends_with("_uuid")))
      return Outcome::refuse(Outcome::bad_request,
                             "the parameter \"" + key + "\" is empty; give an id, or leave it out for all");
  return {};
}

}  // namespace

const std::vector<std::string> list_keys = {"limit", "offset", "sort", "order"};

Reply::Reply(const Outcome& refusal)
    : status(outcome_http_status(refusal.kind)),
      body(json_spirit::Object{
          {"error", json_spirit::Object{{"code", outcome_word(refusal.kind)}, {"message", refusal.message}}}}) {}

Reply::Reply(List_Page page) : body(json_spirit::Object{{"total", page.total}, {"rows", std::move(page.rows)}}) {}

void Router::add(Route route) { routes_.push_back(std::move(route)); }

const Route* Router::find(const std::string& method, const std::vector<std::string>& segments,
                          std::vector<std::string>& parameters, std::vector<std::string>& allowed) const {
  for (const Route& route : routes_) {
    // The pattern begins with '/', so its first part is empty.
    std::vector<std::string> pattern = split(route.pattern, '/');
    pattern.erase(pattern.begin());
    if (!matches(pattern, segments, parameters)) continue;
    if (route.method == method) return &route;
    allowed.push_back(route.method);
  }
  return nullptr;
}

bool Target::parse(const std::string& target) {
  const std::size_t question = target.find('?');
  const std::string_view whole(target);
  const std::string_view path = whole.substr(0, question);
  if (path.empty() || path.front() != '/' || !is_encoded(whole)) return false;
  for (const std::string& segment : split(path.substr(1), '/')) segments.push_back(http_decode_string(segment));
  if (question == std::string::npos) return true;
  for (const std::string& pair : split(whole.substr(question + 1), '&')) {
    if (pair.empty()) continue;
    const std::size_t equals = pair.find('=');
    const std::string key = http_decode_string(std::string_view(pair).substr(0, equals), true);
    const std::string value = equals == std::string::npos
                                  ? std::string()
                                  : http_decode_string(std::string_view(pair).substr(equals + 1), true);
    if (!query.emplace(key, value).second) return false;
  }
  return true;
}

std::vector<std::string> with_list_keys(std::vector<std::string> keys) {
  keys.insert(keys.end(), list_keys.begin(), list_keys.end());
  return keys;
}

Outcome read_list_query(const Request& request, const std::vector<std::pair<std::string, std::string>>& sorts,
                        List_Query& query) {
  if (Outcome outcome = check_ids(request); !outcome.ok()) return outcome;
  query.order_column = sorts.front().second;
  if (const std::string sort = request.parameter("sort"); !sort.empty()) {
    const auto found = std::find_if(sorts.begin(), sorts.end(), [&](const auto& known) { return known.first == sort; });
    if (found == sorts.end())
      return Outcome::refuse(Outcome::bad_request,
                             "the list cannot be sorted by \"" + platform::cut_for_log(sort, quoted_limit) + "\"");
    query.order_column = found->second;
  }
  if (const std::string order = request.parameter("order"); !order.empty()) {
    if (order != "asc" && order != "desc")
      return Outcome::refuse(Outcome::bad_request, "the parameter \"order\" is asc or desc");
    query.descending = order == "desc";
  }
  if (Outcome outcome = read_number(request, "limit", list_largest_limit, query.limit); !outcome.ok()) return outcome;
  return read_number(request, "offset", std::numeric_limits<std::int64_t>::max(), query.offset);
}

}  // namespace backupd
