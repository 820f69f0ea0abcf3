#pragma once

#include <functional>
#include <string>
#include <vector>

#include "standin/installed_hana.h"

namespace standin_test {

/// A system whose tenant TN1 is backed up and recovered.
class Recovered_HANA : public Installed_HANA {
 protected:
  /// With catalog backups through hdbbackint.
  void install_with_catalogs(const std::vector<std::string>& more = {"--tenant", "TN1"});
  /// With log backups through hdbbackint, too.
  void install_with_logs(const std::vector<std::string>& more = {"--tenant", "TN1", "--services",
                                                                 "indexserver,xsengine"});
  Output backup(const std::string& kind = "", const std::string& prefix = "p", const std::string& database = "TN1");
  /// The same, with its id.
  std::string backed_up(const std::string& kind = "", const std::string& prefix = "p",
                        const std::string& database = "TN1");
  Output put(const std::string& key, const std::string& value, const std::string& database = "TN1");
  /// All rows of KV, "K,V\n" each.
  std::string rows(const std::string& database = "TN1");
  Output stop(const std::string& database = "TN1");
  /// Stops TN1 and runs "RECOVER " with the rest.
  Output recover(const std::string& rest);
  std::string status_of(const std::string& database = "TN1");
  /// HANA's time is the machine's, unless the tests are to begin at another one.
  void lay_out(const std::vector<std::string>& more) override;
  /// Moves HANA's clock forward.
  void later(int seconds);
  /// HANA's time in UTC as a statement takes it.
  [[nodiscard]] std::string now() const;
  /// HANA's time stands in the middle of a second, until it is moved; that second as now() gives it.
  std::string stand_still();
  /// Waits into the next second, so that what was committed is older than what comes.
  void next_second();
  /// Writes all that was committed into log backups of every service; waits for them and their catalog.
  void save_logs();
  /// Log backups through hdbbackint of TN1's index server that were saved.
  int saved_logs(const std::string& service = "indexserver");
  std::string backup_log(const std::string& database = "TN1");
  /// "reached timestamp" of the newest recovery, as it was written; empty when its last line has none.
  std::string reached_text();
  /// The same in UTC, as now() gives it.
  std::string reached();
  /// The calls of hdbbackint since this was asked last: arguments and input lines.
  std::string new_calls();
  /// Waits until it is so, for a while; whether it became so.
  static bool becomes(const std::function<bool()>& wanted);
  int offset_ = 0;

 private:
  /// Sets a switch of [backup].
  void configure(const std::string& key);
  std::string home_ = "SYSTEMDB";
  std::size_t seen_calls_ = 0;
};

}  // namespace standin_test
