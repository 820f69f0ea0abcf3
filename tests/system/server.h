#pragma once

#include <memory>
#include <string>
#include <vector>

#include "installed_product.h"
#include "processes.h"

namespace system_tests {

/// backupd below a root, and the operator's command that speaks to it.
class Server {
 public:
  struct Rest_Answer {
    unsigned status = 0;  ///< 0 when backupd could not be asked
    std::string body;
  };

  explicit Server(const std::string& root);

  /// It keeps its port when it is started again. Installs nothing.
  void start();
  void stop(int signal);
  [[nodiscard]] bool started() const { return process_ != nullptr; }
  [[nodiscard]] std::string url() const { return "http://" + address_ + ":" + port_; }
  [[nodiscard]] std::string log() const { return slurp(product_.real(log_file)); }
  /// A new key; `words` are what "key add" takes.
  [[nodiscard]] std::string make_key(const std::vector<std::string>& words) const;

  /// The operator's command, always with JSON output.
  [[nodiscard]] Tool_Result dorsal3(std::vector<std::string> words, const std::string& input = {}) const;
  /// A backup to its end; the result of the command.
  [[nodiscard]] Tool_Result backup(const std::string& subject, std::vector<std::string> more = {}) const;
  /// Starts one and comes back; the id of its run.
  [[nodiscard]] std::string start_backup(const std::string& subject, std::vector<std::string> more = {}) const;
  [[nodiscard]] json_spirit::Object job(const std::string& id) const;
  /// The name of the state in which the run ended.
  [[nodiscard]] std::string wait_for_end(const std::string& id) const;
  [[nodiscard]] std::vector<json_spirit::Object> sets() const;
  /// A request of an operator; `resource` comes after the prefix of the interface.
  [[nodiscard]] Rest_Answer rest(const std::string& method, const std::string& resource,
                                 const std::string& body = {}) const;
  /// Codes of the alerts, oldest first, as "class/code".
  [[nodiscard]] std::vector<std::string> alerts() const;
  /// Files of the pool in "/srv/pool".
  [[nodiscard]] std::vector<std::string> pool_files() const;

 private:
  static constexpr const char* log_file = "/log/backupd.log";
  Installed_Product product_;
  std::string address_;
  std::string port_ = "0";
  std::unique_ptr<Background_Process> process_;
};

/// A member as text; empty when there is none.
[[nodiscard]] std::string text_of(const json_spirit::Object& object, const std::string& key);

}  // namespace system_tests
