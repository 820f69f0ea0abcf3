#include "hana/common/instance_tool.h"

#include <signal.h>

#include <utility>

#include "hana/common/hana_paths.h"
#include "hana/common/installation.h"
#include "hana/common/text_lines.h"
#include "platform/clock.h"
#include "platform/log.h"
#include "platform/users.h"

namespace sap_hana {

namespace {

/// How often the limit is looked at while the tool is silent.
constexpr std::chrono::seconds limit_check_interval{1};
constexpr std::size_t described_line_bytes = 512;

class Collecting_Sink final : public platform::Output_Sink {
 public:
  Collecting_Sink(Tool_Result& result, std::chrono::seconds limit)
      : result_(result), deadline_(platform::Clock::current().steady_now() + limit) {}

  void on_start(pid_t pid) override { pid_ = pid; }
  void on_output(platform::Output_Stream stream, const char* data, std::size_t size) override {
    std::string& text = stream == platform::Output_Stream::standard_output ? result_.output : result_.errors;
    text.append(data, std::min(size, tool_output_limit_bytes - text.size()));
    check_limit();
  }
  void on_idle() override { check_limit(); }

 private:
  void check_limit() {
    if (result_.timed_out || platform::Clock::current().steady_now() < deadline_) return;
    result_.timed_out = true;
    if (pid_ > 0) ::kill(pid_, SIGKILL);
  }

  Tool_Result& result_;
  std::chrono::steady_clock::time_point deadline_;
  pid_t pid_ = 0;
};

std::string home_of(const std::string& sid, const std::string& user_name) {
  platform::Os_User user;
  if (platform::find_user(user_name, user) && !user.home.empty()) return user.home;
  return system_user_home(sid);
}

}  // namespace

platform::Process_Spec instance_tool(const std::string& sid, const std::string& instance_name,
                                     const std::string& program, std::vector<std::string> arguments) {
  const std::string directory = instance_directory(sid, instance_name);
  const std::string executables = executable_directory(sid, instance_name);
  const std::string host = local_host_name(sid, instance_name);
  const std::string user = system_user(sid);

  platform::Process_Spec spec;
  spec.program = program;
  spec.arguments = std::move(arguments);
  spec.user = user;
  spec.environment = {
      {"DIR_EXECUTABLE", executables},
      {"DIR_INSTANCE", directory},
      {"HOME", home_of(sid, user)},
      {"LANG", "en_US.UTF-8"},
      {"LD_LIBRARY_PATH", executables},
      {"LOGNAME", user},
      {"PATH", executables + ":" + directory + ":/usr/local/bin:/usr/bin:/bin:/usr/sbin:/sbin"},
      {"SAPSYSTEMNAME", sid},
      {"SAP_HOSTNAME", host},
      {"SAP_RETRIEVAL_PATH", host_directory(sid, instance_name, host)},
      {"TINSTANCE", instance_name.substr(instance_name.size() < 2 ? 0 : instance_name.size() - 2)},
      {"USER", user},
      {"VTHOSTNAME", host},
  };
  return spec;
}

Tool_Result run_tool(platform::Process_Spec spec, std::chrono::seconds limit) {
  Tool_Result result;
  spec.idle_interval = limit_check_interval;
  Collecting_Sink sink(result, limit);
  result.status = platform::Process_Runner::current().run(spec, sink);
  return result;
}

std::string describe(const Tool_Result& result) {
  std::string text = result.timed_out ? "did not end in time" : platform::describe(result.status);
  std::string_view last = last_line(result.errors);
  if (last.empty()) last = last_line(result.output);
  if (!last.empty()) text += ": " + printable(last, described_line_bytes);
  return text;
}

}  // namespace sap_hana
