#include "chains/set_checker.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>

namespace chains {

namespace {

/// A backup begins soon after it is due: the databases of one run come one after the other.
constexpr std::time_t most_seconds_late = 300;
/// A set begins one second after HANA's start time.
constexpr std::time_t begin_after_start = 1;

std::string utc_text(std::time_t moment) {
  std::tm parts{};
  ::gmtime_r(&moment, &parts);
  char text[32];
  (void)std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &parts);
  return text;
}

/// HANA names what it writes for a delta "<prefix>_databackup_<kind>_<base>_<id>_<volume>_<part>".
std::uint64_t base_of_name(const std::string& name, Kind kind) {
  const std::string mark = std::string("_databackup_") + name_of(kind) + "_";
  const std::size_t at = name.find(mark);
  return at == std::string::npos ? 0 : std::strtoull(name.c_str() + at + mark.size(), nullptr, 10);
}

/// The base that all objects of a delta name; 0 when there is none, or not one.
std::uint64_t base_of(const json_spirit::Object& set, Kind kind) {
  json_spirit::Array files;
  (void)json_spirit::object_get(set, "files", files);
  std::uint64_t base = 0;
  for (const json_spirit::Value& file : files) {
    const std::uint64_t named = base_of_name(text_of(file.get_obj(), "filename"), kind);
    if (named == 0 || (base != 0 && named != base)) return 0;
    base = named;
  }
  return base;
}

}  // namespace

void Set_Checker::check(const Chain_System& system) {
  for (auto& [database, records] : records_) records.catalog.clear();
  for (const Catalog_Entry& entry : system.catalog()) records_[entry.database].catalog.push_back(entry);
  for (const auto& [database, model] : models_) {
    SCOPED_TRACE(database);
    check_catalog(database);
  }
  if (testing::Test::HasFailure()) return;
  for (const json_spirit::Object& set : system.sets(known_sets_)) {
    SCOPED_TRACE(text_of(set, "database") + ", begun " + text_of(set, "start_time"));
    const std::string database = text_of(set, "database");
    const std::optional<std::size_t> place = check_set(database, set);
    ASSERT_TRUE(place) << "one set too many";
    EXPECT_EQ(text_of(set, "pool_uuid"), system.pool_uuid(models_.at(database).backups()[*place].pool));
    ++known_sets_;
  }
  for (const auto& [database, model] : models_) {
    const auto is_set = [](const Backup& backup) { return backup.is_set(); };
    EXPECT_EQ(static_cast<std::ptrdiff_t>(records_[database].sets.size()),
              std::count_if(model.backups().begin(), model.backups().end(), is_set))
        << "sets of " << database;
  }
}

void Set_Checker::check_catalog(const std::string& database) {
  const std::vector<Backup>& expected = models_.at(database).backups();
  const std::vector<Catalog_Entry>& catalog = records_[database].catalog;
  ASSERT_EQ(catalog.size(), expected.size());
  for (std::size_t place = 0; place < expected.size(); ++place) {
    SCOPED_TRACE("backup due " + utc_text(expected[place].at));
    EXPECT_STREQ(name_of(catalog[place].kind), name_of(expected[place].kind));
    EXPECT_EQ(catalog[place].successful, expected[place].successful);
    // A failed one may have no destination at all.
    if (catalog[place].successful) {
      EXPECT_EQ(catalog[place].destination, expected[place].destination);
    }
    EXPECT_GE(catalog[place].start, expected[place].at);
    EXPECT_LT(catalog[place].start, expected[place].at + most_seconds_late);
  }
}

std::optional<std::size_t> Set_Checker::check_set(const std::string& database, const json_spirit::Object& set) {
  Records& records = records_[database];
  const Chain_Model& model = models_.at(database);
  std::size_t place = records.sets.empty() ? 0 : records.sets.back().place + 1;
  while (place < model.backups().size() && !model.backups()[place].is_set()) ++place;
  if (place == model.backups().size()) return std::nullopt;
  const Backup& expected = model.backups()[place];
  const Catalog_Entry& entry = records.catalog[place];

  EXPECT_EQ(text_of(set, "type"), name_of(expected.kind));
  EXPECT_EQ(text_of(set, "database_backup_id"), std::to_string(entry.id));
  EXPECT_EQ(text_of(set, "start_time"), utc_text(entry.start + begin_after_start));
  EXPECT_EQ(text_of(set, "last_time"), utc_text(entry.end));
  EXPECT_EQ(text_of(set, "lift_reason"), expected.lift_reason);
  EXPECT_EQ(text_of(set, "requested_type"), expected.lift_reason.empty() ? "" : name_of(expected.wanted));
  check_chains(expected, set, place, records);
  records.sets.push_back({place, entry.id, expected.kind, text_of(set, "incarnation"), base_of(set, expected.kind)});
  const std::uint64_t base = expected.base ? records.catalog[*expected.base].id : 0;
  EXPECT_EQ(records.sets.back().base, base) << "HANA has built it on another backup";
  check_way_back(database);
  return place;
}

void Set_Checker::check_chains(const Backup& expected, const json_spirit::Object& set, std::size_t place,
                               Records& records) {
  records.uuids[place] = text_of(set, "uuid");
  EXPECT_EQ(text_of(set, "incarnation"), records.uuids[expected.incarnation]);
  const std::string lifeline = text_of(set, "lifeline");
  if (expected.lifeline != place) {
    EXPECT_EQ(lifeline, records.lifelines[expected.lifeline]);
    return;
  }
  for (const auto& [begun_at, other] : records.lifelines) EXPECT_NE(lifeline, other) << "not a new lifeline";
  records.lifelines[place] = lifeline;
}

// Of the sets counted to the same full backup: this one, the newest differential one before an incremental one, and the
// incremental ones between.
std::vector<std::uint64_t> Set_Checker::recorded_chain(const std::string& database) const {
  const std::vector<Recorded_Set>& sets = records_.at(database).sets;
  const Recorded_Set& newest = sets.back();
  std::vector<std::uint64_t> chain;
  for (const Recorded_Set& set : sets) {
    if (set.incarnation != newest.incarnation) continue;
    if (set.kind == Kind::differential) chain.resize(1);  // the full backup is the first
    if (set.kind != Kind::incremental || newest.kind == Kind::incremental) chain.push_back(set.id);
  }
  return chain;
}

void Set_Checker::check_way_back(const std::string& database) const {
  const std::vector<Recorded_Set>& sets = records_.at(database).sets;
  std::map<std::uint64_t, std::uint64_t> bases;
  for (const Recorded_Set& set : sets) bases[set.id] = set.base;
  // As HANA needs them: from base to base.
  std::vector<std::uint64_t> needed{sets.back().id};
  while (bases.contains(needed.back()) && bases[needed.back()] != 0) needed.push_back(bases[needed.back()]);
  std::reverse(needed.begin(), needed.end());
  if (models_.at(database).is_recorded_whole(sets.back().place)) {
    EXPECT_EQ(recorded_chain(database), needed) << "the set cannot be restored from what is recorded";
    return;
  }
  // HANA has built on a full backup that it made to files: no record knows it, and the incarnation names the full
  // backup before. That is how the records are meant to be; such a set can be restored only with that file at hand.
  EXPECT_FALSE(bases.contains(needed.front()));
  EXPECT_NE(recorded_chain(database), needed);
}

}  // namespace chains
