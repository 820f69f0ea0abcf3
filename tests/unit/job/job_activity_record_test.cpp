#include "job/job_activity_record.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstddef>
#include <cstring>
#include <functional>

#include "scrt/uuid.h"
#include "support/log_capture.h"
#include "support/temp_root.h"

namespace {

constexpr const char* act_id = "aaaaaaaa-bbbb-4ccc-8ddd-eeeeeeeeeeee";
constexpr const char* def_id = "0d0c1a4e-16f3-4f0a-8d5c-2f9f0a5b7e21";

/// No file of this process grows beyond a few bytes, for the life of this object.
class Full_Disk {
 public:
  Full_Disk() : handler_(std::signal(SIGXFSZ, SIG_IGN)) {
    constexpr rlim_t few_bytes = 16;
    EXPECT_EQ(::getrlimit(RLIMIT_FSIZE, &before_), 0);
    const struct rlimit full { few_bytes, before_.rlim_max };
    EXPECT_EQ(::setrlimit(RLIMIT_FSIZE, &full), 0);
  }
  ~Full_Disk() {
    EXPECT_EQ(::setrlimit(RLIMIT_FSIZE, &before_), 0);
    (void)std::signal(SIGXFSZ, handler_);
  }
  Full_Disk(const Full_Disk&) = delete;
  Full_Disk& operator=(const Full_Disk&) = delete;

 private:
  struct rlimit before_ {};
  void (*handler_)(int);
};

class Job_Activity_Record_Test : public testing::Test {
 protected:
  static void fill(Job_Activity_Record& record) {
    Job_Activity& activity = record.activity();
    ASSERT_TRUE(uuid_string_to_binary(act_id, activity.id));
    ASSERT_TRUE(uuid_string_to_binary(def_id, activity.def_id));
    activity.type = JOB_DEFINITION_BACKUP;
    activity.enabled = true;
    activity.store_state(JOB_STATE_RUNNING);
    activity.start_time = 1'700'000'000;
    activity.size = 7;
    activity.set_size = 8;
    activity.set_storage_size = 9;
    activity.progress = 42;
  }
  std::vector<Job_Activity_Snapshot> list() {
    std::vector<Job_Activity_Snapshot> activities;
    EXPECT_TRUE(list_job_activities(activities));
    return activities;
  }
  std::string path() { return job_activity_path(act_id); }

