#pragma once

#include <memory>
#include <string>
#include <vector>

#include "host.h"
#include "root_fixture.h"
#include "server.h"

namespace system_tests {

/// One host and the backup server below one temporary root: the installed product, backupd, the agent with the module,
/// a stand-in HANA. A test starts what it needs; in the end all is stopped, and a process that is left is a failure.
class System_Fixture : public Root_Fixture {
 protected:
  using Hana = Host::Hana;
  using Rest_Answer = Server::Rest_Answer;

  System_Fixture();
  void TearDown() override;

  /// All of it, discovered, logged on, with a pool named "main".
  void start_all(const Hana& hana);
  void start_all() { start_all(Hana()); }

  void start_backupd();
  void stop_backupd(int signal) { server_.stop(signal); }
  void start_agent(unsigned limit_seconds = 60) { host_.start_agent(server_, limit_seconds); }
  /// The agent's exit code.
  int stop_agent();
  void install_hana(const Hana& hana) const { host_.install_hana(hana); }
  void start_hana() const { host_.start_hana(); }
  void stop_hana() const { host_.stop_hana(); }
  [[nodiscard]] Tool_Result control(std::vector<std::string> words) const { return host_.control(std::move(words)); }
  void fault(const std::string& line) const { host_.fault(line); }
  [[nodiscard]] bool meets(const std::string& line) const { return host_.meets(line); }
  void no_faults() const { host_.no_faults(); }

  /// The operator's command, always with JSON output.
  [[nodiscard]] Tool_Result dorsal3(std::vector<std::string> words, const std::string& input = {}) const {
    return server_.dorsal3(std::move(words), input);
  }
  /// A backup to its end; the result of the command.
  [[nodiscard]] Tool_Result backup(const std::string& subject, std::vector<std::string> more = {}) const {
    return server_.backup(subject, std::move(more));
  }
  /// Starts one and comes back; the id of its run.
  [[nodiscard]] std::string start_backup(const std::string& subject, std::vector<std::string> more = {}) const {
    return server_.start_backup(subject, std::move(more));
  }
  [[nodiscard]] json_spirit::Object job(const std::string& id) const { return server_.job(id); }
  [[nodiscard]] std::string wait_for_end(const std::string& id) const { return server_.wait_for_end(id); }
  [[nodiscard]] std::vector<json_spirit::Object> sets() const { return server_.sets(); }
  /// A request of an operator to backupd; `resource` comes after the prefix of the interface.
  [[nodiscard]] Rest_Answer rest(const std::string& method, const std::string& resource,
                                 const std::string& body = {}) const {
    return server_.rest(method, resource, body);
  }
  [[nodiscard]] const std::string& host_uuid() const { return host_.uuid(); }
  /// Codes of the alerts, oldest first, as "class/code".
  [[nodiscard]] std::vector<std::string> alerts() const { return server_.alerts(); }
  /// Files in the pool.
  [[nodiscard]] std::vector<std::string> pool_files() const { return server_.pool_files(); }

  [[nodiscard]] std::string real(const std::string& documented) const { return root() + documented; }
  [[nodiscard]] static std::string text_of(const json_spirit::Object& object, const std::string& key) {
    return system_tests::text_of(object, key);
  }
  [[nodiscard]] std::string agent_log() const { return host_.agent_log(); }
  /// Waits for a text in the agent's log, after `from` bytes of it.
  [[nodiscard]] bool agent_says(const std::string& text, std::size_t from = 0) const {
    return host_.agent_says(text, from);
  }
  /// Waits until a program of that name runs below the root.
  [[nodiscard]] bool program_runs(const std::string& name) const;

  /// The fault with which a backup of some MB goes on until a test takes its faults away.
  static constexpr const char* held_backup = "stream_bytes_per_second = 50000";
  static constexpr const char* instance = "HDB_HDB00";
  static constexpr const char* password = Host::password;

  Server server_;
  Host host_;
};

}  // namespace system_tests
