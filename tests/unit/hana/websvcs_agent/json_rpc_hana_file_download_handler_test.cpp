#include "hana/websvcs_agent/json_rpc_hana_file_download_handler.h"

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "unit/hana/websvcs_agent/rpc_fixture.h"

namespace {

constexpr const char* directory = "/var/opt/tarvex/dorsal3/agent/hana/catalog";
constexpr const char* catalog_file = "/var/opt/tarvex/dorsal3/agent/hana/catalog/catalog_ABC_TN1_HDB_TN2.json";
constexpr const char* restore_file = "/var/opt/tarvex/dorsal3/agent/hana/catalog/restore_HDB_TN2.json";
constexpr const char* done = R"({"jsonrpc":"2.0","id":7,"result":{"error":0}})";

std::string request(const std::string& params) {
  return R"({"jsonrpc":"2.0","id":7,"method":"hana.file.download","params":)" + params + "}";
}
std::string error(int code, const std::string& message) {
  return R"({"jsonrpc":"2.0","id":7,"error":{"code":)" + std::to_string(code) + R"(,"message":")" + message + "\"}}";
}

constexpr const char* small_params =
    R"({"origin_sid":"ABC","origin_database":"TN1","target_sid":"HDB","target_database":"TN2"})";
constexpr const char* large_params =
    R"({"location":"file:///pool","filename":"a/b","source_type":"catalog","extern_backup_id":"e","origin_sid":"ABC",)"
    R"("origin_database":"TN1","target_sid":"HDB","pool_uuid":"p","target_database":"TN2","extended_attrs":)"
    R"({"io_ctl":{"max_seconds_retry":600,"access_key":"K1","rate":1.5}},"unknown":[null,true]})";
constexpr const char* attributes = R"({"io_ctl":{"max_seconds_retry":600,"access_key":"K1","rate":1.5}})";

class JSON_RPC_HANA_File_Download_Handler_Test : public rpc_test::Rpc_Test {
 protected:
  unsigned mode_of(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(::stat(root_.real(path).c_str(), &status), 0) << path;
    return status.st_mode & 07777U;
  }
  gid_t group_of(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(::stat(root_.real(path).c_str(), &status), 0) << path;
    return status.st_gid;
  }
  /// Makes a group that is not this process's SAP's; the process's own where it may use no other one.
  gid_t use_another_group() {
    constexpr gid_t nobodys_group = 54321;
    const gid_t group = ::geteuid() == 0 ? nobodys_group : ::getegid();
    root_.write("/etc/group", "sapsys:x:" + std::to_string(group) + ":\n");
    return group;
  }
  std::size_t files_in(const std::string& path) {
    const std::filesystem::directory_iterator listing(root_.real(path));
    return static_cast<std::size_t>(std::distance(begin(listing), end(listing)));
  }

  JSON_RPC_HANA_File_Download_Handler handler_;
};

TEST_F(JSON_RPC_HANA_File_Download_Handler_Test, Has_No_Data) {
  EXPECT_EQ(sizeof(JSON_RPC_HANA_File_Download_Handler), sizeof(void*));
}

TEST_F(JSON_RPC_HANA_File_Download_Handler_Test, Leaves_The_Whole_Request_In_The_Catalog_File) {
  EXPECT_EQ(answer_of(handler_, request(small_params)), done);
  EXPECT_EQ(result_, 0);
  EXPECT_EQ(root_.read(catalog_file), small_params);
  EXPECT_EQ(mode_of(catalog_file), 0640U);
  EXPECT_EQ(mode_of(directory), 0755U);
  EXPECT_FALSE(root_.exists(restore_file)) << "there were no extended attributes";
  EXPECT_EQ(files_in(directory), 1U);
}

