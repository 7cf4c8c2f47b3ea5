#include "desk/show/merge.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "command_line/usage_error.h"
#include "desk/commands/commands.h"
#include "desk/show/json.h"
#include "tests/desk/example_runs.h"

namespace desk {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using json = nlohmann::ordered_json;

std::string text_of(const std::vector<merged_router>& routers, const summary_options& how = {},
                    std::size_t width = 100) {
  std::ostringstream out;
  show_merged_text(routers, how, {width, false}, out);
  return out.str();
}

json json_of_merge(const std::vector<merged_router>& routers) {
  std::ostringstream out;
  show_merged_json(routers, out);
  return json::parse(out.str());
}

std::string page_of(const std::vector<merged_router>& routers) {
  std::ostringstream out;
  show_merged_html(routers, out);
  return out.str();
}

std::vector<std::string> names_of(const std::vector<merged_router>& routers) {
  std::vector<std::string> names;
  for (const auto& one : routers) names.push_back(one.name);
  return names;
}

TEST(merged_routers, come_in_the_order_of_their_standing_then_by_name) {
  EXPECT_THAT(names_of(routers_of_a_network()),
              ElementsAre("core-7", "core-1", "edge-3", "core-2", "edge-9", "edge-1"));
  EXPECT_EQ(sentence_for(routers_of_a_network()),
            "6 routers: 1 agrees, 1 differs, 1 to look at, 2 not judged, 1 not read. 6 findings, 2 "
            "new.");
  EXPECT_EQ(sentence_for(many_routers(20)),
            "20 routers: 17 agree, 2 differ, 1 not read. 10 findings.");
}

TEST(merged_text, is_a_table_and_the_first_causes_of_each) {
  EXPECT_EQ(
      text_of(routers_of_a_network()),
      "6 routers: 1 agrees, 1 differs, 1 to look at, 2 not judged, 1 not read. 6 findings, 2 new.\n"
      "\n"
      "router  type   started              agree  differ  not judged  findings  new  verdict\n"
      "core-7  birch  2026-11-22 11:01:03      1       3           0         5    2  differs\n"
      "core-1  birch  2026-11-22 11:01:03      3       0           0         1    -  to look at\n"
      "edge-3  -      -                        -       -           -         -    -  not read\n"
      "core-2  birch  2026-11-22 11:01:03      1       0           1         0    -  not judged\n"
      "edge-9  -      -                        0       0           0         0    -  not judged\n"
      "edge-1  birch  2026-11-22 11:01:03      3       0           0         0    -  agrees\n"
      "\n"
      "core-7\n"
      "  new: BE2: member 0/0/0/2 is missing in NPU 1 of 0/0/CPU0\n"
      "    next: Run fwd_object_show -t l2port on the node\n"
      "  new: BE10: the bundle manager reports bad health\n"
      "    next: Run fwd_object_show -t l2port on the node\n"
      "  BE1: global LIF is 0x14500 on 0/2/CPU0, 0x14000 on 3 others\n"
      "    next: Run fwd_object_show -t l2port on the node\n"
      "  and 2 more causes; --all shows everything\n"
      "\n"
      "core-1\n"
      "  An entry that nothing refers to: LAG 77 on 0/1/CPU0\n"
      "    next: Run fwd_object_show -t l2port on the node\n"
      "\n"
      "edge-3\n"
      "  cannot read reports/edge-3.json: line 1: this is no JSON\n"
      "\n"
      "core-2\n"
      "  partial: The node 0/9/CPU0 did not answer.\n"
      "\n"
      "edge-9\n"
      "  partial: The audit stopped: the bundle manager shows no bundle.\n");
}

TEST(merged_text, counts_a_router_over_its_limit_as_a_finding) {
  std::vector<merged_router> routers(1);
  routers[0].of = run_over_its_limit();
  EXPECT_THAT(sentence_for(routers), HasSubstr(" 1 finding."));
}

TEST(merged_text, counts_two_notations_of_one_value_as_no_finding) {
  std::vector<merged_router> routers(1);
  routers[0].name = "edge-1";
  routers[0].of = run_with_two_notations();
  routers[0].earlier = {{"before.json", ""}};
  routers[0].new_findings = {true};
  EXPECT_EQ(sentence_for(routers), "1 router: 0 agree, 0 differ, 1 not judged. 0 findings, 0 new.");
}

TEST(merged_text, lists_a_router_over_its_limit_as_it_counts_it) {
  std::vector<merged_router> routers(1);
  routers[0].name = "edge-1";
  routers[0].of = run_with_two_notations();
  finding& one = routers[0].of.of.findings.back();
  one.kind = finding_kind::note;
  one.code = "TC-619";
  one.what = field::none;
  EXPECT_THAT(sentence_for(routers), testing::EndsWith("1 finding."));
  EXPECT_THAT(json_of_merge(routers).dump(), HasSubstr("TC-619"));
  EXPECT_THAT(page_of(routers), HasSubstr("TC-619"));
}

TEST(merged_text, has_less_or_more) {
  const auto routers = routers_of_a_network();
  EXPECT_THAT(text_of(routers, {true, false}), testing::EndsWith("agrees\n"));
  const auto all = text_of(routers, {false, true});
  EXPECT_THAT(all, HasSubstr("BE2.100 is being deleted on 0/1/CPU0"));
  EXPECT_THAT(all, HasSubstr("    new: TC-117 tessel_programming_error.log:2 Programming Error 1"));
  EXPECT_THAT(all, HasSubstr("    TC-108 tessel_inconsistencies.log:1 Inconsistency 1"));
  EXPECT_THAT(all, Not(HasSubstr("--all")));
}

TEST(merged_text, leaves_out_columns_where_the_terminal_is_narrow) {
  const auto narrow = text_of(routers_of_a_network(), {}, 70);
  EXPECT_THAT(narrow, HasSubstr("router  agree  differ  not judged  findings  new  verdict\n"));
  const auto less = text_of(routers_of_a_network(), {}, 85);
  EXPECT_THAT(less, HasSubstr("router  started              agree"));
  std::istringstream lines(less.substr(less.find("\n\n")));
  for (std::string line; std::getline(lines, line);) EXPECT_LE(line.size(), 85U) << line;
}

TEST(merged_text, holds_no_control_characters) {
  const auto text = text_of(hostile_routers(), {false, true});
  for (const char c : text)
    if (static_cast<unsigned char>(c) < ' ' && c != '\n') {
      ADD_FAILURE() << "byte " << static_cast<int>(c);
      break;
    }
}

TEST(merged_json, has_everything_but_the_values) {
  const auto merged = json_of_merge(routers_of_a_network());
  EXPECT_EQ(merged["format"], 1);
  const auto& first = merged["routers"][0];
  EXPECT_EQ(first["name"], "core-7");
  EXPECT_EQ(first["file"], "reports/core-7.json");
  EXPECT_EQ(first["verdict"], "differs");
  EXPECT_EQ(first["trouble"], nullptr);
  EXPECT_EQ(first["started"], "2026-11-22 11:01:03,219");
  EXPECT_EQ(first["bundles"].dump(), R"({"agrees":1,"differs":3,"not_judged":0})");
  EXPECT_EQ(first["found"], 5);
  EXPECT_EQ(first["new"], 2);
  EXPECT_EQ(first["earlier"].dump(),
            R"([{"file":"reports/core-7.old.json","started":"2026-11-21 11:01:03,219"}])");
  EXPECT_EQ(first["causes"].size(), 5U);
  EXPECT_EQ(first["causes"][0]["new"], false);
  EXPECT_EQ(first["causes"][1]["new"], true);
  EXPECT_FALSE(first["causes"][0].contains("differences"));
  EXPECT_EQ(first["findings"].size(), 6U);
  EXPECT_EQ(first["findings"][1]["new"], true);
  EXPECT_EQ(merged["routers"][1]["new"], nullptr);
  EXPECT_EQ(merged["routers"][1]["causes"][0]["new"], nullptr);
  EXPECT_EQ(merged["routers"][1]["verdict"], "notable");

  const auto& unread = merged["routers"][2];
  EXPECT_EQ(unread["verdict"], "not_read");
  EXPECT_EQ(unread["trouble"], "cannot read reports/edge-3.json: line 1: this is no JSON");
  EXPECT_EQ(unread["origin"], nullptr);
  EXPECT_EQ(unread["end"], "unknown");
  EXPECT_EQ(merged["routers"][3]["holes"].size(), 2U);
  EXPECT_EQ(merged["routers"][3]["marks"].size(), 1U);
}

TEST(merged_json, groups_the_same_findings_of_several_routers) {
  const auto index = json_of_merge(many_routers(40))["index"];
  EXPECT_EQ(index.size(), 6U);
  for (const auto& one : index) {
    EXPECT_EQ(one["routers"].dump(), "[0,1,2,3]");
    EXPECT_EQ(one["findings"], 4);
  }
  const auto first = json_of_merge(routers_of_a_network())["index"][0];
  EXPECT_EQ(first.dump(), R"({"code":"TC-401","object":{"kind":"entry","bundle":null,"name":)"
                          R"("LAG 77"},"findings":2,"routers":[0,1]})");
}

TEST(merged_page, shows_each_router_by_a_row_and_what_was_found_by_a_fold) {
  const auto page = page_of(routers_of_a_network());
  EXPECT_THAT(page, HasSubstr("<h1>Link bundles of 6 routers</h1>"));
  EXPECT_THAT(page, HasSubstr("<tr class=\"e\" data-hit=\"r0\"><th scope=\"row\"><a href=\"#r0\">"
                              "<bdi>core-7</bdi></a></th>"));
  EXPECT_THAT(page, HasSubstr("<td class=\"number fresh\">2</td>"));
  EXPECT_THAT(page, HasSubstr("<tr class=\"k\" data-hit=\"r5\"><th scope=\"row\"><bdi>edge-1</bdi>"
                              "</th>"));
  EXPECT_THAT(page, HasSubstr("<dd>cannot read reports/edge-3.json: line 1: this is no JSON</dd>"));
  EXPECT_THAT(page, HasSubstr("<span class=\"chip fresh\">new</span><h3>BE2: member"));
  EXPECT_THAT(page, HasSubstr("<li>DPA of 0/9/CPU0: failed: ssh: connection timed out</li>"));
  EXPECT_THAT(page, HasSubstr("<th scope=\"col\">Type</th>"));
}

TEST(merged_page, has_no_column_of_types_if_none_is_known) {
  auto routers = routers_of_a_network();
  for (auto& one : routers) one.of.of.router_type.clear();
  EXPECT_THAT(page_of(routers), Not(HasSubstr(">Type<")));
  EXPECT_THAT(text_of(routers), Not(HasSubstr("type")));
}

TEST(merged_page, stays_small_for_many_routers) {
  EXPECT_LT(page_of(many_routers(500)).size(), 500'000U);
  std::vector<merged_router> bad(20);
  for (auto& one : bad) {
    one.of = large_run(1000, 12);
    keep_for_merge(one.of);
  }
  const auto page = page_of(bad);
  EXPECT_LT(page.size(), 1'000'000U);
  EXPECT_THAT(page, HasSubstr("and 284 more causes: see the report of the router"));
}

TEST(merged_page, holds_hostile_texts_as_text) {
  const auto page = page_of(hostile_routers());
  EXPECT_THAT(page, Not(HasSubstr("<b>bold")));
  EXPECT_THAT(page, Not(HasSubstr("<script>alert")));
  EXPECT_EQ(page.find('\0'), std::string::npos);
  EXPECT_EQ(page.find('\x1b'), std::string::npos);
}

// ---- The command --------------------------------------------------------------------------------

class merge_of_files : public testing::Test {
 protected:
  void SetUp() override {
    folder = testing::TempDir() + "merge.XXXXXX";
    ASSERT_NE(::mkdtemp(folder.data()), nullptr);
  }
  void TearDown() override { std::filesystem::remove_all(folder); }

  void write(const std::string& name, judged_run of, const std::string& router,
             const std::string& started = "2026-11-22 11:01:03,219") {
    of.of.router = router;
    of.of.started = started;
    std::ofstream out(folder + "/" + name);
    show_json(of, out);
    add(name);
  }
  void write_text(const std::string& name, const std::string& text) {
    std::ofstream(folder + "/" + name) << text;
    add(name);
  }
  void add(const std::string& name) { options.reports.push_back(folder + "/" + name); }

  int merge() {
    options.of = command::merge;
    options.as = merge_format::json;
    options.output = folder + "/merged";
    std::filesystem::remove(options.output);
    std::ostringstream out;
    testing::internal::CaptureStderr();
    const int status = merge_command(options, out);
    complaints = testing::internal::GetCapturedStderr();
    std::ifstream in(options.output);
    routers = in ? json::parse(in)["routers"] : json();
    return status;
  }

  std::string folder;
  report_options options;
  std::string complaints;
  json routers;
};

TEST_F(merge_of_files, ends_with_the_worst_status) {
  write("a.json", healthy_run(), "a");
  EXPECT_EQ(merge(), 0);
  write("b.json", run_not_judged(), "b");
  EXPECT_EQ(merge(), 3);
  write("c.json", run_with_faults(), "c");
  EXPECT_EQ(merge(), 1);
  options.when = fail_on::never;
  EXPECT_EQ(merge(), 0);
  options.when = fail_on::is_new;
  EXPECT_EQ(merge(), 3);
  EXPECT_EQ(complaints, "");
}

TEST_F(merge_of_files, names_a_router_by_its_report_or_its_file) {
  write("x.json", healthy_run(), "core-7");
  write("core-8.json", healthy_run(), "");
  write("core-9.txt", healthy_run(), "");
  write(".json", healthy_run(), "");
  EXPECT_EQ(merge(), 0);
  ASSERT_EQ(routers.size(), 4U);
  EXPECT_EQ(routers[0]["name"], ".json");
  EXPECT_EQ(routers[1]["name"], "core-7");
  EXPECT_EQ(routers[2]["name"], "core-8");
  EXPECT_EQ(routers[3]["name"], "core-9.txt");
}

TEST_F(merge_of_files, keeps_a_file_that_cannot_be_read_in_sight) {
  write("a.json", healthy_run(), "a");
  write_text("bad.json", "{\"format\":1");
  add("gone.json");
  EXPECT_EQ(merge(), 3);
  EXPECT_EQ(complaints, "tessel-report: cannot read " + folder +
                            "/bad.json: line 1: the file is cut off, or no JSON\n"
                            "tessel-report: cannot read " +
                            folder + "/gone.json: No such file or directory\n");
  ASSERT_EQ(routers.size(), 3U);
  EXPECT_EQ(routers[0]["name"], "bad");
  EXPECT_EQ(routers[1]["name"], "gone");
  EXPECT_EQ(routers[1]["verdict"], "not_read");
  EXPECT_THAT(routers[1]["trouble"].get<std::string>(), HasSubstr("No such file or directory"));
}

TEST_F(merge_of_files, writes_nothing_if_no_file_can_be_read) {
  add("gone.json");
  EXPECT_EQ(merge(), 2);
  EXPECT_THAT(complaints, HasSubstr("gone.json: No such file or directory\n"));
  EXPECT_EQ(routers, json());
}

TEST_F(merge_of_files, says_what_is_new_since_the_run_before) {
  auto before = run_with_faults();
  before.causes.erase(before.causes.begin() + 1);
  before.of.findings[1].object.name = "0/0/0/9";
  for (auto& bundle : before.bundles) bundle.causes.clear();  // they had other numbers
  write("new.json", run_with_faults(), "core-7", "2026-11-22 11:01:03,219");
  write("old.json", std::move(before), "core-7", "2026-11-22 10:01:03,219");
  write("older.json", run_with_faults(), "core-7", "2026-11-21 11:01:03,219");
  write("other.json", run_with_faults(), "core-8");
  EXPECT_EQ(merge(), 1);
  ASSERT_EQ(routers.size(), 2U);
  EXPECT_THAT(routers[0]["file"].get<std::string>(), testing::EndsWith("/new.json"));
  EXPECT_EQ(routers[0]["new"], 1);
  EXPECT_EQ(routers[0]["findings"][0]["new"], false);
  EXPECT_EQ(routers[0]["findings"][1]["new"], true);
  EXPECT_EQ(routers[0]["causes"][0]["new"], false);
  EXPECT_EQ(routers[0]["causes"][1]["new"], true);
  ASSERT_EQ(routers[0]["earlier"].size(), 2U);
  EXPECT_EQ(routers[0]["earlier"][0]["started"], "2026-11-22 10:01:03,219");
  EXPECT_EQ(routers[0]["earlier"][1]["started"], "2026-11-21 11:01:03,219");
  EXPECT_EQ(routers[1]["new"], nullptr);
  options.when = fail_on::is_new;
  EXPECT_EQ(merge(), 1);
}

TEST_F(merge_of_files, takes_the_last_of_two_with_one_start_and_says_so) {
  write("one.json", run_with_faults(), "core-7");
  write("two.json", healthy_run(), "core-7");
  write("three.json", run_not_judged(), "core-7", "");  // nobody knows when
  EXPECT_EQ(merge(), 0);
  ASSERT_EQ(routers.size(), 1U);
  EXPECT_THAT(routers[0]["file"].get<std::string>(), testing::EndsWith("/two.json"));
  EXPECT_EQ(routers[0]["marks"][0], folder +
                                        "/one.json is a report of the same router and start, "
                                        "and was left out");
  ASSERT_EQ(routers[0]["earlier"].size(), 1U);
  EXPECT_EQ(routers[0]["earlier"][0]["started"], nullptr);
}

TEST_F(merge_of_files, names_the_file_that_it_does_not_take_for_a_report) {
  write("a.json", healthy_run(), "a");
  EXPECT_EQ(merge(), 0);
  add("merged");
  std::filesystem::copy_file(folder + "/merged", folder + "/again.json");
  options.reports.back() = folder + "/again.json";
  EXPECT_EQ(merge(), 3);
  EXPECT_THAT(complaints, HasSubstr("again.json: line "));
  EXPECT_THAT(complaints, HasSubstr(": this is what tessel-report merge wrote; name the reports of "
                                    "the routers\n"));
}

TEST_F(merge_of_files, takes_its_format_from_the_name_of_the_file) {
  write("a.json", healthy_run(), "a");
  const auto start_of_output = [&](const std::string& name) {
    options.output = folder + "/" + name;
    std::ostringstream out;
    EXPECT_EQ(merge_command(options, out), 0);
    std::string line;
    std::ifstream in(options.output);
    std::getline(in, line);
    return line;
  };
  EXPECT_EQ(start_of_output("x.json"), "{");
  EXPECT_EQ(start_of_output("x.html"), "<!DOCTYPE html>");
  EXPECT_EQ(start_of_output("x.txt"), "1 router: 1 agrees, 0 differ. 0 findings.");
  options.as = merge_format::text;
  EXPECT_EQ(start_of_output("x.json"), "1 router: 1 agrees, 0 differ. 0 findings.");
}

TEST(merge_options, name_what_is_wrong) {
  const auto complaint = [](const std::vector<std::string>& words) -> std::string {
    try {
      (void)parse_options(words);
    } catch (const command_line::usage_error& error) {
      return error.what();
    }
    return "";
  };
  EXPECT_EQ(complaint({"merge"}), "merge: FILE is missing; see tessel-report merge --help");
  EXPECT_EQ(complaint({"merge", "a", "--format", "xml"}),
            "merge: --format \"xml\": use text, json or html; see tessel-report merge --help");
  EXPECT_EQ(complaint({"--logs", "x", "merge", "a"}),
            "merge: --logs is for a run; merge takes reports in JSON only; see tessel-report merge "
            "--help");
  EXPECT_EQ(complaint({"merge", "a", "--fail-on", "confirmed"}),
            "merge: --fail-on confirmed compares runs; use any, new or never; see tessel-report "
            "merge --help");
  EXPECT_EQ(complaint({"merge", "a", "b", "--format=html", "--fail-on", "new", "--short"}), "");
  EXPECT_THAT(parse_options({"merge", "a", "--all", "b"}).reports, ElementsAre("a", "b"));
}

}  // namespace
}  // namespace desk
