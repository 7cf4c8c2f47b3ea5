#include "desk/show/sarif.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <set>
#include <sstream>

#include "desk/show/escape.h"
#include "tests/desk/example_runs.h"

namespace desk {
namespace {

using json = nlohmann::ordered_json;
using testing::ElementsAre;

json shown(const judged_run& of) {
  std::ostringstream out;
  show_sarif(of, out);
  json log = json::parse(out.str());
  EXPECT_EQ(log["version"], "2.1.0");
  EXPECT_EQ(log["runs"].size(), 1U);
  return log["runs"][0];
}

std::vector<std::string> all_of(const json& results, const char* key) {
  std::vector<std::string> values;
  for (const auto& each : results) values.push_back(each[key]);
  return values;
}

TEST(sarif, has_a_result_for_each_finding_with_its_level) {
  const auto run = shown(run_with_faults());
  EXPECT_EQ(run["tool"]["driver"]["name"], "tessel-report");
  EXPECT_THAT(all_of(run["results"], "ruleId"),
              ElementsAre("TC-108", "TC-117", "TC-401", "TC-301", "TC-501", "TC-000"));
  EXPECT_THAT(all_of(run["results"], "level"),
              ElementsAre("error", "error", "warning", "warning", "warning", "note"));
  EXPECT_THAT(all_of(run["results"], "kind"), testing::Each("fail"));
}

TEST(sarif, leaves_two_notations_of_one_value_open) {
  const auto run = shown(run_with_two_notations());
  EXPECT_THAT(all_of(run["results"], "ruleId"), ElementsAre("TC-106", "not-judged"));
  EXPECT_THAT(all_of(run["results"], "kind"), testing::Each("open"));
  EXPECT_THAT(all_of(run["results"], "level"), testing::Each("none"));
}

TEST(sarif, says_where_a_finding_is) {
  const auto run = shown(run_with_faults());
  const auto& found = run["results"][1];
  EXPECT_EQ(found["locations"][0].dump(),
            R"({"physicalLocation":{"artifactLocation":{"uri":"tessel_programming_error.log",)"
            R"("uriBaseId":"LOGS"},"region":{"startLine":2}},"logicalLocations":[)"
            R"({"name":"0/0/0/2","fullyQualifiedName":"/var/log/audit/BE2/0/0/0/2",)"
            R"("kind":"member"},)"
            R"({"name":"BE2","fullyQualifiedName":"/var/log/audit/BE2","kind":"bundle"},)"
            R"({"name":"1","fullyQualifiedName":"/var/log/audit/0/0/CPU0/NPU1","kind":"npu"},)"
            R"({"name":"0/0/CPU0","fullyQualifiedName":"/var/log/audit/0/0/CPU0","kind":"node"},)"
            R"({"name":"/var/log/audit","fullyQualifiedName":"/var/log/audit","kind":"router"}]})");
  EXPECT_EQ(found["partialFingerprints"]["tesselFinding/v1"],
            "TC-117|member|BE2|0/0/0/2|0/0/CPU0|1|BCM");
  EXPECT_TRUE(run["originalUriBaseIds"].contains("LOGS"));
}

TEST(sarif, leaves_out_a_place_that_is_not_known) {
  auto faults = run_with_faults();
  faults.of.findings[0].line = 0;
  faults.of.findings[1].log.clear();
  const auto run = shown(faults);
  EXPECT_FALSE(run["results"][0]["locations"][0]["physicalLocation"].contains("region"));
  EXPECT_FALSE(run["results"][1]["locations"][0].contains("physicalLocation"));
}

TEST(sarif, has_a_rule_for_each_code_that_occurs) {
  const auto run = shown(run_with_faults());
  const auto& rules = run["tool"]["driver"]["rules"];
  EXPECT_THAT(all_of(rules, "id"),
              ElementsAre("TC-108", "TC-117", "TC-401", "TC-301", "TC-501", "TC-000"));
  EXPECT_EQ(rules[0]["shortDescription"]["text"],
            "Inconsistency ...:... GLIF is not consistent in ...:...,Expected:...");
  EXPECT_THAT(rules[0]["fullDescription"]["text"], testing::HasSubstr("global LIF differs"));
  for (const auto& each : run["results"])
    EXPECT_EQ(rules[each["ruleIndex"].get<std::size_t>()]["id"], each["ruleId"]);
}

TEST(sarif, leaves_open_what_was_not_read_or_not_judged) {
  const auto run = shown(run_not_judged());
  EXPECT_THAT(all_of(run["results"], "ruleId"), ElementsAre("not-read", "not-read", "not-judged"));
  EXPECT_THAT(all_of(run["results"], "kind"), testing::Each("open"));
  EXPECT_THAT(all_of(run["results"], "level"), testing::Each("none"));
  EXPECT_EQ(run["results"][0]["message"]["text"],
            "DPA of 0/9/CPU0: failed: ssh: connection timed out");
  EXPECT_EQ(run["results"][2]["message"]["text"],
            "BE2 was not judged: DPA on 0/1/CPU0: ssh timed out; BCM on 0/1/CPU0: never asked");
}

TEST(sarif, has_no_open_result_where_nothing_can_be) {
  auto run = run_not_judged();
  run.of.covered.back().state = coverage_state::empty;
  run.of.covered.back().is_normal = true;
  EXPECT_EQ(shown(run)["results"].size(), 2U);
}

TEST(sarif, says_whether_the_audit_came_to_its_end) {
  EXPECT_EQ(shown(healthy_run())["invocations"][0]["executionSuccessful"], true);
  const auto stopped = shown(run_that_stopped())["invocations"][0];
  EXPECT_EQ(stopped["executionSuccessful"], false);
  EXPECT_EQ(stopped["toolExecutionNotifications"][0]["message"]["text"],
            "The audit stopped: the bundle manager shows no bundle.");
}

TEST(sarif, neither_fills_braces_nor_makes_links) {
  auto faults = run_with_faults();
  faults.of.findings[0].text = "{0} [see](https://example.org) }";
  EXPECT_EQ(shown(faults)["results"][0]["message"]["text"], "{{0}} [see] (https://example.org) }}");
}

TEST(sarif, keeps_hostile_texts) {
  const auto run = shown(hostile_run());
  for (std::size_t i = 0; i < hostile_texts().size(); ++i) {
    const auto& found = run["results"][2 * i];
    EXPECT_EQ(found["ruleId"], "TC-108" + utf8(hostile_texts()[i]));
    EXPECT_EQ(found["properties"]["reported"], utf8(hostile_texts()[i]));
    EXPECT_EQ(found["locations"][0]["physicalLocation"]["artifactLocation"]["uri"],
              uri_path(hostile_texts()[i]));
  }
}

}  // namespace
}  // namespace desk
