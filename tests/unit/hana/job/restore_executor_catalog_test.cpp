// What a restore leaves for hdbbackint before it recovers to a point in time.

#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "unit/hana/job/restore_fixture.h"

namespace {

using backup_test::Restorer;
using json_spirit::Object;
using Catalog = sap_hana::Restore_Source_Collector::HANA_Catalog_Info;

constexpr const char* catalog_name = "/catalog_PRD_TN1_HDB_T%5F2.json";
constexpr const char* restore_name = "/restore_HDB_T%5F2.json";
constexpr const char* attributes_text =
    R"({"io_ctl":{"max_seconds_retry":600,"access_key":"the-key-of-this-host","dest_rate_limits":"[]",)"
    R"("src_rate_limits":"[]"}})";

/// A mask for the length of a scope.
class Scoped_Umask {
 public:
  explicit Scoped_Umask(mode_t mask) : before_(::umask(mask)) {}
  ~Scoped_Umask() { ::umask(before_); }
  Scoped_Umask(const Scoped_Umask&) = delete;
  Scoped_Umask& operator=(const Scoped_Umask&) = delete;

 private:
  mode_t before_;
};

class Restore_Catalog : public backup_test::Restore_Test {
 protected:
  Restore_Catalog() {
    entry_.origin = {"TN1", "PRD"};
    entry_.target.database = "T_2";
    info_.location = "file:///pool";
    info_.pool_uuid = backup_test::pool_uuid;
    info_.database_backup_id = 1900;
    info_.file_detail = {"data/catalog", "ebid-catalog", "PIPE", 4096};
  }

