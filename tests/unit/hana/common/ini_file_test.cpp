#include "hana/common/ini_file.h"

#include "hana/common/hana_paths.h"
#include "unit/hana/common/hana_system.h"

namespace {

using namespace sap_hana;

class Ini_File_Test : public hana_test::HANA_System {};

TEST_F(Ini_File_Test, Reads_Sections_And_Keys) {
  const Ini_File ini = Ini_File::parse(
      "# written by\r\n[multidb]\r\nmode = multidb\r\n\r\n; note\n[persistence]\nbasepath=/a = b\n empty =\nno key "
      "line\n"
      "mode = 1\nmode = 2\n[broken\nlost = 1\n[multidb]\nsingletenant = yes");
  ASSERT_NE(ini.find("multidb", "mode"), nullptr);
  EXPECT_EQ(*ini.find("multidb", "mode"), "multidb");
  EXPECT_EQ(*ini.find("multidb", "singletenant"), "yes");
  EXPECT_EQ(*ini.find("persistence", "basepath"), "/a = b");
  EXPECT_EQ(*ini.find("persistence", "empty"), "");
  EXPECT_EQ(*ini.find("persistence", "mode"), "2");
  EXPECT_EQ(ini.find("persistence", "lost"), nullptr);
  EXPECT_EQ(ini.find("nothing", "mode"), nullptr);
  EXPECT_EQ(ini.section("nothing"), nullptr);
}

TEST_F(Ini_File_Test, Takes_Any_Bytes) {
  for (const std::string& text : {std::string(), std::string("["), std::string("]="), std::string("=\n[]\n="),
                                  std::string("[a]\0=\0", 6), std::string(100000, '[')})
    EXPECT_EQ(Ini_File::parse(text).find("x", "y"), nullptr);
}

TEST_F(Ini_File_Test, Names_The_File_That_Cannot_Be_Read) {
  Ini_File ini;
  EXPECT_FALSE(read_system_configuration("HDB", "indexserver.ini", ini));
  expect_error("'/usr/sap/HDB/SYS/global/hdb/custom/config/indexserver.ini': No such file or directory");
}

TEST_F(Ini_File_Test, Refuses_What_Is_No_System_Id) {
  Ini_File ini;
  for (const char* sid : {"", "../", "hdb"}) EXPECT_FALSE(read_system_configuration(sid, "global.ini", ini));
  EXPECT_EQ(log_.claim_containing("is not a HANA system id"), 3U);
}

}  // namespace
