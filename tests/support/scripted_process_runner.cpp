#include "support/scripted_process_runner.h"

#include <gtest/gtest.h>

#include <cerrno>

namespace support {

namespace {

void print(platform::Output_Sink& sink, platform::Output_Stream stream, const std::string& text) {
  // Exact-size heap copies: a reader that looks past its end is seen by the address sanitizer. Two halves: lines do
  // not arrive whole in real life either.
  const std::size_t half = text.size() / 2;
  for (const std::string_view piece : {std::string_view(text).substr(0, half), std::string_view(text).substr(half)}) {
    if (piece.empty()) continue;
    const std::vector<char> exact(piece.begin(), piece.end());
    sink.on_output(stream, exact.data(), exact.size());
  }
}

}  // namespace

Scripted_Process_Runner::Scripted_Process_Runner() : scope_(*this) {}
Scripted_Process_Runner::~Scripted_Process_Runner() = default;

platform::Exit_Status Scripted_Process_Runner::run(const platform::Process_Spec& spec, platform::Output_Sink& sink) {
  const Seen_Call call{spec.program, spec.arguments, spec.environment, std::string(spec.input.view()), spec.user};
  std::vector<Rule> rules;
  {
    const std::lock_guard guard(mutex_);
    calls_.push_back(call);
    rules = rules_;
  }
  Scripted_Child child;
  bool found = false;
  for (const Rule& rule : rules)
    if (rule(call, child)) {
      found = true;
      break;
    }
  platform::Exit_Status status;
  if (!found) {
    std::string shown = call.program;
    for (const std::string& argument : call.arguments) shown += " [" + argument + "]";
    ADD_FAILURE() << "process nobody expected: " << shown << "\ninput: " << call.input;
    status.error = ENOENT;
    return status;
  }
  if (child.start_error != 0) {
    status.error = child.start_error;
    return status;
  }
  status.started = true;
  sink.on_start(0);
  if (child.before) child.before();
  print(sink, platform::Output_Stream::standard_output, child.standard_output);
  print(sink, platform::Output_Stream::standard_error, child.standard_error);
  if (child.idle) sink.on_idle();
  sink.on_close(platform::Output_Stream::standard_output);
  sink.on_close(platform::Output_Stream::standard_error);
  status.signal = child.signal;
  status.code = child.signal != 0 ? -1 : child.code;
  return status;
}

bool Scripted_Process_Runner::list(std::vector<platform::Running_Process>& processes) {
  const std::lock_guard guard(mutex_);
  ++listings_;
  processes = processes_;
  errno = EACCES;
  return !list_fails_;
}

void Scripted_Process_Runner::let_run(std::vector<platform::Running_Process> processes) {
  const std::lock_guard guard(mutex_);
  processes_ = std::move(processes);
}

void Scripted_Process_Runner::fail_to_list(bool fails) {
  const std::lock_guard guard(mutex_);
  list_fails_ = fails;
}

std::size_t Scripted_Process_Runner::listings() const {
  const std::lock_guard guard(mutex_);
  return listings_;
}

void Scripted_Process_Runner::on(Rule rule) {
  const std::lock_guard guard(mutex_);
  rules_.push_back(std::move(rule));
}

void Scripted_Process_Runner::on_program(const std::string& program, Scripted_Child child) {
  on([program, child](const Seen_Call& call, Scripted_Child& answer) {
    if (!call.program.ends_with(program)) return false;
    answer = child;
    return true;
  });
}

std::vector<Seen_Call> Scripted_Process_Runner::calls() const {
  const std::lock_guard guard(mutex_);
  return calls_;
}

void Scripted_Process_Runner::clear_rules() {
  const std::lock_guard guard(mutex_);
  rules_.clear();
}

}  // namespace support