  support::Temp_Root root_;
  support::Log_Capture log_;
};

TEST_F(Job_Activity_Record_Test, Lies_In_The_Activity_Directory) {
  EXPECT_EQ(job_activity_directory(), "/var/opt/tarvex/dorsal3/agent/act");
  EXPECT_EQ(path(), std::string("/var/opt/tarvex/dorsal3/agent/act/") + act_id + ".act");
  EXPECT_EQ(job_activity_path("../../etc/passwd"),
            "/var/opt/tarvex/dorsal3/agent/act/%2E%2E%2F%2E%2E%2Fetc%2Fpasswd.act");
}

TEST_F(Job_Activity_Record_Test, Has_The_Documented_Layout) {
  Job_Activity_Record record;
  fill(record);
  record.message("hello");
  ASSERT_TRUE(record.attach());
  record.flush();
  const std::string bytes = root_.read(path());
  ASSERT_EQ(bytes.size(), Job_Activity_Record::file_bytes);
  EXPECT_EQ(bytes.substr(0, 8), std::string("D3AC\x01\0\0\0", 8));
  EXPECT_EQ(std::memcmp(bytes.data() + 8, record.activity().id, 16), 0);
  EXPECT_EQ(bytes[64], JOB_STATE_RUNNING);
  EXPECT_STREQ(bytes.data() + Job_Activity_Record::message_offset, "hello");
}

TEST_F(Job_Activity_Record_Test, Does_Not_Move_When_It_Gets_Its_File) {
  Job_Activity_Record record;
  fill(record);
  Job_Activity* const before = &record.activity();
  ASSERT_TRUE(record.attach());
  EXPECT_EQ(before, &record.activity());
  EXPECT_TRUE(record.attached());
  EXPECT_EQ(before->load_state(), JOB_STATE_RUNNING);
  // What is stored after that is seen by whoever reads the file, without any further call.
  before->store_state(JOB_STATE_COMPLETING);
  ASSERT_EQ(list().size(), 1U);
  EXPECT_EQ(list().front().state, JOB_STATE_COMPLETING);
}

TEST_F(Job_Activity_Record_Test, Is_Private_To_Its_Owner) {
  Job_Activity_Record record;
  fill(record);
  ASSERT_TRUE(record.attach());
  struct stat status {};
  ASSERT_EQ(::stat(root_.real(path()).c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0600U);
}

TEST_F(Job_Activity_Record_Test, Is_Listed_After_Its_Process_Has_Gone) {
  {
    Job_Activity_Record record;
    fill(record);
    ASSERT_TRUE(record.attach());
    record.message("saving TN1");
  }
  const std::vector<Job_Activity_Snapshot> activities = list();
  ASSERT_EQ(activities.size(), 1U);
  const Job_Activity_Snapshot& found = activities.front();
  EXPECT_EQ(found.id, act_id);
  EXPECT_EQ(found.def_id, def_id);
  EXPECT_EQ(found.type, JOB_DEFINITION_BACKUP);
  EXPECT_TRUE(found.enabled);
  EXPECT_EQ(found.state, JOB_STATE_RUNNING);
  EXPECT_EQ(found.start_time, 1'700'000'000);
  EXPECT_EQ(found.size, 7U);
  EXPECT_EQ(found.set_size, 8U);
  EXPECT_EQ(found.set_storage_size, 9U);
  EXPECT_EQ(found.progress, 42);
  EXPECT_EQ(found.message, "saving TN1");
}

TEST_F(Job_Activity_Record_Test, Is_Ended_Once_By_The_Next_Process) {
  {
    Job_Activity_Record record;
    fill(record);
    ASSERT_TRUE(record.attach());
  }
  ASSERT_TRUE(finish_job_activity(act_id, JOB_STATE_ERROR, -1, "the agent ended during the job"));
  ASSERT_EQ(list().size(), 1U);
  EXPECT_EQ(list().front().state, JOB_STATE_ERROR);
  EXPECT_EQ(list().front().code, -1);
  EXPECT_EQ(list().front().message, "the agent ended during the job");
  EXPECT_EQ(list().front().set_size, 8U);
  EXPECT_TRUE(remove_job_activity(act_id));
  EXPECT_TRUE(list().empty());
  EXPECT_TRUE(remove_job_activity(act_id));
}

TEST_F(Job_Activity_Record_Test, Cannot_End_A_Record_That_Is_Not_There) {
  EXPECT_FALSE(finish_job_activity(act_id, JOB_STATE_ERROR, -1, ""));
  EXPECT_TRUE(log_.claim("Failed to load job activity " + path() + ": No such file or directory\n"));
}

TEST_F(Job_Activity_Record_Test, Lists_Nothing_Without_A_Directory) { EXPECT_TRUE(list().empty()); }

TEST_F(Job_Activity_Record_Test, Ignores_Files_Of_Other_Kinds) {
  root_.write(job_activity_directory() + "/" + act_id + ".log", "a line\n");
  EXPECT_TRUE(list().empty());
}

TEST_F(Job_Activity_Record_Test, Refuses_A_Second_Record_Of_One_Activity) {
  Job_Activity_Record first;
  fill(first);
  ASSERT_TRUE(first.attach());
  Job_Activity_Record second;
  fill(second);
  EXPECT_FALSE(second.attach());
  EXPECT_FALSE(second.attached());
  EXPECT_TRUE(log_.claim("Failed to make job activity " + path() + ": File exists\n"));
  EXPECT_FALSE(first.attach());
  EXPECT_TRUE(log_.claim("Failed to make job activity " + path() + ": already made\n"));
}

TEST_F(Job_Activity_Record_Test, Says_When_The_Directory_Cannot_Be_Made) {
  root_.write("/var/opt/tarvex/dorsal3/agent", "a file in the way");
  Job_Activity_Record record;
  fill(record);
  EXPECT_FALSE(record.attach());
  EXPECT_EQ(log_.claim_containing("Failed to make job activity " + path() + ": "), 1U);
  EXPECT_EQ(record.activity().load_state(), JOB_STATE_RUNNING) << "the record stays in memory";
}

TEST_F(Job_Activity_Record_Test, Leaves_No_File_That_Has_No_Room) {
  Job_Activity_Record record;
  fill(record);
  bool attached = true;
  {
    const Full_Disk full;
    attached = record.attach();
  }
  EXPECT_FALSE(attached);
  EXPECT_EQ(log_.claim_containing("Failed to map job activity " + path() + ": "), 1U) << log_.dump();
  EXPECT_FALSE(root_.exists(path()));
  EXPECT_EQ(record.activity().load_state(), JOB_STATE_RUNNING) << "the record stays in memory";
}

TEST_F(Job_Activity_Record_Test, Stays_As_It_Was_When_Its_End_Has_No_Room) {
  {
    Job_Activity_Record record;
    fill(record);
    ASSERT_TRUE(record.attach());
  }
  bool ended = true;
  {
    const Full_Disk full;
    ended = finish_job_activity(act_id, JOB_STATE_ERROR, -1, "the agent ended during the job");
  }
  EXPECT_FALSE(ended);
  EXPECT_EQ(log_.claim_containing(std::string("Failed to write job activity ") + act_id + ": "), 1U) << log_.dump();
  ASSERT_EQ(list().size(), 1U);
  EXPECT_EQ(list().front().state, JOB_STATE_RUNNING);
}

TEST_F(Job_Activity_Record_Test, Says_When_The_Directory_Cannot_Be_Listed) {
  root_.write(job_activity_directory(), "a file in its place");
  std::vector<Job_Activity_Snapshot> activities;
  EXPECT_FALSE(list_job_activities(activities));
  EXPECT_TRUE(log_.claim("Failed to list job activities in " + job_activity_directory() + ": Not a directory\n"))
      << log_.dump();
}

TEST_F(Job_Activity_Record_Test, Cuts_A_Long_Message_Before_A_Character) {
  Job_Activity_Record record;
  std::string text(Job_Activity_Record::message_bytes - 2, 'x');
  text += "\xC3\xA4 and more";
  record.message(text);
  EXPECT_EQ(record.message(), std::string(Job_Activity_Record::message_bytes - 2, 'x'));
  EXPECT_EQ(record.activity().message,
            reinterpret_cast<char*>(&record.activity()) + Job_Activity_Record::message_offset);
  record.message("");
  EXPECT_EQ(record.message(), "");
  EXPECT_EQ(record.activity().message, nullptr);
}

TEST_F(Job_Activity_Record_Test, Refuses_Files_That_Are_No_Record) {
  std::string good;
  {
    Job_Activity_Record record;
    fill(record);
    ASSERT_TRUE(record.attach());
    record.flush();
    good = root_.read(path());
  }
  struct Row {
    const char* reason;
    std::function<void(std::string&)> spoil;
  };
  const auto put_int = [](std::size_t offset, int value) {
    return [offset, value](std::string& bytes) { std::memcpy(bytes.data() + offset, &value, sizeof value); };
  };
  const Row rows[] = {
      {"wrong size", [](std::string& bytes) { bytes.clear(); }},
      {"wrong size", [](std::string& bytes) { bytes.pop_back(); }},
      {"wrong size", [](std::string& bytes) { bytes += "x"; }},
      {"wrong magic number", [](std::string& bytes) { bytes[0] = 'X'; }},
      {"unknown version", put_int(offsetof(Job_Activity, version), 2)},
      {"unknown job type", put_int(offsetof(Job_Activity, type), 5)},
      {"unknown job type", put_int(offsetof(Job_Activity, type), -1)},
      {"unknown job state", put_int(offsetof(Job_Activity, state), 26)},
      {"unknown job state", put_int(offsetof(Job_Activity, state), -2147483647)},
      {"broken flag", [](std::string& bytes) { bytes[offsetof(Job_Activity, enabled)] = 2; }},
      {"progress out of range", put_int(offsetof(Job_Activity, progress), 101)},
      {"progress out of range", put_int(offsetof(Job_Activity, progress), -1)},
      {"message without an end",
       [](std::string& bytes) {
         bytes.replace(Job_Activity_Record::message_offset, Job_Activity_Record::message_bytes,
                       std::string(Job_Activity_Record::message_bytes, 'x'));
       }},
      {"file name is not its id", [](std::string& bytes) { bytes[8] = static_cast<char>(bytes[8] + 1); }},
  };
  for (const Row& row : rows) {
    std::string bytes = good;
    row.spoil(bytes);
    root_.write(path(), bytes);
    EXPECT_TRUE(list().empty()) << row.reason;
    EXPECT_TRUE(log_.claim("Failed to load job activity " + path() + ": " + row.reason + "\n")) << log_.dump();
    EXPECT_FALSE(finish_job_activity(act_id, JOB_STATE_ERROR, -1, "")) << row.reason;
    log_.claim_all();
    EXPECT_TRUE(root_.exists(path())) << "evidence stays";
  }
}

TEST_F(Job_Activity_Record_Test, Never_Believes_An_Address_From_A_File) {
  {
    Job_Activity_Record record;
    fill(record);
    ASSERT_TRUE(record.attach());
  }
  std::string bytes = root_.read(path());
  const std::uintptr_t nonsense = 0x4141414141414141;
  std::memcpy(bytes.data() + offsetof(Job_Activity, message), &nonsense, sizeof nonsense);
  root_.write(path(), bytes);
  ASSERT_EQ(list().size(), 1U);
  EXPECT_EQ(list().front().message, "");
  ASSERT_TRUE(finish_job_activity(act_id, JOB_STATE_ERROR, -1, "cut off"));
  std::uintptr_t stored = 1;
  std::memcpy(&stored, root_.read(path()).data() + offsetof(Job_Activity, message), sizeof stored);
  EXPECT_EQ(stored, 0U);
}

TEST_F(Job_Activity_Record_Test, Does_Not_Follow_Links_Or_Wait_For_Pipes) {
  root_.write("/elsewhere", "x");
  root_.make_directory(job_activity_directory());
  const std::string real = root_.real(path());
  ASSERT_EQ(::symlink(root_.real("/elsewhere").c_str(), real.c_str()), 0);
  EXPECT_TRUE(list().empty());
  EXPECT_EQ(log_.claim_containing("Failed to load job activity " + path() + ": Too many levels"), 1U);
  Job_Activity_Record record;
  fill(record);
  EXPECT_FALSE(record.attach());
  EXPECT_EQ(log_.claim_containing("Failed to make job activity"), 1U);

  ASSERT_EQ(::unlink(real.c_str()), 0);
  ASSERT_EQ(::mkfifo(real.c_str(), 0600), 0);
  EXPECT_TRUE(list().empty());
  EXPECT_EQ(log_.claim_containing(": not a regular file"), 1U);
}

TEST_F(Job_Activity_Record_Test, Changes_State_Only_From_The_Expected_One) {
  Job_Activity_Record record;
  Job_Activity& activity = record.activity();
  activity.store_state(JOB_STATE_STARTING);
  EXPECT_TRUE(activity.change_state(JOB_STATE_STARTING, JOB_STATE_RUNNING));
  EXPECT_FALSE(activity.change_state(JOB_STATE_STARTING, JOB_STATE_RUNNING));
  EXPECT_EQ(activity.load_state(), JOB_STATE_RUNNING);
  Job_Activity::add(activity.set_size, 5);
  Job_Activity::add(activity.set_size, 6);
  EXPECT_EQ(activity.set_size, 11U);
}

}  // namespace
