#include "unit/hana/common/hana_system.h"

#include <fstream>
#include <memory>
#include <sstream>

#include "hana/common/hana_paths.h"

namespace hana_test {

std::string test_data(const std::string& name) {
  std::ifstream file(std::string(DORSAL3_TEST_DATA) + "/" + name);
  EXPECT_TRUE(file.is_open()) << name;
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

support::Scripted_Child child(const std::string& output, int code, const std::string& errors) {
  support::Scripted_Child made;
  made.standard_output = output;
  made.standard_error = errors;
  made.code = code;
  return made;
}

support::Scripted_Child not_started(int error) {
  support::Scripted_Child made;
  made.start_error = error;
  return made;
}

HANA_System::HANA_System() {
  install("HDB", "HDB00", "hanahost", "2.00.059.00 Build 1632920961-1530");
  configure("global.ini",
            "# global.ini last modified 2026-05-10 14:46:02 by hdbnameserver\n[multidb]\nmode = multidb\n");
  configure("nameserver.ini", test_data("hana_ini/single_host_nameserver.ini"));
}

void HANA_System::install(const std::string& sid, const std::string& instance_name, const std::string& host,
                          const std::string& fullversion) {
  root_.write(sap_hana::instance_manifest(sid, instance_name),
              "comptype: HDB\nkeycaption: SAP HANA DATABASE\nrelease: 2.00\nfullversion: " + fullversion +
                  "\nplatform: linuxx86_64\n");
  root_.make_directory(sap_hana::trace_directory(sid, instance_name, host));
  const std::string services(sap_hana::sap_services_file);
  std::string text = root_.exists(services) ? root_.read(services) : "#!/bin/sh\n";
  const std::string exe = sap_hana::executable_directory(sid, instance_name);
  text += "LD_LIBRARY_PATH=" + exe + ":$LD_LIBRARY_PATH; export LD_LIBRARY_PATH; " + exe + "/sapstartsrv pf=/usr/sap/" +
          sid + "/SYS/profile/" + sid + "_" + instance_name + "_" + host + " -D -u " + sap_hana::system_user(sid) +
          "\n";
  root_.write(services, text);
}

void HANA_System::configure(const std::string& file, const std::string& text, const std::string& sid) {
  root_.write(sap_hana::system_configuration(sid, file), text);
}

void HANA_System::script(const std::string& program, std::vector<support::Scripted_Child> children) {
  auto at = std::make_shared<std::size_t>(0);
  runner_.on([program, children, at](const support::Seen_Call& call, support::Scripted_Child& answer) {
    if (!call.program.ends_with("/" + program)) return false;
    answer = children.at(*at);
    if (*at + 1 < children.size()) ++*at;
    return true;
  });
}

void HANA_System::expect_error(const std::string& part, ACE_Log_Priority priority) {
  EXPECT_EQ(log_.claim_containing(part, priority), 1U) << "wanted: " << part << "\nlogged:\n" << log_.dump();
}

}  // namespace hana_test
