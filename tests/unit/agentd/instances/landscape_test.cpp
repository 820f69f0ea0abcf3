#include "agentd/instances/landscape.h"

#include <gtest/gtest.h>

#include "support/log_capture.h"
#include "support/temp_root.h"

using namespace agentd;
using support::Log_Capture;
using support::Temp_Root;

namespace {

constexpr const char* two_hosts =
    "# nameserver.ini last modified 2026-05-10 14:46:02 by hdbnameserver\n[other]\nid = wrong\n\n[landscape]\n"
    "id = 5b91d2e8\nmaster = hana01:30001 hana02:30001\nworker = hana01 hana02\nactive_master = hana01:30001\n"
    "# id = none\n[more]\nid = wrong\n";

std::string parsed(const std::string& text, const std::string& host) {
  return json_spirit::dump_json(parse_landscape(text, host));
}

}  // namespace

TEST(Landscape_Test, The_Id_And_The_Masters_Host_Are_Told) {
  struct Row {
    const char *name, *text, *host, *wanted;
  };
  const Row rows[] = {
      {"master", two_hosts, "hana01", R"({"landscape_id":"5b91d2e8","active_master":true})"},
      {"worker", two_hosts, "hana02", R"({"landscape_id":"5b91d2e8","active_master":false})"},
      {"domain and case", two_hosts, "HANA01.example.org", R"({"landscape_id":"5b91d2e8","active_master":true})"},
      {"name that begins alike", two_hosts, "hana0", R"({"landscape_id":"5b91d2e8","active_master":false})"},
      {"one host", "[landscape]\nid = x\nworker = hana01\nactive_master = hana01:30001\n", "hana01",
       R"({"landscape_id":"x"})"},
      {"worker and standby", "[landscape]\nworker=a\nstandby=b\nactive_master=b:30001\r\n", "b",
       R"({"active_master":true})"},
      {"commas", "[landscape]\nworker=a:30001,b:30001\nactive_master=b:30001\n", "b", R"({"active_master":true})"},
      {"no master named", "[landscape]\nid = x\nworker = a b\n", "a", R"({"landscape_id":"x"})"},
      {"no section", "id = x\nactive_master = a:1\n", "a", "{}"},
      {"nothing", "", "a", "{}"}};
  for (const Row& row : rows) EXPECT_EQ(parsed(row.text, row.host), row.wanted) << row.name;
}

TEST(Landscape_Test, A_System_Whose_File_Is_Missing_Stands_For_Itself) {
  Temp_Root root;
  Log_Capture log;
  Instance instance;
  instance.name = "PRD_HDB00";
  instance.options = {{"sid", "PRD"}, {"localhost", "hana01"}};
  EXPECT_TRUE(landscape_attributes(instance).empty());
  EXPECT_EQ(log.claim_containing("The landscape of instance PRD_HDB00 is not known", LM_WARNING), 1U);
  instance.options = {{"sid", "../PRD"}};
  EXPECT_TRUE(landscape_attributes(instance).empty());
}

TEST(Landscape_Test, The_File_Of_The_System_Is_Read) {
  Temp_Root root;
  root.write("/usr/sap/PRD/SYS/global/hdb/custom/config/nameserver.ini", two_hosts);
  Instance instance;
  instance.options = {{"sid", "PRD"}, {"localhost", "hana02"}};
  EXPECT_EQ(json_spirit::dump_json(landscape_attributes(instance)),
            R"({"landscape_id":"5b91d2e8","active_master":false})");
}
