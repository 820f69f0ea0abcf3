// A restore that goes on decides which version of HANA's catalog is read.

#include "hdbbackint/restore/staged_catalog.h"

#include <utime.h>

#include "support/virtual_clock.h"
#include "unit/hdbbackint/agent_fixture.h"

namespace hdbbackint {
namespace {

using Answers = std::vector<std::string>;

constexpr const char* staging = "/var/opt/tarvex/dorsal3/agent/hana/catalog/";
constexpr const char* catalog_name = "log_backup_0_0_0_0";

class Staged_Catalog_Test : public Agent_Fixture {
 protected:
  static std::string path_of(const std::string& name) { return std::string(pipe_directory) + "/" + name; }
  static std::string catalog_path() { return path_of(catalog_name); }

  Outcome restore(const std::string& input, const std::string& pipe, std::string& content,
                  const std::string& user = "TN1@HDB") {
    Outcome outcome;
    std::thread hana([&] { content = read_pipe(pipe); });
    outcome = call("restore", input, {}, user);
    // A pipe that the agent had no reason to open is let go, as HANA would.
    ::close(::open(root_.real(pipe).c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC));
    hana.join();
    return outcome;
  }

  std::string storage_path_of(const std::string& ebid) const {
    for (const json_spirit::Object& file : server_.files()) {
      std::string id;
      std::string path;
      if (json_spirit::object_get(file, "extern_backup_id", id) && id == ebid &&
          json_spirit::object_get(file, "storage_path", path))
        return path;
    }
    return {};
  }

  /// The file as docs/formats/restore-catalog.md says.
  json_spirit::Object document(const std::string& ebid, const std::string& target = "TN1",
                               const std::string& target_sid = "HDB") const {
    return {{"location", "file:///pool"},
            {"filename", storage_path_of(ebid)},
            {"source_type", "PIPE"},
            {"extern_backup_id", ebid},
            {"origin_sid", "HDB"},
            {"origin_database", "TN1"},
            {"target_sid", target_sid},
            {"pool_uuid", "11111111-2222-3333-4444-555555555555"},
            {"target_database", target},
            {"extended_attrs", json_spirit::Object{{"io_ctl", json_spirit::Object{{"max_seconds_retry", 0},
                                                                                  {"access_key", "the-key"},
                                                                                  {"dest_rate_limits", "[]"},
                                                                                  {"src_rate_limits", "[]"}}}}}};
  }
  void stage(const std::string& name, const json_spirit::Object& content) {
    root_.write(staging + name, json_spirit::dump_json(content));
  }
  void stage_in_place(const std::string& ebid) { stage("catalog_HDB_TN1_HDB_TN1.json", document(ebid)); }
  void set_modified(const std::string& name, std::time_t time) {
    const struct utimbuf times { time, time };
    ASSERT_EQ(::utime(root_.real(staging + name).c_str(), &times), 0);
  }
  static std::string restored(const std::string& ebid) {
    return "#RESTORED \"" + ebid + "\" \"" + catalog_path() + "\"";
  }
  static std::string listed(const std::string& ebid) { return "#BACKUP \"" + ebid + "\" \"" + catalog_path() + "\""; }

