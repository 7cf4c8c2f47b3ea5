#include "parse/bcm_lag.h"

#include <array>
#include <string>

#include "support/fake_router.h"
#include "support/hostile.h"

namespace tessel {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr std::string_view node = "0/0/CPU0";
constexpr std::string_view no_bundle_data =
    "INFO: BCM hardware dont have any bundle data/no bundle member from Location 0/0/CPU0";

class bcm_lag_test : public router_test {
 protected:
  void SetUp() override {
    router_test::SetUp();
    st().nodeinfo.get().as_map().set(node, map_of({{"asic_supported", 1}}));
    st().dl_fd.open(LOG_FILE_DEBUG, file_mode::truncate);
  }
  value asic_supported() { return st().nodeinfo.get().at(node).at("asic_supported"); }
  void expect_no_bundle_data() {
    EXPECT_EQ(asic_supported(), 0);
    EXPECT_EQ(st().info, 1);
    EXPECT_EQ(st().exception, 0);
    EXPECT_THAT(kept_messages(), ElementsAre(no_bundle_data));
  }
};

value diag_lag(std::string_view text) {
  return parse_diag_lag_BCM(text, node, "1");
}
value tm_lag(std::string_view text) {
  return parse_tm_lag(text, node, "1");
}

// --- earlier chips

TEST_F(bcm_lag_test, a_diag_lag_section_becomes_this_map) {
  const value parsed = diag_lag(
      "unit 1\n"
      "LAG ID: 17  members: 2\n"
      "  Id  |  Gport  |  Active\n"
      "  0   |  0xc000021  |  Y\n"
      "  10  |  0xc000022  |  N\n"
      "LAG ID: 2  members: 1\n"
      "  3  |  33  |  Y\n");
  EXPECT_EQ(printed(parsed),
            "{'LAG 0x11': {"
            "'0x0': {'gport': '0xc000021', 'is_active': 'Y', "
            "'Node Description': 'LAG 0x11_npu1_node0/0/CPU0_memid0x0'}, "
            "'0xa': {'gport': '0xc000022', 'is_active': 'N', "
            "'Node Description': 'LAG 0x11_npu1_node0/0/CPU0_memid0xa'}, "
            "'Visited': 0, 'Node Description': 'LAG 0x11_npu1_node0/0/CPU0'}, "
            "'LAG 0x2': {"
            "'0x3': {'gport': '33', 'is_active': 'Y', "
            "'Node Description': 'LAG 0x2_npu1_node0/0/CPU0_memid0x3'}, "
            "'Visited': 0, 'Node Description': 'LAG 0x2_npu1_node0/0/CPU0'}}");
  EXPECT_EQ(asic_supported(), 1);
  EXPECT_THAT(kept_messages(), IsEmpty());
}

TEST_F(bcm_lag_test, a_diag_lag_text_with_no_lag_takes_the_chip_as_unusable) {
  for (const char* text : {"", "\n", "no link aggregation\n", "lag ID: 1\n"}) {
    SCOPED_TRACE(text);
    SetUp();
    EXPECT_EQ(diag_lag(text), make_map());
    expect_no_bundle_data();
  }
}

TEST_F(bcm_lag_test, a_tm_lag_text_without_a_matching_row_takes_the_chip_as_unusable) {
  for (const char* text : {"", "\n", "| Entry | Hash |\n", "| 0 | x |   | 1 | yes | 0x1 | 0 |\n"}) {
    SCOPED_TRACE(text);
    SetUp();
    EXPECT_EQ(tm_lag(text), make_map());
    expect_no_bundle_data();
  }
}

TEST_F(bcm_lag_test, a_section_without_an_id_goes_to_the_debug_log_and_adds_nothing) {
  const value parsed = diag_lag("LAG table\nLAG ID: 1\n 0 | 0x1 | Y\n");
  EXPECT_THAT(parsed.as_map().keys(), ElementsAre("LAG 0x1"));
  EXPECT_EQ(file_text(LOG_FILE_DEBUG),
            "'Data Not Found: Not able to get lag id from diag_lag output, Location 0/0/CPU0, "
            "NPU 1'\n");
  EXPECT_EQ(st().info, 0);
  EXPECT_EQ(asic_supported(), 1);
  EXPECT_THAT(kept_messages(), IsEmpty());
}

TEST_F(bcm_lag_test, if_the_only_section_has_no_id_the_chip_counts_as_unusable) {
  EXPECT_EQ(diag_lag("LAG\n"), make_map());
  EXPECT_THAT(file_text(LOG_FILE_DEBUG), HasSubstr("Data Not Found"));
  expect_no_bundle_data();
}

TEST_F(bcm_lag_test, a_lag_with_no_member_rows_has_a_key_that_holds_an_empty_map) {
  EXPECT_EQ(diag_lag("LAG ID: 5\n  Id | Gport | Active\n"), map_of({{"LAG 0x5", make_map()}}));
  EXPECT_EQ(st().info, 0) << "it does not count as empty data";
  EXPECT_EQ(asic_supported(), 1);
}

TEST_F(bcm_lag_test, the_first_id_of_a_section_counts) {
  EXPECT_THAT(diag_lag("LAG ID: 5  ID: 6\n").as_map().keys(), ElementsAre("LAG 0x5"));
  EXPECT_THAT(diag_lag("LAG ID:\t010\n").as_map().keys(), ElementsAre("LAG 0x8"))
      << "read with automatic base";
  EXPECT_THAT(diag_lag("LAG ID: 089\n").as_map().keys(), ElementsAre("LAG 0x59"))
      << "and as decimal where that fails";
}

TEST_F(bcm_lag_test, rows_that_are_not_members_are_skipped) {
  struct row {
    const char* why;
    std::string line;
  };
  const std::array rows = {
      row{"no flag", "0 | 0x1 | -"},
      row{"no blanks around the bars", "0|0x1|Y"},
      row{"two columns", "0 | Y"},
      row{"a port of two words", "0 | 0x1 0x2 | Y"},
  };
  for (const row& each : rows) {
    SCOPED_TRACE(each.why);
    EXPECT_EQ(diag_lag("LAG ID: 1\n" + each.line + "\n"), map_of({{"LAG 0x1", make_map()}}));
  }
}

TEST_F(bcm_lag_test, cells_are_stripped_at_both_ends) {
  const value lag = diag_lag("LAG ID: 1\n 7 \t|\t 0xab \t| \t Y\n").at("LAG 0x1");
  EXPECT_EQ(lag.at("0x7").at("gport"), "0xab");
  EXPECT_EQ(lag.at("0x7").at("is_active"), "Y");
}

TEST_F(bcm_lag_test, a_member_key_may_be_none_of_the_bookkeeping_keys) {
  EXPECT_THAT(diag_lag("LAG ID: 1\n 0 | Visited | Y\n").at("LAG 0x1").as_map().keys(),
              ElementsAre("0x0", "Visited", "Node Description"));
}

// --- Jericho2

// The parser cuts the table at the first two cells of such a row.
std::string rows_of_lag(std::string_view id) {
  return "| 0 | 1 |   | " + std::string(id) + " | yes | 0xc000021 | 0 |\n";
}

TEST_F(bcm_lag_test, a_tm_lag_table_becomes_this_map) {
  const value parsed =
      tm_lag("| Entry | Hash | Ports | LAG | Mode | Global port | State |\n" + rows_of_lag("1") +
             "| 1 | 1 |   | 0x | no |   |  |\n" + rows_of_lag("20"));
  EXPECT_EQ(printed(parsed),
            "{'0x1': {'members': ['0xc000021'], 'Visited': 0, "
            "'Node Description': '0x1_npu1_node0/0/CPU0'}, "
            "'0x14': {'members': ['0xc000021'], 'Visited': 0, "
            "'Node Description': '0x14_npu1_node0/0/CPU0'}}");
  EXPECT_EQ(asic_supported(), 1);
  EXPECT_THAT(kept_messages(), IsEmpty());
}

TEST_F(bcm_lag_test, a_tm_lag_lag_with_two_members_has_them_in_row_order) {
  const value parsed = tm_lag(rows_of_lag("1") + "|   |   |   |   | yes | 0xc000009 | 0 |\n" +
                              "|   |   |   |   | yes | 0xc000004 | 0 |\n");
  EXPECT_EQ(parsed.at("0x1").at("members"), list_of({"0xc000021", "0xc000009", "0xc000004"}));
}

TEST_F(bcm_lag_test, a_tm_lag_row_with_an_id_and_no_port_creates_the_lag_without_visited) {
  EXPECT_EQ(tm_lag("| 0 | 1 |   | 7 | yes |   |   |\n"),
            map_of({{"0x7", map_of({{"members", make_list()}})}}));
  EXPECT_EQ(st().info, 0);
}

TEST_F(bcm_lag_test, a_lag_goes_on_in_the_next_piece) {
  // If the first two cells of a further row hold numbers, the row becomes a piece of its own.
  const value parsed = tm_lag(rows_of_lag("1") + "| 2 | 1 |   |   | yes | 0xc000009 | 0 |\n");
  EXPECT_EQ(parsed.at("0x1").at("members"), list_of({"0xc000021", "0xc000009"}));
}

TEST_F(bcm_lag_test, only_the_last_lag_of_a_piece_is_marked) {
  EXPECT_EQ(printed(tm_lag("| 0 | 1 |   | 1 | yes | 0xc1 | 0 |\n |   | 2 | yes | 0xc2 | 0 |\n")),
            "{'0x1': {'members': ['0xc1']}, '0x2': {'members': ['0xc2'], 'Visited': 0, "
            "'Node Description': '0x2_npu1_node0/0/CPU0'}}");
}

TEST_F(bcm_lag_test, an_id_twice_in_a_piece_starts_its_lag_anew) {
  EXPECT_EQ(printed(tm_lag("| 0 | 1 |   | 1 | yes | 0xc1 | 0 |\n |   | 1 | yes | 0xc2 | 0 |\n")),
            "{'0x1': {'members': ['0xc2'], 'Visited': 0, "
            "'Node Description': '0x1_npu1_node0/0/CPU0'}}");
}

TEST_F(bcm_lag_test, a_lag_whose_first_member_comes_in_the_next_piece_is_marked_then) {
  const std::string begun = "| 0 | 1 |   | 1 | yes |   |   |\n";
  const std::string continued = "| 2 | 1 |   |   | yes | 0xc1 | 0 |\n";
  EXPECT_EQ(printed(tm_lag(begun + continued)),
            "{'0x1': {'members': ['0xc1'], 'Visited': 0, "
            "'Node Description': '0x1_npu1_node0/0/CPU0'}}");
  EXPECT_EQ(printed(tm_lag(begun + continued + " |   | 2 | yes |   |   |\n")),
            "{'0x1': {'members': ['0xc1']}, '0x2': {'members': []}}")
      << "unless another one follows there";
}

TEST_F(bcm_lag_test, what_stands_in_front_of_the_first_cut_is_dropped) {
  EXPECT_THAT(tm_lag("x |   | 9 | yes | 0x1 | 0 |\n" + rows_of_lag("1")).as_map().keys(),
              ElementsAre("0x1"));
}

TEST_F(bcm_lag_test, an_id_that_comes_again_starts_its_lag_anew) {
  const value parsed =
      tm_lag(rows_of_lag("1") + rows_of_lag("2") + "| 0 | 1 |   | 1 | yes | 0xc000055 | 0 |\n");
  EXPECT_THAT(parsed.as_map().keys(), ElementsAre("0x1", "0x2"));
  EXPECT_EQ(parsed.at("0x1").at("members"), list_of({"0xc000055"}));
}

// --- failures

TEST_F(bcm_lag_test, a_tm_lag_piece_before_any_id_is_a_failure) {
  for (const char* text : {"| 0 | 1 |   |   | yes | 0xc000021 | 0 |\n", "| 0 | 1 | end\n"}) {
    SCOPED_TRACE(text);
    SetUp();
    EXPECT_EQ(tm_lag(text), ERROR);
    EXPECT_EQ(st().exception, 1);
    EXPECT_EQ(st().info, 0);
    EXPECT_EQ(asic_supported(), 1);
    EXPECT_THAT(kept_messages(),
                ElementsAre("no key '': parse tm_lag output failed Location 0/0/CPU0, NPU 1"));
    EXPECT_THAT(st().waiting_entries.at(0).entry, HasSubstr("Traceback (most recent call last)"));
  }
}

TEST_F(bcm_lag_test, an_output_that_is_not_a_text_is_a_failure_that_is_counted_once) {
  EXPECT_EQ(parse_diag_lag_BCM(ERROR, node, "1"), ERROR);
  EXPECT_EQ(st().exception, 1);
  EXPECT_EQ(parse_tm_lag(ERROR, node, "1"), ERROR);
  EXPECT_EQ(st().exception, 2);
  EXPECT_THAT(kept_messages(),
              ElementsAre("a text expected, found the integer 0: parse diag_lag output failed "
                          "Location 0/0/CPU0, NPU 1",
                          "a text expected, found the integer 0: parse tm_lag output failed "
                          "Location 0/0/CPU0, NPU 1"));
  EXPECT_EQ(asic_supported(), 1);
}

TEST_F(bcm_lag_test, endless_runs_behind_a_lag_harm_nothing) {
  for (const bad_output& each : endless_outputs()) {
    SCOPED_TRACE(each.why);
    const std::string run(each.output.as_text());
    EXPECT_EQ(diag_lag("LAG ID: 1\n 0 | 0x1 | Y\n" + run).at("LAG 0x1").as_map().size(), 3U);
    EXPECT_EQ(tm_lag(rows_of_lag("1") + run).at("0x1").at("members"), list_of({"0xc000021"}));
  }
  EXPECT_EQ(st().exception, 0);
}

TEST_F(bcm_lag_test, failures_are_counted_before_they_are_logged) {
  EXPECT_TRUE(counts_before_logging([] { parse_diag_lag_BCM(ERROR, node, "1"); }));
  EXPECT_TRUE(counts_before_logging([] { parse_tm_lag(ERROR, node, "1"); }));
}

TEST_F(bcm_lag_test, an_unknown_node_is_a_failure_of_the_parser_that_would_mark_it) {
  EXPECT_EQ(parse_tm_lag("", "0/9/CPU0", "0"), ERROR);
  EXPECT_EQ(st().info, 1);
  EXPECT_EQ(st().exception, 1);
  EXPECT_EQ(kept_messages().back(),
            "no key '0/9/CPU0': parse tm_lag output failed Location 0/9/CPU0, NPU 0");
}

TEST_F(bcm_lag_test, junk_behind_a_lag_harms_nothing) {
  for (const bad_output& each : meaningless_outputs()) {
    SCOPED_TRACE(each.why);
    SetUp();
    const std::string junk(each.output.as_text());
    EXPECT_THAT(diag_lag(junk + "LAG ID: 1\n 0 | 0x1 | Y\n" + junk).as_map().keys(),
                testing::Contains("LAG 0x1"));
    EXPECT_THAT(tm_lag(junk + rows_of_lag("1") + junk).as_map().keys(), ElementsAre("0x1"));
    EXPECT_EQ(st().exception, 0);
  }
}

TEST_F(bcm_lag_test, texts_cut_anywhere_are_reported_as_counted) {
  const std::string older = "LAG ID: 17\n 0 | 0xc000021 | Y\nLAG ID: 2\n 1 | 0xc000022 | Y\n";
  const std::string newer = rows_of_lag("1") + "|   |   |   |   | yes | 0xc000009 | 0 |\n";
  for (std::size_t length = 0; length < older.size(); ++length) {
    SetUp();
    diag_lag(older.substr(0, length));
    expect_every_message_counted();
  }
  for (std::size_t length = 0; length < newer.size(); ++length) {
    SetUp();
    tm_lag(newer.substr(0, length));
    expect_every_message_counted();
  }
}

}  // namespace
}  // namespace tessel
