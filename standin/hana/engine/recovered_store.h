#pragma once

#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "engine/sql_text.h"
#include "engine/volume.h"

namespace standin {

/// A service as volume 0 of a backup names it.
struct Topology_Service {
  std::string name;
  int volume = 0;
  int parts = 0;  ///< streams of that backup
  std::uint64_t ballast_pages = 0;
  std::uint64_t seed = 0;
};

/// Lines of volume 0's header page, and back.
std::string topology_text(const std::vector<Topology_Service>& services);
std::vector<Topology_Service> parse_topology(const std::map<std::string, std::string>& headers);

/// The content of a database while it is put together from backups: beside the database, until `install`. Pages may
/// come from several threads.
class Recovered_Store {
 public:
  Recovered_Store(System_State& state, std::string database);
  ~Recovered_Store();
  /// Begins with an empty content.
  [[nodiscard]] bool begin(const std::vector<Topology_Service>& services);
  /// A delta's services must be those that the database has.
  [[nodiscard]] bool same_services(const std::vector<Topology_Service>& services) const;
  /// False for a page that is not what it should be.
  bool take_page(int volume, std::uint64_t number, bool ballast, const char* page);
  /// The data backups are in: opens the tables. The error's text, empty when all is there.
  std::string complete();
  /// One statement of the log.
  std::optional<Sql_Error> replay(const std::string& statement);
  /// Puts the content in the database's place. `position`: of the log up to which commits are in.
  [[nodiscard]] bool install(std::int64_t position);

 private:
  struct Volume {
    Topology_Service service;
    std::vector<std::uint64_t> versions;  ///< of each ballast page
  };
  bool install_services();
  bool install_ballast();
  bool forget_history(std::int64_t position);
  System_State& state_;
  std::string database_;
  std::string path_;
  Descriptor file_;
  std::map<int, Volume> volumes_;
  Sqlite tables_;
};

}  // namespace standin
