#include <cerrno>

#include "standin/installed_hana.h"

namespace {

using namespace standin_test;
using HDBSQL_Tool = Installed_HANA;

constexpr const char* three_statements = "select 1 as A from DUMMY;\nselct x;\nselect 2 as B from DUMMY;\n";
constexpr const char* wrong_word =
    "* 257: sql syntax error: incorrect syntax near \"selct\": line 1 col 1 (at pos 1) SQLSTATE: HY000\n";

TEST_F(HDBSQL_Tool, Goes_On_After_An_Error_In_A_File_And_Ends_With_0) {
  install();
  const Output got = hdbsql({"-I", write("f.sql", three_statements)});
  EXPECT_EQ(got.code, 0);
  EXPECT_EQ(got.out, "A\n1\nB\n2\n");
  EXPECT_EQ(got.err, wrong_word);
}

TEST_F(HDBSQL_Tool, Ends_A_File_At_The_First_Error_When_A_Code_Is_Given) {
  install();
  const std::string file = write("f.sql", three_statements);
  for (const auto& [wanted, code] : {std::pair{"7", 7}, {"name", 257 & 0xff}}) {
    const Output got = hdbsql({"-E", wanted, "-I", file});
    EXPECT_EQ(got.code, code);
    EXPECT_EQ(got.out, "A\n1\n");
    EXPECT_EQ(got.err, wrong_word);
  }
  EXPECT_EQ(hdbsql({"-E", "3", "selct 1"}).code, 3);
}

TEST_F(HDBSQL_Tool, Tells_Why_A_File_Does_Not_Run) {
  install();
  const Output missing = hdbsql({"-I", root_ / "none.sql"});
  EXPECT_EQ(missing.code, ENOENT);
  EXPECT_EQ(missing.err, "Cannot open file " + (root_ / "none.sql").string() + ": No such file or directory\n");
  const std::string file = write("f.sql", "select 1 from DUMMY");
  const Output nobody = run({instance() / "exe/hdbsql", "-E", "4", "-I", file});
  EXPECT_EQ(nobody.code, 4);
  EXPECT_EQ(nobody.err, "Single Sign-On authentication failed\n");
  const Output refused =
      run({instance() / "exe/hdbsql", "-i", "00", "-u", "SYSTEM", "-p", "wrong", "-d", "TN1", "-I", file});
  EXPECT_EQ(refused.code, 10);
  EXPECT_EQ(refused.err, "* 10: authentication failed SQLSTATE: 28000\n");
}

TEST_F(HDBSQL_Tool, Runs_Connects_Comments_And_Variables_Of_A_File) {
  install();
  const std::string file =
      write("f.sql",
            "\\connect -i 00 -d TN1 -u SYSTEM -p manager;\n-- it's; a comment\nselect '&1' as one, '&10' "
            "as ten from DUMMY; select DATABASE_NAME from SYS.M_DATABASES where DATABASE_NAME <> ';'");
  const Output got = run({instance() / "exe/hdbsql", "-I", file, "-V", "a,b,c,d,e,f,g,h,i,j"});
  EXPECT_EQ(got.code, 0) << got.err;
  EXPECT_EQ(got.out, "ONE,TEN\n\"a\",\"j\"\nDATABASE_NAME\n\"TN1\"\n");
}

TEST_F(HDBSQL_Tool, Prints_In_The_Form_Asked_For) {
  install();
  const std::string query =
      "select 'a' as K, '\u00e4\"' as V1, 12 as N, null as X from DUMMY union all "
      "select 'bbb', 'line' || char(10), 3, 'y' from DUMMY";
  struct Case {
    std::vector<std::string> options;
    const char* out;
  };
  const Case cases[] = {{{"-x"}, "K,V1,N,X\n\"a\",\"\u00e4\\\"\",12,?\n\"bbb\",\"line\\n\",3,\"y\"\n"},
                        {{"-xa", "-F", "|"}, "\"a\"|\"\u00e4\\\"\"|12|?\n\"bbb\"|\"line\\n\"|3|\"y\"\n"},
                        {{"-xaC", "-g", "none"}, "a,\u00e4\",12,none\nbbb,line\n,3,y\n"}};
  for (const Case& one : cases) {
    std::vector<std::string> words = one.options;
    words.push_back(query);
    EXPECT_EQ(hdbsql(words).out, one.out);
  }
  EXPECT_EQ(
      hdbsql({"-xA", "select 'a' as K, '\u00e4' as V1, 12 as N from DUMMY union all select 'bbb', 'v', 3 from DUMMY"})
          .out,
      "| K   | V1 | N  |\n| --- | -- | -- |\n| a   | \u00e4  | 12 |\n| bbb | v  |  3 |\n");
  const std::string remark = hdbsql({"select 1 as A from DUMMY"}).out;
  EXPECT_EQ(remark.find("A\n1\n1 row selected (overall time "), 0U) << remark;
  EXPECT_NE(hdbsql({"select * from SYS.M_BACKUP_CATALOG"}).out.find("\n0 rows selected (overall time "),
            std::string::npos);
}

TEST_F(HDBSQL_Tool, Writes_And_Appends_Its_Output_To_A_File) {
  install();
  const std::string file = root_ / "out.txt";
  EXPECT_EQ(hdbsql({"-x", "-o", file, "select 1 as A from DUMMY"}).out, "");
  EXPECT_EQ(hdbsql({"-x", "-O", file, "select 2 as B from DUMMY"}).code, 0);
  EXPECT_EQ(text_of(file), "A\n1\nB\n2\n");
  EXPECT_EQ(hdbsql({"-x", "-o", file, "select 3 as C from DUMMY"}).code, 0);
  EXPECT_EQ(text_of(file), "C\n3\n");
}

TEST_F(HDBSQL_Tool, Tells_Unknown_Names_From_Wrong_Syntax) {
  install();
  struct Case {
    const char* statement;
    int code;
  };
  for (const Case& one :
       {Case{"select * from TRANSACTION", 259}, Case{"select * from SYS.INDEX", 259}, Case{"delete from KEY", 259},
        Case{"upsert TRIGGER values ('a')", 259}, Case{"select * from WHERE", 257}, Case{"select * frm DUMMY", 257},
        Case{"select * from NONE.T", 362}, Case{"select \"none\" from DUMMY", 260}, Case{"select NONE from DUMMY", 260},
        Case{"select NONE() from DUMMY", 328}, Case{"BACKUP CANCEL FOR TN1 x", 257},
        Case{"RECOVER DATA FOR TN1 CLEAR LOG", 257}}) {
    const Output got = hdbsql({one.statement});
    EXPECT_EQ(got.err.find("* " + std::to_string(one.code) + ": "), 0U) << one.statement << "\n" << got.err;
    EXPECT_EQ(got.code, one.code & 0xff) << one.statement;
  }
}

TEST_F(HDBSQL_Tool, Keeps_A_Transaction_Until_It_Commits) {
  install();
  const auto session = [&](const std::string& text) {
    return run(
        {instance() / "exe/hdbsql", "-x", "-quiet", "-z", "-i", "00", "-d", "TN1", "-u", "SYSTEM", "-p", "manager"},
        text);
  };
  const Output own =
      session("UPSERT KV VALUES ('k','lost')\nselect V from KV\nROLLBACK\nselect count(*) as N from KV\n");
  EXPECT_EQ(own.out, "V\n\"lost\"\nN\n0\n") << own.err;
  EXPECT_EQ(session("UPSERT KV VALUES ('k','lost')\n").code, 0);
  EXPECT_EQ(sql("select count(*) as N from KV", "TN1").out, "N\n0\n");
  EXPECT_EQ(session("UPSERT KV VALUES ('k','kept')\nCOMMIT\nUPSERT KV VALUES ('k','lost')\n").code, 0);
  EXPECT_EQ(sql("select V from KV", "TN1").out, "V\n\"kept\"\n");
  EXPECT_EQ(sql("\\a OFF\nUPSERT KV VALUES ('k','lost')", "TN1").code, 0);
  EXPECT_EQ(sql("select V from KV", "TN1").out, "V\n\"kept\"\n");
}

TEST_F(HDBSQL_Tool, Connects_To_Where_Its_Options_Say) {
  install();
  const auto tool = [&](std::vector<std::string> words) {
    words.insert(words.begin(), instance() / "exe/hdbsql");
    return run(words);
  };
  EXPECT_NE(tool({"-n", "localhost:30015", "-u", "system", "-p", "manager", "\\s"}).out.find("dbname        : TN1\n"),
            std::string::npos);
  EXPECT_EQ(tool({"-i", "07", "-u", "SYSTEM", "-p", "manager", "\\s"}).code, -10709 & 0xff);
  EXPECT_EQ(tool({"-k"}).code, 2);
  EXPECT_EQ(tool({"-v"}).out.find("HDBSQL version "), 0U);
  EXPECT_EQ(tool({"-U", "KEY", "\\s"}).code, -10104 & 0xff);
}

}  // namespace
