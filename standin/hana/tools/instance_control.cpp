#include "tools/instance_control.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include "base/clock.h"
#include "base/files.h"
#include "base/ini.h"
#include "base/text.h"
#include "base/wire.h"

namespace standin {

namespace {
constexpr std::int64_t step_ms = 20;
constexpr std::int64_t show_limit_ms = 120000;
}  // namespace

Instance_State instance_state(const Layout& layout) {
  Instance_State state;
  const auto answer = ask(layout.state("socket"), {"STATE"});
  if (!answer || answer->size() != 4) return state;
  state.phase = (*answer)[0];
  state.pid = static_cast<int>(parse_number((*answer)[1]).value_or(0));
  state.start_ms = parse_number((*answer)[2]).value_or(0);
  for (const std::string& line : split((*answer)[3], '\n')) {
    const auto parts = split(line, ',');
    if (parts.size() >= 2) state.services.emplace_back(parts[0], line.substr(parts[0].size() + 1));
  }
  return state;
}

bool start_instance(const Layout& layout) {
  if (instance_state(layout).phase != "stopped") return true;
  const std::string program = layout.real(layout.instance_directory() + "/exe/hdb_standin_server");
  const std::string name = layout.daemon_name();
  const std::string log = layout.state("server.log");
  const pid_t child = ::fork();
  if (child < 0) return false;
  if (child == 0) {
    ::setsid();
    if (::fork() != 0) ::_exit(0);
    const int null = ::open("/dev/null", O_RDONLY);
    const int out = ::open(log.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0640);
    ::dup2(null, 0);
    ::dup2(out, 1);
    ::dup2(out, 2);
    ::close_range(3, ~0U, 0);
    ::execl(program.c_str(), name.c_str(), "-d", "-nw", static_cast<char*>(nullptr));
    ::_exit(127);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  for (std::int64_t waited = 0; waited < show_limit_ms; waited += step_ms) {
    if (instance_state(layout).phase != "stopped") return true;
    sleep_ms(step_ms);
  }
  return false;
}

bool stop_instance(const Layout& layout) {
  // One that was told before may end before it can answer.
  return ask(layout.state("socket"), {"STOP"}).has_value() || instance_state(layout).phase == "stopped";
}

bool kill_instance(const Layout& layout) {
  const Instance_State state = instance_state(layout);
  return state.phase == "stopped" || ::kill(state.pid, SIGKILL) == 0;
}

bool wait_for_phase(const Layout& layout, const std::string& phase, int timeout_seconds) {
  for (std::int64_t waited = 0; waited <= timeout_seconds * 1000LL; waited += step_ms) {
    if (instance_state(layout).phase == phase) return true;
    sleep_ms(step_ms);
  }
  return false;
}

Start_End wait_for_start(const Layout& layout, int timeout_seconds) {
  for (std::int64_t waited = 0; waited <= timeout_seconds * 1000LL; waited += step_ms) {
    const std::string phase = instance_state(layout).phase;
    if (phase == "running") return Start_End::running;
    if (phase == "stopped") return Start_End::down;
    sleep_ms(step_ms);
  }
  return Start_End::timeout;
}

std::string fault_setting(const Layout& layout, const std::string& key) {
  const Ini faults = Ini::load(layout.state("faults.conf"));
  return std::string(trim(split(faults.get("", key), '|').front()));
}

}  // namespace standin
