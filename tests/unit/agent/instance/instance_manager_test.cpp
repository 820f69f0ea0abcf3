#include "agent/instance/instance_manager.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <thread>

#include "agent/instance/instance_store.h"
#include "support/log_capture.h"
#include "support/temp_root.h"

namespace {

using json_spirit::Object;

constexpr const char* accounts_file = "/var/opt/tarvex/dorsal3/agent/accounts";
constexpr const char* key_file = "/var/opt/tarvex/dorsal3/agent/accounts.key";
constexpr const char* instances_file = "/var/opt/tarvex/dorsal3/agent/instances.json";
constexpr const char* secret = "Tr1cky \"pass\\word";

class Instance_Manager_Test : public testing::Test {
 protected:
  static Instance_Manager::Instance_var instance(const std::string& name, const std::string& uuid = {}) {
    auto made = std::make_shared<Instance>();
    made->type = "hana";
    made->name = name;
    made->uuid = uuid;
    made->options = {{"sid", "HDB"}, {"instance_number", 0}, {"multi_container", true}};
    return made;
  }
  static std::string account_of(const Instance_Manager& manager, const char* uid, const char* name = "HDB_HDB00") {
    std::string username, extra;
    secure_string password;
    if (manager.get_account("hana", name, uid, username, password, &extra) != 0) return "none";
    return username + "|" + std::string(password.view()) + "|" + extra;
  }
  void expect_error(const std::string& part, std::size_t times = 1) {
    EXPECT_EQ(log_.claim_containing(part), times) << "wanted: " << part << "\nlogged:\n" << log_.dump();
  }
  [[nodiscard]] mode_t mode_of(const char* documented) const {
    struct stat status {};
    EXPECT_EQ(::stat(root_.real(documented).c_str(), &status), 0) << documented;
    return status.st_mode & 07777;
  }
  /// A manager with one instance and one account on the disk.
  void keep_one() {
    Instance_Manager manager;
    ASSERT_TRUE(manager.open());
    ASSERT_TRUE(manager.store({{"HDB_HDB00", instance("HDB_HDB00", "uuid-1")}}));
    ASSERT_TRUE(manager.set_account("hana", "HDB_HDB00", "", "SYSTEM", secure_string(secret)));
  }

