#include "backupd/catalog/set_sizes.h"
#include "unit/backupd/fake_agent.h"

using namespace backupd_test;

namespace {

const std::string newest_path = std::string("/sets/restore/sets?resource_uuid=") + resource_uuid +
                                "&database=TN1&order=desc&limit=1&sort=id&module=hana";

/// Commits a set with an object of its own; `number` makes both unique.
Answer commit(Memory_Server& server, int number, const std::string& type, const std::string& start, long backup_id) {
  const std::string ebid = "ebid-" + std::to_string(number);
  server.add_object(uuid_of(number), ebid, "", "TN1", backup_id);
  return server.agent("POST", "/sets", set_json(uuid_of(number), ebid, type, start, backup_id));
}

std::string first_uuid(const Answer& answer) {
  std::string uuid;
  const json_spirit::Array rows = answer.rows();
  if (!rows.empty()) json_spirit::object_get(rows.front().get_obj(), "uuid", uuid);
  return uuid;
}

Answer ask(Memory_Server& server, const std::string& view, const std::string& params) {
  return server.agent("POST", "/catalog/hana/" + view, R"({"params":)" + params + "}");
}

std::string point(const std::string& type, const std::string& time, const std::string& life = lifeline,
                  const std::string& more = "") {
  return R"({"type":")" + type + R"(","resource_uuid":")" + resource_uuid + R"(","lifeline":")" + life +
         R"(","database":"TN1")" + more + R"(,"time":")" + time + "\"}";
}

TEST(Set_Store, Numbers_Sets_In_The_Order_Of_Committing) {
  Memory_Server server;
  server.add_pool();
  EXPECT_EQ(commit(server, 1, "full", "2026-01-02 10:00:00", 200).number_of("id"), 1);
  EXPECT_EQ(commit(server, 2, "full", "2026-01-01 10:00:00", 100).number_of("id"), 2);
  EXPECT_EQ(first_uuid(server.agent("GET", newest_path)), uuid_of(2));
  EXPECT_EQ(first_uuid(server.agent("GET", newest_path + "&database_backup_id=200")), uuid_of(1));
  EXPECT_EQ(server.agent("GET", newest_path + "&database_backup_id=300").rows().size(), 0U);
  EXPECT_EQ(server.agent("GET", newest_path + "&database_backup_id=3x").status, 400U);
  EXPECT_EQ(first_uuid(server.agent("GET", "/sets")), uuid_of(1));
  EXPECT_EQ(server.request("GET", "/sets?type=full&limit=1", "", server.viewer_key).number_of("total"), 2);
}

TEST(Set_Store, Completes_The_Storages) {
  Memory_Server server;
  server.add_pool();
  const Answer stored = commit(server, 1, "full", "2026-01-01 10:00:00", 100);
  json_spirit::Array storages;
  json_spirit::object_get(stored.body, "storages", storages);
  EXPECT_EQ(json_spirit::dump_json(storages), std::string(R"([{"pool_uuid":")") + pool_uuid +
                                                  R"(","upstream_pool_uuid":null,"state":["online"],"size":400}])");
}

TEST(Set_Store, Tells_Of_A_Set_And_Of_Its_Run_That_It_Was_Lifted_To_Full) {
  Memory_Server server;
  server.add_pool();
  const std::string run = uuid_of(70);
  const auto report = R"({"activities":[{"id":")" + run + R"(","state":3}]})";
  Fake_Agent agent(server, server.agent_key, obedient);
  ASSERT_TRUE(agent.call("job.report", report).ok);
  server.add_object(uuid_of(1), "ebid-1", run);
  server.add_object(uuid_of(2), "ebid-2", run);
  std::string lifted = set_json(uuid_of(1), "ebid-1", "full", "2026-01-01 10:00:00", 100, run);
  lifted.insert(1, R"("requested_type":"incremental","lift_reason":"pool changed",)");
  const Answer stored = server.agent("POST", "/sets", lifted);
  EXPECT_EQ(stored.status, 201U) << stored.text;
  ASSERT_EQ(
      server.agent("POST", "/sets", set_json(uuid_of(2), "ebid-2", "full", "2026-01-01 10:00:00", 100, run)).status,
      201U);
  const Answer first = server.agent("GET", "/sets?uuid=" + uuid_of(1));
  std::string requested;
  std::string reason;
  json_spirit::object_get(first.rows().at(0).get_obj(), "requested_type", requested);
  json_spirit::object_get(first.rows().at(0).get_obj(), "lift_reason", reason);
  EXPECT_EQ(requested, "incremental");
  EXPECT_EQ(reason, "pool changed");
  json_spirit::Array databases;
  json_spirit::object_get(server.request("GET", "/jobs/" + run).body, "databases", databases);
  EXPECT_EQ(json_spirit::dump_json(databases),
            R"([{"name":"TN1","kind":"full","set":")" + uuid_of(1) +
                R"(","requested":"incremental","lift_reason":"pool changed"},{"name":"TN1","kind":"full","set":")" +
                uuid_of(2) + R"("}])");
  lifted.replace(lifted.find("\"incremental\""), 13, "5");
  EXPECT_EQ(server.agent("POST", "/sets", lifted).status, 400U);
}

