#include "records/metadata.h"

#include <gtest/gtest.h>

TEST(Metadata, Starts_As_An_Empty_Object) { EXPECT_EQ(json_spirit::dump_json(MTF::Metadata().document()), "{}"); }

TEST(Metadata, Keeps_The_Document_It_Was_Given_Whatever_Its_Type) {
  EXPECT_EQ(json_spirit::dump_json(MTF::Metadata(json_spirit::Object{{"sid", "HDB"}}).document()), R"({"sid":"HDB"})");
  EXPECT_TRUE(MTF::Metadata(json_spirit::Value()).document().is_null());
}
