#include "tools/hdbsql_options.h"

#include <cctype>
#include <functional>
#include <map>

#include "base/text.h"

namespace standin {

namespace {

/// Words parted by blanks; double quotes keep blanks, a doubled one inside them is a quote. Quotes of the user's name
/// stay so that its letter case is kept.
std::vector<std::string> words_of(const std::string& text) {
  std::vector<std::string> words;
  std::size_t at = 0;
  while (at < text.size()) {
    if (std::isspace(static_cast<unsigned char>(text[at])) != 0) {
      ++at;
      continue;
    }
    std::string word;
    bool open = false;
    for (; at < text.size() && (open || std::isspace(static_cast<unsigned char>(text[at])) == 0); ++at) {
      if (text[at] == '"') open = !open;
      word += text[at];
    }
    words.push_back(std::move(word));
  }
  return words;
}

std::string unquoted(const std::string& word) {
  if (word.size() < 2 || word.front() != '"' || word.back() != '"') return word;
  return replace_all(word.substr(1, word.size() - 2), "\"\"", "\"");
}

void set_host(Connect_Options& connect, const std::string& value) {
  const std::string first = split(value, ',').front();
  const std::size_t colon = first.rfind(':');
  connect.host = first.substr(0, colon);
  if (colon != std::string::npos) connect.port = first.substr(colon + 1);
}

bool set_connect(Connect_Options& connect, char letter, const std::string& value) {
  connect.given = true;
  switch (letter) {
    case 'n':
      set_host(connect, value);
      return true;
    case 'i':
      connect.instance = value;
      return true;
    case 'd':
      connect.database = unquoted(value);
      return true;
    case 'u':
      connect.user = sql_name(value);
      return true;
    case 'p':
      connect.password = unquoted(value);
      return true;
    case 'U':
      connect.key = value;
      return true;
    default:
      return false;
  }
}

}  // namespace

std::string sql_name(const std::string& name) { return name.starts_with('"') ? unquoted(name) : upper(name); }

bool read_connect(const std::string& text, Connect_Options& connect) {
  connect = {};
  const auto words = words_of(text);
  for (std::size_t i = 0; i < words.size(); ++i) {
    const std::string& word = words[i];
    if (word.size() < 2 || word[0] != '-') return false;
    std::string value = word.substr(2);
    if (value.empty()) {
      if (++i == words.size()) return false;
      value = words[i];
    }
    if (!set_connect(connect, word[1], value)) return false;
  }
  return true;
}

bool read_options(int count, char** values, Hdbsql_Options& options, std::string& error) {
  const std::map<std::string, bool> long_options{{"-quiet", false},
                                                 {"-attemptencrypt", false},
                                                 {"-ssltrustcert", false},
                                                 {"-sslcreatecert", false},
                                                 {"-separatorownline", false},
                                                 {"-strictseparatorline", false},
                                                 {"-fn", false},
                                                 {"-h2", false},
                                                 {"-sslprovider", true},
                                                 {"-ssltruststore", true},
                                                 {"-sslkeystore", true},
                                                 {"-sslhostnameincert", true},
                                                 {"-resultencoding", true}};
  const std::map<char, std::function<void()>> flags{{'a', [&] { options.no_header = true; }},
                                                    {'x', [&] { options.no_remarks = true; }},
                                                    {'C', [&] { options.no_escape = true; }},
                                                    {'A', [&] { options.aligned = true; }},
                                                    {'z', [&] { options.autocommit = false; }},
                                                    {'m', [&] { options.multi_line = true; }},
                                                    {'h', [&] { options.help = true; }},
                                                    {'v', [&] { options.version = true; }},
                                                    {'j', [] {}},
                                                    {'e', [] {}},
                                                    {'r', [] {}},
                                                    {'Q', [] {}},
                                                    {'f', [] {}}};
  const std::map<char, std::function<void(const std::string&)>> valued{
      {'I', [&](const std::string& v) { options.input_file = v; }},
      {'o', [&](const std::string& v) { options.output_file = v; }},
      {'O',
       [&](const std::string& v) {
         options.output_file = v;
         options.append = true;
       }},
      {'E', [&](const std::string& v) { options.error_exit = v; }},
      {'F', [&](const std::string& v) { options.separator = v; }},
      {'g', [&](const std::string& v) { options.null_text = v; }},
      {'c', [&](const std::string& v) { options.statement_separator = v; }},
      {'V', [&](const std::string& v) { options.variables = split(v, ','); }},
      {'Z', [](const std::string&) {}},
      {'S', [](const std::string&) {}},
      {'b', [](const std::string&) {}},
      {'B', [](const std::string&) {}},
      {'T', [](const std::string&) {}}};
  int at = 1;
  for (; at < count; ++at) {
    const std::string word = values[at];
    if (word.size() < 2 || word[0] != '-') break;
    if (const auto found = long_options.find(word); found != long_options.end()) {
      options.quiet = options.quiet || word == "-quiet";
      if (found->second) ++at;
      continue;
    }
    for (std::size_t i = 1; i < word.size(); ++i) {
      if (const auto flag = flags.find(word[i]); flag != flags.end()) {
        flag->second();
        continue;
      }
      std::string value = word.substr(i + 1);
      if (value.empty() && at + 1 < count) value = values[++at];
      if (const auto option = valued.find(word[i]); option != valued.end()) {
        option->second(value);
      } else if (!set_connect(options.connect, word[i], value)) {
        error = "hdbsql: invalid option -- '" + std::string(1, word[i]) + "'";
        return false;
      }
      break;
    }
  }
  std::vector<std::string> rest(values + at, values + count);
  options.command = join(rest, " ");
  return true;
}

}  // namespace standin