TEST(Set_Store, Answers_The_Same_Set_Again_As_Done) {
  Memory_Server server;
  server.add_pool();
  const Answer first = commit(server, 1, "full", "2026-01-01 10:00:00", 100);
  EXPECT_EQ(first.status, 201U);
  const Answer again = server.agent("POST", "/sets", set_json(uuid_of(1), "ebid-1"));
  EXPECT_EQ(again.status, 200U);
  EXPECT_EQ(again.body, first.body);
  // The agent tried again with a new uuid: the objects tell that it is the same backup.
  const Answer renamed = server.agent("POST", "/sets", set_json(uuid_of(7), "ebid-1"));
  EXPECT_EQ(renamed.status, 200U);
  EXPECT_EQ(renamed.text_of("uuid"), uuid_of(1));
  EXPECT_EQ(server.agent("GET", "/sets").number_of("total"), 1);
}

TEST(Set_Store, Refuses_A_Set_That_Contradicts_Another) {
  Memory_Server server;
  server.add_pool();
  ASSERT_EQ(commit(server, 1, "full", "2026-01-01 10:00:00", 100).status, 201U);
  server.add_object(uuid_of(2), "ebid-2");
  EXPECT_EQ(server.agent("POST", "/sets", set_json(uuid_of(1), "ebid-2")).status, 409U);
  std::string both = set_json(uuid_of(3), "ebid-2");
  both.replace(both.find("\"files\":["), 9,
               R"("files":[{"filename":"pipe_0","extern_backup_id":"ebid-1","size":1,"storage_size":1},)");
  EXPECT_EQ(server.agent("POST", "/sets", both).status, 409U);
  EXPECT_EQ(server.agent("GET", "/sets").number_of("total"), 1);
}

TEST(Set_Store, Takes_The_Backint_Jobs_Of_Its_Objects) {
  Memory_Server server;
  server.add_pool();
  ASSERT_EQ(commit(server, 1, "full", "2026-01-01 10:00:00", 100).status, 201U);
  EXPECT_EQ(server.agent("GET", "/backint/jobs").number_of("total"), 0);
  EXPECT_EQ(server.agent("GET", "/backint/jobs/" + uuid_of(1) + "/files").number_of("total"), 1);
}

TEST(Set_Store, Refuses_Unsound_Sets) {
  Memory_Server server;
  server.add_pool();
  server.add_object(uuid_of(1), "ebid-1");
  struct Row {
    const char* name;
    std::string from;
    std::string to;
    unsigned status;
  };
  for (const Row& row :
       {Row{"an object nobody recorded", "\"extern_backup_id\":\"ebid-1\"", "\"extern_backup_id\":\"ebid-9\"", 422},
        Row{"an unknown type", "\"type\":\"full\"", "\"type\":\"huge\"", 422},
        Row{"a time in another form", "\"start_time\":\"2026-01-01 10:00:00\"",
            "\"start_time\":\"2026-01-01T10:00:00Z\"", 422},
        Row{"no lifeline", "\"lifeline\"", "\"livelihood\"", 400},
        Row{"no storage", "\"storages\":[", "\"storages\":[],\"pieces\":[", 422},
        Row{"an empty list of files", "\"files\":[", "\"files\":[],\"pieces\":[", 422},
        Row{"a number as text", "\"database_backup_id\":100", "\"database_backup_id\":\"100\"", 400}}) {
    std::string body = set_json(uuid_of(1), "ebid-1");
    const std::size_t at = body.find(row.from);
    ASSERT_NE(at, std::string::npos) << row.name;
    body.replace(at, row.from.size(), row.to);
    const Answer answer = server.agent("POST", "/sets", body);
    EXPECT_EQ(answer.status, row.status) << row.name << ": " << answer.text;
  }
  EXPECT_EQ(server.agent("GET", "/sets").number_of("total"), 0);
}

