#include "backupd/pools/pool_place.h"

#include <filesystem>

#include "backupd/pools/pool_storage.h"
#include "platform/file_root.h"

namespace backupd {

namespace {

namespace fs = std::filesystem;

std::string normal(const fs::path& path) {
  std::string text = path.lexically_normal().string();
  while (text.size() > 1 && text.back() == '/') text.pop_back();
  // Two slashes at the begin may stay in the normal form of a path.
  while (text.starts_with("//")) text.erase(0, 1);
  return text;
}

/// Links are followed as far as the path exists.
std::string where_it_leads(const std::string& path) {
  std::error_code failed;
  const fs::path real = fs::weakly_canonical(platform::File_Root::current().real(path), failed);
  return failed ? std::string() : normal(real);
}

bool lies_below(const std::string& path, const std::string& above) {
  return above == "/" ? path != above : path.starts_with(above + "/");
}

Pool_Place::Relation compare(const std::string& one, const std::string& other) {
  if (one.empty() || other.empty()) return Pool_Place::Relation::apart;
  if (one == other) return Pool_Place::Relation::same;
  if (lies_below(one, other)) return Pool_Place::Relation::below;
  return lies_below(other, one) ? Pool_Place::Relation::above : Pool_Place::Relation::apart;
}

}  // namespace

Pool_Place::Pool_Place(const Pool& pool, const std::string& own_host_uuid)
    : here_(pool.served() || pool.host_uuid.empty() || pool.host_uuid == own_host_uuid),
      anywhere_(!pool.served() && pool.host_uuid.empty()),
      host_uuid_(pool.served() ? own_host_uuid : pool.host_uuid),
      named_(normal(pool_directory(pool))),
      real_(here_ && !named_.empty() ? where_it_leads(pool_directory(pool)) : std::string()) {}

bool Pool_Place::may_meet(const Pool_Place& other) const {
  return (here_ && other.here_) || anywhere_ || other.anywhere_ ||
         (!host_uuid_.empty() && host_uuid_ == other.host_uuid_);
}

Pool_Place::Relation Pool_Place::to(const Pool_Place& other) const {
  if (!may_meet(other)) return Relation::apart;
  const Relation named = compare(named_, other.named_);
  return named != Relation::apart ? named : compare(real_, other.real_);
}

std::string Pool_Overlap::text() const {
  const char* const how = relation == Pool_Place::Relation::same    ? "is that of"
                          : relation == Pool_Place::Relation::below ? "lies below that of"
                                                                    : "lies above that of";
  return std::string(how) + " the pool \"" + other.name + "\" (" + pool_directory(other) + ")";
}

std::optional<Pool_Overlap> find_overlap(const Pool& pool, const std::vector<Pool>& pools,
                                         const std::string& own_host_uuid) {
  const Pool_Place place(pool, own_host_uuid);
  for (const Pool& other : pools) {
    if (other.uuid == pool.uuid || other.name == pool.name) continue;
    const Pool_Place::Relation relation = place.to(Pool_Place(other, own_host_uuid));
    if (relation != Pool_Place::Relation::apart) return Pool_Overlap{other, relation};
  }
  return std::nullopt;
}

}  // namespace backupd
