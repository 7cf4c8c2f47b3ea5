#include "programming/mapping_checks.h"

#include <fmt/format.h>

#include <array>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "base/dump.h"
#include "base/text.h"
#include "programming/lif_map.h"
#include "support/chip_world.h"
#include "support/command_line.h"
#include "support/fake_router.h"
#include "support/groups.h"
#include "support/hostile.h"
#include "support/together.h"

namespace tessel {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

constexpr std::string_view err = "BE12.5(0x3000a60) NPU 0,0/0/CPU0";
constexpr int bundle_level = 0;
constexpr int sub_level = 1;

// The chip's answer for a global LIF, as `diag pp lif` prints it.
std::string mapping(std::string_view glif, std::string_view llif, std::string_view vsi) {
  return fmt::format(
      "Global LIF {} -> Local In_LIF:{} (valid)\n  type: VLAN  learn: on\n  drop: 0  vsid: {} tag: "
      "1\n",
      glif, llif, vsi);
}

// A layer 3 object with RIF 0x10 and MAC 001; its chip has both.
value healthy(std::string_view glif = "0x00011234") {
  value object = new_record<Bundles>();
  record& fields = object.as_record();
  fields.set("glif", glif);
  fields.set("lagid", "0x1");
  fields.set("rif", "0x10");
  fields.set("mac", "0011.2233.4001");
  fields.set("is_l2", 0);
  fields.set("delPending", 0);
  return object;
}

value healthy_with(std::string_view field, const value& content) {
  value object = healthy();
  object.as_record().set(field, content);
  return object;
}

class mapping_test : public router_test {
 protected:
  void SetUp() override {
    router_test::SetUp();
    open_logs();
    set_up_nodes();
    set_tables(older_node, "0", older_tables("1005 Payload=0x44\n", "", vsi_row("16", "1")));
    set_tables(j2_node, "0", ordered_map_of({{"VSI", map_of({{"16", "1"}})}}));
    tool_prints("asic_shell_show", mapping("0x11234", "0x456", "16"));
  }

