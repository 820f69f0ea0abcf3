#include "hana/common/backint_preparer.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "hana/common/file_group.h"
#include "unit/hana/common/hana_system.h"

namespace {

using namespace sap_hana;

using namespace sap_hana;

/// What making a link fails with in this process; 0: it does not.
int link_error = 0;

}  // namespace

/// The C library's, which can be made to fail.
extern "C" int symlink(const char* text, const char* path) noexcept {
  if (link_error == 0) return ::symlinkat(text, AT_FDCWD, path);
  errno = link_error;
  return -1;
}

namespace {

constexpr const char* source = "/opt/tarvex/dorsal3/bin/hdbbackint";
constexpr const char* target = "/usr/sap/HDB/SYS/global/hdb/opt/hdbbackint";

class Backint_Preparer_Test : public testing::Test {
 protected:
  void install_agent() { root_.write(source, "#!", 0755); }
  std::string link_text(const char* documented) {
    char text[4096];
    const ssize_t length = ::readlink(root_.real(documented).c_str(), text, sizeof text);
    return length < 0 ? std::string("no link") : std::string(text, static_cast<std::size_t>(length));
  }
  void make_link(const std::string& real_target) {
    root_.make_directory("/usr/sap/HDB/SYS/global/hdb/opt");
    ASSERT_EQ(::symlink(real_target.c_str(), root_.real(target).c_str()), 0);
  }

