#include "checks/field_checks.h"

#include <fmt/format.h>

#include <string>
#include <string_view>
#include <vector>

#include "support/bundle_world.h"
#include "support/hostile.h"

namespace tessel {
namespace {

using std::string_view;
using testing::ElementsAre;
using testing::IsEmpty;
using field_checks_test = logged_test;

using field_check = int (*)(const value&, record&, const object_name&, string_view);

// The checks that store the reported value in a field that is not set.
struct expecting_check {
  field_check check;
  std::string field;
};
const std::vector<expecting_check> expecting_checks = {
    {check_lagid, "lagid"}, {check_mtu, "mtu"}, {check_rif, "rif"}, {check_memid, "memid"}};

// A record that has the fields of all checks, none of them set.
value unset_record() {
  value element = new_record<Bundles>();
  element.as_record().set("memid", DEFAULT);
  return element;
}

value record_with(string_view field, value content) {
  value element = unset_record();
  element.as_record().set(field, std::move(content));
  return element;
}

// --- is_node_present

TEST_F(field_checks_test, is_node_present_of_a_known_node_is_SUCCESS_and_silent) {
  EXPECT_EQ(is_node_present("0/0/CPU0", map_of({{"0/0/CPU0", ERROR}}), "Bundle", "DPA"), SUCCESS);
  EXPECT_EQ(counted(), outcome());
  EXPECT_THAT(findings(), IsEmpty());
}

TEST_F(field_checks_test, is_node_present_reports_a_node_that_a_layer_lacks) {
  const value obj = map_of({{"0/0/CPU0", 1}});
  EXPECT_EQ(is_node_present("0/1/CPU0", obj, "Bundle", "DPA"), ERROR);
  EXPECT_EQ(is_node_present("0/0/CPU", obj, "Lag", "BME"), ERROR)
      << "a part of a name is not a name";
  EXPECT_THAT(findings(),
              ElementsAre("Inconsistency 1: DPA has no Bundle entry in location 0/1/CPU0",
                          "Inconsistency 2: BME has no Lag entry in location 0/0/CPU"));
  EXPECT_EQ(counted(), (outcome{.inconsistent = 2}));
}

TEST_F(field_checks_test, is_node_present_in_ERROR_or_a_text_is_a_failure_and_no_finding) {
  EXPECT_EQ(is_node_present("0/1/CPU0", ERROR, "Bundle", "DPA"), ERROR);
  EXPECT_EQ(is_node_present("0/1/CPU0", "node 0/1/CPU0 up", "Bundle", "DPA"), ERROR);
  EXPECT_THAT(findings(), IsEmpty());
  const auto told = failed_on("0/1/CPU0", "is_node_present check failed for 0/1/CPU0 in DPA");
  EXPECT_THAT(exceptions(), ElementsAre(told, told));
  EXPECT_TRUE(all_have_tracebacks());
  EXPECT_EQ(counted(), (outcome{.exception = 2}));
}

// --- is_entry_present

TEST_F(field_checks_test,
       is_entry_present_with_entry_Not_set_returns_ERROR_without_a_count_or_a_line) {
  const value obj = map_of({{"0x1", map_of({{"Visited", 0}})}});
  EXPECT_EQ(is_entry_present(DEFAULT, obj, "DPA", "BE12"), ERROR);
  EXPECT_EQ(is_entry_present(DEFAULT, map_of({{DEFAULT, make_map()}}), "DPA", "BE12"), ERROR)
      << "not even if the layer holds that text";
  EXPECT_EQ(is_entry_present(DEFAULT, ERROR, "DPA", "BE12"), ERROR) << "nor is the layer looked at";
  EXPECT_EQ(counted(), outcome());
  EXPECT_THAT(findings(), IsEmpty());
  EXPECT_THAT(exceptions(), IsEmpty());
}

TEST_F(field_checks_test,
       is_entry_present_on_a_present_entry_leaves_its_Visited_at_1_whatever_it_was) {
  const std::vector<std::pair<std::string, value>> cases = {
      {"not visited yet", map_of({{"Visited", 0}, {"lagid", "0x1"}})},
      {"visited before", map_of({{"Visited", 1}})},
      {"another number", map_of({{"Visited", 7}})},
      {"a text", map_of({{"Visited", "no"}})},
      {"without a mark", map_of({{"lagid", "0x1"}})},
      {"an empty entry", make_map()},
  };
  for (const auto& [why, entry] : cases) {
    EXPECT_EQ(is_entry_present("0x1", map_of({{"0x1", entry}}), "DPA", "BE12"), SUCCESS) << why;
    EXPECT_EQ(entry.at("Visited"), 1) << why;
  }
  EXPECT_EQ(counted(), outcome());
}

TEST_F(field_checks_test, is_entry_present_marks_the_entry_asked_for_alone) {
  const value obj = map_of({{"0x1", map_of({{"Visited", 0}})}, {"0x2", map_of({{"Visited", 0}})}});
  EXPECT_EQ(is_entry_present("0x2", obj, "DPA", "BE12"), SUCCESS);
  EXPECT_EQ(look(obj, {"0x1", "Visited"}), 0);
  EXPECT_EQ(look(obj, {"0x2", "Visited"}), 1);
}

TEST_F(field_checks_test, is_entry_present_reports_an_entry_that_a_layer_lacks) {
  const value obj = map_of({{"0x3000120", map_of({{"Visited", 0}})}});
  EXPECT_EQ(is_entry_present("0x3000121", obj, "DPA", be12::bundle_text), ERROR);
  EXPECT_EQ(is_entry_present("0X3000120", obj, "BCM", "NPU0,BE12"), ERROR);
  EXPECT_EQ(is_entry_present("", make_map(), "BM PI", "BE13"), ERROR);
  EXPECT_THAT(findings(),
              ElementsAre("Inconsistency 1: DPA has no entry for BE12(0x3000120), 0/0/CPU0",
                          "Inconsistency 2: BCM has no entry for NPU0,BE12",
                          "Inconsistency 3: BM PI has no entry for BE13"));
  EXPECT_EQ(counted(), (outcome{.inconsistent = 3}));
  EXPECT_EQ(look(obj, {"0x3000120", "Visited"}), 0);
}

TEST_F(field_checks_test, is_entry_present_in_ERROR_or_a_text_is_a_failure_and_no_finding) {
  struct row {
    std::string why;
    value obj;
  };
  const std::vector<row> rows = {
      {"the slot of a parser that failed", ERROR},
      {"the text that was never parsed, though the entry stands in it", "lag 0x1 up"},
      {"an empty slot", value()},
      {"a list", list_of({"0x1"})},
      {"a collection step stored ERROR in the place of the entry", map_of({{"0x1", ERROR}})},
      {"the entry is a text", map_of({{"0x1", "Visited"}})},
  };
  std::int64_t failures = 0;
  for (const row& each : rows) {
    EXPECT_EQ(is_entry_present("0x1", each.obj, "DPA", "BE12"), ERROR) << each.why;
    EXPECT_EQ(counted(), (outcome{.exception = ++failures})) << each.why;
    EXPECT_THAT(last(exceptions()),
                failed_on("", "is_entry_present verification failed for BE12 in DPA"))
        << each.why;
  }
  EXPECT_THAT(findings(), IsEmpty());
  EXPECT_TRUE(all_have_tracebacks());
}

// --- check_lagid, check_mtu, check_rif, check_memid

TEST_F(field_checks_test,
       check_lagid_stores_the_first_value_reports_another_and_is_silent_about_the_same) {
  const value element = unset_record();
  EXPECT_EQ(check_lagid("0x1", element.as_record(), "BE12", "BME"), SUCCESS);
  EXPECT_EQ(element.as_record().get("lagid"), "0x1");
  EXPECT_EQ(check_lagid("0x2", element.as_record(), "BE12", "DPA_Bundles"), ERROR);
  EXPECT_EQ(element.as_record().get("lagid"), "0x1") << "the field keeps the first value";
  EXPECT_EQ(check_lagid("0x1", element.as_record(), "BE12", "DPA_Bundles"), SUCCESS);
  EXPECT_THAT(
      findings(),
      ElementsAre(
          "Inconsistency 1:BE12 Lag ID is not consistent in DPA_Bundles:0x1, Expected:0x2"));
  EXPECT_EQ(counted(), (outcome{.inconsistent = 1}));
}

TEST_F(field_checks_test, each_of_the_four_takes_the_first_value_and_keeps_it) {
  for (const auto& [check, field] : expecting_checks) {
    const value element = unset_record();
    record& fields = element.as_record();
    EXPECT_EQ(check("0x1", fields, "BE12", "BME"), SUCCESS) << field;
    EXPECT_EQ(check("0x1", fields, "BE12", "DPA"), SUCCESS) << field;
    EXPECT_EQ(counted(), outcome()) << field;
    EXPECT_EQ(check("0x2", fields, "BE12", "DPA"), ERROR) << field;
    EXPECT_EQ(check("0x2", fields, "BE12", "DPA"), ERROR) << field;
    EXPECT_EQ(fields.get(field), "0x1");
    EXPECT_EQ(counted(), (outcome{.inconsistent = 2})) << field;
    st().inconsistent = 0;
  }
}

TEST_F(field_checks_test, lagid_and_mtu_print_the_record_first_rif_and_memid_what_is_reported) {
  for (const auto& [check, field] : expecting_checks) {
    const value element = record_with(field, "held");
    EXPECT_EQ(check("reported", element.as_record(), be12::bundle_text, "LAYER"), ERROR) << field;
  }
  EXPECT_THAT(
      findings(),
      ElementsAre("Inconsistency 1:BE12(0x3000120), 0/0/CPU0 Lag ID is not consistent in "
                  "LAYER:held, Expected:reported",
                  "Inconsistency 2:BE12(0x3000120), 0/0/CPU0 MTU is not consistent in "
                  "LAYER:held, Expected:reported",
                  "Inconsistency 3:BE12(0x3000120), 0/0/CPU0 RIF is not consistent in "
                  "LAYER:reported, Expected:held",
                  "Inconsistency 4:BE12(0x3000120), 0/0/CPU0 Member ID is not consistent in "
                  "LAYER:reported, Expected:held"));
  EXPECT_EQ(counted(), (outcome{.inconsistent = 4}));
}

TEST_F(field_checks_test, values_are_compared_as_they_stand) {
  struct row {
    std::string why;
    value held;
    value reported;
  };
  const std::vector<row> rows = {
      {"hexadecimal and decimal text of one number", "0x10", "16"},
      {"leading zeros", "0x10", "0x010"},
      {"a blank", "1514", "1514 "},
      {"a number is never a text", 0, "0"},
      {"a text is never a number", "0", 0},
      {"two numbers", 0, 1},
      {"back to not set", "0x1", DEFAULT},
  };
  for (const auto& [check, field] : expecting_checks) {
    for (const row& each : rows) {
      const value element = record_with(field, each.held);
      EXPECT_EQ(check(each.reported, element.as_record(), "BE12", "DPA"), ERROR) << each.why;
      EXPECT_EQ(element.as_record().get(field), each.held) << each.why;
    }
  }
  EXPECT_EQ(counted(), (outcome{.inconsistent = std::int64_t(4 * rows.size())}));
}

TEST_F(field_checks_test, a_number_is_printed_in_decimal) {
  const value element = record_with("mtu", 1514);
  EXPECT_EQ(check_mtu("1500", element.as_record(), "BE12", "DPA"), ERROR);
  EXPECT_THAT(findings(),
              ElementsAre("Inconsistency 1:BE12 MTU is not consistent in DPA:1514, Expected:1500"));
}

TEST_F(field_checks_test, a_field_check_called_with_a_text_that_differs_only_in_case_reports) {
  struct row {
    field_check check;
    std::string field;
    std::string held;
    std::string reported;
  };
  const std::vector<row> rows = {
      {check_lagid, "lagid", "0x1a", "0x1A"},
      {check_mtu, "mtu", "1514b", "1514B"},
      {check_rif, "rif", "0x1a", "0x1A"},
      {check_memid, "memid", "0x1a", "0x1A"},
      {check_lif, "glif", "0x1234a", "0x1234A"},
      {check_mac, "mac", "0011.2233.445a", "00:11:22:33:44:5A"},
  };
  std::int64_t found = 0;
  for (const row& each : rows) {
    const value element = record_with(each.field, each.held);
    EXPECT_EQ(each.check(each.reported, element.as_record(), "BE12", "DPA"), ERROR) << each.field;
    EXPECT_EQ(counted(), (outcome{.inconsistent = ++found})) << each.field;
  }
}

TEST_F(field_checks_test, the_numbers_of_the_findings_are_counted_through_all_checks) {
  st().inconsistent = 41;
  const value element = record_with("rif", "0x1");
  is_entry_present("0x1", make_map(), "DPA", "BE12");
  check_rif("0x2", element.as_record(), "BE12", "DPA");
  EXPECT_THAT(findings(),
              ElementsAre("Inconsistency 42: DPA has no entry for BE12",
                          "Inconsistency 43:BE12 RIF is not consistent in DPA:0x2, Expected:0x1"));
}

// --- check_lif

TEST_F(field_checks_test,
       check_lif_with_glif_Not_set_and_lif_0x_logs_the_0xXX_form_with_an_empty_tail) {
  const value element = unset_record();
  EXPECT_EQ(check_lif("0x", element.as_record(), "BE12", "DPA_Bundles_l2port"), ERROR);
  EXPECT_THAT(findings(), ElementsAre("Inconsistency 1:BE12 GLIF is not consistent in "
                                      "DPA_Bundles_l2port:0x,Expected:0xXX"));
  EXPECT_EQ(element.as_record().get("glif"), DEFAULT) << "the field is left alone";
  EXPECT_EQ(counted(), (outcome{.inconsistent = 1}));
}

TEST_F(field_checks_test, check_lif_takes_a_first_value_of_five_characters_or_more) {
  for (const char* lif : {"0x100", "0x12345", "0x9992345", "12345"}) {
    const value element = unset_record();
    EXPECT_EQ(check_lif(lif, element.as_record(), "BE12", "DPA"), SUCCESS) << lif;
    EXPECT_EQ(element.as_record().get("glif"), lif);
  }
  EXPECT_EQ(counted(), outcome());
}

TEST_F(field_checks_test, check_lif_reports_a_first_value_that_is_too_short_for_a_global_LIF) {
  for (const char* lif : {"0x12", "0x10", "0xx0", "2", ""}) {
    const value element = unset_record();
    EXPECT_EQ(check_lif(lif, element.as_record(), "BE12", "DPA"), ERROR) << lif;
    EXPECT_EQ(element.as_record().get("glif"), DEFAULT) << lif;
  }
  EXPECT_THAT(findings(),
              ElementsAre("Inconsistency 1:BE12 GLIF is not consistent in DPA:0x12,Expected:0xXX12",
                          // zeros at both ends are removed
                          "Inconsistency 2:BE12 GLIF is not consistent in DPA:0x10,Expected:0xXX1",
                          "Inconsistency 3:BE12 GLIF is not consistent in DPA:0xx0,Expected:0xXX",
                          "Inconsistency 4:BE12 GLIF is not consistent in DPA:2,Expected:0xXX2",
                          "Inconsistency 5:BE12 GLIF is not consistent in DPA:,Expected:0xXX"));
}

TEST_F(field_checks_test,
       check_lif_with_0x12345_held_and_0x9992345_reported_passes_for_only_four_are_compared) {
  const value element = record_with("glif", "0x12345");
  EXPECT_EQ(check_lif("0x9992345", element.as_record(), "BE12", "DPA"), SUCCESS);
  EXPECT_EQ(element.as_record().get("glif"), "0x12345");
  EXPECT_EQ(counted(), outcome());
  EXPECT_THAT(findings(), IsEmpty());
}

TEST_F(field_checks_test, check_lif_reports_other_last_characters) {
  const value element = record_with("glif", "0x12345");
  EXPECT_EQ(check_lif("0x12346", element.as_record(), "BE12", "DPA"), ERROR);
  EXPECT_EQ(check_lif("0x345", element.as_record(), "BE12", "DPA"), ERROR) << "x345 is not 2345";
  EXPECT_EQ(element.as_record().get("glif"), "0x12345");
  EXPECT_THAT(
      findings(),
      ElementsAre("Inconsistency 1:BE12 GLIF is not consistent in DPA:0x12346,Expected:0x12345",
                  "Inconsistency 2:BE12 GLIF is not consistent in DPA:0x345,Expected:0x12345"));
}

TEST_F(field_checks_test, check_lif_takes_a_shorter_text_whole) {
  const value held_short = record_with("glif", "0x7");
  EXPECT_EQ(check_lif("0x7", held_short.as_record(), "BE12", "DPA"), SUCCESS);
  EXPECT_EQ(check_lif("0x17", held_short.as_record(), "BE12", "DPA"), ERROR);
  const value held_bare = record_with("glif", "12345");
  EXPECT_EQ(check_lif("2345", held_bare.as_record(), "BE12", "DPA"), SUCCESS);
  EXPECT_EQ(check_lif("345", held_bare.as_record(), "BE12", "DPA"), ERROR);
  EXPECT_EQ(counted(), (outcome{.inconsistent = 2}));
}

// --- check_mac

TEST_F(field_checks_test,
       check_mac_with_0011_2233_4455_held_and_00_11_22_33_44_55_reported_passes) {
  const value element = record_with("mac", "0011.2233.4455");
  EXPECT_EQ(check_mac("00:11:22:33:44:55", element.as_record(), "BE12", "DPA"), SUCCESS);
  EXPECT_EQ(counted(), outcome());
  EXPECT_THAT(findings(), IsEmpty());
}

TEST_F(field_checks_test,
       check_mac_with_00_11_22_33_44_5A_reported_against_0011_2233_445a_is_a_discrepancy) {
  const value element = record_with("mac", "0011.2233.445a");
  EXPECT_EQ(check_mac("00:11:22:33:44:5A", element.as_record(), "BE12", "DPA"), ERROR);
  EXPECT_THAT(findings(),
              ElementsAre("Inconsistency 1:BE12 MAC is not consistent in DPA:00112233445A, "
                          "Expected:0011.2233.445a"));
  EXPECT_EQ(counted(), (outcome{.inconsistent = 1}));
}

TEST_F(field_checks_test, check_mac_always_compares_and_never_sets_the_field) {
  const value element = unset_record();
  EXPECT_EQ(check_mac("00:11:22:33:44:55", element.as_record(), "BE12", "DPA"), ERROR);
  EXPECT_EQ(element.as_record().get("mac"), DEFAULT);
  EXPECT_THAT(findings(), ElementsAre("Inconsistency 1:BE12 MAC is not consistent in "
                                      "DPA:001122334455, Expected:Not set"));
}

TEST_F(field_checks_test, check_mac_removes_points_of_the_record_and_colons_of_the_report_alone) {
  const value element = record_with("mac", "00:11.22");
  EXPECT_EQ(check_mac("0011.22", element.as_record(), "BE12", "DPA"), ERROR);
  EXPECT_THAT(findings(), ElementsAre("Inconsistency 1:BE12 MAC is not consistent in DPA:0011.22, "
                                      "Expected:00:11.22"));
}

// --- check_bundle_type

TEST_F(field_checks_test, check_bundle_type_compares_numbers) {
  struct row {
    std::string reported;
    value held;
    int result;
  };
  const std::vector<row> rows = {
      {"1", 1, SUCCESS}, {"0", 0, SUCCESS}, {"0x1", 1, SUCCESS}, {"0x0", 0, SUCCESS},
      {"0", 1, ERROR},   {"1", 0, ERROR},   {"1", "1", ERROR},   {"1", DEFAULT, ERROR},
  };
  for (const row& each : rows) {
    const value element = record_with("is_l2", each.held);
    EXPECT_EQ(check_bundle_type(each.reported, element.as_record(), "BE12", "DPA"), each.result)
        << each.reported << " against " << plain(each.held);
    EXPECT_EQ(element.as_record().get("is_l2"), each.held) << "the field is never set";
  }
  EXPECT_EQ(counted(), (outcome{.inconsistent = 4}));
}

TEST_F(field_checks_test, check_bundle_type_prints_what_is_reported_as_it_stands) {
  const value element = record_with("is_l2", 0);
  EXPECT_EQ(check_bundle_type("0x1", element.as_record(), "BE12", "DPA"), ERROR);
  EXPECT_THAT(findings(), ElementsAre("Inconsistency 1:BE12 Bundle type (is_l2/l3) is not "
                                      "consistent in DPA:0x1 & Running config: 0"));
}

TEST_F(field_checks_test, check_bundle_type_of_no_number_is_a_failure) {
  const value element = record_with("is_l2", 0);
  EXPECT_EQ(check_bundle_type("l2", element.as_record(), "BE12", "DPA"), ERROR);
  EXPECT_THAT(exceptions(),
              ElementsAre(failed_on("l2", "bundle type (l2/l3) verification failed for BE12")));
  EXPECT_TRUE(all_have_tracebacks());
  EXPECT_EQ(counted(), (outcome{.exception = 1}));
}

// --- failures

// The message of each check if the record lacks its field.
struct failing_check {
  field_check check;
  std::string field;
  std::string_view message;  // the braces take the object's name
};
const std::vector<failing_check> failing_checks = {
    {check_lagid, "lagid", "lagid verification failed {}"},
    {check_mtu, "mtu", "mtu verification failed {}"},
    {check_bundle_type, "is_l2", "bundle type (l2/l3) verification failed for {}"},
    {check_lif, "glif", "LIF verification failed for {}"},
    {check_rif, "rif", "RIF verification failed for {}"},
    {check_mac, "mac", "MAC verification failed for {}"},
    {check_memid, "memid", "Member ID verification failed for error_string"},
};

// A memberInfo has memid and mtu, a subBundles the others; neither has all fields.
value record_without(string_view field) {
  const bool of_sub_bundle = field == "memid" || field == "mtu" || field == "mac";
  return of_sub_bundle ? new_record<subBundles>() : new_record<memberInfo>();
}

TEST_F(field_checks_test, a_missing_field_is_a_failure_and_no_finding) {
  std::int64_t failures = 0;
  for (const failing_check& each : failing_checks) {
    const value element = record_without(each.field);
    EXPECT_EQ(each.check("0x12345", element.as_record(), be12::bundle_text, "DPA"), ERROR)
        << each.field;
    EXPECT_EQ(counted(), (outcome{.exception = ++failures})) << each.field;
    const std::string rest = fmt::format(fmt::runtime(each.message), be12::bundle_text);
    EXPECT_THAT(last(exceptions()), failed_on(each.field, rest));
  }
  EXPECT_THAT(findings(), IsEmpty());
  EXPECT_TRUE(all_have_tracebacks());
}

TEST_F(field_checks_test, a_value_that_is_not_a_text_where_characters_count_is_a_failure) {
  const value glif_held = record_with("glif", 5);
  EXPECT_EQ(check_lif("0x12345", glif_held.as_record(), "BE12", "DPA"), ERROR);
  EXPECT_EQ(check_lif(5, unset_record().as_record(), "BE12", "DPA"), ERROR);
  EXPECT_EQ(check_mac(ERROR, record_with("mac", "0011").as_record(), "BE12", "DPA"), ERROR);
  EXPECT_EQ(check_mac("00:11", record_with("mac", 11).as_record(), "BE12", "DPA"), ERROR);
  EXPECT_EQ(counted(), (outcome{.exception = 4}));
  EXPECT_THAT(findings(), IsEmpty());
}

TEST_F(field_checks_test, the_presence_tests_count_a_failure_and_then_log_it) {
  const std::string name = page_long_name();
  EXPECT_EQ(count_while_logging("exception", st().exception,
                                [&] { is_node_present(name, ERROR, "Bundle", "DPA"); }),
            1);
  EXPECT_EQ(count_while_logging("exception", st().exception,
                                [&] { is_entry_present("0x1", ERROR, "DPA", name); }),
            2);
}

TEST_F(field_checks_test, the_field_checks_log_a_failure_and_then_count_it) {
  const std::string name = page_long_name();
  std::int64_t failures = 0;
  for (const failing_check& each : failing_checks) {
    if (each.message.find("{}") == string_view::npos) continue;  // no name in this message
    const value element = record_without(each.field);
    EXPECT_EQ(count_while_logging("exception", st().exception,
                                  [&] { each.check("0x12345", element.as_record(), name, "DPA"); }),
              failures)
        << each.field;
    EXPECT_EQ(st().exception, ++failures);
  }
}

TEST_F(field_checks_test, check_memid_logs_a_failure_and_then_counts_it) {
  const value element = record_without("memid");
  EXPECT_TRUE(logs_before_counting(
      [&] { check_memid("0x1", element.as_record(), "the object's name", "DPA"); }));
}

TEST_F(field_checks_test, a_finding_is_counted_and_then_logged) {
  const std::string name = page_long_name();
  const value element = record_with("lagid", "0x1");
  EXPECT_EQ(count_while_logging("inconsistent", st().inconsistent,
                                [&] { check_lagid("0x2", element.as_record(), name, "DPA"); }),
            1);
}

}  // namespace
}  // namespace tessel
