#include "platform/files.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "platform/product_paths.h"
#include "platform/users.h"
#include "support/temp_root.h"

namespace {

using namespace platform;

mode_t mode_of(const std::string& real) {
  struct stat status {};
  EXPECT_EQ(::stat(real.c_str(), &status), 0) << real;
  return status.st_mode & 07777;
}

class Umask {
 public:
  explicit Umask(mode_t mask) : previous_(::umask(mask)) {}
  ~Umask() { ::umask(previous_); }

 private:
  mode_t previous_;
};

TEST(File_Root, Maps_Absolute_Paths_And_Leaves_Others) {
  const File_Root root("/r/");
  EXPECT_EQ(root.real("/usr/sap"), "/r/usr/sap");
  EXPECT_EQ(root.real("relative"), "relative");
  EXPECT_EQ(root.real(""), "");
  EXPECT_EQ(root.documented("/r/usr/sap"), "/usr/sap");
  EXPECT_EQ(root.documented("/r"), "/");
  EXPECT_EQ(root.documented("/rx/usr"), "/rx/usr");
  EXPECT_EQ(File_Root().real("/usr/sap"), "/usr/sap");
  EXPECT_EQ(File_Root().documented("/usr/sap"), "/usr/sap");
}

TEST(Files, A_Link_Is_Mapped_At_Both_Ends_And_Read_Back_Documented) {
  const support::Temp_Root root;
  root.write("/opt/a", "x");
  root.make_directory("/usr/sap");
  ASSERT_EQ(make_link("/opt/a", "/usr/sap/link"), 0);
  EXPECT_TRUE(is_symbolic_link("/usr/sap/link"));
  EXPECT_TRUE(is_regular_file("/usr/sap/link"));
  char buffer[path_buffer_bytes];
  const ssize_t size = read_link("/usr/sap/link", buffer, sizeof buffer);
  ASSERT_GT(size, 0);
  EXPECT_EQ(std::string(buffer, static_cast<std::size_t>(size)), "/opt/a");
  EXPECT_EQ(read_link("/usr/sap/link", buffer, 3), 3) << "cut at the buffer's size";
}

TEST(Files, The_Link_Check_Leaves_The_Errno_Of_Its_System_Call) {
  const support::Temp_Root root;
  root.write("/file", "x");
  errno = EACCES;
  EXPECT_FALSE(is_symbolic_link("/file"));
  EXPECT_EQ(errno, 0) << "something is there, and it is no link";
  EXPECT_FALSE(is_symbolic_link("/nothing"));
  EXPECT_EQ(errno, ENOENT);
  EXPECT_FALSE(is_symbolic_link("/file/below"));
  EXPECT_EQ(errno, ENOTDIR);
}

TEST(Files, Dirname_Cuts_At_The_Last_Separator) {
  struct {
    const char* path;
    const char* wanted;
  } const cases[] = {{"/a/b/c", "/a/b"}, {"/a", "/"}, {"a", "."}, {"/", "/"}, {"a/b", "a"}};
  for (const auto& row : cases) {
    char buffer[16];
    ASSERT_NE(dirname_r(row.path, buffer, sizeof buffer, '/'), nullptr) << row.path;
    EXPECT_STREQ(buffer, row.wanted) << row.path;
  }
  char small[3];
  errno = 0;
  EXPECT_EQ(dirname_r("/abc/d", small, sizeof small, '/'), nullptr);
  EXPECT_EQ(errno, ENAMETOOLONG);
}

TEST(Files, Directories_Get_Their_Mode_Whatever_The_Umask) {
  const support::Temp_Root root;
  const Umask mask(077);
  std::vector<std::string> made;
  ASSERT_EQ(mkdir_p("/usr/sap/HDB/opt", mode_directory, [&made](const char* path) { made.emplace_back(path); }), 0);
  EXPECT_EQ(made, (std::vector<std::string>{"/usr", "/usr/sap", "/usr/sap/HDB", "/usr/sap/HDB/opt"}));
  EXPECT_EQ(mode_of(root.real("/usr/sap/HDB")), mode_directory);
  EXPECT_EQ(mode_of(root.real("/usr/sap/HDB/opt")), mode_directory);
  EXPECT_EQ(mkdir_p("/usr/sap/HDB/opt", mode_directory), 0) << "what exists is fine";
}

TEST(Files, A_Directory_Below_A_File_Is_Refused) {
  const support::Temp_Root root;
  root.write("/a/file", "x");
  EXPECT_EQ(mkdir_p("/a/file/b", mode_directory), -1);
  EXPECT_EQ(errno, ENOTDIR);
}

TEST(Files, A_Durable_Write_Replaces_The_File_Whole_And_Sets_Its_Mode) {
  const support::Temp_Root root;
  const Umask mask(077);
  root.write("/state/key", "old");
  ASSERT_TRUE(write_file_durably("/state/key", "new content", mode_sap_file));
  EXPECT_EQ(root.read("/state/key"), "new content");
  EXPECT_EQ(mode_of(root.real("/state/key")), mode_sap_file);
  std::vector<std::string> names;
  ASSERT_TRUE(list_directory("/state", names));
  EXPECT_EQ(names, std::vector<std::string>{"key"}) << "nothing is left beside it";
}

TEST(Files, A_Failed_Durable_Write_Keeps_The_Old_File_And_Leaves_Nothing) {
  const support::Temp_Root root;
  root.write("/state/key", "old");
  EXPECT_FALSE(write_file_durably("/state/key", "new", mode_sap_file, "nosuchgroup"));
  EXPECT_EQ(root.read("/state/key"), "old");
  root.make_directory("/state/taken");
  EXPECT_FALSE(write_file_durably("/state/taken", "new", mode_sap_file)) << "a directory is in the way";
  EXPECT_FALSE(write_file_durably("/missing/key", "new", mode_sap_file));
  EXPECT_EQ(errno, ENOENT);
  std::vector<std::string> names;
  ASSERT_TRUE(list_directory("/state", names));
  EXPECT_EQ(names, (std::vector<std::string>{"key", "taken"}));
}

/// An id that no process has: beyond what the kernel gives.
constexpr const char* no_process = "1073741823";

TEST(Files, What_A_Cut_Off_Writer_Left_Is_Removed) {
  const support::Temp_Root root;
  const std::string own = std::to_string(::getpid());
  const std::string parent = std::to_string(::getppid());
  const std::string ended = std::string("/d/.secret.json.") + no_process + ".3.tmp";
  const std::string same_id = "/d/.secret.json." + own + ".4.tmp";
  const std::vector<std::string> kept{"." + std::string(no_process) + ".3.tmp",
                                      ".secret.json." + parent + ".3.tmp",
                                      ".secret.json.x.3.tmp",
                                      ".secret.json.-1.3.tmp",
                                      ".secret.json.0.3.tmp",
                                      "secret.json",
                                      "secret.json." + std::string(no_process) + ".3.tmp"};
  root.write(ended, "{");
  root.write(same_id, "{");
  for (const std::string& name : kept) root.write("/d/" + name, "x");
  std::vector<std::string> removed;
  ASSERT_TRUE(remove_unfinished_writes("/d", removed));
  std::vector<std::string> wanted{ended, same_id};
  std::sort(wanted.begin(), wanted.end());
  EXPECT_EQ(removed, wanted);
  std::vector<std::string> left;
  ASSERT_TRUE(list_directory("/d", left));
  std::vector<std::string> sorted = kept;
  std::sort(sorted.begin(), sorted.end());
  EXPECT_EQ(left, sorted);
}

TEST(Files, What_A_Cut_Off_Writer_Left_Is_Removed_Of_One_File) {
  const support::Temp_Root root;
  const std::string end = std::string(".") + no_process + ".3.tmp";
  root.write("/d/.secret.json" + end, "{");
  for (const char* other : {"/d/.secret.jso", "/d/.secret.json.old", "/d/.", "/d/..secret.json"})
    root.write(other + end, "x");
  std::vector<std::string> removed;
  ASSERT_TRUE(remove_unfinished_writes_of("/d/secret.json", removed));
  EXPECT_EQ(removed, std::vector<std::string>{"/d/.secret.json" + end});
  std::vector<std::string> left;
  ASSERT_TRUE(list_directory("/d", left));
  EXPECT_EQ(left.size(), 4U);
}

TEST(Files, A_Directory_That_Is_Not_There_Cannot_Be_Searched_For_Unfinished_Writes) {
  const support::Temp_Root root;
  std::vector<std::string> removed;
  EXPECT_FALSE(remove_unfinished_writes("/nothing", removed));
  EXPECT_EQ(errno, ENOENT);
}

TEST(Files, A_Durable_Write_Steps_Over_What_A_Process_Of_Its_Id_Left) {
  const support::Temp_Root root;
  // The numbers that this process uses next, wherever its other tests have brought them.
  for (int number = 0; number < 100; ++number)
    root.write("/d/.f." + std::to_string(::getpid()) + "." + std::to_string(number) + ".tmp", "left");
  ASSERT_TRUE(write_file_durably("/d/f", "new", mode_private_file)) << std::strerror(errno);
  EXPECT_EQ(root.read("/d/f"), "new");
}

TEST(Files, A_Name_That_Is_Taken_Is_Not_Given_To_Another_File) {
  const support::Temp_Root root;
  root.write("/d/new", "new");
  root.write("/d/old", "old");
  EXPECT_FALSE(rename_without_replacing("/d/new", "/d/old"));
  EXPECT_EQ(errno, EEXIST);
  EXPECT_EQ(root.read("/d/new"), "new");
  EXPECT_EQ(root.read("/d/old"), "old");
  EXPECT_TRUE(rename_without_replacing("/d/new", "/d/free"));
  EXPECT_EQ(root.read("/d/free"), "new");
  EXPECT_FALSE(root.exists("/d/new"));
  EXPECT_FALSE(rename_without_replacing("/d/nothing", "/d/new"));
  EXPECT_EQ(errno, ENOENT);
}

TEST(Files, A_File_Above_The_Limit_Is_Not_Read) {
  const support::Temp_Root root;
  root.write("/big", std::string(100, 'x'));
  std::string content = "kept";
  EXPECT_FALSE(read_file("/big", content, 99));
  EXPECT_EQ(errno, EFBIG);
  EXPECT_EQ(content, "kept");
  EXPECT_TRUE(read_file("/big", content, 100));
  EXPECT_EQ(content.size(), 100U);
}

TEST(Files, File_Names_Are_Encoded_So_That_None_Leaves_Its_Directory) {
  struct {
    const char* name;
    const char* wanted;
  } const cases[] = {{"TN1", "TN1"},   {"a-b", "a-b"},         {"a_b", "a%5Fb"}, {"../x", "%2E%2E%2Fx"},
                     {"a b", "a%20b"}, {"\xc3\xa4", "%C3%A4"}, {"", ""}};
  for (const auto& row : cases) EXPECT_EQ(encode_file_name(row.name), row.wanted) << row.name;
}

TEST(Users, Are_Looked_Up_Below_The_Root) {
  const support::Temp_Root root;
  root.write("/etc/passwd", "root:x:0:0::/root:/bin/sh\nhdbadm:x:1001:79:HANA:/usr/sap/HDB/home:/bin/sh\n");
  root.write("/etc/group", "root:x:0:\nsapsys:x:79:hdbadm\n");
  Os_User user;
  ASSERT_TRUE(find_user("hdbadm", user));
  EXPECT_EQ(user.uid, 1001U);
  EXPECT_EQ(user.gid, 79U);
  EXPECT_EQ(user.home, "/usr/sap/HDB/home");
  EXPECT_FALSE(find_user("nobody-here", user));
  gid_t group = 0;
  ASSERT_TRUE(find_group("sapsys", group));
  EXPECT_EQ(group, 79U);
  EXPECT_FALSE(find_group("wheel-here", group));
}

TEST(Product_Paths, Are_The_Documented_Ones) {
  using namespace product_paths;
  EXPECT_EQ(expand("/var/opt/tarvex/dorsal3/$COMPONENT/hana"), "/var/opt/tarvex/dorsal3/agent/hana");
  EXPECT_EQ(expand("/plain"), "/plain");
  EXPECT_EQ(program("hdbbackint"), "/opt/tarvex/dorsal3/bin/hdbbackint");
  EXPECT_EQ(module_directory(), "/opt/tarvex/dorsal3/lib/modules");
  EXPECT_EQ(access_key(), "/var/opt/tarvex/dorsal3/agent/access_key");
}

}  // namespace