TEST_F(JSON_RPC_HANA_File_Download_Handler_Test, Leaves_The_Extended_Attributes_In_The_Restore_File) {
  EXPECT_EQ(answer_of(handler_, request(large_params)), done);
  EXPECT_EQ(root_.read(catalog_file), large_params);
  EXPECT_EQ(root_.read(restore_file), attributes);
  EXPECT_EQ(mode_of(restore_file), 0640U);
  EXPECT_EQ(log_.dump().find("K1"), std::string::npos) << "a key is never logged";
  // The later request wins.
  EXPECT_EQ(answer_of(handler_, request(small_params)), done);
  EXPECT_EQ(root_.read(catalog_file), small_params);
  EXPECT_EQ(root_.read(restore_file), attributes);
}

TEST_F(JSON_RPC_HANA_File_Download_Handler_Test, Gives_Both_Files_To_SAPs_Group_And_Opens_Their_Directory) {
  const gid_t sap = use_another_group();
  root_.make_directory(directory);
  ASSERT_EQ(::chmod(root_.real(directory).c_str(), 0700), 0);
  EXPECT_EQ(answer_of(handler_, request(large_params)), done);
  EXPECT_EQ(group_of(catalog_file), sap);
  EXPECT_EQ(group_of(restore_file), sap);
  EXPECT_EQ(group_of(directory), ::getegid());
  EXPECT_EQ(mode_of(directory), 0755U) << "it was closed before";
}

TEST_F(JSON_RPC_HANA_File_Download_Handler_Test, Refuses_Bad_Params) {
  const struct {
    const char* params;
    const char* logged;
  } rows[] = {
      {R"({"origin_database":"TN1","target_sid":"HDB","target_database":"TN2"})", "lack of key 'origin_sid'"},
      {R"({"origin_sid":"ABC","target_sid":"HDB","target_database":"TN2"})", "lack of key 'origin_database'"},
      {R"({"origin_sid":"ABC","origin_database":"TN1","target_database":"TN2"})", "lack of key 'target_sid'"},
      {R"({"origin_sid":"ABC","origin_database":"TN1","target_sid":"HDB"})", "lack of key 'target_database'"},
      {R"({"origin_sid":"ABC","origin_database":"TN1","target_sid":"HDB","target_database":2})",
       "key 'target_database' is integer"},
      {R"({"origin_sid":"ABC","origin_database":"TN1","target_sid":"HDB","target_database":"TN2","extended_attrs":"x"})",
       "key 'extended_attrs' is string, expected an object"},
      {R"({"origin_sid":"ABC","origin_database":"TN1","target_sid":"HDB","target_database":"TN2","extended_attrs":null})",
       "key 'extended_attrs' is null, expected an object"},
      {"[]", "value is array, expected object"}};
  for (const auto& row : rows) {
    EXPECT_EQ(answer_of(handler_, request(row.params)), error(-32602, R"(Failed to initialize params\n)"))
        << row.params;
    EXPECT_EQ(log_.claim_containing(std::string("Invalid params: ") + row.logged), 1U) << row.params << log_.dump();
  }
  EXPECT_FALSE(root_.exists(directory));
}

TEST_F(JSON_RPC_HANA_File_Download_Handler_Test, Names_Never_Leave_The_Directory) {
  const char* const names[] = {"../../../../etc/passwd",
                               "..",
                               ".",
                               "/etc/passwd",
                               R"(a\u0000b)",
                               R"(\u0000)",
                               "a/b",
                               "%2e%2e",
                               "_",
                               "äö",
                               "TN1 "};
  std::size_t wanted = 0;
  for (const char* name : names) {
    const std::string params = std::string(R"({"origin_sid":")") + name + R"(","origin_database":")" + name +
                               R"(","target_sid":")" + name + R"(","target_database":")" + name +
                               R"(","extended_attrs":{}})";
    EXPECT_EQ(answer_of(handler_, request(params)), done) << name;
    wanted += 2;
    EXPECT_EQ(files_in(directory), wanted) << name << ": each has files of its own, beside the others";
  }
  EXPECT_EQ(files_in("/var/opt/tarvex/dorsal3/agent/hana"), 1U);
  EXPECT_FALSE(root_.exists("/etc/passwd"));
}

