#include "agentd/restore/staged_restores.h"

#include <algorithm>
#include <cerrno>

#include "platform/files.h"
#include "platform/log.h"
#include "platform/product_paths.h"

namespace agentd {

namespace {

constexpr const char* staging_folder = "hana/catalog";
constexpr const char* restore_type = "restore";
/// A start that is under way twice comes soon or never.
constexpr std::size_t ended_limit = 100;

std::string staging_directory() { return platform::product_paths::agent_state(staging_folder); }

/// Sorted; none when there is no such directory.
std::vector<std::string> staged_files() {
  std::vector<std::string> names;
  const std::string directory = staging_directory();
  if (!platform::list_directory(directory, names) && errno != ENOENT)
    D3_ERROR("The files of former restores in '%C' cannot be listed: %m\n", directory.c_str());
  return names;
}

bool remove_staged(const std::string& name) {
  const std::string path = staging_directory() + '/' + name;
  if (platform::remove_file(path)) {
    D3_INFO("Removed '%C', its restore is over\n", path.c_str());
    return true;
  }
  D3_ERROR("Failed to remove '%C', whose restore is over: %m; remove it before the next restore\n", path.c_str());
  return false;
}

bool is_staged(const std::string& name) {
  return name.starts_with(staged_catalog_start) || name.starts_with(staged_restore_start);
}

/// The file of the target alone: what follows the origin in the name of its catalog names the target.
std::string target_file(const std::string& catalog_file, const std::string& origin) {
  return staged_restore_start + catalog_file.substr(origin.size());
}

bool contains(const std::vector<std::string>& names, const std::string& name) {
  return std::find(names.begin(), names.end(), name) != names.end();
}

/// The beginnings of the names of all origins that a definition reads from; none for another kind of definition.
std::vector<std::string> origins_of(const json_spirit::Value& definition) {
  std::vector<std::string> origins;
  std::string type;
  json_spirit::Object source;
  json_spirit::Array entries;
  if (!definition.is_object() || !json_spirit::object_get(definition.get_obj(), "type", type) || type != restore_type ||
      !json_spirit::object_get(definition.get_obj(), "source", source) ||
      !json_spirit::object_get(source, "entries", entries))
    return origins;
  for (const json_spirit::Value& entry : entries) {
    json_spirit::Object original;
    Staged_Name name;
    if (!entry.is_object() || !json_spirit::object_get(entry.get_obj(), "original", original) ||
        !json_spirit::object_get(original, "sid", name.origin_sid) ||
        !json_spirit::object_get(original, "database", name.origin_database))
      continue;
    origins.push_back(name.origin_start());
  }
  return origins;
}

}  // namespace

std::vector<Staged_Name> Staged_Restores::remove_all() {
  const std::lock_guard guard(mutex_);
  std::vector<Staged_Name> removed;
  Staged_Name name;
  for (const std::string& file : staged_files()) {
    if (!is_staged(file)) continue;
    (void)remove_file(file);
    if (Staged_Name::from_file(file, name)) removed.push_back(name);
  }
  return removed;
}

bool Staged_Restores::begin(const std::string& job_act_id, const json_spirit::Value& definition) {
  Origins origins = origins_of(definition);
  const std::lock_guard guard(mutex_);
  // A start that came again is the same run, also when that has ended.
  if (origins.empty() || running_.contains(job_act_id) ||
      std::find(ended_.begin(), ended_.end(), job_act_id) != ended_.end())
    return false;
  (void)remove_unused(origins, Whose::everybodys);
  forget_stagers(origins);
  running_.emplace(job_act_id, std::move(origins));
  return true;
}

void Staged_Restores::end(const std::string& job_act_id) {
  std::vector<Staged_Name> removed;
  {
    const std::lock_guard guard(mutex_);
    const auto found = running_.find(job_act_id);
    if (found == running_.end()) return;
    const Origins origins = std::move(found->second);
    running_.erase(found);
    ended_.push_back(job_act_id);
    if (ended_.size() > ended_limit) ended_.pop_front();
    removed = remove_unused(origins, Whose::own);
  }
  if (over_) over_(removed);
}

bool Staged_Restores::in_use(const Staged_Name& name) const {
  const std::lock_guard guard(mutex_);
  return is_used(name.origin_start());
}

void Staged_Restores::staged_by(const Staged_Name& name, const std::string& host_uuid) {
  const std::lock_guard guard(mutex_);
  for (const std::string& file : {name.catalog_file(), name.restore_file()}) {
    if (host_uuid.empty())
      stagers_.erase(file);
    else
      stagers_[file] = host_uuid;
  }
  if (!host_uuid.empty())
    D3_INFO("The host %C stages '%C' here for its restore\n", platform::cut_for_log(host_uuid).c_str(),
            platform::cut_for_log(name.catalog_file()).c_str());
}

bool Staged_Restores::remove(const Staged_Name& name, const std::string& host_uuid, int& removed) {
  const std::lock_guard guard(mutex_);
  removed = 0;
  const bool used = is_used(name.origin_start());
  const std::vector<std::string> names = staged_files();
  bool all = true;
  for (const std::string& file : {name.catalog_file(), name.restore_file()}) {
    const auto stager = stagers_.find(file);
    if (stager != stagers_.end() && stager->second != host_uuid) {
      D3_INFO("'%C' stays: the host %C has staged it since\n", platform::cut_for_log(file).c_str(),
              platform::cut_for_log(stager->second).c_str());
      continue;
    }
    // The end of this host's own restore removes it then.
    if (stager != stagers_.end()) stagers_.erase(stager);
    if (used || !contains(names, file)) continue;
    if (remove_file(file))
      ++removed;
    else
      all = false;
  }
  return all;
}

bool Staged_Restores::remove_file(const std::string& file) {
  stagers_.erase(file);
  return remove_staged(file);
}

// A host tells that it stages a file before it does. When that failed, this host's own file of the name would be taken
// for the other one's at the end.
void Staged_Restores::forget_stagers(const Origins& origins) {
  for (const std::string& origin : origins) {
    if (is_used(origin)) continue;
    for (auto noted = stagers_.lower_bound(origin); noted != stagers_.end() && noted->first.starts_with(origin);) {
      const auto of_target = stagers_.find(target_file(noted->first, origin));
      // One that a restore of another origin has staged since belongs to that.
      if (of_target != stagers_.end() && of_target->second == noted->second) stagers_.erase(of_target);
      noted = stagers_.erase(noted);
    }
  }
}

bool Staged_Restores::is_used(const std::string& origin) const {
  return std::any_of(running_.begin(), running_.end(), [&](const auto& run) {
    return std::find(run.second.begin(), run.second.end(), origin) != run.second.end();
  });
}

std::vector<Staged_Name> Staged_Restores::remove_unused(const Origins& origins, Whose whose) {
  const std::vector<std::string> names = staged_files();
  const auto goes = [&](const std::string& name) { return whose == Whose::everybodys || !stagers_.contains(name); };
  std::vector<Staged_Name> removed;
  for (const std::string& origin : origins) {
    if (is_used(origin)) continue;
    for (const std::string& name : names) {
      if (!name.starts_with(origin) || !goes(name)) continue;
      (void)remove_file(name);
      const std::string of_target = target_file(name, origin);
      if (contains(names, of_target) && goes(of_target)) (void)remove_file(of_target);
      if (Staged_Name parts; Staged_Name::from_file(name, parts)) removed.push_back(std::move(parts));
    }
  }
  return removed;
}

void Restore_End_Tap::activity_changed(const Job_Activity_Snapshot& activity) {
  if (activity.type == JOB_DEFINITION_RESTORE && is_finished(activity.state)) staged_.end(activity.id);
  next_->activity_changed(activity);
}

}  // namespace agentd