  void expect_broken(const std::string& part) {
    for (const char* function : {"restore", "inquire"}) {
      const Outcome outcome = call(function, "#NULL " + catalog_path());
      EXPECT_EQ(outcome.exit_code, 1) << part;
      EXPECT_EQ(outcome.answers, Answers{"#ERROR \"" + catalog_path() + "\""}) << part;
      EXPECT_EQ(log_.claim_containing(part), 1U) << part << log_.dump();
    }
  }
};

TEST_F(Staged_Catalog_Test, Is_The_Version_That_A_Restore_Reads_And_Not_The_Newest) {
  const std::string first = save(catalog_name, "first");
  const std::string second = save(catalog_name, "second");
  const std::string newest = save(catalog_name, "newest");
  stage_in_place(second);
  std::string content;
  EXPECT_EQ(restore("#NULL " + catalog_path(), catalog_path(), content).answers, Answers{restored(second)});
  EXPECT_EQ(content, "second");
  EXPECT_EQ(call("inquire", "#NULL " + catalog_path()).answers, Answers{listed(second)});
  // Whoever names a version gets it.
  EXPECT_EQ(restore("#EBID " + first + " " + catalog_path(), catalog_path(), content).answers,
            Answers{restored(first)});
  EXPECT_EQ(content, "first");
  EXPECT_EQ(call("inquire", "#EBID " + newest + " " + catalog_path()).answers, Answers{listed(newest)});
}

TEST_F(Staged_Catalog_Test, Without_One_A_Restore_From_A_System_Of_The_Same_Names_Reads_That_System_S_Catalog) {
  const char* const other_host = "88888888-0b0a-4908-8706-050403020100";
  const std::string older = save(catalog_name, "of the other system");
  const std::string theirs = save(catalog_name, "newest of the other system");
  const std::string of_third = save(catalog_name, "of a third system");
  for (const std::string& ebid : {older, theirs}) server_.change_file(ebid, "host_uuid", other_host);
  server_.change_file(of_third, "host_uuid", "55555555-0b0a-4908-8706-050403020100");
  const std::string own = save(catalog_name, "of the system that is restored into");
  std::string content;
  server_.begin_restore_from_namesake("TN1", {"44444444-0b0a-4908-8706-050403020100", other_host});
  EXPECT_EQ(restore("#NULL " + catalog_path(), catalog_path(), content).answers, Answers{restored(theirs)});
  EXPECT_EQ(content, "newest of the other system");
  EXPECT_EQ(call("inquire", "#NULL " + catalog_path()).answers, (Answers{listed(theirs), listed(older)}));
  EXPECT_EQ(call("inquire", "#NULL " + catalog_path(), {}, "TN2@HDB").answers,
            Answers{"#NOTFOUND \"" + catalog_path() + "\""});
  // In place its own one is meant.
  server_.begin_restore_from_namesake("TN1", {});
  EXPECT_EQ(restore("#NULL " + catalog_path(), catalog_path(), content).answers, Answers{restored(own)});
}

TEST_F(Staged_Catalog_Test, Changes_No_Other_Answer) {
  const std::string name = object_name("1_1");
  const std::string staged = save(catalog_name, "catalog");
  save(name, "first");
  const std::string second = save(name, "second");
  stage_in_place(staged);
  std::string content;
  EXPECT_EQ(restore("#NULL " + path_of(name), path_of(name), content).answers,
            Answers{"#RESTORED \"" + second + "\" \"" + path_of(name) + "\""});
  EXPECT_EQ(content, "second");
  EXPECT_EQ(call("inquire", "#NULL").answers.size(), 3U);
}

TEST_F(Staged_Catalog_Test, Is_The_Newest_Again_When_The_Restore_Is_Over) {
  const std::string first = save(catalog_name, "first");
  const std::string newest = save(catalog_name, "newest");
  stage_in_place(first);
  ASSERT_TRUE(platform::remove_file(std::string(staging) + "catalog_HDB_TN1_HDB_TN1.json"));
  std::string content;
  EXPECT_EQ(restore("#NULL " + catalog_path(), catalog_path(), content).answers, Answers{restored(newest)});
  EXPECT_EQ(call("inquire", "#NULL " + catalog_path()).answers, (Answers{listed(newest), listed(first)}));
}

TEST_F(Staged_Catalog_Test, Is_That_Of_The_Target_Which_HANA_Names) {
  const std::string first = save(catalog_name, "first");
  const std::string second = save(catalog_name, "second");
  stage("catalog_HDB_TN1_HDB_TN1.json", document(first));
  stage("catalog_HDB_TN1_HDB_TN2.json", document(second, "TN2"));
  set_modified("catalog_HDB_TN1_HDB_TN1.json", 1000);
  set_modified("catalog_HDB_TN1_HDB_TN2.json", 2000);
  EXPECT_EQ(call("inquire", "#NULL " + catalog_path(), {}, "TN1@HDB").answers, Answers{listed(first)});
  EXPECT_EQ(call("inquire", "#NULL " + catalog_path(), {}, "TN2@HDB").answers, Answers{listed(second)});
}

std::string own_catalog(const std::string& database) {
  return "/usr/sap/HDB/SYS/global/hdb/backint/DB_" + database + "/" + catalog_name;
}

TEST_F(Staged_Catalog_Test, Is_That_Of_The_Origin_Where_HANA_Asks_By_The_Targets_Name) {
  const std::string first = save(catalog_name, "first");
  save(catalog_name, "second");
  stage("catalog_HDB_TN1_HDB_TN2.json", document(first, "TN2"));
  const std::string own = own_catalog("TN2");
  EXPECT_EQ(call("inquire", "#NULL " + own, {}, "TN2@HDB").answers, Answers{"#NOTFOUND \"" + own + "\""})
      << "left by a restore that nobody knows of";
  server_.begin_restore("TN1", "TN2");
  for (const char* user : {"TN1@HDB", "TN2@HDB"})
    EXPECT_EQ(call("inquire", "#NULL " + own, {}, user).answers, Answers{"#BACKUP \"" + first + "\" \"" + own + "\""})
        << user;
  EXPECT_EQ(call("inquire", "#NULL " + own, {}, "TN3@HDB").answers, Answers{"#NOTFOUND \"" + own + "\""});
  root_.make_directory("/usr/sap/HDB/SYS/global/hdb/backint/DB_TN2");
  ASSERT_EQ(::mkfifo(root_.real(own).c_str(), 0600), 0);
  std::string content;
  EXPECT_EQ(restore("#NULL " + own, own, content, "TN2@HDB").exit_code, 0);
  EXPECT_EQ(content, "first");
}

TEST_F(Staged_Catalog_Test, Of_Another_Is_Not_Given_While_The_Target_Is_Itself_Copied) {
  const std::string catalog = save(catalog_name, "catalog");
  stage("catalog_HDB_TN1_HDB_TN2.json", document(catalog, "TN2"));
  server_.begin_restore("TN1", "TN2");
  server_.begin_restore("TN2", "TN3", "act-3");
  const std::string own = own_catalog("TN2");
  EXPECT_EQ(call("inquire", "#NULL " + own, {}, "TN2@HDB").answers, Answers{"#NOTFOUND \"" + own + "\""});
}

TEST_F(Staged_Catalog_Test, Is_The_Last_One_When_A_Run_Restores_A_Database_In_Place_And_To_Another) {
  const std::string first = save(catalog_name, "first");
  const std::string second = save(catalog_name, "second");
  stage("catalog_HDB_TN1_HDB_TN1.json", document(first));
  stage("catalog_HDB_TN1_HDB_TN2.json", document(second, "TN2"));
  set_modified("catalog_HDB_TN1_HDB_TN1.json", 1000);
  set_modified("catalog_HDB_TN1_HDB_TN2.json", 2000);
  server_.begin_restore("TN1", "TN1");
  server_.begin_restore("TN1", "TN2");
  EXPECT_EQ(call("inquire", "#NULL " + catalog_path(), {}, "TN1@HDB").answers, Answers{listed(second)});
}

TEST_F(Staged_Catalog_Test, Is_None_While_Two_Runs_Restore_A_Database_By_Other_Versions) {
  const std::string first = save(catalog_name, "first");
  const std::string second = save(catalog_name, "second");
  stage("catalog_HDB_TN1_HDB_TN1.json", document(first));
  stage("catalog_HDB_TN1_HDB_TN2.json", document(second, "TN2"));
  server_.begin_restore("TN1", "TN1", "act-2");
  server_.begin_restore("TN1", "TN2", "act-3");
  expect_broken("several restores of TN1@HDB go on");
  EXPECT_EQ(call("inquire", "#NULL " + catalog_path(), {}, "TN2@HDB").answers, Answers{listed(second)})
      << "it says for which it asks";
  stage("catalog_HDB_TN1_HDB_TN2.json", document(first, "TN2"));
  EXPECT_EQ(call("inquire", "#NULL " + catalog_path(), {}, "TN1@HDB").answers, Answers{listed(first)})
      << "both want the same version";
}

TEST_F(Staged_Catalog_Test, Is_The_Newest_File_Of_The_Origin_For_Another_Target) {
  const std::string first = save(catalog_name, "first");
  const std::string second = save(catalog_name, "second");
  stage("catalog_HDB_TN1_HDB_TN3.json", document(second, "TN3"));
  stage("catalog_HDB_TN1_PRD_TN2.json", document(first, "TN2", "PRD"));
  stage("catalog_HDB_TN1%5FX_HDB_TN2.json", document(second, "TN2"));
  set_modified("catalog_HDB_TN1_HDB_TN3.json", 1000);
  set_modified("catalog_HDB_TN1_PRD_TN2.json", 2000);
  set_modified("catalog_HDB_TN1%5FX_HDB_TN2.json", 3000);
  EXPECT_EQ(call("inquire", "#NULL " + catalog_path(), {}, "TN1@HDB").answers, Answers{listed(first)});
  set_modified("catalog_HDB_TN1_HDB_TN3.json", 4000);
  EXPECT_EQ(call("inquire", "#NULL " + catalog_path(), {}, "TN1@HDB").answers, Answers{listed(second)});
}

TEST_F(Staged_Catalog_Test, Opens_The_Origins_Objects_To_The_Target_While_It_Is_There) {
  const std::string catalog = save(catalog_name, "catalog");
  const std::string log = save("log_backup_2_0_1_9", "log");
  const std::string path = path_of("log_backup_2_0_1_9");
  const std::string request = "#EBID " + log + " " + path;
  EXPECT_EQ(call("inquire", request, {}, "TN2@HDB").answers, Answers{"#NOTFOUND \"" + log + "\" \"" + path + "\""});
  stage("catalog_HDB_TN1_HDB_TN2.json", document(catalog, "TN2"));
  EXPECT_EQ(call("inquire", request, {}, "TN2@HDB").answers, Answers{"#BACKUP \"" + log + "\" \"" + path + "\""});
  std::string content;
  EXPECT_EQ(restore(request, path, content, "TN2@HDB").answers, Answers{"#RESTORED \"" + log + "\" \"" + path + "\""});
  EXPECT_EQ(content, "log");
  // A third database sees as little as before.
  EXPECT_EQ(call("inquire", request, {}, "TN3@HDB").answers, Answers{"#NOTFOUND \"" + log + "\" \"" + path + "\""});
}

TEST_F(Staged_Catalog_Test, Lies_Where_The_File_Says) {
  const std::string ebid = save(catalog_name, "catalog");
  const std::string stored = "/pool/" + storage_path_of(ebid);
  root_.write("/moved/elsewhere", root_.read(stored));
  ASSERT_TRUE(platform::remove_file(stored));
  json_spirit::Object moved = document(ebid);
  moved["location"] = "file:///moved";
  moved["filename"] = "elsewhere";
  stage("catalog_HDB_TN1_HDB_TN1.json", moved);
  std::string content;
  EXPECT_EQ(restore("#NULL " + catalog_path(), catalog_path(), content).answers, Answers{restored(ebid)});
  EXPECT_EQ(content, "catalog");
}

TEST_F(Staged_Catalog_Test, Limits_The_Rate_Of_Every_Object_Of_The_Restore) {
  const std::string catalog = save(catalog_name, "catalog");
  const std::string name = object_name("1_1");
  const std::string data = save(name, std::string(1'000'000, 'd'));
  support::Virtual_Clock clock;
  const auto seconds_of_restore = [&] {
    std::string content;
    const auto begin = clock.steady_now();
    const Outcome outcome = restore("#EBID " + data + " " + path_of(name), path_of(name), content);
    EXPECT_EQ(outcome.exit_code, 0);
    EXPECT_EQ(content.size(), 1'000'000U);
    return std::chrono::duration<double>(clock.steady_now() - begin).count();
  };
  EXPECT_EQ(seconds_of_restore(), 0) << "no restore is going on";
  for (const char* direction : {"src_rate_limits", "dest_rate_limits"}) {
    json_spirit::Object io_ctl{{"max_seconds_retry", 0}, {"access_key", "the-key"}};
    io_ctl["dest_rate_limits"] = "[]";
    io_ctl["src_rate_limits"] = "[]";
    io_ctl[direction] = R"([{"start_time":0,"end_time":86400,"max_bytes_per_second":100000}])";
    json_spirit::Object staged = document(catalog);
    staged["extended_attrs"] = json_spirit::Object{{"io_ctl", io_ctl}};
    stage("catalog_HDB_TN1_HDB_TN1.json", staged);
    EXPECT_GT(seconds_of_restore(), 9) << direction;
  }
  EXPECT_TRUE(root_.exists("/var/opt/tarvex/dorsal3/agent/rate/restore%5FHDB%5FTN1"));
}

TEST_F(Staged_Catalog_Test, Is_Refused_When_A_Byte_Of_It_Has_Changed) {
  const std::string ebid = save(catalog_name, std::string(500'000, 'c'));
  save(catalog_name, "newest");
  stage_in_place(ebid);
  const std::string object = "/pool/" + storage_path_of(ebid);
  std::string damaged = root_.read(object);
  damaged[damaged.size() / 2] = 'd';
  root_.write(object, damaged);
  std::string content;
  const Outcome outcome = restore("#NULL " + catalog_path(), catalog_path(), content);
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_EQ(outcome.answers, Answers{"#ERROR \"" + catalog_path() + "\""});
  EXPECT_EQ(log_.claim_containing(catalog_path() + ": the stored object is damaged"), 1U) << log_.dump();
}

TEST_F(Staged_Catalog_Test, Without_A_Record_Is_No_Reason_To_Take_Another_Version) {
  const std::string ebid = save(catalog_name, "newest");
  json_spirit::Object lost = document(ebid);
  lost["extern_backup_id"] = "00000000-0000-4000-8000-000000000000";
  stage("catalog_HDB_TN1_HDB_TN1.json", lost);
  expect_broken("backupd has no record of the version 00000000-0000-4000-8000-000000000000");
}

TEST_F(Staged_Catalog_Test, That_Cannot_Be_Used_Is_Named_With_The_Way_Out) {
  const std::string ebid = save(catalog_name, "newest");
  const std::string name = "catalog_HDB_TN1_HDB_TN1.json";
  root_.write(staging + name, "");
  expect_broken(name + " is empty; remove it and begin the restore again");
  root_.write(staging + name, "{");
  expect_broken(name + " is not one whole JSON object");
  root_.write(staging + name, "[]");
  expect_broken(name + " is not one whole JSON object: it is no object; remove it and begin the restore again");
  for (const char* key : {"location", "filename", "source_type", "extern_backup_id", "origin_sid", "origin_database",
                          "target_sid", "target_database", "pool_uuid"}) {
    json_spirit::Object lacking = document(ebid);
    lacking.erase(key);
    stage(name, lacking);
    expect_broken(name + " is not one of ours: lack of key '" + key + "'");
  }
  for (const char* key : {"location", "filename", "extern_backup_id"}) {
    json_spirit::Object empty = document(ebid);
    empty[key] = "";
    stage(name, empty);
    expect_broken("it does not say where the catalog lies");
  }
  stage(name, document(ebid, "TN9"));
  expect_broken("it is of other databases than its name says");
}

TEST_F(Staged_Catalog_Test, Without_Attributes_Has_Those_Of_The_Restores_Own_File) {
  const std::string ebid = save(catalog_name, "the version that is read");
  save(catalog_name, "newest");
  for (const bool null : {false, true}) {
    json_spirit::Object bare = document(ebid);
    bare.erase("extended_attrs");
    if (null) bare["extended_attrs"] = json_spirit::Value();
    stage("catalog_HDB_TN1_HDB_TN1.json", bare);
    std::string content;
    EXPECT_EQ(restore("#NULL " + catalog_path(), catalog_path(), content).answers, Answers{restored(ebid)});
    EXPECT_EQ(content, "the version that is read");
  }
  stage("restore_HDB_TN1.json", {{"io_ctl", json_spirit::Object{{"max_seconds_retry", 77}}}});
  hdbbackint::Staged_Catalog catalog;
  std::string error;
  using Search = hdbbackint::Staged_Catalog::Search;
  ASSERT_EQ(hdbbackint::Staged_Catalog::load(catalog_path(), {"HDB", "TN1"}, catalog, error), Search::found) << error;
  EXPECT_EQ(catalog.max_seconds_retry(), 77U);
  root_.write(staging + std::string("restore_HDB_TN1.json"), "{");
  expect_broken("restore_HDB_TN1.json is not one whole JSON object");
}

TEST_F(Staged_Catalog_Test, With_Attributes_That_Are_No_Object_Is_Refused) {
  json_spirit::Object odd = document(save(catalog_name, "newest"));
  for (const json_spirit::Value& attributes : {json_spirit::Value(7), json_spirit::Value(json_spirit::Object())}) {
    odd["extended_attrs"] = attributes;
    stage("catalog_HDB_TN1_HDB_TN1.json", odd);
    expect_broken("is not one of ours");
  }
}

TEST_F(Staged_Catalog_Test, Is_Looked_For_Only_Where_HANA_Makes_Its_Pipes) {
  const std::string ebid = save(catalog_name, "newest");
  stage_in_place(ebid);
  EXPECT_EQ(call("inquire", std::string("#NULL /elsewhere/") + catalog_name).answers,
            Answers{std::string("#NOTFOUND \"/elsewhere/") + catalog_name + "\""});
}

TEST_F(Staged_Catalog_Test, Objects_Of_A_System_That_Moved_Are_Found_On_Its_New_Host) {
  const std::string name = object_name("1_1");
  const std::string there = save(name, "from the other host");
  server_.change_file(there, "host_uuid", "88888888-0b0a-4908-8706-050403020100");
  std::string content;
  const std::string restored_there = "#RESTORED \"" + there + "\" \"" + path_of(name) + "\"";
  EXPECT_EQ(restore("#NULL " + path_of(name), path_of(name), content).answers, Answers{restored_there});
  EXPECT_EQ(content, "from the other host");
  EXPECT_EQ(call("inquire", "#EBID " + there + " " + path_of(name)).answers.size(), 1U);
  EXPECT_EQ(call("inquire", "#EBID " + there + " " + path_of(name)).answers.front(),
            "#BACKUP \"" + there + "\" \"" + path_of(name) + "\"");
  // What lies here comes first.
  const std::string here = save(name, "from this host");
  EXPECT_EQ(restore("#NULL " + path_of(name), path_of(name), content).answers,
            Answers{"#RESTORED \"" + here + "\" \"" + path_of(name) + "\""});
  EXPECT_EQ(call("inquire", "#NULL").answers.size(), 1U) << "a list is this host's";
}

}  // namespace
}  // namespace hdbbackint
