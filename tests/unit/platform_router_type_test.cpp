#include "platform/router_type.h"

#include <array>
#include <random>
#include <string>
#include <vector>

#include "base/dump.h"
#include "base/text.h"
#include "platform/node_inventory.h"
#include "support/fake_router.h"
#include "support/groups.h"
#include "support/hostile.h"
#include "support/together.h"

namespace tessel {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

// A node in the "show unit" output, with one unit of this chip.
std::string node_with(std::string_view name, std::string_view chip = "BCM88690_A0") {
  return "Node ID: " + std::string(name) + "\nUnit 0 chip " + std::string(chip) + " (current)\n";
}

class router_type_test : public router_test {
 protected:
  void SetUp() override {
    router_test::SetUp();
    open_logs();
  }

  int type_of(const std::string& banner) {
    SetUp();
    tool_prints("sw_version_show", banner);
    return get_router_type();
  }

  int support(int router, const std::string& asic_dump) {
    st().router = router;
    nodeinfo_init();
    tool_prints("asic_shell_show", asic_dump);
    return check_asic_support();
  }

  value node(std::string_view name) { return st().nodeinfo.get().at(name); }
};

TEST_F(router_type_test, the_model_in_the_banner_decides) {
  struct row {
    const char* why;
    std::string banner;
    int type;
  };
  const std::array rows = {
      row{"birch", "some TR-BIRCH (Intel 686 F6M14S4) processor with 32 GB\n", birch},
      row{"birch with a number", "some TR-BIRCH1 () processor\n", birch},
      row{"aspen", "some TR-ASPEN () processor\n", aspen},
      row{"cedar is told apart by what stands behind it", "some TR-CEDAR () processor\n", cedar},
      row{"without that it is not a model", "some TR-CEDAR (Intel) processor\n", invalid},
      row{"the shorter name", "some TRCEDAR () processor\n", cedarl},
      row{"the longer one is tested first", "some TRCEDARX () processor\n", gorse},
      row{"elm", "some TR-ELM1 () processor\n", elm},
      row{"elm without its number", "some TR-ELM () processor\n", invalid},
      row{"fir", "some FIR-8 () processor\n", fir},
      row{"dogwood", "some TR-DOGWOOD-R8 () processor\n", dogwood},
      row{"no known model", "some TR-OAK () processor\n", invalid},
      row{"case counts", "some tr-birch () processor\n", invalid},
      row{"a banner with no word processor", "some TR-BIRCH () line card\n", invalid},
      row{"the model on another line", "TR-BIRCH\nsome processor\n", invalid},
      row{"the model behind the word", "processor TR-BIRCH\n", invalid},
      row{"nothing in front of the word", "processor\n", invalid},
      row{"the first occurrence counts", "a TR-ELM1 processor\nb TR-ASPEN processor\n", elm},
      row{"whatever the later ones hold", "a processor\nb TR-ASPEN processor\n", invalid},
      row{"among other lines", "Version 7.3\n\nsome TR-ASPEN () processor with\nuptime\n", aspen},
      row{"an empty banner", "", invalid},
      row{"binary bytes", std::string("\xff\x00 TR-ELM1 \xfe processor", 22), elm},
  };
  for (const row& each : rows) {
    SCOPED_TRACE(each.why);
    EXPECT_EQ(type_of(each.banner), each.type);
    EXPECT_EQ(st().router, each.type) << "and it is kept";
    EXPECT_EQ(st().exception, 0);
  }
}

TEST_F(router_type_test, a_banner_with_no_word_processor_yields_the_empty_model_and_invalid) {
  EXPECT_EQ(type_of("Tessel TR-ASPEN chassis\n"), invalid);
  EXPECT_EQ(st().router, invalid);
  EXPECT_THAT(messages(LOG_FILE_EXCEPTION), IsEmpty()) << "which is not a failure";
}

TEST_F(router_type_test, a_banner_that_holds_two_of_the_names_decides_by_the_order) {
  EXPECT_EQ(type_of("TR-ELM1 TR-ASPEN processor\n"), aspen);
  EXPECT_EQ(type_of("TR-DOGWOOD-R8 FIR processor\n"), fir);
  EXPECT_EQ(type_of("TRCEDAR TRCEDARX processor\n"), gorse);
  EXPECT_EQ(type_of("TR-ASPEN TR-BIRCH processor\n"), birch);
  EXPECT_EQ(type_of("TRCEDAR TR-CEDAR () processor\n"), cedar);
}

TEST_F(router_type_test, a_repeated_call_does_not_run_the_tool_again) {
  EXPECT_EQ(type_of("TR-ELM1 processor\n"), elm);
  tool_prints("sw_version_show", "TR-ASPEN processor\n");
  EXPECT_EQ(get_router_type(), elm);
  EXPECT_THAT(calls(), ElementsAre("sw_version_show"));
  st().router = invalid;
  EXPECT_EQ(get_router_type(), invalid) << "not even then";
  EXPECT_THAT(calls(), ElementsAre("sw_version_show"));
}

TEST_F(router_type_test, a_missing_version_tool_gives_invalid_without_a_failure) {
  EXPECT_EQ(get_router_type(), invalid);
  EXPECT_EQ(st().exception, 0);
}

TEST_F(router_type_test, a_banner_that_cannot_be_captured_is_a_failure) {
  const read_only_folder none("/tmp");
  EXPECT_EQ(get_router_type(), invalid);
  EXPECT_EQ(st().router, notset) << "until the caller stores the result";
  EXPECT_EQ(st().exception, 2) << "the command's failure and this one";
  EXPECT_THAT(messages(LOG_FILE_EXCEPTION),
              ElementsAre(HasSubstr("execution failed for /opt/nos/bin/sw_version_show"),
                          "a text expected, found the integer 0: get_router_type failed"));
  EXPECT_THAT(log_lines(LOG_FILE_EXCEPTION).back(), StartsWith("failure: "));
}

TEST_F(router_type_test, a_line_of_megabytes_is_read_like_any_other) {
  const std::string line(8'000'000, 'x');
  EXPECT_EQ(type_of(line + " TR-ELM1 processor\n"), elm);
  EXPECT_EQ(type_of(line + "\nTR-ELM1 processor\n"), elm);
  EXPECT_EQ(type_of("TR-ELM1 " + line + "\n"), invalid);
}

// This pattern defines the model as its first match; the code finds it without the pattern.
TEST_F(router_type_test, random_banners_give_what_the_pattern_gives) {
  const unsigned seed = std::random_device()();
  SCOPED_TRACE(testing::Message() << "seed " << seed);
  std::mt19937 random(seed);
  const pattern model("(.+?)(?=processor)");
  const std::vector<std::string> parts = {"TR-ELM1", "TR-ASPEN", "processor", "processo",
                                          "\n",      " ",        "\xff",      std::string(1, '\0')};
  for (int round = 0; round < 60; ++round) {
    std::string banner;
    for (auto count = random() % 12; count > 0; --count) banner += parts[random() % parts.size()];
    const matches found = findall(model, banner);
    const std::string_view first = found.empty() ? "" : found.text(0);
    int expected = first.find("TR-ELM1") == first.npos ? invalid : elm;
    if (first.find("TR-ASPEN") != first.npos) expected = aspen;
    ASSERT_EQ(type_of(banner), expected) << tessel::quoted(banner);
  }
}

TEST_F(router_type_test, show_unit_is_asked_of_all_units_of_all_nodes_once) {
  EXPECT_EQ(support(birch, ""), SUCCESS);
  EXPECT_THAT(calls(), ElementsAre("asic_shell_show -c show unit -u all -n A"));
  EXPECT_TRUE(file_exists("/tmp/tessel_show_unit_all_A.log"));
}

TEST_F(router_type_test, the_chip_of_a_nodes_first_unit_is_entered) {
  struct row {
    const char* why;
    std::string dump;
    const char* asic;
  };
  const std::array rows = {
      row{"on the next line", "Node ID: 0/0/CPU0\nUnit 0 chip BCM88690_A0\n", "BCM8869"},
      row{"on the line after it", "Node ID: 0/0/CPU0\n=====\nUnit 0 chip BCM88690_A0\n", "BCM8869"},
      row{"behind an empty line", "Node ID: 0/0/CPU0\n\nUnit 0 chip BCM88680\n", "BCM8868"},
      row{"only the first unit is seen",
          "Node ID: 0/0/CPU0\nUnit 0 chip BCM88670\nUnit 1 chip BCM88690\n", "BCM8867"},
      row{"cut to four digits", "Node ID: 0/0/CPU0\nUnit 0 chip BCM8837\n", "BCM8837"},
      row{"three lines on is too far", "Node ID: 0/0/CPU0\na b\nc d\nUnit 0 chip BCM88690\n",
          nullptr},
      row{"no number", "Node ID: 0/0/CPU0\nUnit x chip BCM88690\n", nullptr},
      row{"three digits", "Node ID: 0/0/CPU0\nUnit 0 chip BCM886\n", nullptr},
      row{"another name of the node", "Node ID: 0/0/CPU1\nUnit 0 chip BCM88690\n", nullptr},
      row{"two blanks", "Node ID: 0/0/CPU0\nUnit  0 chip BCM88690\n", nullptr},
      row{"half a table", "Node ID: 0/0/CPU0\nUnit 0", nullptr},
      row{"empty output", "", nullptr},
      row{"binary bytes around",
          std::string("\xff\x00\n", 3) + "Node ID: 0/0/CPU0\nUnit 0 chip BCM88690\xff", "BCM8869"},
  };
  for (const row& each : rows) {
    SCOPED_TRACE(each.why);
    SetUp();
    EXPECT_EQ(support(aspen, each.dump), SUCCESS);
    EXPECT_EQ(node("0/0/CPU0").at("asic"), each.asic == nullptr ? DEFAULT : each.asic);
    EXPECT_EQ(node("0/0/CPU0").at("asic_supported"), 1);
    EXPECT_EQ(st().info, 0);
    EXPECT_EQ(st().exception, 0);
  }
}

TEST_F(router_type_test, every_supported_chip_passes_without_a_note) {
  for (const char* chip :
       {"BCM88470", "BCM88370", "BCM88270", "BCM88680", "BCM88670", "BCM88690"}) {
    SCOPED_TRACE(chip);
    SetUp();
    EXPECT_EQ(support(aspen, node_with("0/0/CPU0", chip)), SUCCESS);
    EXPECT_EQ(node("0/0/CPU0").at("asic_supported"), 1);
    EXPECT_THAT(messages(LOG_FILE_EXCEPTION), IsEmpty());
  }
}

TEST_F(router_type_test, a_chip_that_is_not_supported_is_reported_with_an_x_and_still_dumped) {
  EXPECT_EQ(support(aspen, node_with("0/0/CPU0", "BCM88480_B0") + node_with("0/1/CPU0")), SUCCESS);
  EXPECT_THAT(messages(LOG_FILE_EXCEPTION),
              ElementsAre("INFO: Found unsupported ASIC BCM8848x. TESSEL doesn't guarantee "
                          "consistency check on this node 0/0/CPU0"));
  EXPECT_EQ(log_lines(LOG_FILE_EXCEPTION).size(), 2U) << "without details";
  EXPECT_EQ(node("0/0/CPU0").at("asic"), "BCM8848");
  EXPECT_EQ(node("0/0/CPU0").at("asic_supported"), 0);
  EXPECT_EQ(node("0/1/CPU0").at("asic_supported"), 1);
  EXPECT_EQ(st().info, 1);
  EXPECT_EQ(st().exception, 0);
  tool_prints("plat_nodes_show", "0/0/CPU0 LC ACTIVE NSHUT FINAL ON 192.0.8.4\n");
  get_list_of_vms();
  EXPECT_EQ(node("0/0/CPU0").at("dump"), 1);
}

TEST_F(router_type_test, both_units_of_a_birch_node_are_listed_in_the_order_of_the_output_as_text) {
  EXPECT_EQ(support(birch, node_with("0/0/CPU0") +
                               "Unit 1 chip BCM88690\n"
                               "R/S/I: 0/0/1\nR/S/I: 0/0/0\n" +
                               node_with("0/1/CPU0") + "R/S/I: 0/1/0\n"),
            SUCCESS);
  EXPECT_EQ(node("0/0/CPU0").at("npu_list"), list_of({"1", "0"}));
  EXPECT_EQ(node("0/1/CPU0").at("npu_list"), list_of({"0"}));
  EXPECT_EQ(node("0/2/CPU0").at("npu_list"), list_of({"0"})) << "not named by the output";
}

TEST_F(router_type_test, on_fir_the_rack_names_the_node) {
  EXPECT_EQ(support(fir, node_with("3/0/CPU0") + "R/S/I: 3/0/0\nR/S/I: 3/0/2\n"), SUCCESS);
  EXPECT_EQ(node("3/0/CPU0").at("npu_list"), list_of({"0", "2"}));
}

TEST_F(router_type_test, on_aspen_npu_list_stays_however_many_units_the_output_shows) {
  for (const int router : {aspen, cedar, cedarl, dogwood, elm, gorse, invalid}) {
    SCOPED_TRACE(router);
    SetUp();
    EXPECT_EQ(support(router, node_with("0/0/CPU0") + "R/S/I: 0/0/0\nR/S/I: 0/0/1\n"), SUCCESS);
    EXPECT_EQ(node("0/0/CPU0").at("npu_list"), list_of({"0"}));
    EXPECT_EQ(node("0/0/CPU0").at("asic"), "BCM8869");
  }
}

TEST_F(router_type_test, a_node_without_units_has_an_empty_list_which_passes) {
  EXPECT_EQ(support(birch, node_with("0/0/CPU0")), SUCCESS);
  EXPECT_EQ(node("0/0/CPU0").at("npu_list"), make_list());
  EXPECT_EQ(st().info, 0);
}

TEST_F(router_type_test, a_node_whose_npu_list_is_not_a_list_is_left_out_with_a_note) {
  st().router = aspen;
  nodeinfo_init();
  node("0/0/CPU0").as_map().set("npu_list", DEFAULT);
  node("0/0/CPU0").as_map().set("dump", 1);
  tool_prints("asic_shell_show", node_with("0/0/CPU0"));
  EXPECT_EQ(check_asic_support(), SUCCESS);
  EXPECT_THAT(messages(LOG_FILE_EXCEPTION),
              ElementsAre("0/0/CPU0: NPU not found, skipping TESSEL check on this location."));
  EXPECT_EQ(node("0/0/CPU0").at("dump"), 0);
  EXPECT_EQ(st().info, 1);
  EXPECT_EQ(st().exception, 0);
}

TEST_F(router_type_test, what_cannot_be_placed_is_printed_and_counted_once) {
  struct row {
    const char* why;
    int router;
    std::string dump;
    const char* named;
  };
  const std::array rows = {
      row{"a unit of a node without an entry", birch, node_with("0/0/CPU0") + "R/S/I: 0/7/0\n",
          "'0/7/CPU0'"},
      row{"a unit and no node at all", birch, "R/S/I: 0/0/0\n", "'0/0/CPU0'"},
      row{"the same by rack", fir, node_with("0/0/CPU0") + "R/S/I: 7/0/0\n", "'7/0/CPU0'"},
      row{"a node that the inventory does not hold", aspen, node_with("0/16/CPU0"), "'0/16/CPU0'"},
      row{"the same with units", birch, node_with("0/16/CPU0"), "'0/16/CPU0'"},
  };
  for (const row& each : rows) {
    SCOPED_TRACE(each.why);
    SetUp();
    const std::string told = output_of([&] { EXPECT_EQ(support(each.router, each.dump), ERROR); });
    EXPECT_THAT(told, StartsWith("\n"));
    EXPECT_THAT(told, HasSubstr(each.named));
    EXPECT_THAT(told, EndsWith(": Not able to get ASIC information\n"));
    EXPECT_EQ(st().exception, 1);
    EXPECT_THAT(messages(LOG_FILE_EXCEPTION), IsEmpty());
  }
}

TEST_F(router_type_test, lines_of_megabytes_between_the_nodes_harm_nothing) {
  const std::string noise = std::string(5'000'000, 'x') + "\n" + std::string(100'000, ' ') + "\n";
  EXPECT_EQ(support(birch, noise + node_with("0/0/CPU0") + noise + "R/S/I: 0/0/0\n" + noise),
            SUCCESS);
  EXPECT_EQ(node("0/0/CPU0").at("asic"), "BCM8869");
  EXPECT_EQ(node("0/0/CPU0").at("npu_list"), list_of({"0"}));
}

TEST_F(router_type_test, a_show_unit_that_cannot_be_captured_is_printed_and_counted) {
  st().router = aspen;
  nodeinfo_init();
  const read_only_folder none("/tmp");
  EXPECT_EQ(output_of([] { EXPECT_EQ(check_asic_support(), ERROR); }),
            "\na text expected, found the integer 0: Not able to get ASIC information\n");
  EXPECT_EQ(st().exception, 2) << "the command's failure and this one";
}

TEST_F(router_type_test, is_j2_knows_a_Jericho2_from_the_others) {
  support(aspen, node_with("0/0/CPU0", "BCM88690") + node_with("0/1/CPU0", "BCM88680"));
  EXPECT_EQ(is_j2("0/0/CPU0"), SUCCESS);
  EXPECT_EQ(is_j2("0/1/CPU0"), ERROR);
  EXPECT_EQ(st().exception, 0);
}

TEST_F(router_type_test, a_node_that_show_unit_does_not_name_is_not_a_Jericho2_and_not_a_failure) {
  support(aspen, node_with("0/0/CPU0"));
  EXPECT_EQ(node("0/1/CPU0").at("asic"), DEFAULT);
  EXPECT_EQ(output_of([] { EXPECT_EQ(is_j2("0/1/CPU0"), ERROR); }), "");
  EXPECT_EQ(st().exception, 0);
}

TEST_F(router_type_test, is_j2_of_an_unknown_node_is_printed_and_counted) {
  st().router = aspen;
  nodeinfo_init();
  EXPECT_EQ(output_of([] { EXPECT_EQ(is_j2("0/99/CPU0"), ERROR); }),
            "\nno key '0/99/CPU0': Not able to get ASIC information on the node 0/99/CPU0 \n");
  EXPECT_EQ(st().exception, 1);
}

TEST_F(router_type_test, is_j2_accepts_an_inventory_that_is_the_number_0) {
  st().nodeinfo.set(ERROR);
  const std::string told = output_of([] { EXPECT_EQ(is_j2("0/0/CPU0"), ERROR); });
  EXPECT_THAT(told, EndsWith(": Not able to get ASIC information on the node 0/0/CPU0 \n"));
  EXPECT_EQ(st().exception, 1);
}

TEST_F(router_type_test, is_j2_is_asked_by_many_workers) {
  support(aspen, node_with("0/0/CPU0"));
  together(6, [](int) {
    for (int round = 0; round < 100; ++round) EXPECT_EQ(is_j2("0/0/CPU0"), SUCCESS);
  });
}

TEST_F(router_type_test, first_units_are_those_of_the_plain_pattern) {
  static const pattern& definition = constant(first_unit_definition);
  constexpr std::array<std::string_view, 14> pieces = {"Node ID: 0/0/CPU0",
                                                       "Node ID: 0/1/CPU0\n",
                                                       "Node ID: ",
                                                       "0/2/CPU0",
                                                       "\n",
                                                       "\n\n",
                                                       " ",
                                                       "Unit 0 chip BCM88690",
                                                       "Unit 0 chip BCM88690_A0 (current)\n",
                                                       "Unit 1 chip BCM8868",
                                                       "chip",
                                                       " 7 ",
                                                       "x",
                                                       "R/S/I: 0/0/0\n"};
  std::size_t seen = 0;
  for (unsigned seed = 1; seed <= 20'000; ++seed) {
    std::mt19937 random(seed);
    const std::string text = fragments(random, pieces, 2 + seed % 25);
    const auto expected = groups_of(findall(definition, text));
    ASSERT_EQ(groups_of(first_units_of(text)), expected) << seed << ": " << quoted(text);
    seen += expected.size();
  }
  EXPECT_GT(seen, 1000U);
}

TEST_F(router_type_test, a_line_of_a_hundred_thousand_heads_is_read_once) {
  std::string text;
  for (int head = 0; head < 100'000; ++head) text += "Node ID: 0/0/CPU0 ";
  EXPECT_EQ(first_units_of(text).size(), 0U);
  EXPECT_EQ(first_units_of(text + "\n" + node_with("0/1/CPU0")).size(), 1U);
}

}  // namespace
}  // namespace tessel
