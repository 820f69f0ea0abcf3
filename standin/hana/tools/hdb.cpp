#include <cstdio>

#include "base/clock.h"
#include "base/files.h"
#include "base/text.h"
#include "tools/instance_control.h"

namespace {

using namespace standin;

constexpr int start_limit_seconds = 2700;
constexpr int stop_limit_seconds = 600;
constexpr const char* not_running = "FAIL: process hdbdaemon HDB Daemon not running\n";

void print_step(const char* name) {
  std::printf("\n%s\n%s\nOK\n", local_time_text(now_ms(), "%d.%m.%Y %H:%M:%S").c_str(), name);
}

int start(const Layout& layout) {
  const std::string control = layout.instance_directory() + "/exe/sapcontrol -prot NI_HTTP -nr " + layout.number;
  std::printf(
      "\nStartService\nImpromptu CCC initialization by 'rscpCInit'.\n  See SAP note 1266393.\nOK\nOK\n"
      "Starting instance using: %s -function StartWait 2700 2\n\n",
      control.c_str());
  if (!fault_setting(layout, "hdb_start_fails").empty() || !start_instance(layout)) {
    std::printf("%s", not_running);
    return 1;
  }
  print_step("Start");
  const Start_End end = wait_for_start(layout, start_limit_seconds);
  if (end == Start_End::down) {
    std::printf("%s", not_running);
    return 1;
  }
  if (end == Start_End::timeout) return 2;
  print_step("StartWait");
  return 0;
}

int stop(const Layout& layout) {
  const std::string control = layout.instance_directory() + "/exe/sapcontrol -prot NI_HTTP -nr " + layout.number;
  std::printf(
      "hdbdaemon will wait maximal 300 seconds for NewDB services finishing.\nStopping instance using: %s "
      "-function Stop 400\n",
      control.c_str());
  if (!fault_setting(layout, "hdb_stop_fails").empty() || !stop_instance(layout)) {
    std::printf("FAIL: hdbdaemon does not stop\n");
    return 1;
  }
  print_step("Stop");
  std::printf("Waiting for stopped instance using: %s -function WaitforStopped 600 2\n\n", control.c_str());
  if (!wait_for_phase(layout, "stopped", stop_limit_seconds)) return 2;
  print_step("WaitforStopped");
  std::printf("hdbdaemon is stopped.\n");
  return 0;
}

int kill_hard(const Layout& layout) {
  if (!kill_instance(layout) || !wait_for_phase(layout, "stopped", stop_limit_seconds)) return 1;
  std::printf("hdbdaemon is killed.\n");
  return 0;
}

int info(const Layout& layout) {
  const Instance_State state = instance_state(layout);
  const std::string user = lower(layout.sid) + "adm";
  const std::string profile =
      "/usr/sap/" + layout.sid + "/SYS/profile/" + layout.sid + "_" + layout.instance_name() + "_" + layout.host;
  std::printf("USER          PID     PPID  %%CPU        VSZ        RSS COMMAND\n");
  const auto line = [&](int pid, int parent, const std::string& command) {
    std::printf("%-8s %8d %8d   0.0     123456      12345 %s\n", user.c_str(), pid, parent, command.c_str());
  };
  if (state.phase != "stopped") {
    line(state.pid, 1, "sapstart pf=" + profile);
    line(state.pid, state.pid,
         " \\_ " + layout.host_directory() + "/trace/" + layout.daemon_name() + " -d -nw -f " +
             layout.host_directory() + "/daemon.ini pf=" + profile);
    for (const auto& [service, database] : state.services) line(state.pid, state.pid, "     \\_ hdb" + service);
  }
  line(1, 1, layout.instance_directory() + "/exe/sapstartsrv pf=" + profile + " -D -u " + user);
  return 0;
}

int version(const Layout& layout) {
  std::printf(
      "HDB version info:\n  version:             %s\n  branch:              fa/hana2sp\n  machine config:      "
      "linuxx86_64\n  git hash:            not set\n  git merge time:      not set\n  weekstone:           "
      "0000.00.0\n  cloud edition:       0000.00.00\n  compile date:        2021-09-29 12:00:00\n  compile host: "
      "       ld0001\n  compile type:        rel\n",
      layout.version.c_str());
  return 0;
}

}  // namespace

int main(int count, char** values) {
  const auto layout = own_layout();
  if (!layout) {
    std::fprintf(stderr, "HDB lies in no installation\n");
    return 1;
  }
  const std::string verb = count > 1 ? values[1] : "";
  if (verb == "start") return start(*layout);
  if (verb == "stop") return stop(*layout);
  if (verb == "kill" || verb == "kill-9") return kill_hard(*layout);
  if (verb == "restart") {
    const int stopped = stop(*layout);
    return stopped != 0 ? stopped : start(*layout);
  }
  if (verb == "info" || verb == "proc") return info(*layout);
  if (verb == "version") return version(*layout);
  std::fprintf(stderr, "Usage: /usr/sap/%s/HDB%s/HDB { start|stop|restart|version|info|kill|kill-9 }\n",
               layout->sid.c_str(), layout->number.c_str());
  return 1;
}
