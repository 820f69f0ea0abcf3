#include "hana/common/service_lister.h"

#include <algorithm>
#include <boost/regex.hpp>
#include <cstddef>
#include <stdexcept>
#include <vector>

#include "platform/log.h"
#include "platform/process_runner.h"

namespace {

/// Of a command line, so much is compared: no program that is looked for has a longer one, and time grows with its
/// square.
constexpr std::ptrdiff_t compared_bytes = 4096;

/// A command line that somebody made too hard to compare is not one of those that are looked for, and hides no other.
bool matches(const std::string& command_line, const boost::regex& wanted) {
  const auto size = std::min(static_cast<std::ptrdiff_t>(command_line.size()), compared_bytes);
  try {
    return boost::regex_match(command_line.begin(), command_line.begin() + size, wanted);
  } catch (const std::runtime_error&) {
    return false;
  }
}

}  // namespace

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
      if (matches(process.command_line, wanted)) services.push_back({process.command_line, process.user, process.pid});
  } catch (const boost::regex_error& error) {
    D3_ERROR("Failed to list processes by the pattern '%C': %C\n", platform::cut_for_log(pattern).c_str(),
             error.what());
    return failed;
  }
  return !failed;
}

}  // namespace sap_hana
