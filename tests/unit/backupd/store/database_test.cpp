#include "backupd/store/database.h"

#include <gtest/gtest.h>

#include "backupd/store/schema.h"
#include "support/log_capture.h"
#include "support/temp_root.h"

namespace {

class Database_Test : public testing::Test {
 protected:
  Database_Test() {
    root.make_directory("/with blank");
    std::string error;
    EXPECT_TRUE(database.open("/with blank/test.db", error)) << error;
  }
  support::Log_Capture log;
  support::Temp_Root root;
  backupd::Database database;
};

TEST_F(Database_Test, Gives_Numbers_Once_And_In_Order) {
  std::vector<std::int64_t> numbers;
  for (int i = 0; i < 3; ++i)
    EXPECT_TRUE(database.write([&](backupd::Sql_Session& session) {
      numbers.push_back(session.next_number("a"));
      return true;
    }));
  EXPECT_EQ(numbers, (std::vector<std::int64_t>{1, 2, 3}));
}

TEST_F(Database_Test, Keeps_Nothing_Of_Work_That_Was_Given_Up) {
  EXPECT_FALSE(database.write([](backupd::Sql_Session& session) {
    (void)session.next_number("a");
    return false;
  }));
  std::int64_t number = 0;
  EXPECT_TRUE(database.write([&](backupd::Sql_Session& session) {
    number = session.next_number("a");
    return true;
  }));
  EXPECT_EQ(number, 1);
}

TEST_F(Database_Test, Refuses_Everything_After_A_Statement_That_Failed) {
  EXPECT_FALSE(database.write([](backupd::Sql_Session& session) {
    session.execute("INSERT INTO counters (name, value) VALUES (:a, 1)", {std::string("b")});
    session.execute("INSERT INTO nowhere VALUES (1)");
    EXPECT_TRUE(session.failed());
    EXPECT_TRUE(session.query("SELECT name FROM counters", {}, 1).empty());
    return true;
  }));
  EXPECT_EQ(log.claim_containing("Failed to run a statement on the server's database"), 1U);
  EXPECT_TRUE(database.read([](backupd::Sql_Session& session) {
    EXPECT_TRUE(session.query("SELECT name FROM counters WHERE name = :a", {std::string("b")}, 1).empty());
  }));
}

TEST_F(Database_Test, Keeps_Numbers_Texts_And_Nulls) {
  const std::string text = "it's \"quoted\"; DROP TABLE sets; -- \xc3\xa4";
  EXPECT_TRUE(database.write([&](backupd::Sql_Session& session) {
    session.execute(
        "INSERT INTO access_keys (id, hash, role, host_uuid, created, revoked) VALUES (:a, :b, :c, :d, :e, :f)",
        {std::int64_t{9223372036854775807}, text, std::string(), std::string("h"), std::string("c"), nullptr});
    return true;
  }));
  EXPECT_TRUE(database.read([&](backupd::Sql_Session& session) {
    const auto row = session.first("SELECT id, hash, role, revoked FROM access_keys", {}, 4);
    ASSERT_TRUE(row);
    EXPECT_EQ(row->number(0), 9223372036854775807);
    EXPECT_EQ(row->text(1), text);
    EXPECT_FALSE(row->is_null(2));
    EXPECT_TRUE(row->is_null(3));
  }));
}

TEST_F(Database_Test, Brings_A_Database_Of_The_First_Version_To_This_One) {
  ASSERT_TRUE(database.write([](backupd::Sql_Session& session) {
    session.execute("DROP TABLE restored");
    session.execute("DROP INDEX activities_by_age");
    session.execute("ALTER TABLE activities DROP COLUMN ended_at");
    // first_failed of ondemand_runs goes with its table.
    session.execute("DROP INDEX activities_by_kind");
    session.execute("DROP INDEX activities_by_state");
    session.execute("ALTER TABLE activities DROP COLUMN kind");
    session.execute("DROP TABLE audit");
    session.execute("DROP TABLE ondemand_setups");
    session.execute("DROP TABLE ondemand_runs");
    session.execute("DROP INDEX backint_jobs_open");
    session.execute("ALTER TABLE backint_jobs DROP COLUMN touched");
    session.execute("DROP TABLE set_sizes");
    session.execute("ALTER TABLE sets DROP COLUMN requested_type");
    session.execute("ALTER TABLE sets DROP COLUMN lift_reason");
    session.execute("UPDATE schema_version SET version = :a", {std::int64_t{1}});
    std::int64_t id = 0;
    for (const char* type : {"full", "incremental", "log", "catalog"})
      session.execute(
          "INSERT INTO sets (id, uuid, module, type, resource_uuid, database_name, database_backup_id, job_id, "
          "job_act_id, lifeline, start_time, source_size, total_size, document) "
          "VALUES (:a, :b, 'hana', :c, 'r', 'TN1', :d, '', '', 'l', 't', 1000, 400, '{}')",
          {++id, std::to_string(id), std::string(type), id});
    return true;
  }));
  backupd::Database again;
  std::string error;
  ASSERT_TRUE(again.open("/with blank/test.db", error)) << error;
  EXPECT_TRUE(again.read([](backupd::Sql_Session& session) {
    EXPECT_EQ(session.query("SELECT requested_type, lift_reason FROM sets", {}, 2).size(), 4U);
    EXPECT_EQ(session.first("SELECT source_size FROM set_sizes WHERE span = 0 AND delta = 0", {}, 1)->number(0), 2000);
    EXPECT_EQ(session.first("SELECT total_size FROM set_sizes WHERE span = 0 AND delta = 1", {}, 1)->number(0), 400);
    EXPECT_EQ(session.first("SELECT version FROM schema_version", {}, 1)->number(0), backupd::schema_version());
  }));
}

TEST_F(Database_Test, Refuses_A_Database_Of_A_Newer_Server) {
  ASSERT_TRUE(database.write([](backupd::Sql_Session& session) {
    session.execute("UPDATE schema_version SET version = :a", {std::int64_t{backupd::schema_version() + 1}});
    return true;
  }));
  backupd::Database again;
  std::string error;
  EXPECT_FALSE(again.open("/with blank/test.db", error));
  EXPECT_NE(error.find("install the newer server"), std::string::npos) << error;
}

TEST_F(Database_Test, Tells_Why_It_Cannot_Be_Opened) {
  backupd::Database other;
  std::string error;
  EXPECT_FALSE(other.open("/no/such/place.db", error));
  EXPECT_NE(error.find("/no/such/place.db"), std::string::npos) << error;
}

}  // namespace