  bool stage() { return ready_restorer().restore_catalog(entry_, info_); }
  static std::string catalog_text() {
    return std::string(R"({"location":"file:///pool","filename":"data/catalog","source_type":"PIPE",)") +
           R"("extern_backup_id":"ebid-catalog","origin_sid":"PRD","origin_database":"TN1","target_sid":"HDB",)" +
           R"("pool_uuid":"22222222-2222-4222-8222-222222222222","target_database":"T_2","extended_attrs":)" +
           attributes_text + "}";
  }
  [[nodiscard]] std::string catalog_path() const { return catalog_directory + std::string(catalog_name); }
  [[nodiscard]] std::string restore_path() const { return catalog_directory + std::string(restore_name); }

  Entry entry_;
  Catalog info_;
};

}  // namespace

TEST_F(Restore_Catalog, Tells_Where_The_Catalog_Lies_And_How_To_Read_It) {
  ASSERT_TRUE(stage());
  EXPECT_EQ(root_.read(catalog_path()), catalog_text());
  EXPECT_EQ(root_.read(restore_path()), attributes_text);
  expect_info("Restore HANA using catalog with database backup id 1900\n");
}

TEST_F(Restore_Catalog, Gives_Both_Files_And_The_Directory_To_SAP_Whatever_The_Mask) {
  {
    const Scoped_Umask mask(077);
    ASSERT_TRUE(stage());
  }
  for (const std::string& path : {catalog_path(), restore_path()}) {
    EXPECT_EQ(mode_of(path), 0640U) << path;
    struct stat status {};
    ASSERT_EQ(::stat(root_.real(path).c_str(), &status), 0);
    EXPECT_EQ(status.st_gid, ::getgid());
  }
  EXPECT_EQ(mode_of(catalog_directory), 0755U);
}

TEST_F(Restore_Catalog, Gives_Both_Files_And_The_Directory_To_Another_Group_Than_Its_Own) {
  // Where this process may give files to no other group, their own one is all that can be seen.
  constexpr gid_t no_bodys_group = 54321;
  const gid_t group_of_hana = ::geteuid() == 0 ? no_bodys_group : ::getegid();
  root_.write("/etc/group", "sapsys:x:" + std::to_string(group_of_hana) + ":\n");
  ASSERT_TRUE(stage());
  for (const std::string& path : {catalog_path(), restore_path(), std::string(catalog_directory)}) {
    struct stat status {};
    ASSERT_EQ(::stat(root_.real(path).c_str(), &status), 0) << path;
    EXPECT_EQ(status.st_gid, group_of_hana) << path;
  }
}

TEST_F(Restore_Catalog, Opens_A_Directory_That_Was_Closed) {
  root_.make_directory(catalog_directory);
  ASSERT_EQ(::chmod(root_.real(catalog_directory).c_str(), 0700), 0);
  ASSERT_TRUE(stage());
  EXPECT_EQ(mode_of(catalog_directory), 0755U);
}

TEST_F(Restore_Catalog, Replaces_The_Files_Of_A_Former_Restore) {
  root_.write(catalog_path(), "old", 0600);
  root_.write(restore_path(), "old", 0600);
  ASSERT_TRUE(stage());
  EXPECT_EQ(root_.read(catalog_path()), catalog_text());
  EXPECT_EQ(root_.read(restore_path()), attributes_text);
}

TEST_F(Restore_Catalog, Carries_The_Rate_Limits_Of_The_Definition) {
  Rate_Limits limits;
  limits.source = {{0, 3600, 1000}};
  definition_->rate_limits(limits);
  ASSERT_TRUE(stage());
  const json_spirit::Value attributes = document(restore_path());
  const auto io_ctl = json_spirit::object_require<Object>(attributes.get_obj(), "io_ctl");
  Rate_Limits read;
  ASSERT_TRUE(read.from_json_in_object(io_ctl));
  EXPECT_EQ(read.source, limits.source);
}

TEST_F(Restore_Catalog, Touches_Nothing_Without_Location_Or_Path) {
  info_.location.clear();
  EXPECT_FALSE(stage());
  expect_error("Lack of location or storage_path\n");
  info_.location = "file:///pool";
  info_.file_detail.storage_path.clear();
  EXPECT_FALSE(stage());
  expect_error("Lack of location or storage_path\n");
  EXPECT_FALSE(root_.exists(catalog_directory));
}

TEST_F(Restore_Catalog, Fails_When_The_Directory_Cannot_Be_Made) {
  root_.write("/var/opt/tarvex/dorsal3/agent/hana", "a file in its place");
  EXPECT_FALSE(stage());
  expect_error("Failed to create directory /var/opt/tarvex/dorsal3/agent/hana/catalog\n");
}

TEST_F(Restore_Catalog, Fails_When_The_Catalog_File_Cannot_Be_Written) {
  root_.make_directory(catalog_path() + "/in the way");
  EXPECT_FALSE(stage());
  expect_error("Failed to dump catalog info to file\n");
  expect_error_with("Failed to write '" + catalog_path());
  EXPECT_FALSE(root_.exists(restore_path()));
}

TEST_F(Restore_Catalog, Fails_When_The_Restore_File_Cannot_Be_Written) {
  root_.make_directory(restore_path() + "/in the way");
  EXPECT_FALSE(stage());
  expect_error("Failed to dump restore extend attrs to file\n");
  expect_error_with("Failed to write '" + restore_path());
  EXPECT_EQ(root_.read(catalog_path()), catalog_text()) << "what was written before stays";
}

TEST_F(Restore_Catalog, Fails_Without_SAPs_Group) {
  remove_sap_group();
  EXPECT_FALSE(stage());
  expect_error("Failed to change file group\n");
  expect_error_with("there is no such group");
}

TEST_F(Restore_Catalog, Fails_Without_The_Hosts_Key) {
  Restorer& restorer = ready_restorer();
  root_.write("/etc/opt/tarvex/dorsal3/agent.toml", "nonsense", 0600);
  EXPECT_FALSE(restorer.restore_catalog(entry_, info_));
  expect_error_with("No access key for the restore: ");
  EXPECT_FALSE(root_.exists(catalog_path()));
}

TEST_F(Restore_Catalog, Stays_On_This_Host_When_The_System_Is_No_Cluster) {
  Restorer& restorer = ready_restorer();
  restorer.cluster_instances_.resize(2);
  ASSERT_TRUE(restorer.restore_catalog(entry_, info_));
  EXPECT_TRUE(other_hosts_.calls.empty());
}

TEST_F(Restore_Catalog, Goes_Whole_To_Every_Other_Host_Of_A_Cluster) {
  set_cluster({backup_test::host_uuid, backup_test::second_host, backup_test::third_host});
  other_hosts_.refusing = {backup_test::second_host};
  Restorer& restorer = ready_restorer();
  definition_->target().id(backup_test::resource_uuid);
  ASSERT_TRUE(restorer.get_cluster_info());
  ASSERT_TRUE(restorer.restore_catalog(entry_, info_)) << "a host that is away is no failure";
  EXPECT_EQ(other_hosts_.calls,
            (std::vector<std::string>{std::string(backup_test::second_host) + " hana.file.download " + catalog_text(),
                                      std::string(backup_test::third_host) + " hana.file.download " + catalog_text()}));
  EXPECT_TRUE(log_.has_containing("The catalog is not staged on another host: call of hana.file.download on host " +
                                  std::string(backup_test::second_host)));
}

TEST_F(Restore_Catalog, Keeps_The_Key_Out_Of_The_Log) {
  set_cluster({backup_test::host_uuid, backup_test::second_host});
  other_hosts_.refusing = {backup_test::second_host};
  Restorer& restorer = ready_restorer();
  ASSERT_TRUE(restorer.get_cluster_info());
  ASSERT_TRUE(restorer.restore_catalog(entry_, info_));
  EXPECT_FALSE(log_.has_containing("the-key-of-this-host"));
}
