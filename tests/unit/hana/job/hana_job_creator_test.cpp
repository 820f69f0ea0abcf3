#include "hana/job/hana_job_creator.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "hana/job/hana_backup_job.h"
#include "hana/job/log_backup_executor.h"
#include "hana/job/restore_executor.h"
#include "job/controllable_job_t.h"
#include "support/log_capture.h"
#include "support/vtable_slots.h"
#include "unit/job/faults.h"

namespace {

class HANA_Job_Creator_Test : public testing::Test {
 protected:
  static Job_Definition_Ptr definition(Job_Definition_Type type, Job_Definition_Subtype subtype) {
    Job_Definition_Ptr made(new Job_Definition);
    made->id("0d0c1a4e-16f3-4f0a-8d5c-2f9f0a5b7e21");
    made->type(type);
    made->subtype(subtype);
    return made;
  }
  support::Log_Capture log_;
  HANA_Job_Creator creator_;
};

TEST_F(HANA_Job_Creator_Test, Makes_Data_Backups_Of_Three_Kinds) {
  for (const Job_Definition_Subtype subtype :
       {JOB_DEFINITION_SUBTYPE_FULL, JOB_DEFINITION_SUBTYPE_INCREMENTAL, JOB_DEFINITION_SUBTYPE_CUMULATIVE}) {
    const Job_Definition_Ptr wanted = definition(JOB_DEFINITION_BACKUP, subtype);
    const Job_Ptr job = creator_.create(wanted);
    ASSERT_NE(job.get(), nullptr);
    EXPECT_NE(dynamic_cast<HANA_Backup_Job*>(job.get()), nullptr);
    EXPECT_EQ(job->definition().get(), wanted.get());
  }
  EXPECT_TRUE(log_.lines().empty());
}

TEST_F(HANA_Job_Creator_Test, Makes_A_Log_Backup_Of_An_Ondemand_Definition) {
  const Job_Definition_Ptr wanted = definition(JOB_DEFINITION_BACKUP, JOB_DEFINITION_SUBTYPE_ONDEMAND);
  const Job_Ptr job = creator_.create(wanted);
  ASSERT_NE(job.get(), nullptr);
  EXPECT_NE(dynamic_cast<Controllable_Job_T<sap_hana::Log_Backup_Executor>*>(job.get()), nullptr);
  EXPECT_EQ(dynamic_cast<HANA_Backup_Job*>(job.get()), nullptr) << "its stop only changes the state";
  EXPECT_EQ(job->definition().get(), wanted.get());
  EXPECT_TRUE(log_.lines().empty());
}

TEST_F(HANA_Job_Creator_Test, Makes_A_Restore_Of_A_Point_In_Time_Definition) {
  const Job_Definition_Ptr wanted = definition(JOB_DEFINITION_RESTORE, JOB_DEFINITION_SUBTYPE_POINT_IN_TIME);
  const Job_Ptr job = creator_.create(wanted);
  ASSERT_NE(job.get(), nullptr);
  EXPECT_NE(dynamic_cast<Controllable_Job_T<sap_hana::Restore_Executor>*>(job.get()), nullptr);
  EXPECT_EQ(job->definition().get(), wanted.get());
  EXPECT_TRUE(log_.lines().empty());
}

TEST_F(HANA_Job_Creator_Test, Refuses_Every_Other_Kind_Of_Backup_And_Restore_By_Name) {
  for (int type = JOB_DEFINITION_BACKUP; type <= JOB_DEFINITION_RESTORE; ++type)
    for (int subtype = JOB_DEFINITION_SUBTYPE_NONE; subtype <= JOB_DEFINITION_SUBTYPE_DR_TEST; ++subtype) {
      const bool data_backup = type == JOB_DEFINITION_BACKUP && subtype >= JOB_DEFINITION_SUBTYPE_FULL &&
                               subtype <= JOB_DEFINITION_SUBTYPE_CUMULATIVE;
      const bool log_backup = type == JOB_DEFINITION_BACKUP && subtype == JOB_DEFINITION_SUBTYPE_ONDEMAND;
      const bool restore = type == JOB_DEFINITION_RESTORE && subtype == JOB_DEFINITION_SUBTYPE_POINT_IN_TIME;
      if (data_backup || log_backup || restore) continue;
      const auto kind = static_cast<Job_Definition_Subtype>(subtype);
      const Job_Ptr job = creator_.create(definition(static_cast<Job_Definition_Type>(type), kind));
      EXPECT_EQ(job.get(), nullptr) << type << " " << subtype;
      EXPECT_TRUE(log_.claim(std::string(job_def_subtype_to_string(kind, 0)) + " is not supported\n"))
          << type << " " << subtype << log_.dump();
    }
}

TEST_F(HANA_Job_Creator_Test, Refuses_A_Subtype_That_Does_Not_Exist) {
  EXPECT_EQ(creator_.create(definition(JOB_DEFINITION_BACKUP, static_cast<Job_Definition_Subtype>(99))).get(), nullptr);
  EXPECT_TRUE(log_.claim("unknown is not supported\n"));
}

TEST_F(HANA_Job_Creator_Test, Leaves_Other_Types_Silently) {
  for (const Job_Definition_Type type :
       {JOB_DEFINITION_NONE, JOB_DEFINITION_STANDBY, JOB_DEFINITION_STORAGE, static_cast<Job_Definition_Type>(17)})
    EXPECT_EQ(creator_.create(definition(type, JOB_DEFINITION_SUBTYPE_FULL)).get(), nullptr);
  EXPECT_TRUE(log_.lines().empty());
}

TEST_F(HANA_Job_Creator_Test, Is_Silent_Without_Memory) {
  const Job_Definition_Ptr wanted = definition(JOB_DEFINITION_BACKUP, JOB_DEFINITION_SUBTYPE_FULL);
  errno = 0;
  {
    const faults::No_Memory no_memory;
    EXPECT_EQ(creator_.create(wanted).get(), nullptr);
  }
  EXPECT_EQ(errno, ENOMEM);
  EXPECT_TRUE(log_.lines().empty());
}

TEST_F(HANA_Job_Creator_Test, Has_Its_Operations_In_The_Fixed_Slots) {
  EXPECT_EQ(support::slot_of(&HANA_Job_Creator::init), 2);
  EXPECT_EQ(support::slot_of(&HANA_Job_Creator::fini), 3);
  EXPECT_EQ(support::slot_of(&HANA_Job_Creator::create), 4);
  EXPECT_EQ(creator_.init(0, nullptr), 0);
  EXPECT_EQ(creator_.fini(), 0);
}

}  // namespace