  support::Temp_Root root_;
  support::Log_Capture log_;
};

TEST_F(Instance_Manager_Test, Is_Null_Until_The_Agent_Has_One) {
  EXPECT_EQ(Instance_Manager::instance(), nullptr);
  Instance_Manager manager;
  {
    const Scoped_Instance_Manager scope(manager);
    EXPECT_EQ(Instance_Manager::instance(), &manager);
  }
  EXPECT_EQ(Instance_Manager::instance(), nullptr);
}

TEST_F(Instance_Manager_Test, Begins_With_Nothing) {
  Instance_Manager manager;
  EXPECT_TRUE(manager.open());
  EXPECT_EQ(manager.find("hana", "HDB_HDB00"), nullptr);
  EXPECT_EQ(manager.find(nullptr, "x"), nullptr);
  EXPECT_EQ(manager.find("hana", nullptr), nullptr);
  EXPECT_TRUE(manager.list("hana").empty());
  EXPECT_FALSE(root_.exists(accounts_file)) << "reading writes nothing";
}

TEST_F(Instance_Manager_Test, Keeps_Instances_Over_A_Restart) {
  {
    Instance_Manager manager;
    ASSERT_TRUE(manager.open());
    auto other = instance("X_X00");
    other->type = "other";
    ASSERT_TRUE(manager.store({{"HDB_HDB00", instance("HDB_HDB00")}, {"X_X00", other}, {"null", nullptr}}));
  }
  EXPECT_EQ(mode_of(instances_file), 0600U);
  Instance_Manager manager;
  ASSERT_TRUE(manager.open());
  const auto found = manager.find("hana", "HDB_HDB00");
  ASSERT_NE(found, nullptr);
  EXPECT_EQ(found->options, instance("HDB_HDB00")->options);
  EXPECT_EQ(found->uuid.size(), 36U) << "the registry gives new instances a uuid";
  EXPECT_EQ(manager.list("hana").size(), 1U);
  EXPECT_EQ(manager.list("other").size(), 1U);
  EXPECT_EQ(manager.find("hana", "X_X00"), nullptr);
}

TEST_F(Instance_Manager_Test, Replaces_What_Was_Found_And_Keeps_What_The_Host_Gave) {
  Instance_Manager manager;
  ASSERT_TRUE(manager.open());
  auto first = instance("HDB_HDB00", "uuid-1");
  first->logon_options = {{"user", "SYSTEM"}};
  ASSERT_TRUE(manager.store({{"HDB_HDB00", first}}));
  const auto before = manager.find("hana", "HDB_HDB00");
  auto second = instance("HDB_HDB00");
  second->options = {{"sid", "HDB"}, {"version", "2.00.070.00"}};
  ASSERT_TRUE(manager.store({{"HDB_HDB00", second}}));
  const auto after = manager.find("hana", "HDB_HDB00");
  EXPECT_EQ(after->uuid, "uuid-1");
  EXPECT_EQ(after->logon_options, first->logon_options);
  EXPECT_EQ(after->options, second->options);
  EXPECT_NE(after, second) << "the registry keeps copies";
  EXPECT_EQ(before->options, first->options) << "a record given out does not change";
}

TEST_F(Instance_Manager_Test, Forgets_An_Instance_With_Its_Accounts) {
  keep_one();
  Instance_Manager manager;
  ASSERT_TRUE(manager.open());
  ASSERT_TRUE(manager.set_account("hana", "HDB_HDB07", "", "OTHER", secure_string("S2")));
  EXPECT_TRUE(manager.remove("hana", "HDB_HDB00"));
  EXPECT_TRUE(manager.remove("hana", "HDB_HDB00"));
  EXPECT_EQ(manager.find("hana", "HDB_HDB00"), nullptr);
  EXPECT_EQ(account_of(manager, ""), "none");
  expect_error("No account is stored for the instance 'HDB_HDB00' of type 'hana'");
  EXPECT_EQ(account_of(manager, "", "HDB_HDB07"), "OTHER|S2|");
}

TEST_F(Instance_Manager_Test, Finds_The_Account_Of_The_User_Before_That_Of_Everybody) {
  Instance_Manager manager;
  ASSERT_TRUE(manager.open());
  ASSERT_TRUE(manager.set_account("hana", "HDB_HDB00", "u1", "ONE", secure_string("S1"), "more"));
  EXPECT_EQ(account_of(manager, "u1"), "ONE|S1|more");
  EXPECT_EQ(account_of(manager, "u2"), "none");
  EXPECT_EQ(account_of(manager, nullptr), "none");
  ASSERT_TRUE(manager.set_account("hana", "HDB_HDB00", "", "ALL", secure_string("S2")));
  EXPECT_EQ(account_of(manager, "u1"), "ONE|S1|more");
  EXPECT_EQ(account_of(manager, "u2"), "ALL|S2|");
  EXPECT_EQ(account_of(manager, nullptr), "ALL|S2|");
  EXPECT_EQ(account_of(manager, "u1", "HDB_HDB07"), "none");
  ASSERT_TRUE(manager.remove_account("hana", "HDB_HDB00", "u1"));
  EXPECT_EQ(account_of(manager, "u1"), "ALL|S2|");
  std::string username = "kept";
  secure_string password("kept");
  EXPECT_EQ(manager.get_account("other", "HDB_HDB00", "", username, password), -1);
  EXPECT_EQ(manager.get_account(nullptr, "HDB_HDB00", "", username, password), -1);
  EXPECT_EQ(manager.get_account("hana", nullptr, "", username, password), -1);
  EXPECT_EQ(manager.get_account("hana", "HDB_HDB00", "", username, password), 0);
  log_.claim_all();
}

TEST_F(Instance_Manager_Test, Leaves_The_Outputs_Alone_When_There_Is_No_Account) {
  Instance_Manager manager;
  ASSERT_TRUE(manager.open());
  std::string username = "kept", extra = "kept";
  secure_string password("kept");
  EXPECT_EQ(manager.get_account("hana", "HDB_HDB00", "", username, password, &extra), -1);
  EXPECT_EQ(username + std::string(password.view()) + extra, "keptkeptkept");
  expect_error("No account is stored");
}

TEST_F(Instance_Manager_Test, Keeps_Accounts_Encrypted_Over_A_Restart) {
  keep_one();
  EXPECT_EQ(mode_of(accounts_file), 0600U);
  EXPECT_EQ(mode_of(key_file), 0600U);
  const std::string text = root_.read(accounts_file);
  for (const char* hidden : {secret, "pass", "SYSTEM", "HDB_HDB00"}) EXPECT_EQ(text.find(hidden), std::string::npos);
  Instance_Manager manager;
  ASSERT_TRUE(manager.open());
  EXPECT_EQ(account_of(manager, ""), std::string("SYSTEM|") + secret + "|");
  EXPECT_EQ(log_.dump().find("pass"), std::string::npos);
}

TEST_F(Instance_Manager_Test, Encrypts_Anew_Each_Time) {
  keep_one();
  const std::string first = root_.read(accounts_file);
  Instance_Manager manager;
  ASSERT_TRUE(manager.open());
  ASSERT_TRUE(manager.set_account("hana", "HDB_HDB00", "", "SYSTEM", secure_string("other")));
  ASSERT_TRUE(manager.set_account("hana", "HDB_HDB00", "", "SYSTEM", secure_string(secret)));
  EXPECT_NE(root_.read(accounts_file), first);
}

TEST_F(Instance_Manager_Test, Leaves_A_Damaged_Account_File_As_It_Is) {
  keep_one();
  const std::string good = root_.read(accounts_file);
  std::string flipped = good;
  char& digit = flipped[flipped.rfind('"') - 1];
  digit = digit == '0' ? '1' : '0';
  std::string other_version = good;
  other_version.replace(other_version.find("\"version\": 1"), 12, "\"version\": 2");
  const struct {
    const char* name;
    std::string text;
    const char* error;
  } rows[] = {{"flipped", flipped, "cannot be decrypted"},
              {"cut", good.substr(0, good.size() / 2), "is not a file of accounts"},
              {"empty", "", "is not a file of accounts"},
              {"foreign", "{\"users\": []}", "is not a file of accounts (lack of key 'format')"},
              {"binary", std::string("\0\xff\x01", 3), "is not a file of accounts"},
              {"version", other_version, "is not a file of accounts (it is of another kind or version)"}};
  for (const auto& row : rows) {
    root_.write(accounts_file, row.text, 0600);
    Instance_Manager manager;
    EXPECT_FALSE(manager.open()) << row.name;
    expect_error(row.error);
    EXPECT_FALSE(manager.set_account("hana", "HDB_HDB00", "", "SYSTEM", secure_string("new"))) << row.name;
    expect_error("could not be read and are not overwritten");
    EXPECT_EQ(root_.read(accounts_file), row.text) << row.name;
    EXPECT_NE(manager.find("hana", "HDB_HDB00"), nullptr) << "the instances are not lost with the accounts";
  }
  root_.write(accounts_file, good, 0600);
  Instance_Manager manager;
  EXPECT_TRUE(manager.open());
  EXPECT_EQ(account_of(manager, ""), std::string("SYSTEM|") + secret + "|");
}

TEST_F(Instance_Manager_Test, Tells_What_Is_Wrong_With_The_Key) {
  keep_one();
  const std::string good = root_.read(key_file);
  std::string other = good;
  other[0] = other[0] == '0' ? '1' : '0';
  const struct {
    const char* name;
    std::string text;
    unsigned mode;
    const char* error;
  } rows[] = {{"another", other, 0600, "cannot be decrypted: the file was changed or belongs to another key"},
              {"short", "abcd\n", 0600, "is not usable: it must hold 64 hexadecimal digits and have mode 0600"},
              {"no digits", std::string(64, 'x'), 0600, "is not usable"},
              {"open to others", good, 0640, "is not usable"}};
  for (const auto& row : rows) {
    root_.write(key_file, row.text, row.mode);
    Instance_Manager manager;
    EXPECT_FALSE(manager.open()) << row.name;
    expect_error(row.error);
  }
  ASSERT_EQ(::unlink(root_.real(key_file).c_str()), 0);
  Instance_Manager manager;
  EXPECT_FALSE(manager.open());
  expect_error("The key of the accounts '/var/opt/tarvex/dorsal3/agent/accounts.key' is gone");
  EXPECT_FALSE(root_.exists(key_file)) << "a new key would close the accounts for ever";
}

TEST_F(Instance_Manager_Test, Leaves_A_Damaged_Instance_File_As_It_Is) {
  keep_one();
  for (const std::string text :
       {"", "[]", "{\"format\": \"other\", \"version\": 1, \"instances\": []}",
        "{\"format\": \"dorsal3-instances\", \"version\": 1, \"instances\": [{\"type\": 1}]}"}) {
    root_.write(instances_file, text, 0600);
    Instance_Manager manager;
    EXPECT_FALSE(manager.open()) << text;
    expect_error("is not a file of instances");
    EXPECT_FALSE(manager.store({{"HDB_HDB00", instance("HDB_HDB00")}}));
    expect_error("could not be read and is not overwritten");
    EXPECT_EQ(root_.read(instances_file), text);
    EXPECT_EQ(account_of(manager, ""), std::string("SYSTEM|") + secret + "|");
  }
}

TEST_F(Instance_Manager_Test, Refuses_Accounts_That_Cannot_Be_Used) {
  Instance_Manager manager;
  ASSERT_TRUE(manager.open());
  const struct {
    const char* type;
    const char* name;
    const char* uid;
    const char* username;
    const char* password;
    const char* error;
  } rows[] = {{"", "n", "", "u", "p", "its type is empty"},
              {"hana", "", "", "u", "p", "its instance name is empty"},
              {"hana", "n", "", "", "p", "its user name is empty"},
              {"hana", "n", "", "u", "", "its password is empty"},
              {"hana", "n\n", "", "u", "p", "its instance name holds control characters"},
              {"hana", "n", "\t", "u", "p", "its uid holds control characters"},
              {"hana", "n", "", "u\r", "p", "its user name holds control characters"},
              {"hana", "n", "", "u", "p\x01", "its password holds control characters"},
              {"hana", "n", "", "u", "p\x7f", "its password holds control characters"}};
  for (const auto& row : rows) {
    EXPECT_FALSE(manager.set_account(row.type, row.name, row.uid, row.username, secure_string(row.password)));
    expect_error(std::string("Failed to store the account: ") + row.error + "\n");
  }
  EXPECT_FALSE(root_.exists(accounts_file));
}

TEST_F(Instance_Manager_Test, Changes_Nothing_When_It_Cannot_Write) {
  keep_one();
  Instance_Manager manager;
  ASSERT_TRUE(manager.open());
  // A directory in the place of a file cannot be replaced by one, whoever runs the test.
  ASSERT_EQ(::unlink(root_.real(accounts_file).c_str()), 0);
  root_.make_directory(std::string(accounts_file) + "/in-the-way");
  EXPECT_FALSE(manager.set_account("hana", "HDB_HDB00", "", "SYSTEM", secure_string("new")));
  expect_error("Failed to write the accounts '/var/opt/tarvex/dorsal3/agent/accounts': ");
  EXPECT_EQ(account_of(manager, ""), std::string("SYSTEM|") + secret + "|");
  ASSERT_EQ(::unlink(root_.real(instances_file).c_str()), 0);
  root_.make_directory(std::string(instances_file) + "/in-the-way");
  EXPECT_FALSE(manager.store({{"A_HDB01", instance("A_HDB01")}}));
  expect_error("Failed to write the instances '/var/opt/tarvex/dorsal3/agent/instances.json': ");
  EXPECT_EQ(manager.find("hana", "A_HDB01"), nullptr);
}

TEST_F(Instance_Manager_Test, Writes_No_Secrets_Into_The_Instances) {
  Instance secret_instance = *instance("HDB_HDB00", "uuid-1");
  secret_instance.logon_options = {{"user", "SYSTEM"}, {"password", secure_string(secret)}};
  const std::string text = Instance_Store::text({secret_instance});
  EXPECT_EQ(text.find("pass"), std::string::npos) << text;
  std::vector<Instance> read;
  std::string error;
  ASSERT_TRUE(Instance_Store::parse(text, read, error)) << error;
  EXPECT_EQ(read.at(0).logon_options, (Object{{"user", "SYSTEM"}}));
  EXPECT_EQ(read.at(0).options, secret_instance.options);
  EXPECT_EQ(read.at(0).uuid, "uuid-1");
}

TEST_F(Instance_Manager_Test, Serves_Several_Threads) {
  Instance_Manager manager;
  ASSERT_TRUE(manager.open());
  ASSERT_TRUE(manager.set_account("hana", "HDB_HDB00", "", "SYSTEM", secure_string("S0")));
  std::thread writer([&] {
    for (int i = 0; i < 20; ++i) {
      EXPECT_TRUE(manager.set_account("hana", "HDB_HDB00", "", "SYSTEM", secure_string("S" + std::to_string(i))));
      EXPECT_TRUE(manager.store({{"HDB_HDB00", instance("HDB_HDB00")}}));
    }
  });
  for (int i = 0; i < 2000; ++i) {
    EXPECT_TRUE(account_of(manager, "").starts_with("SYSTEM|S"));
    static_cast<void>(manager.find("hana", "HDB_HDB00"));
  }
  writer.join();
}

}  // namespace
