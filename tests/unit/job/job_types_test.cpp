#include <gtest/gtest.h>

#include "job/job_definition_type.h"
#include "job/job_state.h"

namespace {

TEST(Job_State, Has_Its_Fixed_Values) {
  EXPECT_EQ(JOB_STATE_NONE, 0);
  EXPECT_EQ(JOB_STATE_IDLE, 1);
  EXPECT_EQ(JOB_STATE_STARTING, 2);
  EXPECT_EQ(JOB_STATE_RUNNING, 3);
  EXPECT_EQ(JOB_STATE_PAUSING, 4);
  EXPECT_EQ(JOB_STATE_PAUSED, 5);
  EXPECT_EQ(JOB_STATE_COMPLETING, 6);
  EXPECT_EQ(JOB_STATE_COMPLETED, 7);
  EXPECT_EQ(JOB_STATE_CANCELING, 8);
  EXPECT_EQ(JOB_STATE_CANCELED, 9);
  EXPECT_EQ(JOB_STATE_ERROR, 10);
  EXPECT_EQ(JOB_STATE_SKIPPED, 17);
  EXPECT_EQ(JOB_STATE_ABORTING, 20);
  EXPECT_EQ(JOB_STATE_SWITCHING, 23);
  EXPECT_EQ(JOB_STATE_OPENING, 25);
}

TEST(Job_State, Tells_Finished_And_Active_States_Apart) {
  struct Row {
    Job_State state;
    bool finished;
    bool active;
  };
  const Row rows[] = {{JOB_STATE_NONE, false, false},
                      {JOB_STATE_IDLE, true, false},
                      {JOB_STATE_STARTING, false, true},
                      {JOB_STATE_RUNNING, false, true},
                      {JOB_STATE_PAUSING, false, true},
                      {JOB_STATE_PAUSED, false, true},
                      {JOB_STATE_COMPLETING, false, true},
                      {JOB_STATE_COMPLETED, true, false},
                      {JOB_STATE_CANCELING, false, true},
                      {JOB_STATE_CANCELED, true, false},
                      {JOB_STATE_ERROR, true, false},
                      {JOB_STATE_CREATED, false, false},
                      {JOB_STATE_UPDATED, false, false},
                      {JOB_STATE_DELETED, true, false},
                      {JOB_STATE_COMPLETED_WITH_ERRORS, true, false},
                      {JOB_STATE_SKIPPED, true, false},
                      {JOB_STATE_EXPIRED, true, false},
                      {JOB_STATE_DISABLED, true, false},
                      {JOB_STATE_ABORTING, false, true},
                      {JOB_STATE_SWITCHING, false, true}};
  for (const Row& row : rows) {
    EXPECT_EQ(is_finished(row.state), row.finished) << job_state_to_string(row.state);
    EXPECT_EQ(is_active(row.state), row.active) << job_state_to_string(row.state);
  }
}

TEST(Job_State, Has_A_Name_For_Every_Value) {
  EXPECT_STREQ(job_state_to_string(JOB_STATE_NONE), "none");
  EXPECT_STREQ(job_state_to_string(JOB_STATE_CANCELING), "canceling");
  EXPECT_STREQ(job_state_to_string(JOB_STATE_COMPLETED_WITH_ERRORS), "completed with errors");
  EXPECT_STREQ(job_state_to_string(JOB_STATE_OPENING), "opening");
  EXPECT_STREQ(job_state_to_string(static_cast<Job_State>(26)), "unknown");
  EXPECT_STREQ(job_state_to_string(static_cast<Job_State>(-1)), "unknown");
}

TEST(Job_Definition_Type, Has_Its_Fixed_Values) {
  EXPECT_EQ(JOB_DEFINITION_BACKUP, 1);
  EXPECT_EQ(JOB_DEFINITION_RESTORE, 2);
  EXPECT_EQ(JOB_DEFINITION_STANDBY, 3);
  EXPECT_EQ(JOB_DEFINITION_STORAGE, 4);
  EXPECT_EQ(JOB_DEFINITION_SUBTYPE_CONTINUOUS, 4);
  EXPECT_EQ(JOB_DEFINITION_SUBTYPE_ONDEMAND, 7);
  EXPECT_EQ(JOB_DEFINITION_SUBTYPE_POINT_IN_TIME, 13);
  EXPECT_EQ(JOB_DEFINITION_SUBTYPE_DR_TEST, 17);
}

TEST(Job_Definition_Type, Names_Subtypes_And_Never_Gives_Null) {
  struct Row {
    Job_Definition_Subtype subtype;
    const char* name;
  };
  const Row rows[] = {{JOB_DEFINITION_SUBTYPE_NONE, "none"},
                      {JOB_DEFINITION_SUBTYPE_FULL, "full"},
                      {JOB_DEFINITION_SUBTYPE_INCREMENTAL, "incremental"},
                      {JOB_DEFINITION_SUBTYPE_CUMULATIVE, "differential"},
                      {JOB_DEFINITION_SUBTYPE_CONTINUOUS, "continuous"},
                      {JOB_DEFINITION_SUBTYPE_ONDEMAND, "ondemand"},
                      {JOB_DEFINITION_SUBTYPE_POINT_IN_TIME, "point-in-time"},
                      {JOB_DEFINITION_SUBTYPE_DR_TEST, "dr-test"},
                      {static_cast<Job_Definition_Subtype>(18), "unknown"},
                      {static_cast<Job_Definition_Subtype>(-1), "unknown"}};
  for (const Row& row : rows) EXPECT_STREQ(job_def_subtype_to_string(row.subtype, 0), row.name);
}

TEST(Job_Definition_Type, Reads_The_Names_Of_Documents) {
  Job_Definition_Type type = JOB_DEFINITION_NONE;
  EXPECT_TRUE(job_def_type_from_string("restore", type));
  EXPECT_EQ(type, JOB_DEFINITION_RESTORE);
  EXPECT_FALSE(job_def_type_from_string("none", type));
  EXPECT_FALSE(job_def_type_from_string("Backup", type));
  EXPECT_EQ(type, JOB_DEFINITION_RESTORE);

  Job_Definition_Subtype subtype = JOB_DEFINITION_SUBTYPE_NONE;
  for (int value = JOB_DEFINITION_SUBTYPE_FULL; value <= JOB_DEFINITION_SUBTYPE_DR_TEST; ++value) {
    const auto wanted = static_cast<Job_Definition_Subtype>(value);
    EXPECT_TRUE(job_def_subtype_from_string(job_def_subtype_to_string(wanted, 0), subtype));
    EXPECT_EQ(subtype, wanted);
  }
  EXPECT_TRUE(job_def_subtype_from_string("log", subtype));
  EXPECT_EQ(subtype, JOB_DEFINITION_SUBTYPE_ONDEMAND);
  EXPECT_FALSE(job_def_subtype_from_string("unknown", subtype));
  EXPECT_FALSE(job_def_subtype_from_string("", subtype));
}

}  // namespace
