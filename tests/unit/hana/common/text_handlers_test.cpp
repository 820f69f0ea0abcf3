#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "hana/common/hdbsql_error_msg_handler.h"
#include "hana/common/hdbsql_general_text_handler.h"
#include "hana/common/line_assembler.h"
#include "hana/common/text_lines.h"
#include "support/vtable_slots.h"
#include "unit/hana/common/hana_system.h"

namespace {

using namespace sap_hana;
using Row = HDBSQL_General_Text_Handler::Row;

/// Gives one line as a copy of exactly its size on the heap.
int give(Text_Process_Handler& handler, std::string_view line) {
  const std::unique_ptr<char[]> exact(new char[line.size()]);
  std::copy(line.begin(), line.end(), exact.get());
  return handler.handle_stdout_line(exact.get(), line.size());
}

/// Gives a whole output as one run does.
void give_run(Text_Process_Handler& handler, std::string_view text) {
  while (!text.empty()) {
    const std::string_view line = take_line(text);
    if (!is_blank(line)) static_cast<void>(give(handler, line));
  }
  static_cast<void>(handler.handle_stdout_close());
  static_cast<void>(handler.handle_stderr_close());
}

TEST(Text_Process_Handler, Has_Its_Operations_In_Their_Slots) {
  EXPECT_EQ(support::slot_of(&Text_Process_Handler::handle_stdout_line), 2);
  EXPECT_EQ(support::slot_of(&Text_Process_Handler::handle_stderr_line), 3);
  EXPECT_EQ(support::slot_of(&Text_Process_Handler::handle_stdout_segment), 4);
  EXPECT_EQ(support::slot_of(&Text_Process_Handler::handle_stdout_close), 5);
  EXPECT_EQ(support::slot_of(&Text_Process_Handler::handle_stderr_close), 6);
}

TEST(Text_Process_Handler, Passes_Error_Lines_And_Segments_To_The_Output_Operation) {
  struct Recorder : Text_Process_Handler {
    Recorder() : Text_Process_Handler(0, 60) {}
    int handle_stdout_line(const char* line, std::size_t length) override {
      seen.emplace_back(line, length);
      return -7;
    }
    std::vector<std::string> seen;
  } handler;
  EXPECT_EQ(handler.handle_stderr_line("e1", 2), -7);
  EXPECT_EQ(handler.handle_stdout_segment("s1", 2), -7);
  EXPECT_EQ(handler.handle_stdout_close(), 0);
  EXPECT_EQ(handler.handle_stderr_close(), 0);
  EXPECT_EQ(handler.seen, (std::vector<std::string>{"e1", "s1"}));
  EXPECT_EQ(handler.segment_seconds(), 60);
  EXPECT_EQ(handler.options(), 0U);
  EXPECT_EQ(Text_Process_Handler(0, 60).handle_stdout_line("x", 1), 0);
}

TEST(HDBSQL_Error_Msg_Handler, Notices_A_Cancelled_Backup_Within_The_Line) {
  const struct {
    const char* line;
    bool wanted;
  } rows[] = {{"Backup was canceled by user", true},
              {"* 447: backup could not be completed: Backup was canceled by user SQLSTATE: HY000", true},
              {"Backup was canceled by use", false},
              {"backup was canceled by user", false},
              {"0 rows affected (overall time 67.7 sec; server time 67.7 sec)", false}};
  for (const auto& row : rows) {
    HDBSQL_Error_Msg_Handler handler;
    EXPECT_FALSE(handler.is_canceled());
    EXPECT_EQ(give(handler, row.line), 0) << row.line;
    EXPECT_EQ(handler.is_canceled(), row.wanted) << row.line;
  }
}

TEST(HDBSQL_Error_Msg_Handler, Looks_No_Further_Than_The_Length) {
  HDBSQL_Error_Msg_Handler handler;
  EXPECT_EQ(handler.handle_stdout_line("Backup was canceled by user", 26), 0);
  EXPECT_FALSE(handler.is_canceled());
}

TEST(HDBSQL_Error_Msg_Handler, Refuses_No_Line_And_Stays_Cancelled) {
  HDBSQL_Error_Msg_Handler handler;
  EXPECT_EQ(handler.handle_stdout_line(nullptr, 5), -1);
  EXPECT_EQ(handler.handle_stdout_line("x", 0), -1);
  EXPECT_EQ(handler.handle_stderr_line("* 447: Backup was canceled by user", 34), 0);
  EXPECT_TRUE(handler.is_canceled());
  EXPECT_EQ(give(handler, "another line"), 0);
  EXPECT_TRUE(handler.is_canceled());
  EXPECT_EQ(support::slot_of(&HDBSQL_Error_Msg_Handler::handle_stdout_line), 2);
}

TEST(HDBSQL_Error_Msg_Handler, Wants_What_Stays_Unfinished_After_60_Seconds) {
  const HDBSQL_Error_Msg_Handler handler;
  EXPECT_EQ(handler.options(), 0U);
  EXPECT_EQ(handler.segment_seconds(), 60);
}

TEST(HDBSQL_General_Text_Handler, Reads_A_Recorded_Table) {
  HDBSQL_General_Text_Handler handler;
  give_run(handler, hana_test::test_data("hdbsql/databases.txt"));
  EXPECT_EQ(handler.get_key().size(), 8U);
  EXPECT_EQ(handler.get_key().at("DATABASE_NAME"), 0);
  EXPECT_EQ(handler.get_key().at("FALLBACK_SNAPSHOT_CREATE_TIME"), 7);
  ASSERT_EQ(handler.get_values().size(), 3U);
  EXPECT_EQ(handler.get_values().front(),
            (Row{"SYSTEMDB", "SystemDB-HDB-00", "YES", "ACTIVE", "", "", "DEFAULT", "?"}));
  EXPECT_EQ(handler.get_values().back()[1], "Sales, \"north\"\nand south");
  std::string value;
  EXPECT_TRUE(last_value(handler, "OS_GROUP", value));
  EXPECT_EQ(value, "tn1group");
}

TEST(HDBSQL_General_Text_Handler, Reads_Rows) {
  const struct {
    const char* name;
    const char* lines;
    Row wanted;
  } rows[] = {
      {"numbers and null", "1,?,-2.5,0x00ff", {"1", "?", "-2.5", "0x00ff"}},
      {"quoted question mark", "\"?\",?", {"?", "?"}},
      {"empty cells", "\"\",,\"\"", {"", "", ""}},
      {"separator in quotes", "\"a,b\",c", {"a,b", "c"}},
      {"escapes", R"("a\"b","c\\d","e\nf","g\th","i\rj")", {"a\"b", "c\\d", "e\nf", "g\th", "i\rj"}},
      {"unknown escape", R"("a\xb")", {"a\\xb"}},
      {"doubled quotes", R"("a""b","""","")", {"a\"b", "\"", ""}},
      {"escaped backslash at the end", R"("a\\","b")", {"a\\", "b"}},
      {"line break in a cell", "\"a\nb\",c", {"a\nb", "c"}},
      {"backslash before a line break in a cell", "\"a\\\n\",c", {"a\\\n", "c"}},
      {"separator at the line's end", "1,2,", {"1", "2", ""}},
      {"text behind the quotes", "\"a\"b,c", {"ab", "c"}},
      {"quote inside a bare cell", "a\"b\",c", {"a\"b\"", "c"}},
      {"remark look-alike in quotes", "\"2 rows selected (overall\"", {"2 rows selected (overall"}},
      {"bare number", "12", {"12"}},
  };
  for (const auto& row : rows) {
    HDBSQL_General_Text_Handler handler;
    give_run(handler, std::string("H\n") + row.lines + "\n");
    ASSERT_EQ(handler.get_values().size(), 1U) << row.name;
    EXPECT_EQ(handler.get_values().front(), row.wanted) << row.name;
  }
}

TEST(HDBSQL_General_Text_Handler, Reads_Headers) {
  const struct {
    const char* line;
    std::vector<std::pair<std::string, int>> wanted;
  } rows[] = {
      {"BACKUP_ID", {{"BACKUP_ID", 0}}},
      {"A,B_C,d e", {{"A", 0}, {"B_C", 1}, {"d e", 2}}},
      {"COUNT(*),MAX(A,B),C", {{"COUNT(*)", 0}, {"MAX(A,B)", 1}, {"C", 2}}},
      {"TO_VARCHAR(X,'YYYY,MM'),Y", {{"TO_VARCHAR(X,'YYYY,MM')", 0}, {"Y", 1}}},
      {"A,A", {{"A", 0}}},
      {"A\",B", {{"A\"", 0}, {"B", 1}}},
  };
  for (const auto& row : rows) {
    HDBSQL_General_Text_Handler handler;
    give_run(handler, row.line);
    EXPECT_EQ(handler.get_key(), (HDBSQL_General_Text_Handler::Key(row.wanted.begin(), row.wanted.end()))) << row.line;
    EXPECT_TRUE(handler.get_values().empty()) << row.line;
  }
}

TEST(HDBSQL_General_Text_Handler, Takes_Remarks_For_No_Rows) {
  const struct {
    const char* text;
    std::size_t wanted;
  } rows[] = {{"A\n0 rows selected (overall time 1811 usec; server time 203 usec)\n", 0},
              {"A\n1\n1 row selected (overall time 1811 usec; server time 203 usec)\n", 1},
              {"A\n1\n2\n2 rows selected (overall time 1.1 sec; server time 203 usec)\n", 2},
              {"0 rows affected (overall time 66.973089 sec; server time 66.970736 sec)\n", 0},
              {"A\n12 rows of wood\n", 1}};
  for (const auto& row : rows) {
    HDBSQL_General_Text_Handler handler;
    give_run(handler, row.text);
    EXPECT_EQ(handler.get_values().size(), row.wanted) << row.text;
  }
  HDBSQL_General_Text_Handler empty;
  give_run(empty, hana_test::test_data("hdbsql/empty_result.txt"));
  EXPECT_EQ(empty.get_key().size(), 1U);
  EXPECT_TRUE(empty.get_values().empty());
}

TEST(HDBSQL_General_Text_Handler, Begins_A_New_Table_With_Each_Run_That_Prints) {
  HDBSQL_General_Text_Handler handler;
  give_run(handler, "A,B\n1,2\n");
  give_run(handler, "");
  EXPECT_EQ(handler.get_values(), (HDBSQL_General_Text_Handler::Values{{"1", "2"}})) << "nothing printed keeps the old";
  give_run(handler, "0 rows affected (overall time 1 usec; server time 1 usec)\n");
  EXPECT_EQ(handler.get_values().size(), 1U) << "a remark alone is no table";
  give_run(handler, "C\n3\n4\n");
  EXPECT_EQ(handler.get_key(), (HDBSQL_General_Text_Handler::Key{{"C", 0}}));
  EXPECT_EQ(handler.get_values(), (HDBSQL_General_Text_Handler::Values{{"3"}, {"4"}}));
}

TEST(HDBSQL_General_Text_Handler, Keeps_Error_Lines_Out_Of_Its_Rows) {
  HDBSQL_General_Text_Handler handler;
  EXPECT_EQ(give(handler, "A"), 0);
  EXPECT_EQ(handler.handle_stderr_line("* 259: invalid table name", 25), 0);
  EXPECT_EQ(give(handler, "1"), 0);
  EXPECT_EQ(handler.get_values(), (HDBSQL_General_Text_Handler::Values{{"1"}}));
}

TEST(HDBSQL_General_Text_Handler, Drops_A_Row_That_Was_Cut) {
  HDBSQL_General_Text_Handler handler;
  EXPECT_EQ(give(handler, "A,B"), 0);
  EXPECT_EQ(give(handler, "1,\"begun"), 0);
  EXPECT_EQ(handler.handle_stdout_close(), -1);
  EXPECT_TRUE(handler.get_values().empty());
  give_run(handler, "A\n\"whole\"\n");
  EXPECT_EQ(handler.get_values(), (HDBSQL_General_Text_Handler::Values{{"whole"}}));
}

TEST(HDBSQL_General_Text_Handler, Joins_A_Segment_With_The_Rest_Of_Its_Line) {
  HDBSQL_General_Text_Handler handler;
  EXPECT_EQ(handler.handle_stdout_segment("A,", 2), 0);
  EXPECT_EQ(give(handler, "B"), 0);
  EXPECT_EQ(handler.handle_stdout_segment("\"x\ny", 4), 0);
  EXPECT_EQ(handler.handle_stdout_segment("\\", 1), 0);
  EXPECT_EQ(give(handler, "\"z\",2"), 0);
  EXPECT_EQ(handler.get_key(), (HDBSQL_General_Text_Handler::Key{{"A", 0}, {"B", 1}}));
  EXPECT_EQ(handler.get_values(), (HDBSQL_General_Text_Handler::Values{{"x\ny\"z", "2"}}));
}

TEST(HDBSQL_General_Text_Handler, Refuses_No_Text) {
  HDBSQL_General_Text_Handler handler;
  EXPECT_EQ(handler.handle_stdout_line(nullptr, 1), -1);
  EXPECT_EQ(handler.handle_stdout_line("x", 0), -1);
  EXPECT_EQ(handler.handle_stdout_segment(nullptr, 1), -1);
  EXPECT_TRUE(handler.get_key().empty());
}

TEST(HDBSQL_General_Text_Handler, Forgets_A_Table_Too_Large_To_Be_True) {
  HDBSQL_General_Text_Handler handler;
  EXPECT_EQ(give(handler, "A"), 0);
  const std::string line(1U << 20, 'x');
  int last = 0;
  for (int i = 0; i < 70; ++i) last = give(handler, line);
  EXPECT_EQ(last, -1);
  EXPECT_TRUE(handler.get_key().empty());
  EXPECT_TRUE(handler.get_values().empty());
  static_cast<void>(handler.handle_stdout_close());
  give_run(handler, "A\n1\n");
  EXPECT_EQ(handler.get_values().size(), 1U);
}

TEST(Last_Value, Is_False_For_A_Missing_Column_And_A_Short_Row) {
  HDBSQL_General_Text_Handler handler;
  std::string value = "kept";
  EXPECT_FALSE(last_value(handler, "A", value));
  give_run(handler, "A,B\n1,2\n3\n");
  EXPECT_FALSE(last_value(handler, "B", value)) << "the last row is shorter than the header";
  EXPECT_FALSE(last_value(handler, "C", value));
  EXPECT_EQ(value, "kept");
  EXPECT_TRUE(last_value(handler, "A", value));
  EXPECT_EQ(value, "3");
}

struct Lines {
  std::vector<std::string> lines;
  std::vector<std::string> segments;
  Line_Assembler assembler{[this](std::string_view line) { lines.emplace_back(line); },
                           [this](std::string_view text) { segments.emplace_back(text); }};
};

TEST(Line_Assembler, Makes_Lines_Of_Pieces_And_Drops_Blank_Ones) {
  const support::Virtual_Clock clock;
  Lines seen;
  for (const char* piece : {"a", "b\nc", "\r\n\n  \t\n", "d\n", "e"}) seen.assembler.add(piece);
  EXPECT_EQ(seen.lines, (std::vector<std::string>{"ab", "c", "d"}));
  seen.assembler.close();
  EXPECT_EQ(seen.lines.back(), "e");
  EXPECT_TRUE(seen.segments.empty());
}

TEST(Line_Assembler, Gives_An_Unfinished_Line_Out_When_It_Is_Old) {
  support::Virtual_Clock clock;
  Lines seen;
  seen.assembler.add("Password: ");
  clock.advance(std::chrono::seconds(59));
  seen.assembler.flush_older_than(std::chrono::seconds(60));
  EXPECT_TRUE(seen.segments.empty());
  clock.advance(std::chrono::seconds(1));
  seen.assembler.flush_older_than(std::chrono::seconds(60));
  EXPECT_EQ(seen.segments, (std::vector<std::string>{"Password: "}));
  seen.assembler.add("rest\n");
  EXPECT_EQ(seen.lines, (std::vector<std::string>{"rest"}));
}

TEST(Line_Assembler, Counts_The_Age_Of_A_Line_From_Its_First_Piece) {
  support::Virtual_Clock clock;
  Lines seen;
  seen.assembler.add("Backup was ");
  clock.advance(std::chrono::seconds(40));
  seen.assembler.add("canceled");
  clock.advance(std::chrono::seconds(20));
  seen.assembler.flush_older_than(std::chrono::seconds(60));
  EXPECT_EQ(seen.segments, (std::vector<std::string>{"Backup was canceled"}));
}

TEST(Line_Assembler, Ends_A_Line_Whose_Segments_Were_All_Of_It) {
  const support::Virtual_Clock clock;
  HDBSQL_General_Text_Handler table;
  Line_Assembler assembler{
      [&](std::string_view line) { EXPECT_EQ(table.handle_stdout_line(line.data(), line.size()), 0); },
      [&](std::string_view text) { EXPECT_EQ(table.handle_stdout_segment(text.data(), text.size()), 0); }};
  assembler.add("BACKUP_ID\n17");
  assembler.flush();
  assembler.add("\n18\n\n");
  assembler.close();
  std::vector<std::string> ids;
  for (const auto& row : table.get_values()) ids.push_back(row.front());
  EXPECT_EQ(ids, (std::vector<std::string>{"17", "18"}));
}

TEST(Line_Assembler, Does_Not_Let_A_Line_Fill_The_Memory) {
  const support::Virtual_Clock clock;
  Lines seen;
  const std::string piece(1U << 20, 'x');
  for (int i = 0; i < 10; ++i) seen.assembler.add(piece);
  EXPECT_EQ(seen.segments.size(), 2U);
  EXPECT_LE(seen.segments.front().size(), (4U << 20) + piece.size());
}

}  // namespace