TEST_F(JSON_RPC_HANA_File_Download_Handler_Test, Tells_Each_Step_That_Fails) {
  EXPECT_EQ(
      answer_of(handler_, request(R"({"origin_sid":"","origin_database":"","target_sid":"","target_database":""})")),
      error(-32603, "failed to get catalog_conf dir"));
  expect_error("without the names of systems and databases");

  root_.write("/var/opt/tarvex/dorsal3/agent/hana", "a file");
  EXPECT_EQ(answer_of(handler_, request(small_params)), error(-32603, "failed to create catalog_conf dir"));
  expect_error("Failed to create directory /var/opt/tarvex/dorsal3/agent/hana/catalog, ");
  std::filesystem::remove(root_.real("/var/opt/tarvex/dorsal3/agent/hana"));

  const std::string long_name(300, 'A');
  EXPECT_EQ(answer_of(handler_, request(R"({"origin_sid":"ABC","origin_database":"TN1","target_sid":"HDB",)"
                                        R"("target_database":")" +
                                        long_name + "\"}")),
            error(-32603, R"(failed to save catalog config file\n)"));
  expect_error("Failed to write '/var/opt/tarvex/dorsal3/agent/hana/catalog/catalog_");
}

TEST_F(JSON_RPC_HANA_File_Download_Handler_Test, Tells_When_The_Restore_File_Cannot_Be_Saved) {
  root_.make_directory(std::string(restore_file) + "/taken");
  EXPECT_EQ(answer_of(handler_, request(large_params)), error(-32603, R"(failed to save restore config file\n)"));
  expect_error("Failed to write '/var/opt/tarvex/dorsal3/agent/hana/catalog/restore_HDB_TN2.json'");
  EXPECT_TRUE(root_.exists(catalog_file)) << "what was written stays";
}

TEST_F(JSON_RPC_HANA_File_Download_Handler_Test, Tells_When_A_Group_Cannot_Be_Changed) {
  root_.write("/etc/group", "other:x:1:\n");
  EXPECT_EQ(answer_of(handler_, request(large_params)), error(-32603, R"(failed to change file group\n)"));
  expect_error("to the group 'sapsys': there is no such group\n");
  EXPECT_TRUE(root_.exists(catalog_file));
  EXPECT_FALSE(root_.exists(restore_file));
}

TEST_F(JSON_RPC_HANA_File_Download_Handler_Test, Tells_When_The_Group_Of_The_Restore_File_Alone_Cannot_Be_Changed) {
  // The groups stand where the restore file goes: they are there for the catalog file and gone after that.
  root_.write(restore_file, root_.read("/etc/group"));
  std::filesystem::remove(root_.real("/etc/group"));
  std::filesystem::create_symlink(root_.real(restore_file), root_.real("/etc/group"));
  EXPECT_EQ(answer_of(handler_, request(large_params)),
            error(-32603, R"(failed to change restore config file group\n)"));
  expect_error("restore_HDB_TN2.json' to the group 'sapsys': there is no such group\n");
  EXPECT_EQ(root_.read(catalog_file), large_params) << "what was written stays";
  EXPECT_EQ(root_.read(restore_file), attributes);
}

TEST_F(JSON_RPC_HANA_File_Download_Handler_Test, A_Notification_Is_Obeyed_And_Not_Answered) {
  EXPECT_EQ(answer_of(handler_,
                      std::string(R"({"jsonrpc":"2.0","method":"hana.file.download","params":)") + small_params + "}"),
            "");
  EXPECT_EQ(result_, 0);
  EXPECT_TRUE(root_.exists(catalog_file));
}

TEST_F(JSON_RPC_HANA_File_Download_Handler_Test, Handles_Nothing_But_Requests_And_Notifications) {
  EXPECT_EQ(answer_to(handler_, std::make_shared<JSON_RPC_Object>(JSON_RPC_Object::KIND_RESPONSE, 7)), "");
  EXPECT_EQ(result_, -1);
  expect_error("obj is neither JSON-RPC request nor notify!\n", LM_EMERGENCY);
}