TEST(Catalog_Views, Gives_A_Set_By_Its_Uuid) {
  Memory_Server server;
  server.add_pool();
  ASSERT_EQ(commit(server, 1, "full", "2026-01-01 10:00:00", 100).status, 201U);
  const Answer found = ask(server, "set", R"({"uuid":")" + uuid_of(1) + "\"}");
  EXPECT_EQ(found.text_of("type"), "full");
  EXPECT_EQ(found.text_of("last_time"), "2026-12-31 23:00:00");
  EXPECT_EQ(ask(server, "set", R"({"uuid":")" + uuid_of(2) + "\"}").status, 404U);
  EXPECT_EQ(ask(server, "set", "{}").status, 400U);
  EXPECT_EQ(ask(server, "other", "{}").status, 404U);
  EXPECT_EQ(server.agent("POST", "/catalog/oracle/set", R"({"params":{"uuid":"x"}})").status, 404U);
}

/// Fulls at 1st and 3rd, an incremental between, catalogs on the 2nd, 4th and 5th.
void make_history(Memory_Server& server) {
  server.add_pool();
  ASSERT_EQ(commit(server, 1, "full", "2026-01-01 10:00:00", 100).status, 201U);
  ASSERT_EQ(commit(server, 2, "incremental", "2026-01-01 20:00:00", 110).status, 201U);
  ASSERT_EQ(commit(server, 3, "catalog", "2026-01-02 10:00:00", 120).status, 201U);
  ASSERT_EQ(commit(server, 4, "full", "2026-01-03 10:00:00", 200).status, 201U);
  ASSERT_EQ(commit(server, 5, "log", "2026-01-03 20:00:00", 210).status, 201U);
  ASSERT_EQ(commit(server, 6, "catalog", "2026-01-04 10:00:00", 220).status, 201U);
  ASSERT_EQ(commit(server, 7, "catalog", "2026-01-05 10:00:00", 230).status, 201U);
}

TEST(Catalog_Views, Selects_The_Full_Backup_Before_A_Time) {
  Memory_Server server;
  make_history(server);
  struct Row {
    const char* time;
    std::string wanted;
  };
  for (const Row& row :
       {Row{"2026-01-01 09:59:59", ""}, Row{"2026-01-01 10:00:00", uuid_of(1)}, Row{"2026-01-03 09:59:59", uuid_of(1)},
        Row{"2026-01-03 10:00:00", uuid_of(4)}, Row{"2027-01-01 00:00:00", uuid_of(4)}}) {
    EXPECT_EQ(first_uuid(ask(server, "rselect", point("fullbackup", row.time))), row.wanted) << row.time;
    EXPECT_EQ(first_uuid(ask(server, "rselect", point("fullbackup", row.time, ""))), row.wanted) << row.time;
  }
  EXPECT_EQ(first_uuid(ask(server, "rselect", point("fullbackup", "2027-01-01 00:00:00", uuid_of(99)))), "");
  EXPECT_EQ(ask(server, "rselect", point("other", "2027-01-01 00:00:00")).status, 422U);
}

TEST(Catalog_Views, Selects_The_Catalog_That_Knows_A_Time) {
  Memory_Server server;
  make_history(server);
  struct Row {
    const char* time;
    long backup_id;
    std::string wanted;
  };
  for (const Row& row : {Row{"2026-01-01 12:00:00", 100, uuid_of(3)}, Row{"2026-01-02 10:00:01", 100, uuid_of(6)},
                         Row{"2026-01-01 12:00:00", 200, uuid_of(6)}, Row{"2026-01-04 10:00:00", 200, uuid_of(6)},
                         Row{"2026-06-01 00:00:00", 200, uuid_of(7)}, Row{"2026-06-01 00:00:00", 300, ""}}) {
    const std::string id = ",\"database_backup_id\":" + std::to_string(row.backup_id);
    EXPECT_EQ(first_uuid(ask(server, "rselect", point("catalog", row.time, lifeline, id))), row.wanted) << row.time;
  }
}

