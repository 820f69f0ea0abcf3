#include "contract/process_side.h"

#include <atomic>
#include <cerrno>
#include <filesystem>

#include "platform/file_root.h"
#include "support/scripted_process_runner.h"

namespace contract {

namespace {

using support::Scripted_Child;
using support::Seen_Call;

constexpr const char* missing_program = "/no/such/program";

class Scripted_Side final : public Process_Side {
 public:
  platform::Process_Spec child(const Child_Plan& plan) override {
    platform::Process_Spec spec;
    spec.program = "/planned/" + std::to_string(++made_);
    runner_.on([plan, program = spec.program](const Seen_Call& call, Scripted_Child& child) {
      if (call.program != program) return false;
      child.standard_output = (plan.tell_call ? told(call) : "") + (plan.copy_input ? call.input : "") + plan.output;
      child.standard_error = plan.errors;
      child.hangs = plan.hang;
      child.signal = plan.signal;
      child.code = plan.code;
      return true;
    });
    return spec;
  }

  platform::Process_Spec missing() override {
    runner_.on([](const Seen_Call& call, Scripted_Child& child) {
      child.start_error = ENOENT;
      return call.program == missing_program;
    });
    platform::Process_Spec spec;
    spec.program = missing_program;
    return spec;
  }

 private:
  static std::string told(const Seen_Call& call) {
    std::string text;
    for (const std::string& argument : call.arguments) text += "argument=" + argument + "\n";
    for (const auto& [name, value] : call.environment) text.append(name).append("=").append(value).append("\n");
    const std::string directory = call.working_directory.empty() ? "/" : call.working_directory;
    const std::filesystem::path real = std::filesystem::canonical(platform::File_Root::current().real(directory));
    return text + "directory=" + real.string() + "\n";
  }

  support::Scripted_Process_Runner runner_;
  std::atomic<int> made_ = 0;
};

std::string quoted(const std::string& text) {
  std::string made = "'";
  for (const char c : text) made += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return made + "'";
}

/// The shell of this system, found below the file root too.
class Real_Side final : public Process_Side {
 public:
  platform::Process_Spec child(const Child_Plan& plan) override {
    std::string script;
    // The shell adds to its own environment: the kernel tells what it was given.
    if (plan.tell_call)
      script +=
          "for a; do printf 'argument=%s\\n' \"$a\"; done\n"
          "/usr/bin/tr '\\0' '\\n' < /proc/$$/environ\n"
          "printf 'directory=%s\\n' \"$(pwd)\"\n";
    if (plan.copy_input) script += "/usr/bin/cat\n";
    if (!plan.output.empty()) script += "printf %s " + quoted(plan.output) + "\n";
    if (!plan.errors.empty()) script += "printf %s " + quoted(plan.errors) + " >&2\n";
    if (plan.hang) script += "exec /usr/bin/sleep 600\n";
    if (plan.signal != 0) script += "kill -" + std::to_string(plan.signal) + " $$\n";
    script += "exit " + std::to_string(plan.code) + "\n";
    platform::Process_Spec spec;
    spec.program = "/bin/sh";
    spec.arguments = {"-c", script, "planned"};
    return spec;
  }

  platform::Process_Spec missing() override {
    platform::Process_Spec spec;
    spec.program = missing_program;
    return spec;
  }
};

}  // namespace

std::unique_ptr<Process_Side> make_scripted_process_side() { return std::make_unique<Scripted_Side>(); }
std::unique_ptr<Process_Side> make_real_process_side() { return std::make_unique<Real_Side>(); }

}  // namespace contract
