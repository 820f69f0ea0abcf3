#include "standin/installed_hana.h"

namespace {

using namespace standin_test;
using HANA_Accounts = Installed_HANA;

TEST_F(HANA_Accounts, Ask_For_The_Privilege_Of_Each_Statement) {
  install();
  const std::string password = write("password", "Secret1\n");
  const auto as = [&](const std::string& privileges, const std::string& statement) {
    EXPECT_EQ(control({"user", "SYSTEMDB", "AGENT", password, privileges}).code, 0);
    return sql(statement, "SYSTEMDB", "Secret1", "agent");
  };
  struct Case {
    const char *statement, *too_few, *enough;
  };
  for (const Case& one :
       {Case{"BACKUP DATA USING FILE ('a')", "CATALOG READ", "BACKUP OPERATOR"},
        Case{"BACKUP DATA FOR TN1 USING FILE ('b')", "BACKUP ADMIN", "BACKUP ADMIN,DATABASE BACKUP ADMIN"},
        Case{"select count(*) as N from SYS.M_BACKUP_CATALOG", "INIFILE ADMIN", "CATALOG READ"},
        Case{"ALTER SYSTEM ALTER CONFIGURATION ('global.ini','SYSTEM') SET ('backup','x') = 'y'", "DATABASE ADMIN",
             "INIFILE ADMIN"},
        Case{"ALTER SYSTEM STOP DATABASE TN1", "DATABASE START", "DATABASE STOP"}}) {
    const Output refused = as(one.too_few, one.statement);
    EXPECT_EQ(refused.code, 258 & 0xff) << one.statement;
    EXPECT_EQ(refused.err.find("* 258: insufficient privilege: Detailed info for this error can be found with guid '"),
              0U);
    const Output good = as(one.enough, one.statement);
    EXPECT_EQ(good.code, 0) << one.statement << "\n" << good.err;
  }
}

TEST_F(HANA_Accounts, Are_Locked_After_Six_Wrong_Passwords) {
  install();
  for (int i = 0; i < 6; ++i) EXPECT_EQ(sql("\\s", "TN1", "wrong").code, 10);
  const Output locked = sql("\\s", "TN1");
  EXPECT_EQ(locked.err.find("* 416: user is locked; try again later: lock time is 1440 minutes; "), 0U) << locked.err;
  EXPECT_EQ(sql("\\s", "SYSTEMDB").code, 0);
  EXPECT_EQ(control({"unlock", "TN1", "SYSTEM"}).code, 0);
  EXPECT_EQ(sql("\\s", "TN1").code, 0);
  EXPECT_EQ(control({"lock", "TN1", "SYSTEM"}).code, 0);
  EXPECT_EQ(sql("\\s", "TN1").code, 416 & 0xff);
}

TEST_F(HANA_Accounts, Forget_Wrong_Passwords_After_A_Right_One) {
  install();
  for (int i = 0; i < 8; ++i) EXPECT_EQ(sql("\\s", "TN1", i == 4 ? "manager" : "wrong").code, i == 4 ? 0 : 10);
  EXPECT_EQ(sql("\\s", "TN1").code, 0);
}

TEST_F(HANA_Accounts, Take_Passwords_And_Names_In_Quotes) {
  install();
  const std::string password = write("password", "a b\"c;\\d\n");
  ASSERT_EQ(control({"user", "TN1", "small Name", password, "ALL"}).code, 0);
  EXPECT_EQ(sql("select 'x' as A from DUMMY", "TN1", "\"a b\"\"c;\\d\"", "\"small Name\"").out, "A\n\"x\"\n");
  EXPECT_EQ(sql("\\s", "TN1", "\"a b\"\"c;\\d\"", "small").code, 10);
}

TEST_F(HANA_Accounts, Warn_Of_An_Old_Password_Before_A_Good_Result) {
  install();
  fault("password_warning = yes");
  const Output got = sql("select 1 as A from DUMMY");
  EXPECT_EQ(got.code, 0);
  EXPECT_EQ(got.out, "A\n1\n");
  EXPECT_EQ(got.err, "Warning: * 431: user's password will expire within few days: SYSTEM SQLSTATE: 01010\n");
}

TEST_F(HANA_Accounts, Belong_To_Databases_Of_Any_Name) {
  const std::vector<std::string> names{"A.B",         "with blank",   "sl/ash", "..", "quo\"te",
                                       "apo'strophe", "\u00e4\u4e2d", "-x",     "%2F"};
  std::vector<std::string> words{"--data-mb", "1"};
  for (const std::string& name : names) words.insert(words.end(), {"--tenant", name});
  install(words);
  for (const std::string& name : names) {
    std::string quoted = "\"";
    for (const char c : name) quoted += c == '"' ? "\"\"" : std::string(1, c);
    quoted += '"';
    std::string text;
    for (const char c : name) text += c == '\'' ? "''" : std::string(1, c);
    const Output put = sql("UPSERT KV VALUES ('k','of " + text + "')", quoted);
    EXPECT_EQ(put.code, 0) << name << "\n" << put.err;
    const Output backup = sql("BACKUP DATA FOR " + quoted + " USING BACKINT ('p')");
    EXPECT_EQ(backup.code, 0) << name << "\n" << backup.err;
    EXPECT_EQ(
        value_of("select count(*) from SYS_DATABASES.M_BACKUP_CATALOG where ENTRY_TYPE_NAME='complete data backup' and "
                 "STATE_NAME='successful' and DATABASE_NAME='" +
                 text + "'"),
        "1\n")
        << name;
    EXPECT_EQ(sql("ALTER SYSTEM STOP DATABASE " + quoted).code, 0) << name;
  }
  EXPECT_EQ(value_of("select count(distinct DATABASE_NAME) from SYS.M_DATABASES"),
            std::to_string(names.size() + 1) + "\n");
}

}  // namespace