TEST(Catalog_Views, Sums_What_A_Restore_Reads) {
  Memory_Server server;
  make_history(server);
  struct Row {
    const char* name;
    long first;
    long last;
    bool ignore_delta;
    long sets;
  };
  for (const Row& row : {Row{"the full alone", 100, 100, false, 1}, Row{"with delta, catalog", 100, 120, false, 3},
                         Row{"without the delta", 100, 120, true, 2}, Row{"not the other full", 100, 220, false, 5},
                         Row{"nothing", 900, 999, false, 0}}) {
    const Answer answer = ask(server, "sets_size",
                              std::string(R"({"lifeline":")") + lifeline + R"(","ignore_delta":)" +
                                  (row.ignore_delta ? "true" : "false") + R"(,"start_backup_id":)" +
                                  std::to_string(row.first) + R"(,"end_backup_id":)" + std::to_string(row.last) + "}");
    EXPECT_EQ(answer.number_of("total_source_size"), row.sets * 1000) << row.name;
    EXPECT_EQ(answer.number_of("total_size"), row.sets * 400) << row.name;
  }
}

/// The sums as the sets themselves tell them, one by one.
TEST(Catalog_Views, Sums_Long_Lifelines_As_The_Single_Sets_Tell) {
  constexpr std::int64_t day = 86'400'000;
  struct Set {
    std::int64_t id;
    std::string type;
    std::int64_t size;
  };
  Memory_Server server;
  std::vector<Set> sets;
  const char* types[] = {"log", "incremental", "catalog", "differential", "full"};
  // Also ids just beside the borders of two days, two sets with one id, and none for a while.
  for (const std::int64_t at : {day / 3, 2 * day - 1, 2 * day, 2 * day, 2 * day + 1, 3 * day, 4 * day - 1, 4 * day,
                                5 * day, 11 * day, 12 * day, 12 * day + 5, 13 * day})
    sets.push_back({at, types[sets.size() % std::size(types)], std::int64_t{1} << sets.size()});
  ASSERT_TRUE(server.database.write([&](backupd::Sql_Session& session) {
    for (const Set& set : sets) {
      const std::int64_t number = session.next_number("set");
      session.execute(
          "INSERT INTO sets (id, uuid, module, type, resource_uuid, database_name, database_backup_id, job_id, "
          "job_act_id, lifeline, start_time, source_size, total_size, document) "
          "VALUES (:a, :b, 'hana', :c, 'r', 'TN1', :d, '', '', 'l', 't', :e, :f, '{}')",
          {number, std::to_string(number), set.type, set.id, set.size, 2 * set.size});
      backupd::count_set(session, "l", set.type, set.id, {set.size, 2 * set.size});
    }
    return true;
  }));
  const auto asked = [&](std::int64_t first, std::int64_t last, bool with_deltas) {
    backupd::Set_Sizes sum;
    EXPECT_TRUE(server.database.read([&](backupd::Sql_Session& session) {
      sum = backupd::sum_sets(session, {"l", first, last, with_deltas});
    }));
    EXPECT_EQ(sum.stored, 2 * sum.source);
    return sum.source;
  };
  std::vector<std::int64_t> borders{0, 14 * day};
  for (const Set& set : sets) borders.insert(borders.end(), {set.id - 1, set.id, set.id + 1});
  for (const std::int64_t first : borders)
    for (const std::int64_t last : borders)
      for (const bool with_deltas : {true, false}) {
        std::int64_t expected = 0;
        for (const Set& set : sets) {
          const bool delta = set.type == "incremental" || set.type == "differential";
          const bool wanted = set.type == "full" ? set.id == first : with_deltas || !delta;
          if (set.id >= first && set.id <= last && wanted) expected += set.size;
        }
        ASSERT_EQ(asked(first, last, with_deltas), expected) << first << " " << last << " " << with_deltas;
      }
}

}  // namespace
