#include "parse/bundle_pi.h"

#include <array>
#include <random>
#include <string>

#include "base/text.h"
#include "support/command_line.h"
#include "support/fake_router.h"
#include "support/hostile.h"

namespace tessel {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

// As the filter of the command leaves it.
constexpr std::string_view be12 =
    "Bundle-Ether12\n"
    "  Bundle interface handle        BE12 (0x3000120)\n"
    "  Local MAC address              0011.2233.4455\n"
    "  Operational MTU                1514\n"
    "  Member interface               Hu0/0/0/1 (0x60)\n"
    "  Member interface               Te0/1/0/2/3 (0x61)\n";
constexpr std::string_view be7 =
    "Bundle-Ether7\n"
    "  Bundle interface handle        BE7 (0x3000070)\n"
    "  Local MAC address              00aa.bbcc.ddee\n"
    "  Operational MTU                9192\n"
    "  Member interface               Hu0/0/0/9 (0x70)\n";
constexpr std::string_view be12_parsed =
    "'BE12': {'mtu': '1514', 'mac': '0011.2233.4455', 'members': {"
    "'0/0/0/1': {'mifh': '0x60', 'Visited': 0, 'Node Description': 'BE12_Hu0/0/0/1'}, "
    "'0/1/0/2/3': {'mifh': '0x61', 'Visited': 0, 'Node Description': 'BE12_Te0/1/0/2/3'}}, "
    "'Visited': 0, 'Node Description': 'BE12', 'ifh': '0x3000120'}";
constexpr std::string_view be7_parsed =
    "'BE7': {'mtu': '9192', 'mac': '00aa.bbcc.ddee', 'members': {"
    "'0/0/0/9': {'mifh': '0x70', 'Visited': 0, 'Node Description': 'BE7_Hu0/0/0/9'}}, "
    "'Visited': 0, 'Node Description': 'BE7', 'ifh': '0x3000070'}";

class bundle_pi_test : public router_test {
 protected:
  void SetUp() override {
    router_test::SetUp();
    open_logs();
  }
  int parse(std::string_view output) {
    tool_prints("lagmgr_table_show", output);
    return dump_parse_bundle_info_PI();
  }
  std::string store() { return printed(st().bdlInfoPI.get()); }
};

std::string without_line(std::string_view text, std::string_view word) {
  const auto at = text.find(word);
  const auto start = text.rfind('\n', at) + 1;
  return std::string(text.substr(0, start)).append(text.substr(text.find('\n', at) + 1));
}

std::string joined(std::initializer_list<std::string_view> parts) {
  std::string all;
  for (const std::string_view part : parts) all += part;
  return all;
}

TEST_F(bundle_pi_test, the_command_line_is_this_one) {
  EXPECT_EQ(parse(be12), SUCCESS);
  EXPECT_THAT(calls(), ElementsAre("lagmgr_table_show -d -P 0x0 -N all -L 0x3 -O all"));
  EXPECT_EQ(file_text("/tmp/tessel_BM_PI.log"), be12);
  EXPECT_EQ(command_line_of("BM_PI", [] { dump_parse_bundle_info_PI(); }),
            "lagmgr_table_show -d -P 0x0 -N all -L 0x3 -O all | "
            "grep -E 'Bundle|Member|Operational MTU|Local'");
}

TEST_F(bundle_pi_test, the_filter_keeps_lines_with_one_of_four_words) {
  EXPECT_EQ(parse(joined({"Database of the manager\n", be12, "  State  Up\n"})), SUCCESS);
  EXPECT_EQ(file_text("/tmp/tessel_BM_PI.log"), be12);
}

TEST_F(bundle_pi_test, bundles_stand_in_the_order_of_the_output) {
  EXPECT_EQ(parse(joined({be12, be7})), SUCCESS);
  EXPECT_EQ(store(), joined({"{", be12_parsed, ", ", be7_parsed, "}"}));
  EXPECT_EQ(st().exception, 0);
  EXPECT_EQ(st().info, 0);
  EXPECT_THAT(messages(LOG_FILE_EXCEPTION), IsEmpty());
}

TEST_F(bundle_pi_test, output_without_any_bundle_head_gives_an_empty_store_and_one_count) {
  EXPECT_EQ(parse("Bundle manager has no data\nLocal\n"), SUCCESS);
  EXPECT_EQ(st().bdlInfoPI.get(), make_map());
  EXPECT_EQ(st().exception, 1);
  EXPECT_EQ(st().info, 0);
  EXPECT_THAT(messages(LOG_FILE_EXCEPTION), ElementsAre("INFO: BMPI dont have any bundle data"));
}

TEST_F(bundle_pi_test, a_bundle_with_no_member_line_adds_to_info_and_has_no_entry) {
  const std::string without_member = without_line(be7, "Member interface");
  EXPECT_EQ(parse(joined({without_member, be12})), SUCCESS);
  EXPECT_EQ(store(), joined({"{", be12_parsed, "}"}));
  EXPECT_EQ(st().info, 1);
  EXPECT_EQ(st().exception, 0);
  EXPECT_THAT(messages(LOG_FILE_EXCEPTION),
              ElementsAre("INFO: No member is added to bundle BE7(0x3000070)"));
}

TEST_F(bundle_pi_test, only_bundles_without_members_are_a_note_each_and_an_empty_store) {
  EXPECT_EQ(parse(without_line(be7, "Member interface")), SUCCESS);
  EXPECT_EQ(st().bdlInfoPI.get(), make_map());
  EXPECT_THAT(messages(LOG_FILE_EXCEPTION),
              ElementsAre("INFO: No member is added to bundle BE7(0x3000070)",
                          "INFO: BMPI dont have any bundle data"));
  EXPECT_EQ(st().info, 1);
  EXPECT_EQ(st().exception, 1);
}

TEST_F(bundle_pi_test, a_member_name_runs_up_to_the_blank_in_front_of_its_bracket) {
  struct row {
    const char* why;
    std::string line;
    std::string key;
    std::string description;
  };
  const std::array rows = {
      row{"four numbers", "Hu0/0/0/1 (0x60)", "0/0/0/1", "BE12_Hu0/0/0/1"},
      row{"a breakout port", "Te0/0/0/1/3 (0x60)", "0/0/0/1/3", "BE12_Te0/0/0/1/3"},
      row{"words behind the numbers", "Hu0/0/0/1 up (0x60)", "0/0/0/1 up", "BE12_Hu0/0/0/1 up"},
      row{"a long type word loses two letters only", "FourHundredGigE0/0/0/1 (0x60)",
          "urHundredGigE0/0/0/1", "BE12_FourHundredGigE0/0/0/1"},
  };
  for (const row& each : rows) {
    SCOPED_TRACE(each.why);
    ASSERT_EQ(parse("Bundle-Ether12\nBundle interface handle BE12 (0x12)\nLocal MAC address "
                    "0011.2233.4455\nOperational MTU 1514\nMember interface " +
                    each.line + "\n"),
              SUCCESS);
    const value members = st().bdlInfoPI.get().at("BE12").at("members");
    EXPECT_THAT(members.as_map().keys(), ElementsAre(each.key));
    EXPECT_EQ(members.at(each.key).at("Node Description"), each.description);
  }
}

TEST_F(bundle_pi_test, a_malformed_member_line_is_skipped) {
  for (const char* line :
       {"Hu0/0 (0x60)", "Hu0/0/0/1(0x60)", "Hu0/0/0/1 [0x60]", "/0/0/1 (0x60)"}) {
    SCOPED_TRACE(line);
    const std::int64_t before = st().info;
    EXPECT_EQ(parse("Bundle-Ether12\nBundle interface handle BE12 (0x12)\nLocal MAC address "
                    "0011.2233.4455\nOperational MTU 1514\nMember interface " +
                    std::string(line) + "\n"),
              SUCCESS);
    EXPECT_EQ(st().info, before + 1);
  }
}

TEST_F(bundle_pi_test, a_bundle_head_with_no_mac_line_returns_error_at_once) {
  const std::string output = joined({be12, without_line(be7, "MAC address"), be7});
  EXPECT_EQ(parse(output), ERROR);
  EXPECT_EQ(st().bdlInfoPI.get(), output) << "the raw text stays; what was parsed is lost";
  EXPECT_EQ(st().exception, 1);
  EXPECT_THAT(messages(LOG_FILE_EXCEPTION),
              ElementsAre("ERROR: Not able to find MAC-Address in BM PI for BE7(0x3000070)"));
  EXPECT_THAT(file_text(LOG_FILE_EXCEPTION), testing::Not(HasSubstr("Traceback")));
}

TEST_F(bundle_pi_test, a_bundle_head_with_no_mtu_line_returns_error_at_once) {
  const std::string output = joined({without_line(be7, "Operational MTU"), be12});
  EXPECT_EQ(parse(output), ERROR);
  EXPECT_EQ(st().bdlInfoPI.get(), output);
  EXPECT_EQ(st().exception, 1);
  EXPECT_THAT(messages(LOG_FILE_EXCEPTION),
              ElementsAre("ERROR: Not able to find Operational MTU in BM PI for BE7(0x3000070)"));
}

TEST_F(bundle_pi_test, a_piece_with_no_bundle_head_is_passed_over_silently) {
  EXPECT_EQ(parse(joined({"Bundle manager\nBundle-Ether99\nLocal\nOperational MTU 1\n", be12})),
            SUCCESS);
  EXPECT_EQ(store(), joined({"{", be12_parsed, "}"}));
  EXPECT_EQ(st().info, 0);
}

TEST_F(bundle_pi_test, of_a_name_that_comes_twice_the_later_piece_wins) {
  const std::string other = joined(
      {"Bundle-Ether12\n  Bundle interface handle BE12 (0x99)\n", be7.substr(be7.find("  Local"))});
  EXPECT_EQ(parse(joined({be12, be7, other})), SUCCESS);
  EXPECT_THAT(st().bdlInfoPI.get().as_map().keys(), ElementsAre("BE12", "BE7"));
  EXPECT_EQ(st().bdlInfoPI.get().at("BE12").at("ifh"), "0x99");
  EXPECT_THAT(st().bdlInfoPI.get().at("BE12").at("members").as_map().keys(),
              ElementsAre("0/0/0/9"));
}

TEST_F(bundle_pi_test, handles_become_lower_case_hexadecimal) {
  std::string output(be7);
  output.replace(output.find("0x3000070"), 9, "0XABC");
  output.replace(output.find("0x70"), 4, "16");
  EXPECT_EQ(parse(output), SUCCESS);
  EXPECT_EQ(st().bdlInfoPI.get().at("BE7").at("ifh"), "0xabc");
  EXPECT_EQ(st().bdlInfoPI.get().at("BE7").at("members").at("0/0/0/9").at("mifh"), "0x10");
}

TEST_F(bundle_pi_test, a_handle_that_is_not_a_number_is_a_failure) {
  for (const std::string_view handle : {"0x3000070", "0x70"}) {
    SCOPED_TRACE(handle);
    SetUp();
    std::string output(be7);
    output.replace(output.find(handle), handle.size(), "none");
    EXPECT_EQ(parse(output), ERROR);
    EXPECT_EQ(st().bdlInfoPI.get(), output);
    EXPECT_EQ(st().exception, 1);
    EXPECT_THAT(messages(LOG_FILE_EXCEPTION),
                ElementsAre("'none' is no number: parse_bundle_info_PI failed"));
    EXPECT_THAT(file_text(LOG_FILE_EXCEPTION), HasSubstr("Traceback (most recent call last):"));
  }
}

TEST_F(bundle_pi_test, failures_are_logged_before_they_are_counted_and_findings_after) {
  std::string bad_handle(be7);
  bad_handle.replace(bad_handle.find("0x70"), 4, "none");
  EXPECT_TRUE(logs_before_counting([&] { parse(bad_handle); }));
  EXPECT_TRUE(counts_before_logging([&] { parse(without_line(be7, "MAC address")); }));
  EXPECT_TRUE(counts_before_logging([&] { parse(without_line(be7, "Operational MTU")); }));
  EXPECT_TRUE(counts_before_logging([&] { parse(""); }));
}

TEST_F(bundle_pi_test, a_command_that_cannot_be_run_leaves_error_in_the_store) {
  const read_only_folder no_captures("/tmp");
  EXPECT_EQ(dump_parse_bundle_info_PI(), ERROR);
  EXPECT_EQ(st().bdlInfoPI.get(), ERROR);
  EXPECT_EQ(st().exception, 2) << "the command and the parser, each its own failure";
  EXPECT_THAT(messages(LOG_FILE_EXCEPTION),
              ElementsAre(StartsWith("cannot open /tmp/tessel_BM_PI.log"),
                          "a text expected, found the integer 0: parse_bundle_info_PI failed"));
}

TEST_F(bundle_pi_test, a_missing_tool_is_an_empty_output) {
  EXPECT_EQ(dump_parse_bundle_info_PI(), SUCCESS);
  EXPECT_EQ(st().bdlInfoPI.get(), make_map());
  EXPECT_EQ(st().exception, 1);
  EXPECT_THAT(file_text(LOG_FILE_DEBUG), HasSubstr("lagmgr_table_show"));
}

TEST_F(bundle_pi_test, an_output_cut_anywhere_is_reported_once) {
  const std::string whole = joined({be12, be7});
  for (std::size_t length = 0; length < whole.size(); length += 23) {
    SCOPED_TRACE(length);
    SetUp();
    parse(whole.substr(0, length));
    EXPECT_EQ(messages(LOG_FILE_EXCEPTION).size(),
              static_cast<std::size_t>(st().exception + st().info));
    EXPECT_LE(st().exception, 1);
  }
}

TEST_F(bundle_pi_test, an_overlong_line_is_matched_or_not_as_any_other) {
  const std::string both = joined({"{", be12_parsed, ", ", be7_parsed, "}"});
  const std::string many = replace_all(std::string(300'000, '.'), ".", "Member interface 1a1/1/1 ");
  const std::string blanks(4U << 20, ' ');
  const std::string digits(4U << 20, '7');
  for (const std::string& line :
       {"Member " + std::string(4U << 20, 'x'), "Member interface " + std::string(4U << 20, 'x'),
        "Member interface " + digits, "Member interface Hu0/0/" + digits + "x", many,
        "Member interface" + blanks + "x", "Member interface Hu0/0/1" + blanks + "x"}) {
    SCOPED_TRACE(line.substr(0, 40));
    SetUp();
    EXPECT_EQ(parse(joined({be12, line, "\n", be7})), SUCCESS);
    EXPECT_EQ(store(), both);
    EXPECT_EQ(st().exception, 0);
  }
  SetUp();
  EXPECT_EQ(parse(joined({be7, "Member interface", blanks, "Hu0/0/0/2", blanks, "(0x71)\n"})),
            SUCCESS);
  EXPECT_EQ(st().bdlInfoPI.get().at("BE7").at("members").as_map().size(), 2U);
}

TEST_F(bundle_pi_test, members_are_those_that_the_definition_finds) {
  constexpr std::array<std::string_view, 23> pieces = {"Member interface",
                                                       "Member interface ",
                                                       "Member interface Hu0/0/1",
                                                       "Member interface\t7/1/2",
                                                       "\nMember interface Te0/0/0/1/3",
                                                       "Member interface\nHu0/0/0/2 (0x62) ",
                                                       "Member interface Hu0/0/0/3 (0x63)\n",
                                                       " (0x60) ",
                                                       " (0x60) ",
                                                       "\n(0x61 ",
                                                       " up",
                                                       " (",
                                                       " )",
                                                       "\n",
                                                       " ",
                                                       "\t",
                                                       "1a1/1/1",
                                                       "Hu0/0/0/1",
                                                       "/",
                                                       "0",
                                                       "1/",
                                                       "x",
                                                       "_9/9/9"};
  const pattern definition(member_line_definition);
  std::size_t members = 0;
  for (unsigned seed = 1; seed <= 20000; ++seed) {
    std::mt19937 random(seed);
    std::string text =
        "Bundle interface handle BE12 (0x12)\nMAC address 0011.2233.4455\n"
        "Operational MTU 1514\n";
    text += fragments(random, pieces, 3 + seed % 25);
    value expected = make_map();
    const matches found = findall(definition, text);
    bool readable_handles = true;
    for (std::size_t at = 0; at < found.size(); ++at) {
      const std::string name(found[at][0]);
      readable_handles =
          readable_handles && (found[at][1].starts_with("0x6") && found[at][1].size() == 4);
      expected.as_map().set(name.substr(2), "BE12_" + name);
    }
    if (!readable_handles) continue;
    const value parsed = parse_bundle_info_PI(text);
    value shown = make_map();
    if (parsed.contains("BE12")) {
      for (const auto& [key, member] : parsed.at("BE12").at("members").as_map().items()) {
        shown.as_map().set(key, member.at("Node Description"));
      }
    }
    ASSERT_EQ(shown, expected) << "seed " << seed << " in " << quoted(text);
    members += found.size();
  }
  EXPECT_GT(members, 10000U) << "the texts must be worth the comparison";
}

TEST_F(bundle_pi_test, junk_around_and_between_bundles_harms_nothing) {
  std::string junk;
  for (const bad_output& each : meaningless_outputs()) {
    // Skipped: the command's filter handles NUL bytes in its own way.
    if (each.output.as_text().find('\0') != std::string::npos) continue;
    for (const char c : each.output.as_text().substr(0, 2U << 20)) {
      junk += c;
      if (c == '\n') junk += "Local ";
    }
    junk += '\n';
  }
  EXPECT_EQ(parse(joined({junk, be12, junk, be7, junk})), SUCCESS);
  EXPECT_EQ(store(), joined({"{", be12_parsed, ", ", be7_parsed, "}"}));
  EXPECT_EQ(st().exception, 0);
}

TEST_F(bundle_pi_test, binary_bytes_that_pass_the_filter_are_reported_at_most_once) {
  for (const bad_output& each : meaningless_outputs()) {
    SCOPED_TRACE(each.why);
    SetUp();
    parse(joined({be12, each.output.as_text(), be7}));
    EXPECT_EQ(messages(LOG_FILE_EXCEPTION).size(),
              static_cast<std::size_t>(st().exception + st().info));
    EXPECT_LE(st().exception, 1);
  }
}

}  // namespace
}  // namespace tessel
