#include "dorsal3/terminal/new_password.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <filesystem>

#include "support/temp_root.h"
#include "unit/dorsal3/keyboard.h"

using namespace dorsal3;

namespace {

constexpr const char* file = "/home/op/system.pw";

class New_Password_Test : public ::testing::Test {
 protected:
  bool read_file(const std::string& content, mode_t mode = 0600) {
    root.write(file, content, mode);
    return read_password_file(file, password, failure);
  }
  bool ask(const std::string& typed, bool on_terminal) {
    const Keyboard keyboard(typed);
    terminal.input_is_terminal = on_terminal;
    return ask_new_password(terminal, "Password: ", password, failure);
  }

  support::Temp_Root root;
  Terminal terminal;
  secure_string password;
  Failure failure;
};

TEST_F(New_Password_Test, Is_The_Line_Of_A_File) {
  for (const char* content : {"Se cret\"1", "Se cret\"1\n", "Se cret\"1\r\n"}) {
    ASSERT_TRUE(read_file(content)) << failure.message;
    EXPECT_EQ(password.view(), "Se cret\"1");
  }
  EXPECT_TRUE(read_file("Pässwörd €1\n", 0400)) << failure.message;
}

TEST_F(New_Password_Test, Is_Not_Read_From_A_File_That_Others_May_Open) {
  for (const mode_t mode : {0640, 0604, 0660, 0601, 0644}) {
    EXPECT_FALSE(read_file("Secret1\n", mode)) << std::oct << mode;
    EXPECT_EQ(failure.exit_code, exit_configuration);
    EXPECT_EQ(failure.message,
              std::string("the password file ") + file + " is open to other users; do: chmod 600 " + file);
    EXPECT_TRUE(password.empty());
  }
}

TEST_F(New_Password_Test, Says_What_Is_Wrong_With_A_File) {
  EXPECT_FALSE(read_password_file("/nowhere", password, failure));
  EXPECT_NE(failure.message.find("/nowhere cannot be read: No such file"), std::string::npos) << failure.message;
  root.make_directory("/home/op/folder");
  EXPECT_FALSE(read_password_file("/home/op/folder", password, failure));
  EXPECT_NE(failure.message.find("is no file"), std::string::npos) << failure.message;
  ASSERT_EQ(::mkfifo(root.real("/home/op/pipe").c_str(), 0600), 0);
  EXPECT_FALSE(read_password_file("/home/op/pipe", password, failure))
      << "nobody writes to it, and it is not waited for";
  EXPECT_NE(failure.message.find("is no file"), std::string::npos) << failure.message;
  const struct {
    std::string content;
    const char* wanted;
  } rows[] = {{"", "is empty"},
              {"\n", "is empty"},
              {"Secret1\nSecret2\n", "is more than one line"},
              {"Secret1\n\n", "is more than one line"},
              {"Sec\tret", "holds control characters"},
              {std::string("Sec\0ret", 7), "holds control characters"},
              {"Secret\xE4", "is no text in UTF-8"},
              {std::string(5000, 'S'), "cannot be read: File too large"}};
  for (const auto& row : rows) {
    EXPECT_FALSE(read_file(row.content)) << row.wanted;
    EXPECT_NE(failure.message.find(row.wanted), std::string::npos) << failure.message;
    EXPECT_EQ(failure.message.find("Sec"), std::string::npos) << failure.message;
    EXPECT_TRUE(password.empty());
  }
}

TEST_F(New_Password_Test, Is_Asked_For_Twice_On_A_Terminal) {
  EXPECT_TRUE(ask("Secret1\nSecret1\n", true)) << failure.message;
  EXPECT_EQ(password.view(), "Secret1");
  for (const char* typed : {"Secret1\nSecret2\n", "Secret1\n", "Secret1\n\n"}) {
    EXPECT_FALSE(ask(typed, true)) << typed;
    EXPECT_EQ(failure.exit_code, exit_usage);
    EXPECT_NE(failure.message.find("not the same the second time"), std::string::npos) << failure.message;
    EXPECT_TRUE(password.empty());
  }
}

TEST_F(New_Password_Test, Is_One_Line_Of_Standard_Input_That_Is_No_Terminal) {
  EXPECT_TRUE(ask("Secret1\nmore\n", false)) << failure.message;
  EXPECT_EQ(password.view(), "Secret1");
  for (const bool on_terminal : {false, true}) {
    EXPECT_FALSE(ask("", on_terminal));
    EXPECT_NE(failure.message.find("no password was given"), std::string::npos) << failure.message;
    EXPECT_FALSE(ask("a\tb\na\tb\n", on_terminal));
    EXPECT_NE(failure.message.find("the password is more than one line, or holds control characters"),
              std::string::npos)
        << failure.message;
  }
}

}  // namespace
