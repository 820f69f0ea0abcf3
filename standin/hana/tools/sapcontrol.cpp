#include <cstdio>

#include "base/clock.h"
#include "base/cluster.h"
#include "base/text.h"
#include "tools/instance_control.h"

namespace {

using namespace standin;

enum Exit { exit_done = 0, exit_failed = 1, exit_timeout = 2, exit_all_running = 3, exit_all_stopped = 4 };

struct Row {
  std::string name, description, color, text, since, elapsed, pid;
};

std::vector<Row> process_rows(const Layout& layout, const Instance_State& state) {
  if (state.phase == "stopped") return {{"hdbdaemon", "HDB Daemon", "GRAY", "Stopped", "", "", "0"}};
  const bool runs = state.phase == "running";
  const std::string color = runs ? "GREEN" : "YELLOW";
  const std::string text = runs ? "Running" : (state.phase == "starting" ? "Starting" : "Stopping");
  const std::string since = local_time_text(state.start_ms, "%Y %m %d %H:%M:%S");
  const std::int64_t seconds = (now_ms() - state.start_ms) / 1000;
  char elapsed[32];
  std::snprintf(elapsed, sizeof elapsed, "%d:%02d:%02d", static_cast<int>(seconds / 3600),
                static_cast<int>(seconds / 60 % 60), static_cast<int>(seconds % 60));
  std::vector<Row> rows{{"hdbdaemon", "HDB Daemon", color, text, since, elapsed, std::to_string(state.pid)}};
  for (const auto& [service, database] : state.services) {
    std::string label = "HDB " + upper(service.substr(0, 1)) + service.substr(1);
    if (service == "webdispatcher") label = "HDB Web Dispatcher";
    if (service == "xsengine") label = "HDB XSEngine";
    if (layout.multi() && !database.empty() && service != "nameserver") label += "-" + database;
    rows.push_back({"hdb" + service, label, color, text, since, elapsed, std::to_string(state.pid)});
  }
  return rows;
}

int process_list(const Layout& layout, bool script) {
  const auto rows = process_rows(layout, instance_state(layout));
  if (!script) std::printf("name, description, dispstatus, textstatus, starttime, elapsedtime, pid\n");
  std::size_t green = 0;
  std::size_t gray = 0;
  for (std::size_t i = 0; i < rows.size(); ++i) {
    const Row& row = rows[i];
    green += row.color == "GREEN" ? 1 : 0;
    gray += row.color == "GRAY" ? 1 : 0;
    if (script)
      std::printf(
          "%zu name: %s\n%zu description: %s\n%zu dispstatus: %s\n%zu textstatus: %s\n%zu starttime: %s\n%zu "
          "elapsedtime: %s\n%zu pid: %s\n",
          i, row.name.c_str(), i, row.description.c_str(), i, row.color.c_str(), i, row.text.c_str(), i,
          row.since.c_str(), i, row.elapsed.c_str(), i, row.pid.c_str());
    else
      std::printf("%s, %s, %s, %s, %s, %s, %s\n", row.name.c_str(), row.description.c_str(), row.color.c_str(),
                  row.text.c_str(), row.since.c_str(), row.elapsed.c_str(), row.pid.c_str());
  }
  if (green == rows.size()) return exit_all_running;
  return gray == rows.size() ? exit_all_stopped : exit_done;
}

int wait_for(const Layout& layout, const char* phase, const std::vector<std::string>& arguments) {
  const int limit = arguments.empty() ? 0 : static_cast<int>(parse_number(arguments[0]).value_or(0));
  return wait_for_phase(layout, phase, limit) ? exit_done : exit_timeout;
}

int wait_for_start(const Layout& layout, const std::vector<std::string>& arguments) {
  const int limit = arguments.empty() ? 0 : static_cast<int>(parse_number(arguments[0]).value_or(0));
  switch (standin::wait_for_start(layout, limit)) {
    case Start_End::running:
      return exit_done;
    case Start_End::down:
      std::printf("FAIL: process hdbdaemon HDB Daemon not running\n");
      return exit_failed;
    default:
      return exit_timeout;
  }
}

/// The master last when all stop, first when all start: the role stays where it is.
std::vector<Layout> hosts_from_master(const Layout& layout) {
  std::vector<Layout> hosts;
  const std::string master = active_master(layout);
  for (const Cluster_Host& host : hosts_of(layout))
    hosts.insert(host.name == master ? hosts.begin() : hosts.end(), layout_of(layout, host));
  return hosts;
}

bool start_system(const Layout& layout) {
  bool good = true;
  for (const Layout& host : hosts_from_master(layout)) good = start_instance(host) && good;
  return good;
}

bool stop_system(const Layout& layout) {
  bool good = true;
  auto hosts = hosts_from_master(layout);
  for (auto host = hosts.rbegin(); host != hosts.rend(); ++host) good = stop_instance(*host) && good;
  return good;
}

void print_instances(const Layout& layout) {
  std::printf("hostname, instanceNr, httpPort, httpsPort, startPriority, features, dispstatus\n");
  const int number = static_cast<int>(parse_number(layout.number).value_or(0));
  for (const Cluster_Host& host : hosts_of(layout)) {
    const std::string phase = phase_of(layout_of(layout, host));
    std::printf("%s, %d, 5%02d13, 5%02d14, 0.3, HDB|HDB_WORKER, %s\n", host.name.c_str(), number, number, number,
                phase == "running" ? "GREEN" : (phase == "stopped" ? "GRAY" : "YELLOW"));
  }
}

int run(const Layout& layout, const std::string& function, const std::vector<std::string>& arguments, bool script) {
  const auto header = [&](const char* outcome) {
    std::printf("\n%s\n%s\n%s\n", local_time_text(now_ms(), "%d.%m.%Y %H:%M:%S").c_str(), function.c_str(), outcome);
  };
  if (fault_setting(layout, "sapstartsrv") == "down") {
    header("FAIL: NIECONN_REFUSED (Connection refused), NiRawConnect failed in plugin_fopen()");
    return exit_failed;
  }
  if (function == "GetProcessList") {
    header("OK");
    return process_list(layout, script);
  }
  if (function == "Start" || function == "StartSystem" || function == "StartWait") {
    const bool good = function == "StartSystem" ? start_system(layout) : start_instance(layout);
    header(good ? "OK" : "FAIL: the instance could not be started");
    if (!good) return exit_failed;
    return function == "StartWait" ? wait_for_start(layout, arguments) : exit_done;
  }
  if (function == "Stop" || function == "StopSystem" || function == "StopWait") {
    const bool good = function == "StopSystem" ? stop_system(layout) : stop_instance(layout);
    header(good ? "OK" : "FAIL: the instance could not be stopped");
    if (!good) return exit_failed;
    return function == "StopWait" ? wait_for(layout, "stopped", arguments) : exit_done;
  }
  if (function == "WaitforStarted" || function == "WaitforStopped") {
    const int result = wait_for(layout, function == "WaitforStarted" ? "running" : "stopped", arguments);
    header(result == exit_done ? "OK" : "FAIL: timeout");
    return result;
  }
  if (function == "GetSystemInstanceList") {
    header("OK");
    print_instances(layout);
    return exit_done;
  }
  if (function == "GetInstanceProperties") {
    header("OK");
    std::printf(
        "property, propertytype, value\nINSTANCE_NAME, string, %s\nSAPSYSTEMNAME, string, %s\nSAPSYSTEM, string, "
        "%s\nSAPLOCALHOST, string, %s\n",
        layout.instance_name().c_str(), layout.sid.c_str(), layout.number.c_str(), layout.host.c_str());
    return exit_done;
  }
  header(function == "StartService" ? "OK" : "FAIL: unknown function");
  return function == "StartService" ? exit_done : exit_failed;
}

}  // namespace

int main(int count, char** values) {
  std::string number, function;
  std::vector<std::string> arguments;
  bool script = false;
  for (int i = 1; i < count; ++i) {
    const std::string word = values[i];
    const std::string value = i + 1 < count ? values[i + 1] : "";
    if (word == "-nr" || word == "-function" || word == "-format" || word == "-prot" || word == "-host") {
      ++i;
      if (word == "-nr") number = value;
      if (word == "-function") function = value;
      if (word == "-format") script = value == "script";
    } else if (word == "-user") {
      i += 2;
    } else {
      arguments.push_back(word);
    }
  }
  const auto layout = own_layout(number);
  if (!layout || function.empty() || (!number.empty() && layout->number != number)) {
    std::printf("\n%s\n%s\nFAIL: NIECONN_REFUSED (Connection refused), NiRawConnect failed in plugin_fopen()\n",
                local_time_text(now_ms(), "%d.%m.%Y %H:%M:%S").c_str(), function.c_str());
    return exit_failed;
  }
  return run(*layout, function, arguments, script);
}
