#include "hana/common/service_lister.h"

#include <boost/regex.hpp>
#include <vector>

#include "platform/log.h"
#include "platform/process_runner.h"

namespace sap_hana {

bool Service_Lister::list_service(const std::string& pattern, std::list<Service_Info>& services, bool /*children*/,
                                  const char* /*locale*/) {
  constexpr bool failed = true;
  std::vector<platform::Running_Process> processes;
  if (!platform::Process_Runner::current().list(processes)) {
    D3_ERROR("Failed to list the processes of this host: %m\n");
    return failed;
  }
  try {
    const boost::regex wanted(pattern);
    services.clear();
    for (const platform::Running_Process& process : processes)
      if (boost::regex_match(process.command_line, wanted))
        services.push_back({process.command_line, process.user, process.pid});
  } catch (const boost::regex_error& error) {
    D3_ERROR("Failed to list processes by the pattern '%C': %C\n", platform::cut_for_log(pattern).c_str(),
             error.what());
    return failed;
  }
  return !failed;
}

}  // namespace sap_hana
