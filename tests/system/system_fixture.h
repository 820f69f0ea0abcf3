#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "processes.h"

namespace system_tests {

/// Everything below one temporary root: the installed product, backupd, the agent with the module, a stand-in HANA. A
/// test starts what it needs; in the end all is stopped, and a process that is left is a failure.
class System_Fixture : public ::testing::Test {
 protected:
  struct Hana {
    bool single_container = false;
    std::vector<std::string> tenants = {"TN1"};
    int data_mb = 2;
    std::string version = "2.00.059.00.1632920961";
  };

  System_Fixture();
  ~System_Fixture() override;
  void TearDown() override;

  /// All of it, discovered, logged on, with a pool named "main".
  void start_all(const Hana& hana);
  void start_all() { start_all(Hana()); }

  void start_backupd();
  void stop_backupd(int signal);
  void start_agent(unsigned stop_limit_seconds = 60);
  /// The agent's exit code.
  int stop_agent();
  void install_hana(const Hana& hana);
  void start_hana() const;
  void stop_hana() const;
  [[nodiscard]] Tool_Result control(std::vector<std::string> words) const;
  void fault(const std::string& line) const;
  void no_faults() const;

  /// The operator's command, always with JSON output.
  [[nodiscard]] Tool_Result dorsal3(std::vector<std::string> words, const std::string& input = {}) const;
  /// A backup to its end; the result of the command.
  [[nodiscard]] Tool_Result backup(const std::string& subject, std::vector<std::string> more = {}) const;
  /// Starts one and comes back; the id of its run.
  [[nodiscard]] std::string start_backup(const std::string& subject, std::vector<std::string> more = {}) const;
  [[nodiscard]] json_spirit::Object job(const std::string& id) const;
  [[nodiscard]] std::string wait_for_end(const std::string& id) const;
  [[nodiscard]] std::vector<json_spirit::Object> sets() const;
  struct Rest_Answer {
    unsigned status = 0;  ///< 0 when backupd could not be asked
    std::string body;
  };
  /// A request of an operator to backupd; `resource` comes after the prefix of the interface.
  [[nodiscard]] Rest_Answer rest(const std::string& method, const std::string& resource,
                                 const std::string& body = {}) const;
  [[nodiscard]] const std::string& host_uuid() const { return host_uuid_; }
  /// Codes of the alerts, oldest first, as "class/code".
  [[nodiscard]] std::vector<std::string> alerts() const;
  /// Files in the pool.
  [[nodiscard]] std::vector<std::string> pool_files() const;

  [[nodiscard]] std::string real(const std::string& documented) const { return root_ + documented; }
  [[nodiscard]] static std::string text_of(const json_spirit::Object& object, const std::string& key);
  [[nodiscard]] std::string agent_log() const;
  /// Waits for a text in the agent's log, after `from` bytes of it.
  [[nodiscard]] bool agent_says(const std::string& text, std::size_t from = 0) const;
  /// Waits until a program of that name runs below the root.
  [[nodiscard]] bool program_runs(const std::string& name) const;

  static constexpr const char* instance = "HDB_HDB00";
  static constexpr const char* password = "manager";

 private:
  void install_product() const;
  void make_key(const std::string& name, const std::vector<std::string>& words) const;
  void write(const std::string& documented, const std::string& text) const;
  [[nodiscard]] std::string program(const std::string& name) const;

  std::string root_;
  std::string host_uuid_;
  std::string port_ = "0";
  std::unique_ptr<Background_Process> backupd_;
  std::unique_ptr<Background_Process> agent_;
};

}  // namespace system_tests