TEST_F(JSON_RPC_HANA_File_Download_Handler_Test, Does_Nothing_For_A_Requester_That_Has_Gone) {
  EXPECT_EQ(handle_without_requester(handler_, request(small_params)), -1);
  EXPECT_TRUE(log_.claim("Abort handling JSON-RPC request, requester has gone.\n"));
  EXPECT_FALSE(root_.exists(directory));
}

TEST_F(JSON_RPC_HANA_File_Download_Handler_Test, Downloads_A_File_From_A_Pool) {
  std::string content;
  for (int i = 0; i < 5000; ++i) content += std::to_string(i) + "\n";
  root_.write("/pool/a/b", content);
  root_.write("/target/folder/file", "what was there before, which is longer or not");
  EXPECT_TRUE(handler_.download("file:///pool", "a/b", "/target/folder/file"));
  EXPECT_EQ(root_.read("/target/folder/file"), content);
  EXPECT_TRUE(handler_.download("file:///pool", "a/b", "/new/folders/file"));
  EXPECT_EQ(root_.read("/new/folders/file"), content);
  EXPECT_EQ(mode_of("/new/folders"), 0755U);
}

TEST_F(JSON_RPC_HANA_File_Download_Handler_Test, Gives_The_Directory_Of_A_Download_To_SAPs_Group_And_Not_The_File) {
  const gid_t sap = use_another_group();
  root_.write("/pool/a", "x");
  EXPECT_TRUE(handler_.download("file:///pool", "a", "/target/f"));
  EXPECT_EQ(group_of("/target"), sap);
  EXPECT_EQ(group_of("/target/f"), ::getegid());
}

TEST_F(JSON_RPC_HANA_File_Download_Handler_Test, Tells_What_Of_A_Download_Failed) {
  root_.write("/pool/a", "x");
  root_.write("/in the way", "x");
  root_.make_directory("/target/taken");
  const std::string deep = "/" + std::string(4096, 'd') + "/f";
  const struct {
    std::string address;
    const char* remote;
    std::string local;
    std::string logged;
  } rows[] = {{"file:///pool", "a", deep, "Failed to get '/ddd"},
              {"file:///pool", "a", "/in the way/f", "Failed to create directory /in the way\n"},
              {"file:///nowhere", "a", "/target/f", "Failed to connect file:///nowhere\n"},
              {"ftp://pool", "a", "/target/f", "Failed to connect ftp://pool\n"},
              {"file:///pool", "b", "/target/f", "Failed to download file\n"},
              {"file:///pool", "../etc/group", "/target/f", "Failed to download file\n"},
              {"file:///pool", "a", "/target/taken", "Failed to download file\n"}};
  for (const auto& row : rows) {
    EXPECT_FALSE(handler_.download(row.address, row.remote, row.local)) << row.logged;
    expect_error(row.logged);
    EXPECT_FALSE(root_.exists("/target/f")) << row.logged;
  }
  root_.write("/etc/group", "other:x:1:\n");
  EXPECT_FALSE(handler_.download("file:///pool", "a", "/target/f"));
  EXPECT_TRUE(log_.claim("Failed to download file: failed to change file group\n"));
  expect_error("there is no such group");
}

TEST_F(JSON_RPC_HANA_File_Download_Handler_Test, Looks_At_What_It_Got_Before_It_Looks_For_The_Requester) {
  EXPECT_EQ(handler_.handle_object({}, std::make_shared<JSON_RPC_Object>(JSON_RPC_Object::KIND_RESPONSE, 7)), -1);
  expect_error("obj is neither JSON-RPC request nor notify!\n", LM_EMERGENCY);
  EXPECT_EQ(log_.lines().size(), 1U) << log_.dump();
}

}  // namespace
