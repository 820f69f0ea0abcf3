#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <string>
#include <thread>
#include <vector>

#include "hdbbackint/run.h"
#include "platform/files.h"
#include "support/fake_http_transport.h"
#include "support/log_capture.h"
#include "support/memory_backupd.h"
#include "support/temp_root.h"

namespace hdbbackint {

inline constexpr const char* job_uuid = "0f0e0d0c-0b0a-4908-8706-050403020100";
inline constexpr const char* pipe_directory = "/usr/sap/HDB/SYS/global/hdb/backint/DB_TN1";

/// A host with a pool in a directory, a backup server in memory, and one backup job. HANA's side is played by the test.
class Agent_Fixture : public testing::Test {
 protected:
  void SetUp() override {
    ::signal(SIGPIPE, SIG_IGN);
    root_.write("/etc/opt/tarvex/dorsal3/agent.toml",
                "server_url = \"http://backupd:8443\"\nhost_uuid = \"99999999-0b0a-4908-8706-050403020100\"\n");
    root_.write("/var/opt/tarvex/dorsal3/agent/access_key", "the-key\n", 0640);
    root_.make_directory("/pool");
    root_.make_directory("/tmp");
    root_.make_directory(pipe_directory);
    add_job("file:///pool", "none", {});
  }

  void add_job(const std::string& location, const std::string& compression, const json_spirit::Object& io_ctl,
               const std::string& database = "TN1") {
    server_.add_job({{"id", 1},
                     {"database_backup_id", 0},
                     {"uuid", job_uuid},
                     {"host_uuid", "99999999-0b0a-4908-8706-050403020100"},
                     {"job_act_id", "act-1"},
                     {"type", "full"},
                     {"location", location},
                     {"database", database},
                     {"compression", compression},
                     {"compression_level", 1},
                     {"sid", "HDB"},
                     {"pool_uuid", "11111111-2222-3333-4444-555555555555"},
                     {"landscape_id", "77777777-0b0a-4908-8706-050403020100"},
                     {"extended_attrs", json_spirit::Object{{"io_ctl", io_ctl}}}});
  }

  static std::string http_pool() { return std::string("http://backupd:8443") + support::Memory_Backupd::pool_path; }

  /// Documented path of a pipe in HANA's place for them, made now.
  std::string make_pipe(const std::string& name) {
    const std::string path = std::string(pipe_directory) + "/" + name;
    EXPECT_EQ(::mkfifo(root_.real(path).c_str(), 0600), 0) << path;
    return path;
  }
  static std::string object_name(const std::string& ending) { return std::string(job_uuid) + "_databackup_" + ending; }

  /// HANA's writing end: opens the pipe, writes, closes. False when the agent closed before everything was taken.
  bool write_pipe(const std::string& path, const std::string& content) {
    const int fd = ::open(root_.real(path).c_str(), O_WRONLY | O_CLOEXEC);
    if (fd < 0) return false;
    std::size_t at = 0;
    while (at < content.size()) {
      const ssize_t written = ::write(fd, content.data() + at, content.size() - at);
      if (written <= 0) break;
      at += static_cast<std::size_t>(written);
    }
    ::close(fd);
    return at == content.size();
  }
  std::string read_pipe(const std::string& path) {
    const int fd = ::open(root_.real(path).c_str(), O_RDONLY | O_CLOEXEC);
    std::string content;
    std::vector<char> buffer(1 << 16);
    for (ssize_t got = 0; (got = ::read(fd, buffer.data(), buffer.size())) > 0;) {
      content.append(buffer.data(), static_cast<std::size_t>(got));
    }
    ::close(fd);
    return content;
  }

  struct Outcome {
    int exit_code = -1;
    std::vector<std::string> answers;  ///< without the first line
    std::string software_id;
  };

  /// Calls the agent as HANA does. `input` without its first line.
  Outcome call(const std::string& function, const std::string& input, const std::vector<std::string>& more = {},
               const std::string& user = "TN1@HDB", const std::string& interface = "1.04") {
    root_.write("/tmp/in", "#SOFTWAREID \"backint " + interface + "\" \"HANA\"\n" + input);
    root_.write("/tmp/out", "");
    std::vector<std::string> arguments = {"-f", function, "-u", user, "-i", "/tmp/in", "-o", "/tmp/out"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    Outcome outcome;
    outcome.exit_code = run(arguments, stop_);
    std::string text = root_.read("/tmp/out");
    while (!text.empty()) {
      const std::size_t end = text.find('\n');
      EXPECT_NE(end, std::string::npos) << "an answer without its line end: " << text;
      if (end == std::string::npos) break;
      (outcome.software_id.empty() ? outcome.software_id : outcome.answers.emplace_back()) = text.substr(0, end);
      text.erase(0, end + 1);
    }
    return outcome;
  }

  /// Saves `content` through a new pipe and returns its EBID.
  std::string save(const std::string& name, const std::string& content,
                   const std::vector<std::string>& more = {"-s", "1707397841205"}) {
    const std::string path = std::string(pipe_directory) + "/" + name;
    ::unlink(root_.real(path).c_str());
    make_pipe(name);
    std::thread hana([&] { EXPECT_TRUE(write_pipe(path, content)); });
    const Outcome outcome =
        call("backup", "#TOOLOPTION \"job_uuid=" + std::string(job_uuid) + ";\"\n#PIPE " + path, more);
    hana.join();
    EXPECT_EQ(outcome.exit_code, 0);
    EXPECT_EQ(outcome.answers.size(), 1U);
    return outcome.answers.empty() ? std::string() : ebid_of(outcome.answers[0]);
  }

  /// The first parameter of an answer.
  static std::string ebid_of(const std::string& answer) {
    const std::size_t from = answer.find('"') + 1;
    return answer.substr(from, answer.find('"', from) - from);
  }

  /// Regular files below the pool's directory, also hidden ones.
  [[nodiscard]] std::vector<std::string> stored(const std::string& directory = "/pool") const {
    std::vector<std::string> found;
    std::vector<std::string> names;
    EXPECT_TRUE(platform::list_directory(directory, names));
    for (const std::string& name : names) {
      const std::string path = directory + "/" + name;
      if (platform::is_directory(path.c_str())) {
        const std::vector<std::string> below = stored(path);
        found.insert(found.end(), below.begin(), below.end());
      } else {
        found.push_back(path);
      }
    }
    return found;
  }

  support::Temp_Root root_;
  support::Log_Capture log_;
  support::Memory_Backupd server_{"the-key"};
  support::Fake_Http_Transport transport_{server_};
  Stop_Source stop_;
};

}  // namespace hdbbackint
