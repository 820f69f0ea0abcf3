#include "agentd/instances/landscape.h"

#include <algorithm>
#include <cctype>
#include <map>
#include <sstream>
#include <vector>

#include "agentd/instances/ini_section.h"
#include "agentd/instances/system_id.h"
#include "platform/files.h"
#include "platform/log.h"

namespace agentd {

namespace {

constexpr const char* landscape_section = "landscape";

/// Without port and domain: the file and the instance may give a host with or without them.
std::string short_name(const std::string& host) {
  std::string name = host.substr(0, host.find_first_of(":."));
  std::transform(name.begin(), name.end(), name.begin(), [](unsigned char c) { return std::tolower(c); });
  return name;
}

/// Separated by blanks or commas, as the module takes them too.
std::size_t count_names(std::string text) {
  std::replace(text.begin(), text.end(), ',', ' ');
  std::stringstream words(text);
  std::size_t count = 0;
  for (std::string word; words >> word;) ++count;
  return count;
}

}  // namespace

json_spirit::Object parse_landscape(const std::string& text, const std::string& host) {
  std::map<std::string, std::string> values = read_ini_section(text, landscape_section);
  json_spirit::Object attributes;
  if (!values["id"].empty()) attributes["landscape_id"] = values["id"];
  const bool several_hosts = count_names(values["worker"] + " " + values["standby"]) > 1;
  const std::string& master = values["active_master"];
  if (several_hosts && !master.empty()) attributes["active_master"] = short_name(master) == short_name(host);
  return attributes;
}

json_spirit::Object landscape_attributes(const Instance& instance) {
  std::string sid;
  std::string host;
  if (!json_spirit::object_get(instance.options, "sid", sid) || !is_sid(sid)) return {};
  json_spirit::object_get(instance.options, "localhost", host);
  const std::string path = "/usr/sap/" + sid + "/SYS/global/hdb/custom/config/nameserver.ini";
  std::string text;
  if (!platform::read_file(path, text)) {
    D3_WARNING("The landscape of instance %C is not known, the server takes it for a system of its own: %C: %m\n",
               instance.name.c_str(), path.c_str());
    return {};
  }
  return parse_landscape(text, host);
}

}  // namespace agentd
