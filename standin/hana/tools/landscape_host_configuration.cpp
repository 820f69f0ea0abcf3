#include <algorithm>
#include <array>
#include <cstdio>
#include <string>
#include <vector>

#include "base/cluster.h"

namespace {

using namespace standin;

/// Of the script: 0 stands for an error of its own.
enum Exit { exit_internal = 0, exit_error = 1, exit_ok = 4 };

constexpr std::size_t columns = 17;
using Row = std::array<std::string, columns>;

const Row keys{"host",
               "hostActive",
               "hostStatus",
               "failoverStatus",
               "removeStatus",
               "storageConfigPartition",
               "storageActualPartition",
               "failoverConfigGroup",
               "failoverActualGroup",
               "nameServerConfigRole",
               "nameServerActualRole",
               "indexServerConfigRole",
               "indexServerActualRole",
               "hostConfigRoles",
               "hostActualRoles",
               "workerConfigGroups",
               "workerActualGroups"};

const std::vector<Row> headers{
    {"Host", "Host", "Host", "Failover", "Remove", "Storage", "Storage", "Failover", "Failover", "NameServer",
     "NameServer", "IndexServer", "IndexServer", "Host", "Host", "Worker", "Worker"},
    {"", "Active", "Status", "Status", "Status", "Config", "Actual", "Config", "Actual", "Config", "Actual", "Config",
     "Actual", "Config", "Actual", "Config", "Actual"},
    {"", "", "", "", "", "Partition", "Partition", "Group", "Group", "Role", "Role", "Role", "Role", "Roles", "Roles",
     "Groups", "Groups"}};

Row row_of(const Layout& host, bool master) {
  const bool active = phase_of(host) == "running";
  const int rank = master_rank(host);
  const char* role = master ? "master" : "slave";
  return {host.host,
          active ? "yes" : "no",
          active ? "ok" : "error",
          "",
          "",
          master ? "1" : "0",
          master ? "1" : "0",
          "default",
          "default",
          rank < 0 ? "slave" : "master " + std::to_string(rank + 1),
          role,
          "worker",
          role,
          "worker",
          "worker",
          "default",
          "default"};
}

void print_table(const std::vector<Row>& rows, const char* overall) {
  std::vector<Row> lines = headers;
  std::array<std::size_t, columns> widths{};
  lines.insert(lines.end(), rows.begin(), rows.end());
  for (const Row& line : lines)
    for (std::size_t i = 0; i < columns; ++i) widths[i] = std::max(widths[i], line[i].size());
  const auto print = [&](const Row& line) {
    for (std::size_t i = 0; i < columns; ++i) std::printf("| %-*s ", static_cast<int>(widths[i]), line[i].c_str());
    std::printf("|\n");
  };
  Row rule;
  for (std::size_t i = 0; i < columns; ++i) rule[i].assign(widths[i], '-');
  for (std::size_t i = 0; i < lines.size(); ++i) {
    if (i == headers.size()) print(rule);
    print(lines[i]);
  }
  std::printf("\noverall host status: %s\n", overall);
}

/// One host's keys stand alone, those of several behind "host/<name>/".
void print_for_sapcontrol(const std::vector<Row>& rows) {
  std::printf("SAPCONTROL-OK: <begin>\n");
  for (const Row& row : rows) {
    const std::string prefix = rows.size() == 1 ? "" : "host/" + row[0] + "/";
    for (std::size_t i = 0; i < columns; ++i) std::printf("%s%s=%s\n", prefix.c_str(), keys[i].c_str(), row[i].c_str());
  }
  std::printf("SAPCONTROL-OK: <end>\n");
}

}  // namespace

int main(int count, char** values) {
  const auto layout = own_layout();
  if (!layout) {
    std::fprintf(stderr, "landscapeHostConfiguration.py lies in no installation\n");
    return exit_internal;
  }
  const std::string master = active_master(*layout);
  std::vector<Row> rows;
  bool all_active = true;
  bool master_active = false;
  for (const Cluster_Host& host : hosts_of(*layout)) {
    const Layout place = layout_of(*layout, host);
    const bool active = phase_of(place) == "running";
    all_active = all_active && active;
    master_active = master_active || (active && host.name == master);
    rows.push_back(row_of(place, host.name == master));
  }
  if (!master_active) {
    std::printf("nameserver %s:%d not responding.\n", master.c_str(), layout->port(1));
    return exit_error;
  }
  if (count > 1 && std::string(values[1]) == "--sapcontrol=1")
    print_for_sapcontrol(rows);
  else
    print_table(rows, all_active ? "ok" : "error");
  return all_active ? exit_ok : exit_error;
}
