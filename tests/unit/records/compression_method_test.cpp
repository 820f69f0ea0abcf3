#include "records/compression_method.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/log_capture.h"

namespace {

struct Row {
  const char* name;
  Compression_Method method;
};

using support::Log_Capture;

constexpr Row rows[] = {{"none", COMPR_NONE}, {"auto", COMPR_AUTO}, {"lzop", COMPR_LZOP}, {"zstd", COMPR_ZSTD}};

}  // namespace

TEST(Compression_Method, Has_One_Name_Per_Method_Both_Ways) {
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(compression_name_to_value(row.name, std::string(row.name).size()), row.method);
    EXPECT_STREQ(compression_value_to_name(row.method), row.name);
  }
}

TEST(Compression_Method, Needs_No_Terminator_Behind_The_Name) {
  const std::vector<char> exact = {'z', 's', 't', 'd'};
  EXPECT_EQ(compression_name_to_value(exact.data(), exact.size()), COMPR_ZSTD);
}

TEST(Compression_Method, Takes_An_Unknown_Name_As_None_With_A_Warning) {
  for (const char* name : {"gzip", "ZSTD", "zst", "zstd ", ""}) {
    SCOPED_TRACE(name);
    Log_Capture log;
    EXPECT_EQ(compression_name_to_value(name, std::string(name).size()), COMPR_NONE);
    EXPECT_TRUE(log.claim("Unknown compression method '" + std::string(name) + "', the stream is stored uncompressed\n",
                          LM_WARNING));
  }
}

TEST(Compression_Method, Takes_A_Null_Name_As_None) {
  Log_Capture log;
  EXPECT_EQ(compression_name_to_value(nullptr, 0), COMPR_NONE);
  EXPECT_TRUE(log.claim("Unknown compression method '', the stream is stored uncompressed\n", LM_WARNING));
}

TEST(Compression_Method, Has_No_Name_For_A_Value_That_Is_No_Method) {
  EXPECT_EQ(compression_value_to_name(COMPR_MAX), nullptr);
}
