#pragma once

#include <memory>
#include <string>
#include <vector>

#include "installed_product.h"
#include "processes.h"
#include "server.h"

namespace system_tests {

/// A machine below a root of its own: the installed product, its agent with the module, a stand-in HANA "HDB_HDB00".
class Host {
 public:
  struct Hana {
    bool single_container = false;
    std::vector<std::string> tenants = {"TN1"};
    int data_mb = 2;
    std::string version = "2.00.059.00.1632920961";
  };

  /// `name`: how agent and HANA call this host; empty for the machine's own name.
  explicit Host(const std::string& root, std::string name = {});

  [[nodiscard]] const std::string& uuid() const { return uuid_; }
  [[nodiscard]] const std::string& name() const { return name_; }
  [[nodiscard]] const Installed_Product& product() const { return product_; }
  [[nodiscard]] std::string real(const std::string& documented) const { return product_.real(documented); }

  /// Gets a key of the server for this host, once.
  void join(const Server& server) const;
  /// Waits until the server has accepted it when the server runs.
  void start_agent(const Server& server, unsigned limit_seconds = 60);
  void signal_agent(int signal) const { agent_->signal(signal); }
  /// Waits for the agent's end; its exit code.
  int end_of_agent();
  int stop_agent(int signal) {
    signal_agent(signal);
    return end_of_agent();
  }
  [[nodiscard]] bool agent_started() const { return agent_ != nullptr; }
  [[nodiscard]] std::string agent_log() const { return slurp(real(log_file)); }
  /// Waits for a text in the agent's log, after `from` bytes of it.
  [[nodiscard]] bool agent_says(const std::string& text, std::size_t from = 0) const;

  void install_hana(const Hana& hana) const;
  /// A part of the system that `other` has: `how` is the installer's word for it, with the other's root behind it.
  void install_hana_beside(const std::string& how, const Host& other, const std::vector<std::string>& more = {}) const;
  [[nodiscard]] bool has_hana() const;
  void start_hana() const;
  void stop_hana() const;
  /// A tool of the instance by its name below "exe".
  [[nodiscard]] Tool_Result hana_tool(const std::string& name, const std::vector<std::string>& words) const;
  /// A statement in the system database, with hdbsql's options for bare values.
  [[nodiscard]] Tool_Result sql(const std::string& statement) const;
  [[nodiscard]] Tool_Result control(std::vector<std::string> words) const;
  void fault(const std::string& line) const;
  /// Whether HANA comes to where this fault applies: what a fault holds is held then, and not before.
  [[nodiscard]] bool meets(const std::string& line) const;
  void no_faults() const;
  /// This fault alone from now on, without a moment between.
  void only_faults(const std::string& line) const;
  /// Stops all that runs.
  void shut_down();

  static constexpr const char* password = "manager";

 private:
  static constexpr const char* log_file = "/log/agent.log";
  [[nodiscard]] std::string root() const { return real(""); }
  void run_installer(const std::vector<std::string>& words) const;
  Installed_Product product_;
  std::string name_;
  std::string uuid_;
  std::unique_ptr<Background_Process> agent_;
};

}  // namespace system_tests