  static int ask(const value& object) {
    return get_glif_to_llif_vsi_mapping(older_node, "0", object.as_record(), err);
  }
  static int key_llif(const value& object, int is_sub = sub_level) {
    return verify_lif_rif_mac_mapping_key_llif(object.as_record(), {older_node, "0"}, "1", err,
                                               is_sub);
  }
  static int key_vd(const value& object, std::string_view key = "1005", int is_sub = bundle_level) {
    return verify_lif_rif_mac_mapping_key_vd(object.as_record(), {older_node, "0"}, key, err,
                                             is_sub);
  }
  static int key_vd_j2(const value& object, int is_sub = bundle_level) {
    return verify_lif_rif_mac_mapping_key_vd_j2(object.as_record(), {j2_node, "0"}, value(), err,
                                                is_sub);
  }
};

// --- The chip's own map of a global LIF

TEST_F(mapping_test, a_known_glif_enters_its_local_lif) {
  const value object = healthy();
  EXPECT_EQ(ask(object), SUCCESS);
  EXPECT_EQ(object.as_record().get("llif"), "0x456");
  expect_told({});
}

TEST_F(mapping_test, the_chip_is_asked_for_the_last_four_characters_on_its_own_node) {
  ask(healthy());
  EXPECT_THAT(calls(),
              ElementsAre("asic_shell_show -c diag pp lif id=0x1234 gl=1 type=in -u 0 -n 1"));
  EXPECT_TRUE(file_exists("/tmp/tessel_glif1234_0_1.log"));
  EXPECT_EQ(
      command_line_of(
          "glifabcd_3_2",
          [] { get_glif_to_llif_vsi_mapping(j2_node, "3", healthy("0xabcd").as_record(), err); }),
      "/opt/nos/bin/asic_shell_show -c \"diag pp lif id=0xabcd gl=1 type=in\" -u 3 -n 2");
}

TEST_F(mapping_test, a_glif_shorter_than_four_characters_is_used_whole) {
  tool_prints("asic_shell_show", mapping("0x1f", "0x456", "16"));
  const value object = healthy("1f");
  EXPECT_EQ(ask(object), SUCCESS);
  EXPECT_EQ(object.as_record().get("llif"), "0x456");
  EXPECT_THAT(calls(),
              ElementsAre("asic_shell_show -c diag pp lif id=0x1f gl=1 type=in -u 0 -n 1"));
  EXPECT_TRUE(file_exists("/tmp/tessel_glif1f_0_1.log"));
  expect_told({});
}

TEST_F(mapping_test, the_block_is_three_lines_and_the_first_one_counts) {
  struct row {
    const char* why;
    std::string output;
    const char* llif;  // null if the block must not be found
  };
  const std::string block = mapping("0x11234", "0x456", "16");
  const std::array rows = {
      row{"noise around", "unit 0\n" + block + "done\n", "0x456"},
      row{"the first of two", block + mapping("0x21234", "0x457", "16"), "0x456"},
      row{"another glif in front", mapping("0x11235", "0x457", "17") + block, "0x456"},
      row{"local LIF in capitals", mapping("0x11234", "0x0ABC", "16"), "0xabc"},
      row{"no line end behind the VSI", block.substr(0, block.find(" tag")), "0x456"},
      row{"a line too many", "1234 -> Local In_LIF:0x456\n\n\nvsid: 16\n", nullptr},
      row{"a line missing", "1234 -> Local In_LIF:0x456\nvsid: 16\n", nullptr},
      row{"a decimal local LIF", "1234 -> Local In_LIF:456\n\nvsid: 16\n", nullptr},
      row{"a hexadecimal VSI is read up to its letter", "1234 -> Local In_LIF:0x456\n\nvsid: 16x\n",
          "0x456"},
      row{"no VSI", "1234 -> Local In_LIF:0x456\n\nvsid: none\n", nullptr},
      row{"another direction", "1234 -> Local Out_LIF:0x456\n\nvsid: 16\n", nullptr},
      row{"digits behind the glif", "12345 -> Local In_LIF:0x456\n\nvsid: 16\n", nullptr},
      row{"carriage returns", "1234 -> Local In_LIF:0x456\r\n\r\nvsid: 16\r\n", "0x456"},
      row{"nothing", "", nullptr},
  };
  for (const row& each : rows) {
    SCOPED_TRACE(each.why);
    SetUp();
    tool_prints("asic_shell_show", each.output);
    const value object = healthy();
    EXPECT_EQ(ask(object), each.llif ? SUCCESS : ERROR);
    EXPECT_EQ(object.as_record().get("llif"), each.llif ? each.llif : DEFAULT);
    EXPECT_EQ(st().programming_error, each.llif ? 0 : 1);
    EXPECT_EQ(st().exception, 0);
  }
}

TEST_F(mapping_test, a_glif_that_the_chip_does_not_know_is_a_finding) {
  tool_prints("asic_shell_show", "no such LIF\n");
  EXPECT_EQ(ask(healthy_with("delPending", 1)), ERROR);
  expect_told(
      {.programming_error = {fmt::format(
           "Programming Error 1: Not able to find GLIF 0x00011234 to LLIF mapping for {}", err)}});
}

TEST_F(mapping_test, a_missing_tool_is_a_glif_that_the_chip_does_not_know) {
  router_test::SetUp();
  open_logs();
  set_up_nodes();
  EXPECT_EQ(ask(healthy()), ERROR);
  EXPECT_EQ(st().programming_error, 1);
  EXPECT_EQ(st().exception, 0);
}

TEST_F(mapping_test, check_rif_is_called_only_for_non_l2_objects_with_the_layer_word) {
  tool_prints("asic_shell_show", mapping("0x11234", "0x456", "17"));
  EXPECT_EQ(ask(healthy()), SUCCESS) << "it is called for its finding alone";
  const told rif_differs = {
      .inconsistent = {fmt::format("Inconsistency 1:{} RIF is not consistent in "
                                   "BCM_LIF_TO_VSI_MAPPING:0x11, Expected:0x10",
                                   err)}};
  expect_told(rif_differs);
  const value l2 = healthy_with("is_l2", 1);
  EXPECT_EQ(ask(l2), SUCCESS);
  EXPECT_EQ(l2.as_record().get("llif"), "0x456");
  EXPECT_EQ(ask(healthy_with("is_l2", DEFAULT)), SUCCESS) << "what is not set counts as layer 2";
  expect_told(rif_differs);
}

TEST_F(mapping_test, the_vsi_becomes_the_rif_of_an_object_that_has_none) {
  const value object = healthy_with("rif", DEFAULT);
  EXPECT_EQ(ask(object), SUCCESS);
  EXPECT_EQ(object.as_record().get("rif"), "0x10");
  expect_told({});
}

TEST_F(mapping_test, a_mapping_that_cannot_be_had_is_a_failure) {
  const std::string tail = fmt::format(": get_glif_to_llif_vsi_mapping failed for {}", err);
  EXPECT_EQ(ask(healthy_with("glif", 5)), ERROR);
  EXPECT_EQ(ask(value(new_record<memberInfo>())), ERROR);
  tool_prints("asic_shell_show", mapping("0x11234", "0x456_", "16"));
  EXPECT_EQ(ask(healthy()), ERROR);
  st().nodeinfo.set(map_of({{older_node, map_of({{"nodeid", "1"}})}}));
  EXPECT_EQ(ask(healthy()), ERROR);
  st().nodeinfo.set(map_of({}));
  EXPECT_EQ(ask(healthy()), ERROR);
  const auto told_failures = messages(LOG_FILE_EXCEPTION);
  ASSERT_EQ(told_failures.size(), 5U);
  EXPECT_EQ(told_failures[0], "a text expected, found the integer 5" + tail);
  EXPECT_EQ(told_failures[1], "no field 'glif'" + tail);
  EXPECT_EQ(told_failures[2], "'0x456_' is no number" + tail);
  EXPECT_EQ(told_failures[3], "no key 'nodeip'" + tail);
  EXPECT_EQ(told_failures[4], "no key '0/0/CPU0'" + tail);
  EXPECT_EQ(st().exception, 5);
  EXPECT_EQ(st().programming_error, 0);
  EXPECT_THAT(file_text(LOG_FILE_EXCEPTION), HasSubstr(", in get_glif_to_llif_vsi_mapping\n"));
}

TEST_F(mapping_test, a_glif_that_would_leave_the_command_is_never_asked_for) {
  for (const std::string& glif : glifs_that_plant()) {
    SCOPED_TRACE(glif);
    SetUp();
    EXPECT_EQ(ask(healthy(glif)), ERROR);
    EXPECT_THAT(calls(), ElementsAre());
    EXPECT_THAT(
        messages(LOG_FILE_EXCEPTION),
        ElementsAre(AllOf(StartsWith("the GLIF of 0/0/CPU0 is "),
                          HasSubstr(": execution failed for diag pp lif id=0x")),
                    EndsWith(": get_glif_to_llif_vsi_mapping failed for " + std::string(err))));
    EXPECT_EQ(st().exception, 2);
    EXPECT_EQ(st().programming_error, 0);
  }
}

TEST_F(mapping_test, junk_from_the_chip_is_one_finding) {
  for (const auto* outputs : {&meaningless_outputs(), &endless_outputs()}) {
    for (const bad_output& each : *outputs) {
      SCOPED_TRACE(each.why);
      SetUp();
      tool_prints("asic_shell_show", each.output.as_text());
      EXPECT_EQ(ask(healthy()), ERROR);
      EXPECT_EQ(st().programming_error, 1);
      EXPECT_EQ(st().exception, 0);
    }
  }
}

TEST_F(mapping_test, a_chip_that_cannot_be_asked_is_reported_by_command_and_check) {
  const read_only_folder no_captures("/tmp");
  EXPECT_EQ(ask(healthy()), ERROR);
  EXPECT_EQ(st().exception, 2);
  EXPECT_THAT(messages(LOG_FILE_EXCEPTION),
              ElementsAre(StartsWith("cannot open /tmp/tessel_glif1234_0_1.log"),
                          fmt::format("a text expected, found the integer 0: "
                                      "get_glif_to_llif_vsi_mapping failed for {}",
                                      err)));
}

// --- Objects without an exact key

TEST_F(mapping_test, a_glif_that_is_not_set_for_a_key_less_call_writes_only_to_the_debug_log) {
  const auto note = [](int number) {
    return fmt::format(
        "'Programming Error {}: LIF/RIF verification failed for {}: GLIF Not set is not valid'\n",
        number, err);
  };
  EXPECT_EQ(key_llif(healthy_with("glif", DEFAULT)), SUCCESS);
  EXPECT_EQ(file_text(LOG_FILE_DEBUG), note(0));
  expect_told({});
  st().programming_error = 3;
  EXPECT_EQ(key_llif(healthy_with("glif", DEFAULT)), SUCCESS);
  EXPECT_EQ(file_text(LOG_FILE_DEBUG), note(0) + note(3));
  EXPECT_EQ(st().programming_error, 3);
  EXPECT_THAT(calls(), IsEmpty()) << "the chip is not asked";
}

TEST_F(mapping_test, a_debug_log_that_is_closed_is_a_failure) {
  st().dl_fd.close();
  EXPECT_EQ(key_llif(healthy_with("glif", DEFAULT)), ERROR);
  EXPECT_EQ(st().exception, 1);
  EXPECT_THAT(messages(LOG_FILE_EXCEPTION),
              ElementsAre(EndsWith(
                  fmt::format(": verify_lif_rif_mac_mapping_key_llif failed for {}", err))));
}

TEST_F(mapping_test,
       a_chip_answer_without_the_three_line_block_ends_the_check_with_success_and_no_other) {
  tool_prints("asic_shell_show", "");
  st().BCM.set(map_of({}));
  EXPECT_EQ(key_llif(healthy(), bundle_level), SUCCESS);
  expect_told(
      {.programming_error = {fmt::format(
           "Programming Error 1: Not able to find GLIF 0x00011234 to LLIF mapping for {}", err)}});
}

TEST_F(mapping_test, a_mapping_that_failed_ends_the_check_with_success) {
  EXPECT_EQ(key_llif(healthy_with("glif", 5)), SUCCESS);
  EXPECT_EQ(st().exception, 1) << "told where it happened, and once";
  EXPECT_THAT(messages(LOG_FILE_EXCEPTION),
              ElementsAre(HasSubstr(": get_glif_to_llif_vsi_mapping failed for ")));
}

TEST_F(mapping_test, a_known_lif_ends_in_the_handler_since_nothing_can_be_added_to_a_text) {
  set_tables(older_node, "0", older_tables("1005 Payload=0x456\n", "", ""));
  const value object = healthy();
  EXPECT_EQ(key_llif(object, bundle_level), ERROR);
  EXPECT_EQ(object.as_record().get("llif"), "0x456");
  expect_told({.exception = {fmt::format(
                   "cannot add 1 to the text '0x456': verify_lif_rif_mac_mapping_key_llif failed "
                   "for {}",
                   err)}});
}

TEST_F(mapping_test, each_of_two_npus_goes_on_with_the_lif_that_its_own_chip_gave) {
  tool("asic_shell_show",
       "case \"$*\" in *'-u 0 '*) lif=0x450 ;; *) lif=0x451 ;; esac\n"
       "printf 'Global LIF 0x11234 -> Local In_LIF:%s (valid)\\n  a\\n"
       "  vsid: 16 tag: 1\\n' $lif");
  set_tables(older_node, "1", older_tables("", "", vsi_row("16", "1")));
  constexpr int rounds = 20;
  for (int round = 0; round < rounds; ++round) {
    const value object = healthy();
    together(2, [&](int npu) {
      const std::string number = std::to_string(npu);
      EXPECT_EQ(verify_lif_rif_mac_mapping_key_llif(object.as_record(), {older_node, number}, "1",
                                                    "NPU " + number, bundle_level),
                ERROR);
    });
  }
  const auto told = messages(LOG_FILE_EXCEPTION);
  ASSERT_EQ(told.size(), 2U * rounds);
  for (const std::string& each : told) {
    EXPECT_EQ(each.find("the text '0x450'") != std::string::npos, each.ends_with("NPU 0")) << each;
    EXPECT_EQ(each.find("the text '0x451'") != std::string::npos, each.ends_with("NPU 1")) << each;
  }
}

TEST_F(mapping_test, an_l2_object_ends_in_the_same_handler) {
  EXPECT_EQ(key_llif(healthy_with("is_l2", 1)), ERROR);
  EXPECT_EQ(st().exception, 1);
  EXPECT_EQ(st().programming_error, 0);
}

TEST_F(mapping_test, tables_that_are_missing_fail_twice_for_a_key_less_object) {
  st().BCM.set(map_of({}));
  EXPECT_EQ(key_llif(healthy()), ERROR);
  expect_told({.exception = {"no key '0/0/CPU0': SEM entry verification failed",
                             fmt::format("cannot add 1 to the text '0x456': "
                                         "verify_lif_rif_mac_mapping_key_llif failed for {}",
                                         err)}});
}

TEST_F(mapping_test, a_row_in_literal_braces_lets_the_check_go_on_to_the_rif) {
  const std::string braced = "{}12 Payload=0x3{}\n";
  set_tables(older_node, "0", older_tables(braced, "", ""));
  EXPECT_EQ(key_llif(healthy(), sub_level), SUCCESS);
  EXPECT_EQ(key_llif(healthy_with("is_l2", 1), bundle_level), SUCCESS);
  expect_told({});
  EXPECT_EQ(key_llif(healthy(), bundle_level), SUCCESS);
  expect_told({.programming_error = {
                   fmt::format("Programming Error 1: DPA RIF 0x10 not found in BCM for {}", err)}});
}

// --- Objects with an exact key

TEST_F(mapping_test, a_sem_entry_enters_the_local_lif) {
  const value object = healthy();
  EXPECT_EQ(key_vd(object), SUCCESS);
  EXPECT_EQ(object.as_record().get("llif"), "0x44");
  expect_told({});
}

TEST_F(mapping_test, a_missing_sem_entry_does_not_stop_the_rif_check) {
  set_tables(older_node, "0", older_tables("", "", ""));
  const value object = healthy_with("delPending", 1);
  EXPECT_EQ(key_vd(object), SUCCESS);
  EXPECT_EQ(object.as_record().get("llif"), DEFAULT);
  expect_told(
      {.programming_error =
           {fmt::format("Programming Error 1: SEMA/B entry is not present for glif 0x00011234,{}",
                        err),
            fmt::format("Programming Error 2: DPA RIF 0x10 not found in BCM for {}", err)},
       .delete_pending = {
           fmt::format("INFO: Inconsistent object {} is marked for delay delete", err)}});
}

TEST_F(mapping_test, a_missing_sem_entry_is_reported_with_a_glif_that_is_not_set) {
  EXPECT_EQ(key_vd(healthy_with("glif", DEFAULT), "8fff", sub_level), SUCCESS);
  expect_told({.programming_error = {fmt::format(
                   "Programming Error 1: SEMA/B entry is not present for glif Not set,{}", err)}});
}

TEST_F(mapping_test, an_l2_object_never_reaches_the_rif_functions) {
  st().BCM.get().at(older_node).at("0").as_map().set("VSI", ERROR);
  EXPECT_EQ(key_vd(healthy_with("is_l2", 1)), SUCCESS);
  EXPECT_EQ(key_vd(healthy_with("is_l2", DEFAULT)), SUCCESS);
  st().BCM.get().at(j2_node).at("0").as_map().set("VSI", ERROR);
  EXPECT_EQ(key_vd_j2(healthy_with("is_l2", 1)), SUCCESS);
  expect_told({});
}

TEST_F(mapping_test, an_object_without_a_rif_never_reaches_the_rif_functions) {
  st().BCM.get().at(older_node).at("0").as_map().set("VSI", ERROR);
  st().BCM.get().at(j2_node).at("0").as_map().set("VSI", ERROR);
  EXPECT_EQ(key_vd(healthy_with("rif", DEFAULT)), SUCCESS);
  EXPECT_EQ(key_vd_j2(healthy_with("rif", DEFAULT)), SUCCESS);
  expect_told({});
}

TEST_F(mapping_test, the_rif_of_a_sub_bundle_is_passed_over) {
  set_tables(older_node, "0", older_tables("1005 Payload=0x44\n", "", ERROR));
  EXPECT_EQ(key_vd(healthy(), "1005", sub_level), SUCCESS);
  expect_told({});
}

TEST_F(mapping_test, an_npu_without_tables_is_a_failure_and_a_missing_entry) {
  st().BCM.get().at(older_node).as_map().erase("0");
  EXPECT_EQ(key_vd(healthy(), "1005", sub_level), SUCCESS);
  EXPECT_EQ(key_vd(healthy(), "1005", bundle_level), SUCCESS);
  const std::string missing =
      fmt::format("SEMA/B entry is not present for glif 0x00011234,{}", err);
  expect_told(
      {.programming_error = {"Programming Error 1: " + missing, "Programming Error 2: " + missing},
       .exception = {"no key '0': SEM entry verification failed",
                     "no key '0': SEM entry verification failed",
                     fmt::format("no key '0': RIF verification failed for {}", err)}});
}

TEST_F(mapping_test, a_table_that_holds_error_is_a_failure_and_a_missing_entry) {
  set_tables(older_node, "0", older_tables(ERROR, ERROR, ERROR));
  EXPECT_EQ(key_vd(healthy()), SUCCESS);
  expect_told(
      {.programming_error = {fmt::format(
           "Programming Error 1: SEMA/B entry is not present for glif 0x00011234,{}", err)},
       .exception = {
           "a text expected, found the integer 0: SEM entry verification failed",
           fmt::format("a text expected, found the integer 0: RIF verification failed for {}",
                       err)}});
}

TEST_F(mapping_test, a_record_without_the_fields_is_a_failure) {
  const value port = new_record<memberInfo>();
  EXPECT_EQ(key_llif(port), ERROR);
  EXPECT_EQ(key_vd(port), ERROR);
  EXPECT_EQ(key_vd_j2(port), ERROR);
  expect_told(
      {.exception = {
           fmt::format("no field 'glif': verify_lif_rif_mac_mapping_key_llif failed for {}", err),
           fmt::format("no field 'is_l2': verify_lif_rif_mac_mapping_key_vd failed for {}", err),
           fmt::format("no field 'lagid': verify_lif_rif_mac_mapping_key_vd failed for {}", err)}});
}

// --- Jericho2

TEST_F(mapping_test, on_jericho2_the_rif_of_a_bundle_is_verified) {
  EXPECT_EQ(key_vd_j2(healthy()), SUCCESS);
  expect_told({});
  set_tables(j2_node, "0", ordered_map_of({{"VSI", map_of({{"16", "0"}})}}));
  EXPECT_EQ(key_vd_j2(healthy()), SUCCESS);
  expect_told({.programming_error = {
                   fmt::format("Programming Error 1: DPA RIF 0x10 not found in BCM for {}", err)}});
}

TEST_F(mapping_test, on_jericho2_a_sub_bundle_is_not_verified) {
  st().BCM.set(map_of({}));
  const value object = healthy();
  EXPECT_EQ(key_vd_j2(object, sub_level), SUCCESS);
  EXPECT_EQ(object.as_record().get("llif"), DEFAULT);
  EXPECT_THAT(calls(), IsEmpty());
  expect_told({});
}

TEST_F(mapping_test, on_jericho2_a_lagid_that_is_not_set_is_not_a_failure) {
  EXPECT_EQ(key_vd_j2(healthy_with("lagid", DEFAULT)), SUCCESS);
  EXPECT_EQ(key_vd_j2(healthy_with("lagid", DEFAULT), sub_level), SUCCESS);
  EXPECT_EQ(key_vd_j2(healthy_with("lagid", "lag")), SUCCESS);
  expect_told({});
}

TEST_F(mapping_test, a_failure_is_logged_before_it_is_counted) {
  const value port = new_record<memberInfo>();
  EXPECT_TRUE(logs_before_counting([&] { ask(port); }));
  EXPECT_TRUE(logs_before_counting([&] { key_llif(port); }));
  EXPECT_TRUE(logs_before_counting([&] { key_vd(port); }));
  EXPECT_TRUE(logs_before_counting([&] { key_vd_j2(port); }));
}

TEST(lif_map_test, mappings_are_those_of_the_plain_pattern) {
  const pattern definition(fill(lif_mapping_definition, {"4004"}));
  constexpr std::array<std::string_view, 14> pieces = {"4004 -> Local In_LIF:0x200f",
                                                       "GLIF 0x4004 -> Local In_LIF:0x5 table: A\n",
                                                       "4004",
                                                       " -> ",
                                                       "In_LIF:",
                                                       "0x",
                                                       "\n",
                                                       " vsid: 7",
                                                       "vsid: 12  stat id: 0\n",
                                                       "vsid:",
                                                       " ",
                                                       "x",
                                                       "orientation: hub\n",
                                                       "4004 -> x In_LIF:0x1"};
  std::size_t seen = 0;
  for (unsigned seed = 1; seed <= 20'000; ++seed) {
    std::mt19937 random(seed);
    const std::string text = fragments(random, pieces, 2 + seed % 25);
    const auto expected = groups_of(findall(definition, text));
    ASSERT_EQ(groups_of(lif_mappings_of(text, "4004")), expected) << seed << ": " << quoted(text);
    seen += expected.size();
  }
  EXPECT_GT(seen, 1000U);
}

TEST(lif_map_test, a_line_of_fifty_thousand_mappings_is_read_once) {
  std::string text;
  for (int mapping = 0; mapping < 50'000; ++mapping) text += "4004 -> x In_LIF:0x1 ";
  EXPECT_EQ(lif_mappings_of(text, "4004").size(), 0U);
  EXPECT_EQ(lif_mappings_of(text + "\n\nvsid: 7", "4004").size(), 1U);
}

}  // namespace
}  // namespace tessel
