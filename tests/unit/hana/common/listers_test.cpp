#include <unistd.h>

#include "hana/common/database_lister.h"
#include "hana/common/environ_getter.h"
#include "hana/common/installation.h"
#include "hana/common/name_server_config_parser.h"
#include "hana/common/system_control.h"
#include "hana/common/system_instance_lister.h"
#include "unit/hana/common/hana_system.h"

namespace {

using namespace sap_hana;
using hana_test::child;
using hana_test::test_data;

class HANA_Listers_Test : public hana_test::HANA_System {
 protected:
  std::string last_statement() {
    const std::string input = runner_.calls().back().input;
    const std::size_t start = input.find('\n') + 1;
    return input.substr(start, input.rfind("\n\\q\n") - start);
  }
};

TEST_F(HANA_Listers_Test, Tells_Systems_With_Tenants_By_Their_Configuration) {
  const struct {
    const char* text;
    bool wanted;
  } rows[] = {{"[multidb]\nmode = multidb\n", true},
              {"[multidb]\nmode=MultiDB\n", true},
              {"[multidb]\nmode = singledb\n", false},
              {"[multidb]\nsingletenant = yes\n", false},
              {"[persistence]\nmode = multidb\n", false},
              {"# [multidb]\n# mode = multidb\n", false},
              {"", false}};
  for (const auto& row : rows) {
    configure("global.ini", row.text);
    const System_Controller controller("HDB");
    EXPECT_EQ(controller.is_multi_container(), row.wanted) << row.text;
    EXPECT_TRUE(controller.is_system_database("SYSTEMDB")) << row.text;
    EXPECT_TRUE(controller.is_system_database("SystemDB")) << row.text;
    EXPECT_EQ(controller.is_system_database("TN1"), !row.wanted) << row.text;
  }
  EXPECT_FALSE(System_Controller("QQQ").is_multi_container());
  expect_error("Failed to read the configuration of HANA system QQQ");
  root_.make_directory("/usr/sap/QQQ/SYS/global/hdb/custom/config/global.ini");
  EXPECT_TRUE(System_Controller("QQQ").is_multi_container()) << "nobody knows, and no tenant is taken for the system";
  expect_error("Failed to read the configuration of HANA system QQQ");
}

TEST_F(HANA_Listers_Test, Lists_Every_Installed_Instance) {
  install("ABC", "HDB42", "virtualhost", "1.00.122.05 Build 1500000000-1530");
  configure("global.ini", "[persistence]\n", "ABC");
  // What is no HANA instance.
  root_.make_directory("/usr/sap/ABC/D01/exe");
  root_.make_directory("/usr/sap/HDB/HDB01");
  root_.make_directory("/usr/sap/hostctrl/HDB00/exe");
  root_.make_directory("/usr/sap/trans");
  std::list<System_Instance_Info> infos;
  ASSERT_TRUE(System_Instance_Lister().list(infos));
  ASSERT_EQ(infos.size(), 2U);
  const System_Instance_Info& first = infos.front();
  EXPECT_EQ(first.system_info.sid, "ABC");
  EXPECT_EQ(first.system_info.localhost, "virtualhost");
  EXPECT_EQ(first.system_info.version, "1.00.122.05");
  EXPECT_FALSE(first.system_info.multi_container);
  EXPECT_EQ(first.instance_number, 42);
  EXPECT_EQ(first.instance_name, "HDB42");
  EXPECT_EQ(first.version, "1.00.122.05");
  EXPECT_EQ(first.dir_executable, "/usr/sap/ABC/HDB42/exe");
  EXPECT_EQ(infos.back().system_info.sid, "HDB");
  EXPECT_TRUE(infos.back().system_info.multi_container);
}

TEST_F(HANA_Listers_Test, Lists_One_Instance) {
  System_Instance_Info info;
  EXPECT_TRUE(System_Instance_Lister().list(info, "HDB", "HDB00"));
  EXPECT_EQ(info.system_info.version, "2.00.059.00");
  info.instance_name = "kept";
  EXPECT_FALSE(System_Instance_Lister().list(info, "HDB", "HDB01"));
  EXPECT_EQ(info.instance_name, "kept");
  expect_error("HANA instance 'HDB01' of system 'HDB' is not installed on this host\n");
}

TEST_F(HANA_Listers_Test, Takes_The_Version_From_Either_Manifest) {
  root_.write("/usr/sap/HDB/SYS/exe/hdb/manifest", "fullversion: 2.00.070.00 Build 1\n");
  System_Instance_Info info;
  EXPECT_TRUE(System_Instance_Lister().list(info, "HDB", "HDB00"));
  EXPECT_EQ(info.version, "2.00.059.00");
  EXPECT_EQ(info.system_info.version, "2.00.070.00");
  root_.write("/usr/sap/HDB/HDB00/exe/manifest", "comptype: HDB\n");
  EXPECT_TRUE(System_Instance_Lister().list(info, "HDB", "HDB00"));
  EXPECT_EQ(info.version, "2.00.070.00");
  root_.write("/usr/sap/HDB/SYS/exe/hdb/manifest", "");
  EXPECT_TRUE(System_Instance_Lister().list(info, "HDB", "HDB00"));
  EXPECT_EQ(info.version, "");
  EXPECT_TRUE(log_.has("The version of HANA instance HDB_HDB00 is not known: no manifest tells it\n"));
}

TEST(HANA_Listers, Find_Nothing_On_A_Host_Without_SAP) {
  const support::Temp_Root root;
  const support::Log_Capture log;
  std::list<System_Instance_Info> infos;
  EXPECT_TRUE(System_Instance_Lister().list(infos));
  EXPECT_TRUE(infos.empty());
}

TEST(HANA_Listers, Fail_When_The_Systems_Cannot_Be_Listed) {
  const support::Temp_Root root;
  support::Log_Capture log;
  root.write("/usr/sap", "a file");
  std::list<System_Instance_Info> infos;
  EXPECT_FALSE(System_Instance_Lister().list(infos));
  EXPECT_EQ(log.claim_containing("Failed to list the SAP systems of this host in '/usr/sap': Not a directory"), 1U);
}

TEST(HANA_Listers, Read_The_Version_In_A_Manifest) {
  const struct {
    const char* text;
    const char* wanted;
  } rows[] = {{"fullversion: 2.00.053.00 Build 1605092543-1530\n", "2.00.053.00"},
              {"release: 2.00\r\nfullversion: 1.00.122.05 Build 1\r\n", "1.00.122.05"},
              {"fullversion:   1.00.62.380697\n", "1.00.62.380697"},
              {"fullversion:2.00.1", "2.00.1"},
              {"fullversion: \n", ""},
              {"xfullversion: 1\n", ""},
              {"fullversion: x\n", ""},
              {"", ""}};
  for (const auto& row : rows) EXPECT_EQ(version_in_manifest(row.text), row.wanted) << row.text;
}

TEST(HANA_Listers, Read_The_Host_In_The_List_Of_Start_Services) {
  const struct {
    const char* text;
    const char* wanted;
  } rows[] = {
      {"#!/bin/sh\nLD_LIBRARY_PATH=/usr/sap/HDB/HDB00/exe; /usr/sap/HDB/HDB00/exe/sapstartsrv "
       "pf=/usr/sap/HDB/SYS/profile/HDB_HDB00_h1 -D -u hdbadm\n",
       "h1"},
      {"systemctl --no-ask-password start SAPHDB_00 # sapstartsrv pf=/usr/sap/HDB/SYS/profile/HDB_HDB00_h1\n", "h1"},
      {"x pf=/hana/shared/HDB/profile/HDB_HDB00_h-1.example.com -D", "h-1.example.com"},
      {"# x pf=/usr/sap/HDB/SYS/profile/HDB_HDB00_h1\n", ""},
      {"x pf=/usr/sap/HDB/SYS/profile/HDB_HDB01_h1\n", ""},
      {"x pf=/usr/sap/XYZ/SYS/profile/XYZ_HDB00_h1\ny pf=/usr/sap/HDB/SYS/profile/HDB_HDB00_h2\n", "h2"},
      {"x pf=/usr/sap/HDB_HDB00_h1/DEFAULT.PFL\n", ""},
      {"x pf=/usr/sap/HDB/SYS/profile/HDB_HDB00_\n", ""},
      {"x pf=", ""},
      {"", ""}};
  for (const auto& row : rows) EXPECT_EQ(host_in_services(row.text, "HDB", "HDB00"), row.wanted) << row.text;
}

TEST_F(HANA_Listers_Test, Finds_The_Host_Name_In_The_Profiles_Next) {
  root_.write("/usr/sap/sapservices", "");
  root_.write("/usr/sap/HDB/SYS/profile/DEFAULT.PFL", "");
  root_.write("/usr/sap/HDB/SYS/profile/HDB_HDB00_virtualhost", "");
  root_.write("/usr/sap/HDB/SYS/profile/HDB_HDB00_oldname.1", "");
  EXPECT_EQ(local_host_name("HDB", "HDB00"), "virtualhost");
  char kernel[256] = "";
  ASSERT_EQ(::gethostname(kernel, sizeof kernel - 1), 0);
  root_.write("/usr/sap/HDB/SYS/profile/HDB_HDB00_secondhost", "");
  EXPECT_EQ(local_host_name("HDB", "HDB00"), kernel) << "two profiles, neither of this host";
}

TEST(HANA_Listers, Compare_Host_Names) {
  const struct {
    const char* left;
    const char* right;
    bool wanted;
  } rows[] = {{"h1", "h1", true},
              {"H1", "h1", true},
              {"h1.example.com", "h1", true},
              {"h1.a.com", "h1.b.com", false},
              {"h1", "h2", false},
              {"h1", "h11", false},
              {"", "h1", false}};
  for (const auto& row : rows) EXPECT_EQ(same_host(row.left, row.right), row.wanted) << row.left << " " << row.right;
}

TEST_F(HANA_Listers_Test, Tells_The_Topology) {
  bool cluster = true, master = false;
  Name_Server_Config_Parser parser("HDB");
  EXPECT_TRUE(parser.is_cluster(cluster));
  EXPECT_FALSE(cluster) << "a removed host's roles make no cluster";
  EXPECT_TRUE(parser.is_active_master(master));
  EXPECT_TRUE(master);
  configure("nameserver.ini", test_data("hana_ini/scale_out_nameserver.ini"));
  EXPECT_TRUE(parser.is_cluster(cluster));
  EXPECT_TRUE(cluster);
  EXPECT_TRUE(parser.is_active_master(master));
  EXPECT_TRUE(master);
}

TEST_F(HANA_Listers_Test, Tells_The_Active_Master) {
  const struct {
    const char* text;
    bool wanted;
    bool master;
  } rows[] = {{"[landscape]\nworker = hanahost otherhost\nactive_master = otherhost:30001\n", true, false},
              {"[landscape]\nworker = hanahost otherhost\nactive_master = HANAHOST.example.com:30001\n", true, true},
              {"[landscape]\nworker = hanahost\n", true, true},
              {"[landscape]\nworker = hanahost otherhost\n", false, false},
              {"[landscape]\nroles_hanahost = worker\nroles_otherhost = worker\n", false, false},
              {"", true, true}};
  for (const auto& row : rows) {
    configure("nameserver.ini", row.text);
    bool master = false;
    EXPECT_EQ(Name_Server_Config_Parser("HDB").is_active_master(master), row.wanted) << row.text;
    EXPECT_EQ(master, row.master) << row.text;
  }
  EXPECT_EQ(log_.claim_containing("The active master of HANA system HDB is not known"), 2U);
  bool any = false;
  EXPECT_FALSE(Name_Server_Config_Parser("QQQ").is_cluster(any));
  EXPECT_FALSE(Name_Server_Config_Parser("QQQ").is_active_master(any));
  EXPECT_EQ(log_.claim_containing("Failed to read the configuration of HANA system QQQ"), 2U);
}

TEST_F(HANA_Listers_Test, Tells_The_Landscape_Id) {
  std::string id;
  EXPECT_TRUE(Environ_Getter::instance()->get_landscape_id("HDB", id));
  EXPECT_EQ(id, "5b91d2e8-e104-e541-9749-6ae7b2ebcfe9");
  configure("nameserver.ini", "[landscape]\nid =\n");
  EXPECT_FALSE(Environ_Getter::instance()->get_landscape_id("HDB", id));
  expect_error("The landscape id of HANA system HDB is not known");
  EXPECT_FALSE(Environ_Getter::instance()->get_landscape_id(nullptr, id));
  expect_error("'' is not a HANA system id");
  EXPECT_EQ(id, "5b91d2e8-e104-e541-9749-6ae7b2ebcfe9");
}

TEST_F(HANA_Listers_Test, Finds_The_Trace_Directories) {
  root_.make_directory("/usr/sap/HDB/HDB00/otherhost/trace/DB_TN1");
  root_.make_directory("/usr/sap/HDB/HDB00/work");
  std::vector<std::string> dirs = {"replaced"};
  EXPECT_TRUE(Environ_Getter::instance()->get_trace_dirs("HDB", dirs));
  EXPECT_EQ(dirs,
            (std::vector<std::string>{"/usr/sap/HDB/HDB00/hanahost/trace", "/usr/sap/HDB/HDB00/otherhost/trace"}));
  EXPECT_FALSE(Environ_Getter::instance()->get_trace_dirs("QQQ", dirs));
  EXPECT_EQ(dirs.size(), 2U);
  expect_error("HANA system 'QQQ' has no trace directory on this host\n");
}

TEST_F(HANA_Listers_Test, Lists_The_Databases_With_The_System_Database_First) {
  script("hdbsql",
         {child("DATABASE_NAME,DESCRIPTION,ACTIVE_STATUS,OS_USER,OS_GROUP\n\"TN1\",\"Sales\",\"YES\",\"tn1user\","
                "\"tn1group\"\n\"SYSTEMDB\",\"SystemDB-HDB-00\",\"YES\",\"\",\"\"\n\"ABC\",?,\"NO\",?,?\n")});
  Database_Lister lister("HDB", "HDB00", "SYSTEM", secure_string("S1"));
  std::list<Database_Info> infos;
  ASSERT_TRUE(lister.list(infos, ""));
  EXPECT_EQ(last_statement(),
            "select DATABASE_NAME, DESCRIPTION, ACTIVE_STATUS, OS_USER, OS_GROUP from SYS.M_DATABASES");
  std::string seen;
  for (const Database_Info& info : infos)
    seen += info.name + "|" + info.description + "|" + (info.active ? "1" : "0") + "|" + info.os_user + "|" +
            info.os_group + "\n";
  EXPECT_EQ(seen, "SYSTEMDB|SystemDB-HDB-00|1|hdbadm|sapsys\nABC||0|hdbadm|sapsys\nTN1|Sales|1|tn1user|tn1group\n");
  EXPECT_EQ(infos.front().instance_info.dir_executable, "/usr/sap/HDB/HDB00/exe");
}

TEST_F(HANA_Listers_Test, Lists_One_Database) {
  script("hdbsql",
         {child("DATABASE_NAME,DESCRIPTION,ACTIVE_STATUS,OS_USER,OS_GROUP\n\"TN1\",\"\",\"STARTING\",\"\",\"\"\n"),
          child("DATABASE_NAME,DESCRIPTION,ACTIVE_STATUS,OS_USER,OS_GROUP\n"),
          child("", 2, "* 258: insufficient privilege\n"), child("garbage\nmore,garbage\n")});
  HDBSQL_Executor executor("");
  ASSERT_TRUE(executor.init("HDB", "HDB00", "", "SYSTEM", secure_string("S1")));
  Database_Lister lister(executor);
  Database_Info info;
  EXPECT_TRUE(lister.list(info, "TN1"));
  EXPECT_EQ(last_statement(),
            "select DATABASE_NAME, DESCRIPTION, ACTIVE_STATUS, OS_USER, OS_GROUP from SYS.M_DATABASES where "
            "DATABASE_NAME='TN1'");
  EXPECT_EQ(info.name, "TN1");
  EXPECT_FALSE(info.active);
  EXPECT_FALSE(lister.list(info, "x'y"));
  EXPECT_TRUE(last_statement().ends_with("DATABASE_NAME='x''y'"));
  expect_error("HANA system HDB has no database 'x'y'\n");
  EXPECT_FALSE(lister.list(info, "TN1"));
  expect_error("* 258: insufficient privilege");
  EXPECT_FALSE(lister.list(info, "TN1"));
  expect_error("HANA system HDB has no database 'TN1'\n");
  EXPECT_EQ(info.name, "TN1");
}

TEST_F(HANA_Listers_Test, Lists_The_One_Database_Of_A_System_Without_Tenants) {
  configure("global.ini", "");
  script("hdbsql", {child("DATABASE_NAME,ACTIVE_STATUS\n\"HDB\",\"YES\"\n")});
  Database_Lister lister("HDB", "HDB00", "SYSTEM", secure_string("S1"));
  Database_Info info;
  EXPECT_TRUE(lister.list(info, "anything"));
  EXPECT_EQ(last_statement(), "select DATABASE_NAME, 'YES' as ACTIVE_STATUS from SYS.M_DATABASE");
  EXPECT_EQ(info.name, "HDB");
  EXPECT_TRUE(info.active);
}

TEST_F(HANA_Listers_Test, Lists_Nothing_Without_A_Logon) {
  Database_Lister lister("HDB", "HDB00", "", secure_string("S1"));
  expect_error("No user name to log on to HANA with");
  std::list<Database_Info> infos;
  EXPECT_FALSE(lister.list(infos, ""));
  EXPECT_TRUE(runner_.calls().empty());
}

}  // namespace
