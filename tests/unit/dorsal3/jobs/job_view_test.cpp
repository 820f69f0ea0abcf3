#include "dorsal3/jobs/job_view.h"

#include <gtest/gtest.h>

using namespace dorsal3;

TEST(Job_View, Every_State_Has_Its_Stage) {
  struct Row {
    int state;
    Run_Stage stage;
  };
  const Row rows[] = {
      {0, Run_Stage::waiting},  {1, Run_Stage::skipped},  {2, Run_Stage::waiting},   {3, Run_Stage::running},
      {4, Run_Stage::running},  {5, Run_Stage::running},  {6, Run_Stage::running},   {7, Run_Stage::done},
      {8, Run_Stage::running},  {9, Run_Stage::canceled}, {10, Run_Stage::failed},   {11, Run_Stage::waiting},
      {12, Run_Stage::waiting}, {13, Run_Stage::running}, {14, Run_Stage::canceled}, {15, Run_Stage::failed},
      {16, Run_Stage::waiting}, {17, Run_Stage::skipped}, {18, Run_Stage::skipped},  {19, Run_Stage::skipped},
      {20, Run_Stage::running}, {23, Run_Stage::running}};
  for (const Row& row : rows)
    EXPECT_EQ(run_stage(json_spirit::Object{{"state", row.state}}), row.stage) << "state " << row.state;
  EXPECT_FALSE(has_ended(Run_Stage::waiting));
  EXPECT_FALSE(has_ended(Run_Stage::running));
  EXPECT_TRUE(has_ended(Run_Stage::skipped));
}

TEST(Job_View, An_Ending_Names_Its_Cause) {
  EXPECT_EQ(ending_text({{"state", 7}}), "The backup is complete.");
  EXPECT_EQ(ending_text({{"state", 10}, {"message", "Failed to execute backup\n"}}),
            "The backup FAILED: Failed to execute backup");
  EXPECT_EQ(ending_text({{"state", 17}}),
            "Nothing was backed up: the run was skipped, the instance does not run on this host or the condition of "
            "the job was not met");
}