  support::Temp_Root root_;
  support::Log_Capture log_;
};

TEST_F(Backint_Preparer_Test, Makes_The_Link_And_The_Directories_Above_It) {
  install_agent();
  const mode_t before = ::umask(077);
  EXPECT_TRUE(Backint_Preparer("HDB").prepare());
  ::umask(before);
  EXPECT_EQ(link_text(target), root_.real(source));
  for (const char* directory : {"/usr", "/usr/sap/HDB", "/usr/sap/HDB/SYS/global/hdb/opt"}) {
    struct stat status {};
    ASSERT_EQ(::stat(root_.real(directory).c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0755U) << directory;
  }
  EXPECT_TRUE(log_.lines().empty());
}

TEST_F(Backint_Preparer_Test, Leaves_A_Link_That_Stands) {
  install_agent();
  make_link(root_.real(source));
  EXPECT_TRUE(Backint_Preparer("HDB").prepare());
  EXPECT_TRUE(Backint_Preparer("HDB").prepare());
  EXPECT_EQ(link_text(target), root_.real(source));
  EXPECT_TRUE(log_.lines().empty());
}

TEST_F(Backint_Preparer_Test, Never_Replaces_A_Link_That_Points_Elsewhere) {
  install_agent();
  const struct {
    std::string text;
    std::string shown;
  } rows[] = {{"/opt/other/hdbbackint", "/opt/other/hdbbackint"},
              {root_.real(source) + "x", std::string(source) + "x"},
              {"hdbbackint", "hdbbackint"}};
  for (const auto& row : rows) {
    ::unlink(root_.real(target).c_str());
    make_link(row.text);
    EXPECT_FALSE(Backint_Preparer("HDB").prepare()) << row.text;
    EXPECT_TRUE(log_.claim("Symbolic link backint '/usr/sap/HDB/SYS/global/hdb/opt/hdbbackint' is exists, linking to " +
                           row.shown + "\n"))
        << log_.dump();
    EXPECT_EQ(link_text(target), row.text);
  }
}

TEST_F(Backint_Preparer_Test, Reads_No_More_Of_A_Link_Than_Its_Buffer_Holds) {
  install_agent();
  std::string longest = "/";
  while (longest.size() < 4095) longest += "a/";
  longest.resize(4095);
  make_link(longest);
  EXPECT_FALSE(Backint_Preparer("HDB").prepare());
  EXPECT_EQ(log_.claim_containing("is exists, linking to /a/a/"), 1U);
}

TEST_F(Backint_Preparer_Test, Never_Overwrites_A_File_Or_A_Directory) {
  install_agent();
  root_.write(target, "another vendor's");
  errno = ENOENT;  // left by somebody else: what is there must not count as missing
  EXPECT_FALSE(Backint_Preparer("HDB").prepare());
  EXPECT_TRUE(log_.claim("Target file /usr/sap/HDB/SYS/global/hdb/opt/hdbbackint is exist\n")) << log_.dump();
  EXPECT_EQ(root_.read(target), "another vendor's");
  ASSERT_EQ(::unlink(root_.real(target).c_str()), 0);
  root_.make_directory(target);
  EXPECT_FALSE(Backint_Preparer("HDB").prepare());
  EXPECT_TRUE(log_.claim("Target file /usr/sap/HDB/SYS/global/hdb/opt/hdbbackint is exist\n"));
}

TEST_F(Backint_Preparer_Test, Tells_A_Target_That_Cannot_Be_Checked_From_A_Missing_One) {
  install_agent();
  root_.write("/usr/sap/HDB/SYS", "a file where a directory belongs");
  EXPECT_FALSE(Backint_Preparer("HDB").prepare());
  EXPECT_TRUE(log_.claim("Target file /usr/sap/HDB/SYS/global/hdb/opt/hdbbackint is exist\n")) << log_.dump();
}

TEST_F(Backint_Preparer_Test, Tells_The_Error_Number_When_The_Link_Cannot_Be_Made) {
  install_agent();
  // A dangling link on the way: nothing is found behind it, and no directory can be made of it.
  root_.make_directory("/usr/sap/HDB/SYS/global/hdb");
  ASSERT_EQ(::symlink("/nowhere/at/all", root_.real("/usr/sap/HDB/SYS/global/hdb/opt").c_str()), 0);
  EXPECT_FALSE(Backint_Preparer("HDB").prepare());
  EXPECT_TRUE(log_.claim("Failed to create symbol link, errno = " + std::to_string(ENOTDIR) + "\n")) << log_.dump();
}

TEST_F(Backint_Preparer_Test, Tells_Why_The_Link_Itself_Could_Not_Be_Made) {
  install_agent();
  // Somebody else was faster; a mounted file system lets nobody; it is full.
  for (const int error : {EEXIST, EACCES, ENOSPC}) {
    link_error = error;
    const bool prepared = Backint_Preparer("HDB").prepare();
    link_error = 0;
    EXPECT_FALSE(prepared);
    EXPECT_TRUE(log_.claim("Failed to create symbol link, errno = " + std::to_string(error) + "\n")) << log_.dump();
    EXPECT_EQ(link_text(target), "no link");
  }
  EXPECT_TRUE(Backint_Preparer("HDB").prepare()) << "the next one makes it";
}

TEST_F(Backint_Preparer_Test, Needs_The_Products_Agent_Before_It_Looks_At_The_Target) {
  root_.write(target, "another vendor's");
  EXPECT_FALSE(Backint_Preparer("HDB").prepare());
  EXPECT_TRUE(log_.claim("Source file /opt/tarvex/dorsal3/bin/hdbbackint does not exist\n"));
  root_.make_directory(source);
  EXPECT_FALSE(Backint_Preparer("HDB").prepare());
  EXPECT_TRUE(log_.claim("Source file /opt/tarvex/dorsal3/bin/hdbbackint does not exist\n"));
}

TEST_F(Backint_Preparer_Test, Needs_A_System_Id) {
  install_agent();
  EXPECT_FALSE(Backint_Preparer("").prepare());
  EXPECT_TRUE(log_.claim("Source or target is empty\n"));
}

TEST_F(Backint_Preparer_Test, Gives_A_File_To_The_Group_Of_SAP) {
  root_.write("/file", "x");
  EXPECT_FALSE(change_file_group_to_sap("/file", nullptr));
  EXPECT_TRUE(log_.claim("Failed to give '/file' to the group 'sapsys': there is no such group\n"));
  const std::string own = std::to_string(::getgid());
  root_.write("/etc/group", "sapsys:x:" + own + ":\nother:x:" + own + ":\n");
  EXPECT_TRUE(change_file_group_to_sap("/file", nullptr));
  EXPECT_TRUE(change_file_group_to_sap("/file", "other"));
  EXPECT_FALSE(change_file_group_to_sap("/missing", nullptr));
  EXPECT_TRUE(log_.claim("Failed to give '/missing' to the group 'sapsys': No such file or directory\n"));
  for (const char* path : {static_cast<const char*>(nullptr), ""}) {
    EXPECT_FALSE(change_file_group_to_sap(path, nullptr));
    EXPECT_TRUE(log_.claim("No file to give to SAP's group: its path is empty\n"));
  }
}

}  // namespace
