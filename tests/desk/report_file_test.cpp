#include "desk/store/report_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "desk/judge/record.h"
#include "desk/read/line_reader.h"
#include "desk/show/html.h"
#include "desk/show/json.h"
#include "desk/show/junit.h"
#include "desk/show/keys.h"
#include "desk/show/sarif.h"
#include "desk/show/summary.h"
#include "desk/store/json_file.h"
#include "tests/desk/example_runs.h"

namespace desk {
namespace {

class report_file : public testing::Test {
 protected:
  void SetUp() override {
    folder = testing::TempDir() + "report_file.XXXXXX";
    ASSERT_NE(::mkdtemp(folder.data()), nullptr);
  }
  void TearDown() override { std::filesystem::remove_all(folder); }

  [[nodiscard]] std::string path() const { return folder + "/r.json"; }
  void write(std::string_view text) const {
    std::ofstream(path(), std::ios::binary | std::ios::trunc) << text;
  }
  [[nodiscard]] judged_run read(std::string_view text) const {
    write(text);
    return read_report(path());
  }
  // Without the words in front, which are the same for all.
  [[nodiscard]] std::string complaint(std::string_view text) const {
    try {
      (void)read(text);
    } catch (const read_error& error) {
      const std::string what = error.what();
      const std::string start = "cannot read " + path() + ": ";
      EXPECT_TRUE(what.starts_with(start)) << what;
      EXPECT_EQ(what.find_first_of(std::string("\n\0\x1b", 3)), std::string::npos);
      EXPECT_LT(what.size(), start.size() + 500);
      return what.substr(std::min(start.size(), what.size()));
    }
    return "it was read";
  }

