#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

namespace standin_test {

struct Output {
  int code = -1;
  std::string out, err;
};

std::string text_of(const std::filesystem::path& path);
/// How often `part` stands in `text`.
int count_of(const std::string& text, const std::string& part);

/// System HDB, instance 00, below a folder of its own, with an hdbbackint that keeps what it reads in "pool".
class Installed_HANA : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;
  /// Runs a program with files in place of its standard streams.
  Output run(std::vector<std::string> words, const std::string& input = {});
  virtual void lay_out(const std::vector<std::string>& more = {"--tenant", "TN1", "--services",
                                                               "indexserver,xsengine"});
  void install(const std::vector<std::string>& more = {"--tenant", "TN1", "--services", "indexserver,xsengine"});
  void start();
  [[nodiscard]] std::filesystem::path instance() const { return root_ / "usr/sap/HDB/HDB00"; }
  [[nodiscard]] std::filesystem::path backint_link() const {
    return root_ / "usr/sap/HDB/SYS/global/hdb/opt/hdbbackint";
  }
  /// Statements by standard input behind "\c", without remarks.
  Output sql(const std::string& statement, const std::string& database = "SYSTEMDB",
             const std::string& password = "manager", const std::string& user = "SYSTEM");
  /// The bare values of a query in the system database.
  std::string value_of(const std::string& query);
  /// hdbsql with logon options of the system database before `words`.
  Output hdbsql(const std::vector<std::string>& words, const std::string& input = {});
  Output hdb(const std::string& verb) { return run({instance() / "HDB", verb}); }
  Output control(const std::vector<std::string>& words);
  void fault(const std::string& line);
  /// Whether the server comes to where this fault applies.
  [[nodiscard]] bool meets(const std::string& line) const;
  /// The faults that have applied, a line each.
  [[nodiscard]] std::string met() const;
  /// Takes all faults away; what hangs goes on.
  void no_faults();
  /// These faults alone from now on, without a moment between.
  void only_faults(const std::vector<std::string>& lines);
  void script(const std::string& line);
  /// The id of the backup that runs; waits until the catalog shows it.
  std::string running_backup();
  /// Catalog entries of data backups, state by state, oldest first.
  std::string states(const std::string& database = "TN1");
  std::filesystem::path write(const std::string& name, const std::string& text);
  std::filesystem::path root_;
};

}  // namespace standin_test
