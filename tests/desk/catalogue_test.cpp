#include "desk/model/catalogue.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <sstream>
#include <string>

#include "desk/commands/commands.h"

namespace desk {
namespace {

std::size_t count_of(std::string_view text, std::string_view part) {
  std::size_t count = 0;
  for (std::size_t at = text.find(part); at != std::string_view::npos; at = text.find(part, at + 1))
    ++count;
  return count;
}

TEST(catalogue, holds_every_message_with_a_text) {
  EXPECT_GT(catalogue().size(), 130U);
  std::set<std::string> codes;
  for (const catalogue_entry& entry : catalogue()) {
    EXPECT_TRUE(codes.insert(entry.code).second) << entry.code << " twice";
    EXPECT_FALSE(entry.text.empty()) << entry.code;
    EXPECT_FALSE(entry.section.empty()) << entry.code;
  }
}

TEST(catalogue, names_the_blanks_of_every_finding) {
  for (const catalogue_entry& entry : catalogue()) {
    const bool is_finding = entry.code < "TC-300";
    EXPECT_TRUE(!is_finding || !entry.roles.empty()) << entry.code;
    if (entry.roles.empty()) continue;
    EXPECT_EQ(count_of(entry.roles, " ") + 1, count_of(entry.wording, "{}")) << entry.code;
  }
}

TEST(catalogue, recognises_its_own_wordings) {
  for (const catalogue_entry& entry : catalogue()) {
    if (entry.wording.empty()) continue;
    std::string text = entry.wording;
    for (std::size_t at = text.find("{}"); at != std::string::npos; at = text.find("{}"))
      text.replace(at, 2, "X");
    const auto found = recognise(text);
    ASSERT_TRUE(found) << text;
    EXPECT_EQ(found->entry->code, entry.code) << text;
  }
}

TEST(catalogue, captures_the_blanks_by_role) {
  const auto found = recognise(
      "Inconsistency 3:BE1(0x3000004), 0/2/CPU0 Lag ID is not consistent in DPA_Bundles:0x1, "
      "Expected:0x401");
  ASSERT_TRUE(found);
  EXPECT_EQ(found->at("object"), "BE1(0x3000004), 0/2/CPU0");
  EXPECT_EQ(found->at("layer"), "DPA_Bundles");
  EXPECT_EQ(found->at("known"), "0x1");
  EXPECT_EQ(found->at("reported"), "0x401");
  EXPECT_EQ(found->at("npu"), "");
}

// The debug log and the log of stale entries have no times, and quotes around each line.
TEST(catalogue, explains_a_line_of_any_log) {
  const auto explained = [](const char* line) {
    report_options options;
    options.word = line;
    std::ostringstream out;
    EXPECT_EQ(explain_command(options, out), 0) << line;
    return out.str().substr(0, 6);
  };
  EXPECT_EQ(explained("2026-11-22 11:01:03,219: Inconsistency 1: BME has no Bundle entry in "
                      "location 0/1/CPU0"),
            "TC-101");
  EXPECT_EQ(explained("'Number of stale entries in BCM 2'"), "TC-401");
  EXPECT_EQ(explained("'DEBUG: Duplicate Key, ignoring cfg  \"interface Bundle-Ether1 mtu 9\"'"),
            "TC-901");
  EXPECT_EQ(explained("\"Programming Error 0: LIF/RIF verification failed for BE1.7(0x3000024) NPU "
                      "0,0/RP0/CPU0: GLIF Not set is not valid\""),
            "TC-207");
}

TEST(catalogue, takes_the_closest_wording) {
  const auto found = recognise("no key '0x1': BCM member verification failed for NPU0,0/0/0/1");
  ASSERT_TRUE(found);
  EXPECT_EQ(found->entry->wording, "{}: BCM member verification failed for {}");
  EXPECT_FALSE(recognise("nothing that the audit writes"));
}

}  // namespace
}  // namespace desk