  std::string folder;
};

std::string text_of(const judged_run& of) {
  std::ostringstream out;
  show_json(of, out);
  return out.str();
}

std::string with(std::string text, std::string_view old, std::string_view with_this) {
  const std::size_t place = text.find(old);
  EXPECT_NE(place, std::string::npos) << old;
  return place == std::string::npos ? text : text.replace(place, old.size(), with_this);
}

const std::vector<judged_run>& examples() {
  static const std::vector<judged_run> made = [] {
    std::vector<judged_run> all;
    all.push_back(healthy_run());
    all.push_back(run_with_faults());
    all.push_back(run_not_judged());
    all.push_back(run_that_stopped());
    all.push_back(hostile_run());
    all.push_back(large_run(200, 12));
    return all;
  }();
  return made;
}

TEST_F(report_file, is_read_back_as_it_was_written) {
  for (const judged_run& one : examples()) {
    const std::string text = text_of(one);
    EXPECT_EQ(text_of(read(text)), text);
  }
}

TEST_F(report_file, gives_the_views_what_they_show) {
  for (const judged_run& one : examples()) {
    const judged_run back = read(text_of(one));
    EXPECT_EQ(exit_status(back), exit_status(one));
    std::ostringstream was;
    std::ostringstream is;
    show_summary(one, {false, true}, {}, was);
    show_summary(back, {false, true}, {}, is);
    show_html(back, is);
    show_junit(back, is);
    show_sarif(back, is);
    // Bytes that are no UTF-8 have become U+FFFD, which a terminal shows differently.
    const bool is_hostile = &one == &examples()[4];
    EXPECT_TRUE(is_hostile || is.str().starts_with(was.str()));
  }
}

// What two runs are compared by.
std::string shown(const run_record& of) {
  std::ostringstream out;
  out << of.started << ' ' << of.is_open << ' ' << of.bundles << ' ' << of.differing << ' '
      << key_for(of.end) << ' ' << of.holes.size() << '\n';
  for (const auto* names : {&of.open_bundles, &of.known_bundles, &of.lost_logs})
    for (const auto& name : *names) out << name << '\n';
  for (const auto& one : of.findings)
    out << one.fingerprint << ' ' << one.title << ' ' << one.cause << ' ' << one.values << ' '
        << one.count << one.is_doubt << '\n';
  return out.str();
}

TEST_F(report_file, is_compared_as_its_run_is) {
  for (const judged_run& one : examples()) {
    const judged_run back = read(text_of(one));
    EXPECT_TRUE(&one == &examples()[4] || shown(record_of(back)) == shown(record_of(one)));
  }
}

TEST_F(report_file, has_the_objects_of_its_bundles) {
  const judged_run back = read(text_of(run_with_faults()));
  const object* bundle = back.of.find(object_kind::bundle, "BE2", "BE2");
  ASSERT_NE(bundle, nullptr);
  EXPECT_TRUE(bundle->is_configured);
  ASSERT_EQ(bundle->parts.size(), 2U);
  EXPECT_EQ(back.of.objects[bundle->parts[0]].name, "0/0/0/2");
  EXPECT_EQ(back.of.objects[bundle->parts[1]].kind, object_kind::sub_bundle);
  EXPECT_NE(back.of.find(object_kind::member, "BE2", "0/0/0/2"), nullptr);
}

TEST_F(report_file, says_which_logs_are_lost) {
  auto run = healthy_run();
  run.of.lost_logs = {"tessel_delay_delete.log"};
  run.of.cut_logs = {"tessel_inconsistencies.log"};
  const judged_run back = read(text_of(run));
  EXPECT_THAT(back.of.lost_logs, testing::ElementsAre("tessel_delay_delete.log"));
  EXPECT_THAT(back.of.cut_logs, testing::ElementsAre("tessel_inconsistencies.log"));
}

TEST_F(report_file, keeps_two_parts_that_differ_in_broken_bytes_only) {
  auto run = healthy_run();
  (void)run.of.object_at(object_kind::member, "BE1", "\xff");
  (void)run.of.object_at(object_kind::member, "BE1", "\xfe");
  const std::string text = text_of(run);
  EXPECT_EQ(text_of(read(text)), text);
}

TEST_F(report_file, may_have_keys_of_a_newer_program_and_any_order) {
  const std::string text = text_of(run_with_faults());
  auto more = with(text, "\"marks\"", R"("new":{"a":[1,{"a":2,"a":3}],"b":null},"marks")");
  more = with(more, R"("takes_part":true)", R"("takes_part":true,"colour":"red")");
  EXPECT_EQ(text_of(read(more)), text);

  const auto findings = text.find("\"findings\": [");
  const auto bundles = text.find("\"bundles\": [");
  ASSERT_NE(findings, std::string::npos);
  std::string moved = text.substr(0, bundles) + text.substr(findings);
  moved.erase(moved.rfind('}'));
  moved += "," + text.substr(bundles, findings - bundles);
  moved.erase(moved.rfind(','));
  EXPECT_EQ(text_of(read(moved + "}")), text);
}

TEST_F(report_file, names_the_place_and_what_was_expected_there) {
  const std::string text = text_of(run_with_faults());
  EXPECT_EQ(complaint(with(text, "\"format\": 1", "\"format\": 2")),
            "line 2: format: format 2, this program reads 1");
  EXPECT_THAT(complaint(with(text, R"("verdict":"differs")", R"("verdict":"maybe")")),
              testing::EndsWith(": bundles/0/verdict: expected one of agrees, differs, "
                                "not_judged, found \"maybe\""));
  EXPECT_THAT(complaint(with(text, R"("odd":false)", R"("odd":0)")),
              testing::EndsWith("causes/0/differences/0/witnesses/0/odd: expected true or false, "
                                "found 0"));
  EXPECT_THAT(complaint(with(text, R"("odd":false)", R"("even":false)")),
              testing::EndsWith("causes/0/differences/0/witnesses/0: the key \"odd\" is missing"));
  EXPECT_THAT(complaint(with(text, R"("takes_part":true)", R"("takes_part":true,"name":"x")")),
              testing::EndsWith("the key \"name\" is there twice"));
  EXPECT_THAT(complaint(with(text, "\"origin\"", "\"marks\"")),
              testing::EndsWith("marks: expected a list, found \"/var/log/audit\""));
  EXPECT_THAT(complaint(with(text, "\"marks\": []", "\"origin\": []")),
              testing::EndsWith("the key \"origin\" is there twice"));
  EXPECT_THAT(complaint(with(text, "\"origin\": \"/var/log/audit\"", "\"origin\": []")),
              testing::EndsWith("origin: expected no list"));
  EXPECT_THAT(complaint(with(text, "\"debug_notes\"", "\"other_notes\"")),
              testing::EndsWith("the key \"debug_notes\" is missing"));
  EXPECT_THAT(complaint(with(text, "\"seconds\": 12.5", "\"seconds\": -1")),
              testing::EndsWith("seconds: expected a number of seconds, found -1"));
  EXPECT_THAT(
      complaint(with(text, "\"bundle\":\"BE2\",\"verdict\"", R"("bundle":"BE1","verdict")")),
      testing::EndsWith("bundles/1: the bundle BE1 is there twice"));
}

TEST_F(report_file, has_no_index_that_leads_nowhere) {
  const std::string text = text_of(run_with_faults());
  EXPECT_THAT(complaint(with(text, R"("causes":[0])", R"("causes":[5])")),
              testing::EndsWith("bundles/0/causes: there is no cause 5, only 5 of them"));
  EXPECT_THAT(complaint(with(text, R"("findings":[0])", R"("findings":[6])")),
              testing::EndsWith("causes/0/findings: there is no finding 6, only 6 of them"));
  EXPECT_THAT(
      complaint(with(text, "\"unexplained\": [5]", "\"unexplained\": [18446744073709551615]")),
      testing::EndsWith("only 6 of them"));
  EXPECT_THAT(
      complaint(with(text, "\"unexplained\": [5]", "\"unexplained\": [18446744073709551616]")),
      testing::EndsWith("unexplained/0: expected a whole number, found "
                        "1.8446744073709552e+19"));
  EXPECT_THAT(complaint(with(text, "\"unexplained\": [5]", "\"unexplained\": [-5]")),
              testing::EndsWith("unexplained/0: expected a whole number, found -5"));
}

TEST_F(report_file, is_refused_if_it_is_something_else) {
  using namespace std::string_literals;
  EXPECT_EQ(complaint(""), "line 1: the file is empty");
  EXPECT_EQ(complaint("hello\n"), "line 1: this is no JSON");
  EXPECT_EQ(complaint("[1]"), "line 1: expected an object");
  EXPECT_EQ(complaint("5"), "line 1: expected an object");
  EXPECT_EQ(complaint("{}"), "line 1: expected a report that tessel-report json wrote");
  EXPECT_EQ(complaint(R"({"version":"2.1.0","runs":[{"a":1}]})"),
            "line 1: expected a report that tessel-report json wrote");
  EXPECT_EQ(complaint(R"({"format":1,"program":{"name":"tessel-report"},"routers":[]})"),
            "line 1: this is what tessel-report merge wrote; name the reports of the routers");
  EXPECT_EQ(complaint(R"({"format":1,"program":{"name":"other"}})"),
            "line 1: program: expected a report that tessel-report json wrote");
  EXPECT_EQ(complaint("{\"format\":1,\"a\0b\":2}"s), "line 1: this is no JSON");
  EXPECT_EQ(complaint(R"({"format":"\ud800"})"), "line 1: this is no JSON");
  EXPECT_EQ(complaint("{\"format\":\"\xff\"}"), "line 1: this is no JSON");
  EXPECT_THAT(complaint(text_of(healthy_run()) + "{}"), testing::HasSubstr("this is no JSON"));
}

TEST_F(report_file, is_refused_wherever_it_is_cut_off) {
  const std::string text = text_of(run_not_judged());
  for (std::size_t end = 1; end < text.size() - 2; end += 1 + end % 37) {
    const std::string why = complaint(text.substr(0, end));
    EXPECT_THAT(why, testing::HasSubstr("the file is cut off, or no JSON")) << end;
  }
}

TEST_F(report_file, is_held_to_its_bounds) {
  const std::string start = R"({"format":)";
  EXPECT_EQ(complaint(start + std::string(5000, '9') + "}"),
            "line 1: a number or word of more than 400 digits");
  EXPECT_EQ(complaint(R"({"deep":)" + std::string(100'000, '[')),
            "line 1: nested more than 32 deep");
  std::string deep = R"({"marks":)";
  for (int i = 0; i < 50; ++i) deep += R"({"a":)";
  EXPECT_EQ(complaint(deep), "line 1: nested more than 32 deep");
  EXPECT_EQ(complaint(R"({"origin":")" + std::string(std::size_t{70} << 20U, 'x') + "\"}"),
            "line 1: a text of more than 67108864 bytes");
}

TEST_F(report_file, is_held_to_a_size) {
  write(R"({"a":[1,2,3,4,5,6,7,8]})");
  json_taker taker;
  taker.wants = [](const std::string&) { return false; };
  std::size_t ends = 0;
  taker.end = [&] { ++ends; };
  read_json_file(path(), taker, 23);
  EXPECT_EQ(ends, 1U);
  EXPECT_THROW(read_json_file(path(), taker, 22), read_error);
  EXPECT_EQ(ends, 1U);
}

TEST_F(report_file, names_a_file_that_cannot_be_read) {
  try {
    (void)read_report(folder + "/none.json");
    ADD_FAILURE();
  } catch (const read_error& error) {
    EXPECT_EQ(std::string(error.what()),
              "cannot read " + folder + "/none.json: No such file or directory");
  }
  EXPECT_THROW((void)read_report(folder), read_error);
}

template <typename Value>
void expect_keys_to_lead_back() {
  const int last = static_cast<int>(last_value<Value>);
  for (int i = 0; i <= last; ++i) {
    const auto value = static_cast<Value>(i);
    EXPECT_EQ(value_for_key<Value>(key_for(value)), value) << key_for(value);
  }
  // A value behind the last one would have a key of its own.
  EXPECT_EQ(key_for(static_cast<Value>(last + 1)), key_for(last_value<Value>));
  EXPECT_EQ(value_for_key<Value>("no such key"), std::nullopt);
  EXPECT_EQ(value_for_key<Value>(""), std::nullopt);
}

TEST(keys, lead_back_to_their_values) {
  expect_keys_to_lead_back<layer>();
  expect_keys_to_lead_back<field>();
  expect_keys_to_lead_back<source>();
  expect_keys_to_lead_back<object_kind>();
  expect_keys_to_lead_back<coverage_state>();
  expect_keys_to_lead_back<finding_kind>();
  expect_keys_to_lead_back<run_end>();
  expect_keys_to_lead_back<verdict>();
  expect_keys_to_lead_back<sureness>();
  expect_keys_to_lead_back<witness::state>();
}

}  // namespace
}  // namespace desk
