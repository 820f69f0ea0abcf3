#include "dorsal3/chains/chains.h"

#include <gtest/gtest.h>

#include <sstream>

#include "dorsal3/chains/chains_text.h"
#include "dorsal3/server/resources.h"
#include "unit/dorsal3/set_builder.h"

using namespace dorsal3;

namespace {

constexpr const char* lifeline_2 = "life-2";

json_spirit::Object chains_of(const std::vector<json_spirit::Object>& sets, Set_List list = {}) {
  list.sets = sets;
  Chain_Source source{{}, &list, {{"p1", "main"}}, {}};
  for (const auto& set : list.sets) source.sets.push_back(&set);
  return database_chains(source);
}

/// "life-1[f1: i2 d3] life-2[-: i4]": each chain with its full backup, "-" without one, and its deltas.
std::string shape(const json_spirit::Object& model) {
  std::string text;
  for (const auto& lifeline : object_rows(model, "lifelines")) {
    text += (text.empty() ? "" : " ") + text_member(lifeline, "lifeline") + "[";
    std::string chains;
    for (const auto& chain : object_rows(lifeline, "chains")) {
      json_spirit::Object full;
      chains += chains.empty() ? "" : ", ";
      chains += json_spirit::object_get(chain, "full", full) ? text_member(full, "uuid") : "-";
      chains += ":";
      for (const auto& delta : object_rows(chain, "deltas")) chains += " " + text_member(delta, "uuid");
    }
    text += chains + "]";
  }
  return text;
}

/// "i2" or "full: <reason>", with " WARNING <text>" where there is one.
std::string next(const json_spirit::Object& model, const char* key) {
  json_spirit::Object next;
  EXPECT_TRUE(json_spirit::object_get(model, key, next));
  const std::string reason = text_member(next, "reason");
  const std::string warning = text_member(next, "warning");
  return (reason.empty() ? text_member(next, "based_on") : text_member(next, "becomes") + ": " + reason) +
         (warning.empty() ? "" : " WARNING " + warning);
}

std::string text_of(const json_spirit::Object& model) {
  std::ostringstream out;
  print_chains(model, out);
  return out.str();
}

json_spirit::Object lifted(json_spirit::Object set, const char* requested, const char* reason) {
  set["requested_type"] = requested;
  set["lift_reason"] = reason;
  return set;
}

}  // namespace

TEST(Chains, Sets_Fall_Into_Their_Lifelines_And_Chains) {
  struct Row {
    const char* what;
    std::vector<json_spirit::Object> sets;
    const char* shape;
    const char* next_incremental;
    const char* next_differential;
  };
  const Row rows[] = {
      {"nothing", {}, "", "full: there is no full backup", "full: there is no full backup"},
      {"one full", {backup_set(1, "full", "f1")}, "life-1[f1:]", "f1", "f1"},
      {"a full with its deltas in HANA's order, however they come",
       {backup_set(4, "incremental", "i4", "f1"), backup_set(1, "full", "f1"),
        backup_set(3, "differential", "d3", "f1"), backup_set(2, "incremental", "i2", "f1")},
       "life-1[f1: i2 d3 i4]",
       "i4",
       "f1"},
      {"a new full begins a new chain",
       {backup_set(1, "full", "f1"), backup_set(2, "incremental", "i2", "f1"), backup_set(3, "full", "f3"),
        backup_set(4, "differential", "d4", "f3")},
       "life-1[f1: i2, f3: d4]",
       "d4",
       "f3"},
      {"two lifelines",
       {backup_set(1, "full", "f1"), backup_set(2, "incremental", "i2", "f1"),
        backup_set(3, "full", "f3", "", lifeline_2), backup_set(4, "incremental", "i4", "f3", lifeline_2)},
       "life-1[f1: i2] life-2[f3: i4]",
       "i4",
       "f3"},
      {"the full of the deltas is gone",
       {backup_set(2, "incremental", "i2", "f1"), backup_set(3, "differential", "d3", "f1")},
       "life-1[-: i2 d3]",
       "full: there is no full backup",
       "full: there is no full backup"},
      {"the newest full is missing from its pool",
       {backup_set(1, "full", "f1"), missing(backup_set(2, "full", "f2"))},
       "life-1[f1:, f2:]",
       "full: the newest full backup f2 is not on its pool any more",
       "full: the newest full backup f2 is not on its pool any more"},
      {"the last delta is missing from its pool",
       {backup_set(1, "full", "f1"), missing(backup_set(2, "incremental", "i2", "f1"))},
       "life-1[f1: i2]",
       "i2 WARNING it builds on i2, which is missing, and could not be restored: make a full backup",
       "f1"},
      {"a hole before the last delta",
       {backup_set(1, "full", "f1"), missing(backup_set(2, "incremental", "i2", "f1")),
        backup_set(3, "incremental", "i3", "f1")},
       "life-1[f1: i2 i3]",
       "i3 WARNING it builds on i2, which is missing, and could not be restored: make a full backup",
       "f1"},
      {"a differential closes the hole",
       {backup_set(1, "full", "f1"), missing(backup_set(2, "incremental", "i2", "f1")),
        backup_set(3, "differential", "d3", "f1")},
       "life-1[f1: i2 d3]",
       "d3",
       "f1"},
      {"a delta of a newer lifeline shows a restore",
       {backup_set(1, "full", "f1"), backup_set(2, "incremental", "i2", "", lifeline_2)},
       "life-1[f1:] life-2[-: i2]",
       "full: the database was restored after its newest full backup f1",
       "full: the database was restored after its newest full backup f1"},
  };
  for (const Row& row : rows) {
    const json_spirit::Object model = chains_of(row.sets);
    EXPECT_EQ(shape(model), row.shape) << row.what;
    EXPECT_EQ(next(model, "next_incremental"), row.next_incremental) << row.what;
    EXPECT_EQ(next(model, "next_differential"), row.next_differential) << row.what;
  }
}

