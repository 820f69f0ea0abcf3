#include "install/layout_files.h"

#include <openssl/rand.h>
#include <unistd.h>

#include <filesystem>

#include "base/clock.h"
#include "base/files.h"
#include "base/ini.h"
#include "base/text.h"

namespace standin {

namespace {

namespace fs = std::filesystem;

bool place_tool(const std::string& from, const std::string& to) {
  std::error_code error;
  fs::remove(to, error);
  fs::create_hard_link(from, to, error);
  if (error) fs::copy_file(from, to, error);
  return !error;
}

std::string random_uuid() {
  unsigned char bytes[16];
  RAND_bytes(bytes, sizeof bytes);
  std::string text = hex(bytes, sizeof bytes);
  for (const std::size_t at : {8U, 13U, 18U, 23U}) text.insert(at, "-");
  return text;
}

/// "2.00.059.00.1632920961" as the manifest tells it.
std::string manifest_text(const std::string& version) {
  auto parts = split(version, '.');
  parts.resize(std::max<std::size_t>(parts.size(), 5));
  const std::string build = parts[4].empty() ? "0" : parts[4];
  const std::string patch = parts[3].empty() ? "00" : parts[3];
  return "comptype: HDB\nkeycaption: SAP HANA DATABASE\nrelease: " + parts[0] + "." + parts[1] +
         "\nrev-number: " + parts[2] + "\nrev-patchlevel: " + patch + "\nrev-changelist: " + build +
         "\ndate: " + local_time_text(parse_number(build).value_or(0) * 1000, "%Y-%m-%d %H:%M:%S") +
         "\nplatform: linuxx86_64\nfullversion: " + parts[0] + "." + parts[1] + "." + parts[2] + "." + patch +
         " Build " + build + "-1530\n";
}

/// Adds the line unless the file has one for the same name already.
bool add_account(const std::string& path, const std::string& name, const std::string& line) {
  const std::string text = read_file(path).value_or(std::string());
  for (const std::string& known : split(text, '\n'))
    if (known.starts_with(name + ":")) return true;
  return write_file(path, text + line + "\n", 0644);
}

bool write_configuration(const Layout& layout) {
  Ini global;
  if (layout.multi()) {
    global.set("multidb", "mode", "multidb");
    global.set("multidb", "database_isolation", "low");
  }
  global.set("persistence", "basepath_datavolumes", "/hana/data/" + layout.sid);
  global.set("persistence", "basepath_logvolumes", "/hana/log/" + layout.sid);
  global.set("persistence", "log_mode", "normal");
  global.set("persistence", "enable_auto_log_backup", "yes");
  Ini names;
  const std::string master = layout.host + ":" + std::to_string(layout.port(1));
  names.set("landscape", "id", random_uuid());
  names.set("landscape", "master", master);
  names.set("landscape", "worker", layout.host);
  names.set("landscape", "active_master", master);
  names.set("landscape", "roles_" + layout.host, "worker");
  return global.save(layout.configuration("global.ini"), "global.ini", "hdblcm") &&
         names.save(layout.configuration("nameserver.ini"), "nameserver.ini", "hdblcm");
}

bool write_profiles(const Layout& layout) {
  const std::string name = layout.sid + "_" + layout.instance_name() + "_" + layout.host;
  const std::string profile = layout.system_directory() + "/SYS/profile/" + name;
  const std::string line = "LD_LIBRARY_PATH=" + layout.instance_directory() +
                           "/exe:$LD_LIBRARY_PATH; export "
                           "LD_LIBRARY_PATH; " +
                           layout.instance_directory() + "/exe/sapstartsrv pf=" + profile + " -D -u " +
                           lower(layout.sid) + "adm\n";
  const std::string services = layout.real("/usr/sap/sapservices");
  std::string text = read_file(services).value_or("#!/bin/sh\n");
  if (text.find(line) == std::string::npos) text += line;
  // Of all hosts together: the first one has written it.
  const bool first = layout.store.empty();
  const std::string common = "SAPSYSTEMNAME = " + layout.sid + "\nSAPGLOBALHOST = " + layout.host + "\n";
  return write_file(services, text, 0644) &&
         (!first || write_file(layout.real(layout.system_directory() + "/SYS/profile/DEFAULT.PFL"), common, 0644)) &&
         write_file(layout.real(profile),
                    "SAPSYSTEMNAME = " + layout.sid + "\nSAPSYSTEM = " + layout.number +
                        "\nINSTANCE_NAME = " + layout.instance_name() + "\nSAPLOCALHOST = " + layout.host + "\n",
                    0644) &&
         write_file(layout.real(layout.host_directory() + "/daemon.ini"), "[daemon]\ninstances = \n", 0644) &&
         write_file(layout.real(layout.host_directory() + "/sapprofile.ini"), "SAPSYSTEMNAME = " + layout.sid + "\n",
                    0644);
}

bool write_accounts(const Layout& layout) {
  const std::string user = lower(layout.sid) + "adm";
  const std::string uid = std::to_string(::getuid());
  const std::string gid = std::to_string(::getgid());
  return make_directories(layout.real("/etc")) &&
         add_account(layout.real("/etc/passwd"), user,
                     user + ":x:" + uid + ":" + gid + "::" + layout.system_directory() + "/home:/bin/sh") &&
         add_account(layout.real("/etc/group"), "sapsys", "sapsys:x:" + gid + ":" + user);
}

bool place_files(const Layout& layout, const std::string& tools) {
  const std::string exe = layout.real(layout.instance_directory() + "/exe");
  for (const std::string& folder :
       {layout.instance_directory() + "/exe/python_support", layout.instance_directory() + "/work",
        layout.instance_directory() + "/backup/data", layout.instance_directory() + "/backup/log",
        layout.instance_directory() + "/standin/data", layout.host_directory() + "/trace",
        layout.global_directory() + "/custom/config", layout.global_directory() + "/opt",
        layout.global_directory() + "/backint", layout.global_directory() + "/mdc",
        layout.system_directory() + "/SYS/profile", layout.system_directory() + "/SYS/exe",
        layout.system_directory() + "/home", std::string("/usr/sap/hostctrl/exe"), std::string("/var/tmp")})
    if (!make_directories(layout.real(folder))) return false;
  for (const char* tool : {"hdbsql", "hdbnsutil", "sapcontrol", "hdb_standin_server"})
    if (!place_tool(tools + "/" + tool, exe + "/" + tool)) return false;
  const char* const landscape = "landscapeHostConfiguration.py";
  if (!place_tool(tools + "/" + landscape, exe + "/python_support/" + landscape)) return false;
  if (!place_tool(tools + "/HDB", layout.real(layout.instance_directory() + "/HDB"))) return false;
  if (!place_tool(tools + "/sapcontrol", layout.real("/usr/sap/hostctrl/exe/sapcontrol"))) return false;
  std::error_code error;
  const std::string link = layout.real(layout.system_directory() + "/SYS/exe/hdb");
  fs::remove(link, error);
  fs::create_symlink("../../" + layout.instance_name() + "/exe", link, error);
  Ini settings;
  settings.set("instance", "host", layout.host);
  settings.set("instance", "version", layout.version);
  settings.set("instance", "mode", layout.mode);
  if (!layout.store.empty()) settings.set("instance", "store", layout.store);
  return !error && settings.save(layout.state("instance.conf"), "instance.conf", "installer") &&
         write_file(exe + "/manifest", manifest_text(layout.version), 0644) && write_profiles(layout) &&
         write_accounts(layout);
}

}  // namespace

bool lay_out(const Layout& layout, const std::string& tools) {
  return place_files(layout, tools) && write_configuration(layout);
}

bool lay_out_further_host(const Layout& first, const Layout& layout, const std::string& tools) {
  if (!make_directories(layout.real(layout.global_directory()))) return false;
  for (const std::string& documented : {layout.global_directory() + "/custom", layout.global_directory() + "/mdc",
                                        layout.system_directory() + "/SYS/profile"}) {
    std::error_code error;
    fs::create_symlink(first.real(documented), layout.real(documented), error);
    if (error) return false;
  }
  return place_files(layout, tools);
}

}  // namespace standin
