#include "desk/show/junit.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

#include "desk/show/escape.h"
#include "tests/desk/example_runs.h"

namespace desk {
namespace {

using testing::HasSubstr;
using testing::Not;

std::string shown(const judged_run& of) {
  std::ostringstream out;
  show_junit(of, out);
  return out.str();
}

std::size_t count(const std::string& text, const std::string& part) {
  std::size_t found = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
    ++found;
  return found;
}

// The figures at the top against the elements below.
void expect_true_figures(const std::string& text) {
  std::ostringstream figures;
  figures << "tests=\"" << count(text, "<testcase ") << "\" failures=\"" << count(text, "<failure ")
          << "\" errors=\"0\"";
  EXPECT_EQ(count(text, figures.str()), 2U) << figures.str();
  EXPECT_THAT(text, HasSubstr("skipped=\"" + std::to_string(count(text, "<skipped ")) + "\""));
}

TEST(junit, passes_each_bundle_that_agrees) {
  EXPECT_EQ(shown(healthy_run()),
            "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
            "<testsuites name=\"tessel\" tests=\"4\" failures=\"0\" errors=\"0\" time=\"12.500\">\n"
            "  <testsuite name=\"/var/log/audit\" tests=\"4\" failures=\"0\" errors=\"0\" "
            "skipped=\"0\" time=\"12.500\" timestamp=\"2026-11-22T11:01:03\">\n"
            "    <testcase classname=\"tessel.router\" name=\"result table\"/>\n"
            "    <testcase classname=\"tessel.bundle\" name=\"BE1\"/>\n"
            "    <testcase classname=\"tessel.bundle\" name=\"BE2\"/>\n"
            "    <testcase classname=\"tessel.bundle\" name=\"BE10\"/>\n"
            "  </testsuite>\n"
            "</testsuites>\n");
}

TEST(junit, fails_each_bundle_that_differs_with_its_causes_and_findings) {
  const auto text = shown(run_with_faults());
  expect_true_figures(text);
  EXPECT_THAT(
      text, HasSubstr("<testcase classname=\"tessel.bundle\" name=\"BE1\">\n"
                      "      <failure type=\"difference\" message=\"BE1: global LIF is 0x14500 on "
                      "0/2/CPU0, 0x14000 on 3 others\">"
                      "BE1: global LIF is 0x14500 on 0/2/CPU0, 0x14000 on 3 others\n"
                      "  3 of 4 nodes hold the other value\n"
                      "  next: Run fwd_object_show -t l2port on the node\n"
                      "  TC-108 Inconsistency 1:BE1(0x3000004), 0/2/CPU0 GLIF is not consistent in "
                      "DPA_Bundles_l2port:0x14500,Expected:0x14000\n"
                      "    tessel_inconsistencies.log:1\n"
                      "</failure>\n"));
  EXPECT_EQ(count(text, "BE2: member 0/0/0/2 is missing in NPU 1 of 0/0/CPU0; BE2.100 is being"),
            1U)
      << "both causes in the message of BE2";
  EXPECT_THAT(text, HasSubstr("name=\"BE20\"/>\n"));
}

TEST(junit, goes_by_the_name_of_the_router) {
  EXPECT_THAT(shown(run_with_faults()), HasSubstr("<testsuite name=\"core-7\" "));
}

TEST(junit, fails_for_what_belongs_to_no_bundle) {
  const auto text = shown(run_with_faults());
  EXPECT_THAT(text, HasSubstr("<testcase classname=\"tessel.router\" name=\"An entry that nothing "
                              "refers to: LAG 77 on 0/3/CPU0\">\n      <failure type=\"stale\""));
  EXPECT_THAT(text, HasSubstr("name=\"findings without a cause\">\n      <failure type=\"failure\" "
                              "message=\"1 finding without a cause\">  TC-000 Traceback"));
}

// A report of bundle health stands at each bundle.
TEST(junit, repeats_no_text_of_any_length) {
  auto run = run_with_faults();
  const std::string start(4096, 'x');
  for (auto& each : run.of.findings) each.text = start + std::string(1'000'000, 'y');
  const auto text = shown(run);
  expect_true_figures(text);
  EXPECT_THAT(text, HasSubstr(start + " ... (1004096 bytes in all, see the log)\n"));
  EXPECT_LT(text.size(), 1'000'000U);
}

TEST(junit, loses_no_cause) {
  auto run = run_with_faults();
  for (auto& bundle : run.bundles) bundle.is = verdict::not_judged;
  const auto text = shown(run);
  expect_true_figures(text);
  for (const auto& why : run.causes) EXPECT_EQ(count(text, "name=\"" + xml(why.title)), 1U);
}

TEST(junit, skips_each_bundle_that_was_not_judged) {
  const auto text = shown(run_not_judged());
  expect_true_figures(text);
  EXPECT_THAT(text, HasSubstr("name=\"BE2\">\n      <skipped message=\"DPA on 0/1/CPU0: ssh timed "
                              "out; BCM on 0/1/CPU0: never asked\"/>\n"));
}

TEST(junit, skips_two_notations_of_one_value) {
  const auto text = shown(run_with_two_notations());
  expect_true_figures(text);
  EXPECT_EQ(count(text, "<failure "), 0U);
  EXPECT_THAT(text, HasSubstr("name=\"BE1: RIF: 0x00000011 and 0x11 are one value in two "
                              "notations\">\n      <skipped "));
}

TEST(junit, fails_if_the_audit_did_not_come_to_its_end) {
  const auto text = shown(run_that_stopped());
  expect_true_figures(text);
  EXPECT_THAT(text, HasSubstr("name=\"result table\">\n      <failure type=\"stopped\" "
                              "message=\"the audit stopped before its end\">The audit stopped: the "
                              "bundle manager shows no bundle.\n</failure>"));
  EXPECT_THAT(text, Not(HasSubstr("timestamp=")));
  EXPECT_THAT(text, Not(HasSubstr("time=")));
}

TEST(junit, holds_hostile_names_in_true_attributes) {
  const auto text = shown(hostile_run());
  expect_true_figures(text);
  EXPECT_THAT(text, HasSubstr("name=\"BEBE1&quot;quoted&#39; &amp; &lt;b&gt;bold&lt;/b&gt;\""));
  EXPECT_THAT(text, HasSubstr("name=\"BEtwo&#10;lines&#13;&#10;and&#9;tab\""));
  EXPECT_THAT(text, Not(HasSubstr("]]>")));
  EXPECT_THAT(text, Not(HasSubstr("\x1b")));
  EXPECT_EQ(text.find('\0'), std::string::npos);
}

}  // namespace
}  // namespace desk
