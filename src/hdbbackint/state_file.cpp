#include "hdbbackint/state_file.h"

#include <cerrno>
#include <cstring>

#include "platform/files.h"

namespace hdbbackint {

namespace {

/// Far more than such a file needs.
constexpr std::size_t file_limit_bytes = 1U << 20;

constexpr const char* open_for_group = "it must be readable for the group sapsys (mode 0640)";
constexpr const char* open_directory = "hdbbackint must be able to list it (mode 0755)";

}  // namespace

std::string State_File_Kind::describe(const std::string& path, const std::string& what, const char* remedy) const {
  return std::string(name) + " " + path + " " + what + "; " + remedy;
}

bool State_File_Kind::read(const std::string& path, json_spirit::Object& document, std::string& error) const {
  std::string text;
  if (!platform::read_file(path, text, file_limit_bytes)) {
    error = describe(path, std::string("cannot be read: ") + std::strerror(errno), open_for_group);
    return false;
  }
  if (text.empty()) {
    error = describe(path, "is empty", make_anew);
    return false;
  }
  json_spirit::Value value;
  std::string why = "it is no object";
  if (json_spirit::load_json(text, value, &why) && value.is_object()) {
    document = value.get_obj();
    return true;
  }
  error = describe(path, "is not one whole JSON object: " + why, make_anew);
  return false;
}

bool list_state_files(const std::string& directory, std::vector<std::string>& names, std::string& error) {
  if (platform::list_directory(directory, names) || errno == ENOENT) return true;
  error = "the directory " + directory + " cannot be read: " + std::strerror(errno) + "; " + open_directory;
  return false;
}

}  // namespace hdbbackint
