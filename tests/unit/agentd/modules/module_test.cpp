#include "agentd/modules/module.h"

#include "unit/agentd/modules/module_fixture.h"

using namespace agentd;

using Module_Test = Module_Fixture;

TEST_F(Module_Test, Objects_Are_Found_By_Their_Exported_Names) {
  const auto module = Module::load("testing");
  ASSERT_NE(module, nullptr);
  EXPECT_NE(module->job_creator(), nullptr);
  EXPECT_NE(module->instance_handler(), nullptr);
  EXPECT_NE(module->parsers(JOB_DEFINITION_BACKUP).source, nullptr);
  EXPECT_NE(module->parsers(JOB_DEFINITION_BACKUP).options, nullptr);
  EXPECT_EQ(module->parsers(JOB_DEFINITION_STANDBY).source, nullptr);
}

TEST_F(Module_Test, Missing_Factories_Are_Logged_And_Done_Without) {
  const auto module = Module::load("testing");
  ASSERT_NE(module, nullptr);
  EXPECT_EQ(module->parsers(JOB_DEFINITION_RESTORE).source, nullptr);
  EXPECT_NE(module->json_rpc_handler("_make_JSON_RPC_HANA_List_Handler"), nullptr);
  EXPECT_EQ(module->json_rpc_handler("_make_JSON_RPC_HANA_File_Download_Handler"), nullptr);
  EXPECT_EQ(module->missing().size(), 3U);
  EXPECT_TRUE(log.has("Module 'testing' has no _make_JSON_RPC_HANA_File_Download_Handler, the agent does without it\n"))
      << log.dump();
}

TEST_F(Module_Test, Every_Object_Is_Disposed_Of_Once_And_The_Library_Goes) {
  auto module = Module::load("testing");
  ASSERT_NE(module, nullptr);
  EXPECT_EQ(living_objects(), 4);
  module.reset();
  EXPECT_EQ(living_objects(), -1) << "the library is still loaded";
}

TEST_F(Module_Test, Moving_An_Object_Does_Not_Dispose_Of_It_Twice) {
  static int gobbled = 0;
  gobbled = 0;
  int thing = 0;
  {
    Module_Object_T<int> first(&thing, [](void*) { ++gobbled; });
    Module_Object_T<int> second(std::move(first));
    Module_Object_T<int> third;
    third = std::move(second);
    EXPECT_EQ(third.get(), &thing);
    EXPECT_EQ(gobbled, 0);
  }
  EXPECT_EQ(gobbled, 1);
}

TEST_F(Module_Test, Names_That_Lead_Elsewhere_Are_Refused) {
  for (const char* name : {"", "../testing", "a/b", "testing.so", "a b"})
    EXPECT_EQ(Module::load(name), nullptr) << name;
  EXPECT_EQ(log.claim_containing("it is not a module's name"), 5U);
}

TEST_F(Module_Test, A_Library_That_Is_Missing_Or_Broken_Leaves_The_Others) {
  root.write("/opt/tarvex/dorsal3/lib/modules/broken.so", "no library");
  Modules modules;
  EXPECT_FALSE(modules.load({"absent", "broken", "testing", "testing"}));
  EXPECT_EQ(modules.names(), std::vector<std::string>{"testing"});
  EXPECT_NE(modules.find("testing"), nullptr);
  EXPECT_EQ(modules.find("absent"), nullptr);
  EXPECT_EQ(log.claim_containing("Failed to load module 'absent'"), 1U);
  EXPECT_EQ(log.claim_containing("Failed to load module 'broken'"), 1U);
}
