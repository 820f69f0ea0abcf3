#include "net/uri.h"

#include <gtest/gtest.h>

namespace {

using Segments = std::vector<std::string>;

TEST(Uri, Takes_A_Text_Apart) {
  struct Row {
    const char* text;
    const char* scheme;
    const char* host;
    unsigned port;
    const char* path;
    const char* query;
  };
  for (const Row& row :
       {Row{"http://a", "http", "a", 0, "", ""},
        Row{"HTTPS://Host:8443/p/q?x=1#f", "https", "Host", 8443, "/p/q", "x=1"},
        Row{"file:///srv/pool", "file", "", 0, "/srv/pool", ""}, Row{"http://u:p%40@h/", "http", "h", 0, "/", ""},
        Row{"http://u@h:1", "http", "h", 1, "", ""}, Row{"http://[::1]:9000/x", "http", "::1", 9000, "/x", ""},
        Row{"http://[fe80::1]", "http", "fe80::1", 0, "", ""}, Row{"http://h?q", "http", "h", 0, "", "q"},
        Row{"http://h#f?q", "http", "h", 0, "", ""}, Row{"http://h:65535/%c3%a4", "http", "h", 65535, "/\xc3\xa4", ""},
        Row{"a+b-c.d://x", "a+b-c.d", "x", 0, "", ""}}) {
    URI uri;
    ASSERT_TRUE(uri.parse(row.text)) << row.text;
    EXPECT_EQ(uri.scheme(), row.scheme) << row.text;
    EXPECT_EQ(uri.host().decoded_val_, row.host) << row.text;
    EXPECT_EQ(uri.port(), row.port) << row.text;
    EXPECT_EQ(uri.path().decoded_val_, row.path) << row.text;
    EXPECT_EQ(uri.query(), row.query) << row.text;
  }
}

TEST(Uri, Refuses_What_Is_None_And_Keeps_What_It_Had) {
  URI uri;
  ASSERT_TRUE(uri.parse("http://kept:1/p"));
  for (const char* text :
       {"",           "http",        "http:",      "http:/a",        "://a",       "1http://a",   "ht tp://a",
        "http://a b", "http://a\n",  "http://a:0", "http://a:65536", "http://a:x", "http://a:",   "http://a:1x",
        "http://:80", "http://[::1", "http://[]",  "http://[::1]x",  "http://u@",  "http://a\x7f"}) {
    EXPECT_FALSE(uri.parse(text)) << text;
    EXPECT_EQ(uri.host().decoded_val_, "kept") << text;
    EXPECT_EQ(uri.port(), 1U) << text;
  }
}

TEST(Uri, Splits_A_Path) {
  struct Row {
    const char* path;
    Segments segments;
  };
  for (const Row& row :
       {Row{"", {}}, Row{"/", {}}, Row{"///", {}}, Row{"hana", {"hana"}}, Row{"hana/HDB00", {"hana", "HDB00"}},
        Row{"hana/HDB00/SYSTEMDB", {"hana", "HDB00", "SYSTEMDB"}}, Row{"/hana/HDB00/TN1", {"hana", "HDB00", "TN1"}},
        Row{"hana//HDB00/", {"hana", "HDB00"}}, Row{"hana/HDB00/TN1/x", {"hana", "HDB00", "TN1", "x"}},
        Row{"hana/a%2fb/c%20d", {"hana", "a/b", "c d"}}, Row{"a+b/%zz", {"a+b", "%zz"}}}) {
    URI uri;
    uri.path(row.path, true);
    Segments segments{"old"};
    uri.path_segments(segments);
    EXPECT_EQ(segments, row.segments) << row.path;
  }
}

TEST(Uri, Gives_Segments_As_They_Stand_When_Asked) {
  URI uri;
  uri.path("hana/a%2fb", true);
  Segments segments;
  uri.path_segments(segments, false);
  EXPECT_EQ(segments, (Segments{"hana", "a%2fb"}));
}

TEST(Uri, Encodes_A_Plain_Path_But_Its_Slashes) {
  URI uri;
  uri.path("hana/a b%/c", false);
  EXPECT_EQ(uri.path().encoded_val_, "hana/a%20b%25/c");
  Segments segments;
  uri.path_segments(segments);
  EXPECT_EQ(segments, (Segments{"hana", "a b%", "c"}));
}

}  // namespace
