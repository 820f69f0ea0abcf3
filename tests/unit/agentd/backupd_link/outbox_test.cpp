#include "agentd/backupd_link/outbox.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <vector>

#include "support/log_capture.h"
#include "support/temp_root.h"

using namespace agentd;

namespace {

constexpr const char* directory = "/var/opt/tarvex/dorsal3/agent/outbox";

class Outbox_Test : public ::testing::Test {
 protected:
  /// Takes all messages, oldest first.
  static std::vector<int> drain(Outbox& outbox) {
    std::vector<int> numbers;
    Message message;
    while (outbox.oldest(message)) {
      int number = 0;
      EXPECT_TRUE(json_spirit::object_get(message.document, "n", number));
      numbers.push_back(number);
      outbox.remove(message.sequence);
    }
    return numbers;
  }

  support::Temp_Root root;
  support::Log_Capture log;
};

}  // namespace

TEST_F(Outbox_Test, Gives_Messages_In_Order_And_Forgets_What_Was_Delivered) {
  Outbox outbox(directory);
  ASSERT_TRUE(outbox.open());
  for (int n = 1; n <= 12; ++n) EXPECT_TRUE(outbox.put(Message_Kind::progress, {{"n", n}}));
  EXPECT_EQ(drain(outbox), (std::vector<int>{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}));
  EXPECT_EQ(outbox.size(), 0U);
  EXPECT_TRUE(std::filesystem::is_empty(root.real(directory)));
}

TEST_F(Outbox_Test, What_Was_Put_Is_There_After_A_Restart) {
  {
    Outbox outbox(directory);
    ASSERT_TRUE(outbox.open());
    EXPECT_TRUE(outbox.put(Message_Kind::alert, {{"n", 1}}));
    EXPECT_TRUE(outbox.put(Message_Kind::final_state, {{"n", 2}}));
  }
  Outbox again(directory);
  ASSERT_TRUE(again.open());
  EXPECT_TRUE(again.put(Message_Kind::log, {{"n", 3}}));
  Message message;
  ASSERT_TRUE(again.oldest(message));
  EXPECT_EQ(message.kind, Message_Kind::alert);
  EXPECT_EQ(drain(again), (std::vector<int>{1, 2, 3}));
}

TEST_F(Outbox_Test, Drops_Old_Progress_Then_Log_Lines_But_Never_An_End_Or_An_Alert) {
  Outbox outbox(directory, 4);
  ASSERT_TRUE(outbox.open());
  EXPECT_TRUE(outbox.put(Message_Kind::final_state, {{"n", 1}}));
  EXPECT_TRUE(outbox.put(Message_Kind::log, {{"n", 2}}));
  EXPECT_TRUE(outbox.put(Message_Kind::progress, {{"n", 3}}));
  EXPECT_TRUE(outbox.put(Message_Kind::alert, {{"n", 4}}));
  EXPECT_TRUE(outbox.put(Message_Kind::alert, {{"n", 5}}));        // 3 goes
  EXPECT_TRUE(outbox.put(Message_Kind::final_state, {{"n", 6}}));  // 2 goes
  EXPECT_TRUE(outbox.put(Message_Kind::final_state, {{"n", 7}}));  // nothing may go
  EXPECT_EQ(outbox.dropped(), 2U);
  EXPECT_EQ(drain(outbox), (std::vector<int>{1, 4, 5, 6, 7}));
}

TEST_F(Outbox_Test, A_Damaged_Message_Is_Set_Aside_And_Does_Not_Hold_The_Others) {
  Outbox outbox(directory);
  ASSERT_TRUE(outbox.open());
  EXPECT_TRUE(outbox.put(Message_Kind::alert, {{"n", 1}}));
  EXPECT_TRUE(outbox.put(Message_Kind::alert, {{"n", 2}}));
  root.write(std::string(directory) + "/00000000000000000001.alert.json", "{\"n\": ");
  EXPECT_EQ(drain(outbox), (std::vector<int>{2}));
  EXPECT_TRUE(root.exists(std::string(directory) + "/00000000000000000001.alert.json.unreadable"));
  EXPECT_EQ(log.claim_containing("is not sound"), 1U);
}

TEST_F(Outbox_Test, Other_Files_Are_Left_Alone) {
  root.write(std::string(directory) + "/00000000000000000009.alert.json.tmp", "half");
  root.write(std::string(directory) + "/notes", "x");
  Outbox outbox(directory);
  ASSERT_TRUE(outbox.open());
  EXPECT_EQ(outbox.size(), 0U);
  EXPECT_TRUE(root.exists(std::string(directory) + "/notes"));
}

TEST_F(Outbox_Test, A_Directory_That_Cannot_Be_Made_Is_An_Error) {
  root.write("/var/opt/tarvex/dorsal3/agent", "a file in the way");
  Outbox outbox(directory);
  EXPECT_FALSE(outbox.open());
  EXPECT_FALSE(outbox.put(Message_Kind::alert, {{"n", 1}}));
  EXPECT_EQ(log.claim_containing("Failed to open the message directory"), 1U);
  EXPECT_EQ(log.claim_containing("Failed to keep a message for backupd"), 1U);
}
