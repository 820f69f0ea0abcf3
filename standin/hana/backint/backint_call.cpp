#include "backint/backint_call.h"

#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <thread>

#include "backint/backint_process.h"
#include "base/text.h"

namespace standin {

namespace {

std::string input_text(const Backint_Call& call, const std::vector<Backint_Part>& parts) {
  std::string text = software_line(call.layout);
  if (!call.tool_option.empty()) text += "#TOOLOPTION " + backint_quoted(call.tool_option) + "\n";
  for (const Backint_Part& part : parts)
    text += "#PIPE " + backint_quoted(part.name) + " " + std::to_string(part.size) + "\n";
  return text;
}

bool make_pipes(const Layout& layout, const std::vector<Backint_Part>& parts) {
  for (const Backint_Part& part : parts) {
    const std::string path = layout.real(part.name);
    if (!make_directories(std::filesystem::path(path).parent_path().string())) return false;
    ::unlink(path.c_str());
    if (::mkfifo(path.c_str(), 0660) != 0) return false;
  }
  return true;
}

/// Reads the answers; the error's text when a part is missing or has another size.
std::string read_answers(const std::string& output, std::vector<Backint_Part>& parts) {
  for (Backint_Part& part : parts) {
    std::string size;
    for (const std::string& line : split(output, '\n')) {
      const auto words = backint_words(line);
      if (words.size() >= 3 && words[0] == "#SAVED" && words[2] == part.name) {
        part.external_id = words[1];
        size = words.size() > 3 ? words[3] : std::to_string(part.result.bytes);
      }
      if (words.size() >= 2 && words[0] == "#ERROR" && words[1] == part.name)
        return "[110506] Backint reported an error for '" + part.name + "'";
    }
    if (part.external_id.empty()) return "[110512] Backint reported '" + part.name + "' was not found in output";
    if (size != std::to_string(part.result.bytes))
      return "[110203] Not all data could be written: Expected " + std::to_string(part.result.bytes) +
             " but transferred " + size;
  }
  return {};
}

}  // namespace

std::string run_backint(const Backint_Call& call, std::vector<Backint_Part>& parts,
                        const std::function<bool()>& canceled, const std::function<void(std::size_t)>& transferred,
                        const std::function<std::int64_t()>& bytes_per_second) {
  const std::string program = backint_program(call.layout);
  if (::access(program.c_str(), X_OK) != 0) return cannot_execute(call.layout, errno);
  std::vector<Volume_Stream> streams;
  for (Backint_Part& part : parts) {
    streams.emplace_back(part.content);
    part.size = streams.back().size();
  }
  const std::string in = exchange_file(call.layout);
  const std::string out = exchange_file(call.layout);
  const std::string input = input_text(call, parts);
  if (in.empty() || out.empty() || !append_file(call.layout.real(in), input) || !make_pipes(call.layout, parts))
    return "[110091] Invalid path selection for data backup using backint";

  std::vector<std::string> arguments{call.layout.backint_link(), "-f", "backup"};
  if (!call.parameter_file.empty()) arguments.insert(arguments.end(), {"-p", call.parameter_file});
  arguments.insert(arguments.end(), {"-i", in, "-o", out, "-u", call.user_id, "-s", std::to_string(call.backup_id),
                                     "-c", std::to_string(call.objects), "-l", call.level});
  std::string error;
  {
    Backint_Process process;
    if (!process.start(program, arguments)) {
      error = cannot_execute(call.layout, process.error());
    } else {
      log_backint_start(call.layout, call.database, join(arguments, " "), process.pid(), input);
      std::atomic<std::uint64_t> total{0};
      const Stream_Watch watch{
          [&] { return canceled() || process.ended(); },
          [&](std::size_t size) {
            total += size;
            transferred(size);
            if (call.kill_after_bytes >= 0 && total >= static_cast<std::uint64_t>(call.kill_after_bytes))
              process.send(SIGKILL);
          },
          bytes_per_second};
      // HANA signals before it lets go of the pipes: an early end of the stream must not look like a good one.
      std::vector<std::thread> writers;
      std::vector<Descriptor> pipes(parts.size());
      std::vector<char> opened(parts.size(), 0);
      for (std::size_t i = 0; i < parts.size(); ++i)
        writers.emplace_back([&, i] {
          pipes[i] = open_pipe(call.layout.real(parts[i].name), watch);
          opened[i] = pipes[i].valid();
          if (pipes[i].valid()) parts[i].result = write_stream(streams[i], pipes[i].get(), watch);
          if (canceled() && call.signal_on_cancel) process.send(SIGTERM);
          pipes[i].reset();
        });
      for (std::thread& writer : writers) writer.join();
      // HANA opens every pipe once, also those of a backup that it gave up.
      const Stream_Watch until_end{[&] { return process.ended(); }, {}, {}};
      std::vector<std::thread> openers;
      for (std::size_t i = 0; i < parts.size(); ++i)
        if (opened[i] == 0) openers.emplace_back([&, i] { open_pipe(call.layout.real(parts[i].name), until_end); });
      wait_for_backint(process, call.response_timeout_seconds, canceled, call.signal_on_cancel);
      for (std::thread& opener : openers) opener.join();
      const int code = process.finish();
      const std::string output = read_file(call.layout.real(out)).value_or(std::string());
      if (canceled())
        error = "Backup was canceled by user";
      else if (code != 0)
        error = exit_error(process, code);
      for (const Backint_Part& part : parts)
        if (error.empty() && !part.result.complete)
          error =
              "[110203] Not all data could be written: Expected " + std::to_string(page_bytes) + " but transferred 0";
      if (error.empty()) error = read_answers(output, parts);
      log_backint_end(call.layout, call.database, process.pid(), code, output, error);
    }
  }
  for (const Backint_Part& part : parts) ::unlink(call.layout.real(part.name).c_str());
  ::unlink(call.layout.real(in).c_str());
  ::unlink(call.layout.real(out).c_str());
  return error;
}

}  // namespace standin