TEST(Chains, A_Chain_Without_Its_Full_Backup_Says_Why) {
  struct Row {
    const char* what;
    std::vector<json_spirit::Object> sets;
    bool all_fulls_are_there;
    const char* broken;
  };
  const Row rows[] = {
      {"gone", {backup_set(2, "incremental", "i2", "f1")}, true, "its full backup is gone"},
      {"left out", {backup_set(2, "incremental", "i2", "f1")}, false, "its full backup is not among the sets shown"},
      {"begun by a delta", {backup_set(2, "incremental", "i2")}, true, "it was begun without a full backup"},
      {"of another lifeline",
       {backup_set(2, "incremental", "i2", "f3"), backup_set(3, "full", "f3", "", lifeline_2)},
       true,
       "its full backup f3 belongs to another lifeline"}};
  for (const Row& row : rows) {
    Set_List list;
    if (!row.all_fulls_are_there) list.left_out["full"] = 5;
    const json_spirit::Object model = chains_of(row.sets, list);
    const auto chains = object_rows(object_rows(model, "lifelines").front(), "chains");
    EXPECT_EQ(text_member(chains.front(), "broken"), row.broken) << row.what;
  }
}

TEST(Chains, What_Builds_On_A_Missing_Set_Is_Broken) {
  const json_spirit::Object model =
      chains_of({backup_set(1, "full", "f1"), backup_set(2, "incremental", "i2", "f1"),
                 missing(backup_set(3, "incremental", "i3", "f1")), backup_set(4, "incremental", "i4", "f1"),
                 backup_set(5, "incremental", "i5", "f1"), backup_set(6, "differential", "d6", "f1"),
                 backup_set(7, "incremental", "i7", "f1")});
  std::string broken;
  const auto chains = object_rows(object_rows(model, "lifelines").front(), "chains");
  for (const auto& delta : object_rows(chains.front(), "deltas"))
    broken +=
        text_member(delta, "uuid") + "(" + text_member(delta, "state") + ":" + text_member(delta, "broken") + ") ";
  EXPECT_EQ(broken,
            "i2(online:) i3(missing:) i4(online:builds on i3, which is missing) "
            "i5(online:builds on i3, which is missing) d6(online:) i7(online:) ");
}

TEST(Chains, Text_Is_A_Tree_With_One_Line_A_Set) {
  json_spirit::Object model = chains_of({backup_set(1, "full", "f1"), missing(backup_set(2, "incremental", "i2", "f1")),
                                         lifted(backup_set(3, "full", "f3"), "incremental", "pool changed")});
  model["log_sets"] = 12;
  model["catalog_sets"] = 3;
  EXPECT_EQ(
      text_of(model),
      "    SET                 BACKUP ID   BEGIN (UTC)          END (UTC)            SIZE     STORED   RATIO  STATE"
      "              NOTE\n"
      "    lifeline life-1\n"
      "      full f1           1700000001  2026-11-21 08:00:01  2026-11-21 08:00:05  2.0 KiB  1.0 KiB  2.0x   online "
      "on main\n"
      "        incremental i2  1700000002  2026-11-21 08:00:01  2026-11-21 08:00:05  2.0 KiB  1.0 KiB  2.0x   "
      "missing from main\n"
      "      full f3           1700000003  2026-11-21 08:00:01  2026-11-21 08:00:05  2.0 KiB  1.0 KiB  2.0x   online "
      "on main     asked for incremental, made full: pool changed\n"
      "    beside these: 12 sets of log backups, 3 of HANA's backup catalog\n"
      "    next incremental: based on f3 (to another pool than main: a full backup)\n"
      "    next differential: based on f3 (to another pool than main: a full backup)\n");
}

TEST(Chains, Text_Says_Why_A_Full_Backup_Will_Be_Made) {
  EXPECT_EQ(text_of(chains_of({})),
            "    no backup set yet\n"
            "    next incremental: a full backup will be made: there is no full backup\n"
            "    next differential: a full backup will be made: there is no full backup\n");
}

TEST(Short_Ids, Are_As_Long_As_It_Takes_To_Tell_Them_Apart) {
  const auto names = short_ids({"12345678-aaaa", "12345678-aabb", "87654321-aaaa", "87654321-aaaa", "abc"});
  EXPECT_EQ(names.at("12345678-aaaa"), "12345678-aaa");
  EXPECT_EQ(names.at("12345678-aabb"), "12345678-aab");
  EXPECT_EQ(names.at("87654321-aaaa"), "87654321");
  EXPECT_EQ(names.at("abc"), "abc");
}
