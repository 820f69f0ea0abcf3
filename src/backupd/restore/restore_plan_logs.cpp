#include "backupd/restore/restore_plan_logs.h"

#include <algorithm>
#include <optional>
#include <set>

namespace backupd {

namespace {

using Service_Id = std::pair<std::uint64_t, std::uint64_t>;  ///< volume, partition

std::set<std::uint64_t> volumes_of(const Plan_Set& full) {
  std::set<std::uint64_t> volumes;
  for (const Plan_Object& object : full.objects)
    if (const auto volume = data_volume(object.name); volume && *volume != 0) volumes.insert(*volume);
  return volumes;
}

struct Known_Logs {
  std::vector<Plan_Log> since;     ///< the full backup
  std::optional<Plan_Log> before;  ///< the last one before it
};

using Logs_By_Service = std::map<Service_Id, Known_Logs>;

void add(const Plan_Log& log, const Plan_Set& full, Known_Logs& logs) {
  if (log.set->backup_id >= full.backup_id)
    logs.since.push_back(log);
  else if (!logs.before || logs.before->set->backup_id < log.set->backup_id)
    logs.before = log;
}

/// Each volume of the full backup is recovered by logs, no other one.
Logs_By_Service by_service(const std::vector<Plan_Set>& logs, const Plan_Set& full, const Plan_Set& catalog) {
  const std::set<std::uint64_t> volumes = volumes_of(full);
  Logs_By_Service services;
  for (const Plan_Set& set : logs) {
    if (!catalog.knows(set)) continue;
    for (const Plan_Object& object : set.objects)
      if (const auto name = Log_Name::parse(object.name);
          name && name->first < name->last && (volumes.empty() || volumes.contains(name->volume)))
        add({name->volume, name->partition, name->first, name->last, &set, &object}, full,
            services[{name->volume, name->partition}]);
  }
  std::erase_if(services, [](const auto& service) { return service.second.since.empty(); });
  for (const std::uint64_t volume : volumes)
    if (services.lower_bound({volume, 0}) == services.lower_bound({volume + 1, 0})) services[{volume, 0}];
  for (auto& [id, logs_of] : services)
    std::stable_sort(logs_of.since.begin(), logs_of.since.end(),
                     [](const Plan_Log& a, const Plan_Log& b) { return a.set->backup_id < b.set->backup_id; });
  return services;
}

/// All of the time's second is in a log that HANA began later.
bool holds(const Plan_Log& log, const std::string& time) { return log.set->begin() > time; }

/// Logs by position up to the first that holds the time; later ones are not read.
std::vector<Plan_Log> until(std::vector<Plan_Log> logs, const std::string& time) {
  std::stable_sort(logs.begin(), logs.end(), [](const Plan_Log& a, const Plan_Log& b) { return a.first < b.first; });
  const auto last = std::find_if(logs.begin(), logs.end(), [&](const Plan_Log& log) { return holds(log, time); });
  if (last != logs.end()) logs.erase(std::next(last), logs.end());
  // A log that was saved twice is read once.
  logs.erase(std::unique(logs.begin(), logs.end(),
                         [](const Plan_Log& a, const Plan_Log& b) { return a.first == b.first && a.last == b.last; }),
             logs.end());
  return logs;
}

Service_Logs service_of(const Service_Id& id, const Known_Logs& all, const Plan_Set& base, const std::string& time) {
  Service_Logs service;
  service.volume = id.first;
  service.partition = id.second;
  std::vector<Plan_Log> behind;
  const Plan_Log* before = all.before ? &*all.before : nullptr;
  for (const Plan_Log& log : all.since)
    if (log.set->backup_id > base.backup_id)
      behind.push_back(log);
    else
      before = &log;
  service.steps = until(std::move(behind), time);
  if (service.steps.empty()) return service;
  // Where none is known from before, nothing speaks against it.
  service.unproven = before != nullptr && log_start(before->last, service.steps.front().first) == Log_Start::gap;
  Log_Positions positions;
  for (std::size_t i = 0; i < service.steps.size(); ++i) {
    service.sources.push_back(service.steps[i].set);
    positions.add({service.steps[i].first, service.steps[i].last, i});
  }
  service.gaps = positions.gaps();
  service.overlaps = positions.overlaps();
  service.reaches = service.gaps.empty() && holds(service.steps.back(), time);
  service.end = service.sources[positions.end_of_first_run().set]->whole_until();
  return service;
}

}  // namespace

std::vector<Service_Logs> logs_behind(const std::vector<Plan_Set>& logs, const Plan_Set& full, const Plan_Set& base,
                                      const Plan_Set& catalog, const std::string& time) {
  std::vector<Service_Logs> services;
  for (const auto& [id, all] : by_service(logs, full, catalog)) services.push_back(service_of(id, all, base, time));
  return services;
}

}  // namespace backupd
