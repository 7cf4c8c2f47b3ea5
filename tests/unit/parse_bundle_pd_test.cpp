#include "parse/bundle_pd.h"

#include <array>
#include <string>

#include "support/command_line.h"
#include "support/fake_router.h"
#include "support/hostile.h"

namespace tessel {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

constexpr std::string_view be12 =
    "Bundle-Ether12\n"
    "  LAG of the agents\n"
    "  Node          LAG   gport       mask\n"
    "  0/0/CPU0      0x1   0x4c000001  0x3\n"
    "  0/RP0/0       1     0x4c000001  0x0\n"
    "Node: 0/0/CPU0\n"
    "  Members\n"
    "  NPU  Id  System port  Name\n"
    "  ---  --  -----------  ----\n"
    "  0    0   0x21         Hu0/0/0/1\n"
    "  1    10  0x22         Te0/0/0/2/3\n";
constexpr std::string_view be12_parsed =
    "'BE12': {'members': {'0/0/CPU0': {"
    "'0/0/0/1': {'npu': '0', 'memid': '0x0', 'sysport': '0x21', 'Visited': 0, "
    "'Node Description': 'BE12_npu0_node0/0/CPU0_memid0x0'}, "
    "'0/0/0/2/3': {'npu': '1', 'memid': '0xa', 'sysport': '0x22', 'Visited': 0, "
    "'Node Description': 'BE12_npu1_node0/0/CPU0_memid0xa'}}}, "
    "'0/0/CPU0': {'lagid': '0x1', 'gport': '0x4c000001', 'npu_mask': '0x3'}, "
    "'0/RP0/CPU0': {'lagid': '0x1', 'gport': '0x4c000001', 'npu_mask': '0x0'}, "
    "'Visited': 0, 'Node Description': 'BE12_node0/0/CPU0'}";

class bundle_pd_test : public router_test {
 protected:
  void SetUp() override {
    router_test::SetUp();
    open_logs();
  }
  int parse(std::string_view output) {
    tool_prints("lagmgr_agent_show", output);
    return dump_parse_bundle_info_PD();
  }
  std::string store() { return printed(st().bdlInfoPD.get()); }
};

std::string with(std::string_view text, std::string_view what, std::string_view by) {
  std::string changed(text);
  changed.replace(changed.find(what), what.size(), by);
  return changed;
}

TEST_F(bundle_pd_test, the_command_line_is_this_one) {
  EXPECT_EQ(parse(be12), SUCCESS);
  EXPECT_THAT(calls(), ElementsAre("lagmgr_agent_show -m -a all"));
  EXPECT_EQ(file_text("/tmp/tessel_BME_PD.log"), be12);
  EXPECT_EQ(command_line_of("BME_PD", [] { dump_parse_bundle_info_PD(); }),
            "lagmgr_agent_show -m -a all");
}

TEST_F(bundle_pd_test, a_block_becomes_node_rows_and_members) {
  EXPECT_EQ(parse(be12), SUCCESS);
  EXPECT_EQ(store(), "{" + std::string(be12_parsed) + "}");
  EXPECT_EQ(st().exception, 0);
  EXPECT_THAT(messages(LOG_FILE_EXCEPTION), IsEmpty());
}

TEST_F(bundle_pd_test, output_without_any_bundle_ether_gives_an_empty_store_and_one_count) {
  for (const char* output : {"", "\n", "\nno bundles\n"}) {
    SetUp();
    EXPECT_EQ(parse(output), SUCCESS);
    EXPECT_EQ(st().bdlInfoPD.get(), make_map());
    EXPECT_EQ(st().exception, 1);
    EXPECT_THAT(messages(LOG_FILE_EXCEPTION),
                ElementsAre("INFO: Bundlemgr PD dont have any bundle data"));
  }
}

TEST_F(bundle_pd_test,
       text_in_front_of_the_first_block_is_skipped_only_if_its_first_line_is_empty) {
  EXPECT_EQ(parse("\nAgents of all nodes\n" + std::string(be12)), SUCCESS);
  EXPECT_THAT(st().bdlInfoPD.get().as_map().keys(), ElementsAre("BE12"));
  EXPECT_EQ(parse("Agents\n" + std::string(be12)), SUCCESS);
  EXPECT_THAT(st().bdlInfoPD.get().as_map().keys(), ElementsAre("BEAgents", "BE12"));
  EXPECT_EQ(st().bdlInfoPD.get().at("BEAgents"), map_of({{"members", make_map()}}));
}

TEST_F(bundle_pd_test, a_node_row_at_index_2_is_not_read) {
  EXPECT_EQ(parse("Bundle-Ether5\nheading\n0/0/CPU0 0x1 0x2 0x3\n0/1/CPU0 0x4 0x5 0x6\n"), SUCCESS);
  EXPECT_EQ(
      st().bdlInfoPD.get().at("BE5"),
      map_of({{"members", make_map()},
              {"0/1/CPU0", map_of({{"lagid", "0x4"}, {"gport", "0x5"}, {"npu_mask", "0x6"}})}}));
}

TEST_F(bundle_pd_test, a_member_row_at_index_3_is_not_read) {
  EXPECT_EQ(parse("Bundle-Ether5\nNode: 0/0/CPU0\na\nb\n0 0 0x21 Hu0/0/0/1\n0 1 0x22 Hu0/0/0/2\n"),
            SUCCESS);
  EXPECT_THAT(st().bdlInfoPD.get().at("BE5").at("members").at("0/0/CPU0").as_map().keys(),
              ElementsAre("0/0/0/2"));
}

TEST_F(bundle_pd_test, a_block_whose_node_parts_hold_no_member_row_still_gets_visited) {
  EXPECT_EQ(parse("Bundle-Ether5\na\nb\n0/0/CPU0 0x1 0x2 0x3\nNode: 0/0/CPU0\nNode: 0/1/CPU0\n\n"),
            SUCCESS);
  const value bundle = st().bdlInfoPD.get().at("BE5");
  EXPECT_EQ(bundle.at("members"), map_of({{"0/0/CPU0", make_map()}, {"0/1/CPU0", make_map()}}));
  EXPECT_EQ(bundle.at("Visited"), 0);
  EXPECT_EQ(bundle.at("Node Description"), "BE5_node0/1/CPU0") << "the last node";
}

TEST_F(bundle_pd_test, a_block_with_no_node_part_has_neither_visited_nor_description) {
  EXPECT_EQ(parse("Bundle-Ether5\na\nb\n0/0/CPU0 0x1 0x2 0x3\n"), SUCCESS);
  EXPECT_THAT(st().bdlInfoPD.get().at("BE5").as_map().keys(), ElementsAre("members", "0/0/CPU0"));
}

TEST_F(bundle_pd_test, a_row_with_three_or_five_words_is_skipped_without_a_message) {
  EXPECT_EQ(parse("Bundle-Ether5\na\nb\n0/0/CPU0 0x1 0x2\n0/0/CPU0 0x1 0x2 0x3 0x4\n\n"
                  "Node: 0/0/CPU0\na\nb\nc\n0 0 0x21\n0 0 0x21 Hu0/0/0/1 up\n\n"),
            SUCCESS);
  EXPECT_THAT(st().bdlInfoPD.get().at("BE5").as_map().keys(),
              ElementsAre("members", "Visited", "Node Description"));
  EXPECT_EQ(st().bdlInfoPD.get().at("BE5").at("members"), map_of({{"0/0/CPU0", make_map()}}));
  EXPECT_THAT(messages(LOG_FILE_EXCEPTION), IsEmpty());
  EXPECT_EQ(st().exception, 0);
}

TEST_F(bundle_pd_test, route_processors_are_stored_under_their_usual_names) {
  EXPECT_EQ(parse("Bundle-Ether5\na\nb\n0/RP1/0 0x1 0x2 0x3\n"
                  "Node: 0/RP0/0\na\nb\nc\nNode: 0/RP1/0\na\nb\nc\n0 1 0x21 Hu0/0/0/1\n"),
            SUCCESS);
  const value bundle = st().bdlInfoPD.get().at("BE5");
  EXPECT_THAT(bundle.as_map().keys(),
              ElementsAre("members", "0/RP1/CPU0", "Visited", "Node Description"));
  EXPECT_THAT(bundle.at("members").as_map().keys(), ElementsAre("0/RP0/CPU0", "0/RP1/CPU0"));
  EXPECT_EQ(bundle.at("members").at("0/RP1/CPU0").at("0/0/0/1").at("Node Description"),
            "BE5_npu0_node0/RP1/CPU0_memid0x1");
  EXPECT_EQ(bundle.at("Node Description"), "BE5_node0/RP1/CPU0");
}

TEST_F(bundle_pd_test, a_member_is_stored_under_its_name_less_the_two_letter_abbreviation) {
  EXPECT_EQ(parse("Bundle-Ether5\nNode: 0/0/CPU0\na\nb\nc\n"
                  "3 16 0x21 Hu0/0/0/1\n4 0x11 0x22 FH0/0/0/1/2\n5 1 0x23 X\n6 2 0x24 XY\n"),
            SUCCESS);
  const value members = st().bdlInfoPD.get().at("BE5").at("members").at("0/0/CPU0");
  EXPECT_THAT(members.as_map().keys(), ElementsAre("0/0/0/1", "0/0/0/1/2", ""))
      << "a shorter name leaves nothing";
  EXPECT_EQ(members.at("0/0/0/1").at("Node Description"), "BE5_npu3_node0/0/CPU0_memid0x10");
  EXPECT_EQ(members.at("0/0/0/1/2").at("memid"), "0x11");
  EXPECT_EQ(members.at("").at("npu"), "6") << "the last row of a name wins";
}

TEST_F(bundle_pd_test, of_a_name_that_comes_twice_the_later_block_wins) {
  EXPECT_EQ(parse(std::string(be12) + "Bundle-Ether7\nBundle-Ether12\n"), SUCCESS);
  EXPECT_EQ(store(), "{'BE12': {'members': {}}, 'BE7': {'members': {}}}");
}

TEST_F(bundle_pd_test, an_id_that_is_not_a_number_is_a_failure) {
  struct row {
    const char* why;
    std::string output;
    std::string message;
  };
  const std::array rows = {
      row{"a LAG id", with(be12, "0x1 ", "lag "),
          "'lag' is no number: dump_parse_bundle_info_PD failed"},
      row{"a member id", with(be12, "0    0 ", "0    x "),
          "'x' is no number: dump_parse_bundle_info_PD failed"},
  };
  for (const row& each : rows) {
    SCOPED_TRACE(each.why);
    SetUp();
    EXPECT_EQ(parse(each.output), ERROR);
    EXPECT_EQ(st().bdlInfoPD.get(), with(each.output, "0/RP0/0", "0/RP0/CPU0"))
        << "the text stays, with the names in their usual form";
    EXPECT_EQ(st().exception, 1);
    EXPECT_THAT(messages(LOG_FILE_EXCEPTION), ElementsAre(each.message));
    EXPECT_THAT(file_text(LOG_FILE_EXCEPTION), HasSubstr("Traceback (most recent call last):"));
  }
}

TEST_F(bundle_pd_test, everything_is_counted_before_it_is_logged) {
  EXPECT_TRUE(counts_before_logging([&] { parse(with(be12, "0x1 ", "lag ")); }));
  EXPECT_TRUE(counts_before_logging([&] { parse(""); }));
}

TEST_F(bundle_pd_test, a_command_that_cannot_be_run_leaves_error_in_the_store) {
  const read_only_folder no_captures("/tmp");
  EXPECT_EQ(dump_parse_bundle_info_PD(), ERROR);
  EXPECT_EQ(st().bdlInfoPD.get(), ERROR);
  EXPECT_EQ(st().exception, 2) << "the command and the parser, each its own failure";
  EXPECT_THAT(
      messages(LOG_FILE_EXCEPTION),
      ElementsAre(StartsWith("cannot open /tmp/tessel_BME_PD.log"),
                  "a text expected, found the integer 0: dump_parse_bundle_info_PD failed"));
}

// A copy with the usual names takes the place of the table, once for each name that occurs.
TEST_F(bundle_pd_test, a_table_that_does_not_fit_a_second_time_is_a_counted_failure) {
  struct {
    std::uint64_t half;
    const char* refused;
    const char* ends_in;
  } const rows[] = {
      {2030, "it has 1017 bytes, at most 1016 bytes are left", "0/RP0/0 0/RP1/0"},
      {2036, "it has 1020 bytes, at most 1019 bytes are left", "0/RP0/CPU0 0/RP1/0"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.half);
    SetUp();
    st().texts.set_limit({2 * row.half, "RLIMIT_AS"});
    EXPECT_EQ(parse(std::string(999, 'x') + "0/RP0/0 0/RP1/0"), ERROR);
    EXPECT_THAT(
        messages(LOG_FILE_EXCEPTION),
        ElementsAre(testing::AllOf(
            StartsWith("cannot hold the agents' table with the usual names of nodes: "),
            HasSubstr(row.refused), testing::EndsWith(": dump_parse_bundle_info_PD failed"))));
    EXPECT_EQ(st().exception, 1);
    EXPECT_TRUE(st().bdlInfoPD.get().as_text().ends_with(row.ends_in));
  }
}

TEST_F(bundle_pd_test, a_table_that_is_held_twice_fits) {
  st().texts.set_limit({2 * 2037, "RLIMIT_AS"});
  EXPECT_EQ(parse(std::string(999, 'x') + "0/RP0/0 0/RP1/0"), SUCCESS);
  EXPECT_EQ(st().texts.held(), 0U);
}

TEST_F(bundle_pd_test, a_table_without_route_processors_is_held_once) {
  st().texts.set_limit({2 * 1000, "RLIMIT_AS"});
  EXPECT_EQ(parse(std::string(1000, 'x')), SUCCESS);
}

TEST_F(bundle_pd_test, a_missing_tool_is_an_empty_output) {
  EXPECT_EQ(dump_parse_bundle_info_PD(), SUCCESS);
  EXPECT_EQ(st().bdlInfoPD.get(), make_map());
  EXPECT_EQ(st().exception, 1);
}

TEST_F(bundle_pd_test, an_output_cut_anywhere_is_reported_at_most_once) {
  for (std::size_t length = 0; length < be12.size(); length += 19) {
    SCOPED_TRACE(length);
    SetUp();
    parse(be12.substr(0, length));
    EXPECT_EQ(messages(LOG_FILE_EXCEPTION).size(), static_cast<std::size_t>(st().exception));
    EXPECT_LE(st().exception, 1);
  }
}

TEST_F(bundle_pd_test, an_endless_run_behind_a_block_harms_nothing) {
  for (const bad_output& each : endless_outputs()) {
    SCOPED_TRACE(each.why);
    EXPECT_EQ(parse("\n" + std::string(be12) + std::string(each.output.as_text())), SUCCESS);
    EXPECT_EQ(store(), "{" + std::string(be12_parsed) + "}");
  }
  EXPECT_EQ(st().exception, 0);
}

TEST_F(bundle_pd_test, junk_behind_a_block_harms_nothing) {
  for (const bad_output& each : meaningless_outputs()) {
    SCOPED_TRACE(each.why);
    SetUp();
    parse("\n" + std::string(be12) + std::string(each.output.as_text()));
    EXPECT_EQ(messages(LOG_FILE_EXCEPTION).size(), static_cast<std::size_t>(st().exception));
    EXPECT_LE(st().exception, 1) << "four words of noise can be a row whose id is not a number";
  }
}

}  // namespace
}  // namespace tessel
