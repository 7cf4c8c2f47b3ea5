#include "programming/entry_checks.h"

#include <fmt/format.h>
#include <sys/resource.h>
#include <unistd.h>

#include <array>
#include <fstream>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "base/text.h"
#include "support/chip_world.h"
#include "support/command_line.h"
#include "support/fake_router.h"
#include "support/hostile.h"
#include "support/limited_memory.h"

namespace tessel {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

constexpr std::string_view err = "BE12(0x3000120) NPU 0,0/0/CPU0";

class entry_checks_test : public router_test {
 protected:
  void SetUp() override {
    router_test::SetUp();
    open_logs();
    set_up_nodes();
  }
};

value bundle_with(const value& rif, const value& mac, int delPending = 0) {
  value bundle = new_record<Bundles>();
  bundle.as_record().set("rif", rif);
  bundle.as_record().set("mac", mac);
  bundle.as_record().set("delPending", delPending);
  return bundle;
}

// --- VLAN domains

TEST_F(entry_checks_test, equal_vlan_domains_are_not_a_finding) {
  EXPECT_EQ(verify_vlan_domain("0x8", "0x8", "0/0/0/1", err), SUCCESS);
  EXPECT_EQ(verify_vlan_domain(0, 0, "0/0/0/1", err), SUCCESS);
  expect_told({});
}

TEST_F(entry_checks_test, vlan_domains_are_compared_as_they_stand_in_notation_too) {
  EXPECT_EQ(verify_vlan_domain("0x8", "0x9", "0/0/0/1", err), ERROR);
  EXPECT_EQ(verify_vlan_domain("0x8", "8", "0/0/0/1", err), ERROR);
  EXPECT_EQ(verify_vlan_domain("0xa", "0xA", "0/0/0/1", err), ERROR);
  EXPECT_EQ(verify_vlan_domain("0x0", 0, "0/0/0/1", err), ERROR);
  EXPECT_EQ(verify_vlan_domain("0", 0, "0/0/0/1", err), ERROR);
  const std::string head = fmt::format(": {} Vlan Domain ", err);
  expect_told({.programming_error = {
                   "Programming Error 1" + head + "0x8 != Member 0/0/0/1 Vlan Domain 0x9",
                   "Programming Error 2" + head + "0x8 != Member 0/0/0/1 Vlan Domain 8",
                   "Programming Error 3" + head + "0xa != Member 0/0/0/1 Vlan Domain 0xA",
                   "Programming Error 4" + head + "0x0 != Member 0/0/0/1 Vlan Domain 0",
                   "Programming Error 5" + head + "0 != Member 0/0/0/1 Vlan Domain 0",
               }});
}

#if MEMORY_CAN_BE_LIMITED
// Takes almost all memory, so that later calls cannot copy a large text.
void use_up_memory() {
  std::int64_t pages = 0;
  std::ifstream("/proc/self/statm") >> pages;
  const auto in_use = static_cast<rlim_t>(pages * ::sysconf(_SC_PAGESIZE));
  const rlimit limit = {in_use + (8U << 20), in_use + (8U << 20)};
  ::setrlimit(RLIMIT_AS, &limit);
}

TEST_F(entry_checks_test, a_vlan_domain_that_cannot_be_reported_is_a_failure) {
  const value large = std::string(64U << 20, 'x');
  EXPECT_EQ(status_in_child([&] {
              use_up_memory();
              const int result = verify_vlan_domain("0x8", "0x9", large, err);
              return result == ERROR && st().exception == 1 ? 0 : 1;
            }),
            0);
  EXPECT_THAT(
      messages(LOG_FILE_EXCEPTION),
      ElementsAre(fmt::format("std::bad_alloc: vlan domain verification failed for {}", err)));
}
#endif

// --- SEM entries

TEST_F(entry_checks_test,
       the_wildcard_returns_the_first_hit_of_sema_and_looks_in_semb_only_if_sema_has_none) {
  const value one = "1 | Key=0x1005 Payload=0x00000044\n2 | Key=0x1005 Payload=0x00000055\n";
  const value other = "1 | Key=0x1005 Payload=0x00000066\n";
  set_tables(older_node, "0", older_tables(one, other, ""));
  set_tables(older_node, "1", older_tables("2005 Payload=0x1\n", other, ""));
  set_tables(older_node, "2", older_tables(one, ERROR, ""));
  EXPECT_EQ(verify_sem_entry(any_llif, {older_node, "0"}, "1005"), "0x44");
  EXPECT_EQ(verify_sem_entry(any_llif, {older_node, "1"}, "1005"), "0x66");
  EXPECT_EQ(verify_sem_entry(any_llif, {older_node, "2"}, "1005"), "0x44") << "SEMB is not read";
  expect_told({});
}

TEST_F(entry_checks_test, the_wildcard_returns_error_if_neither_table_has_the_key) {
  set_tables(older_node, "0", older_tables("2005 Payload=0x1\n", "", ""));
  EXPECT_EQ(verify_sem_entry(any_llif, {older_node, "0"}, "1005"), ERROR);
  expect_told({});
}

TEST_F(entry_checks_test, a_concrete_llif_returns_error_even_though_the_chip_holds_an_entry) {
  const value rows = "1 | Key=0x1005 Payload=0x44\n1005 Payload=0x44\n";
  set_tables(older_node, "0", older_tables(rows, rows, ""));
  for (const char* llif : {"44", "0x44", "", R"(\w*)", R"(\w+ )", R"(\\w+)"}) {
    EXPECT_EQ(verify_sem_entry(llif, {older_node, "0"}, "1005"), ERROR) << llif;
  }
  expect_told({});
}

TEST_F(entry_checks_test, a_concrete_llif_finds_only_a_row_in_literal_braces) {
  const value braced = "{}12 Payload=0x3{}\n";
  set_tables(older_node, "0", older_tables(braced, ERROR, ""));
  set_tables(older_node, "1", older_tables("", braced, ""));
  EXPECT_EQ(verify_sem_entry("44", {older_node, "0"}, "1005"), SUCCESS);
  EXPECT_EQ(verify_sem_entry("44", {older_node, "1"}, "1005"), SUCCESS);
  expect_told({});
}

TEST_F(entry_checks_test, a_key_that_occurs_only_as_the_tail_of_a_longer_word_does_match) {
  set_tables(older_node, "0", older_tables("Key=0x00000000000c1005 Payload=0x44\n", "", ""));
  EXPECT_EQ(verify_sem_entry(any_llif, {older_node, "0"}, "1005"), "0x44");
}

TEST_F(entry_checks_test, a_payload_is_given_in_usual_hexadecimal_form) {
  struct row {
    const char* why;
    const char* payload;
    const char* expected;
  };
  const std::array rows = {
      row{"leading zeros", "0x00001234", "0x1234"},
      row{"capitals", "0XABC", "0xabc"},
      row{"decimal", "1234", "0x4d2"},
      row{"octal", "010", "0x8"},
      row{"decimal with a zero in front", "08", "0x8"},
      row{"longer than a machine's number", "0x112233445566778899aa", "0x112233445566778899aa"},
  };
  for (const row& each : rows) {
    SCOPED_TRACE(each.why);
    set_tables(older_node, "0",
               older_tables(fmt::format("1005 Payload={}\n", each.payload), "", ""));
    EXPECT_EQ(verify_sem_entry(any_llif, {older_node, "0"}, "1005"), each.expected);
  }
  expect_told({});
}

TEST_F(entry_checks_test, a_sem_entry_that_cannot_be_looked_up_is_a_failure) {
  set_tables(older_node, "0", older_tables(ERROR, "1005 Payload=0x1\n", ""));
  set_tables(older_node, "1", older_tables("", ERROR, ""));
  set_tables(older_node, "2", map_of({{"SEMA", ""}}));
  set_tables(older_node, "3", older_tables("1005 Payload=zz\n1005 Payload=0x1\n", "", ""));
  set_tables(older_node, "4", ERROR);
  EXPECT_EQ(verify_sem_entry(any_llif, {"0/9/CPU0", "0"}, "1005"), ERROR);
  EXPECT_EQ(verify_sem_entry(any_llif, {older_node, "9"}, "1005"), ERROR);
  for (const char* npu : {"0", "1", "2", "3", "4"}) {
    EXPECT_EQ(verify_sem_entry(any_llif, {older_node, npu}, "1005"), ERROR);
  }
  EXPECT_EQ(verify_sem_entry("44", {older_node, "0"}, "1005"), ERROR);
  const std::string tail = ": SEM entry verification failed";
  expect_told({.exception = {
                   "no key '0/9/CPU0'" + tail,
                   "no key '9'" + tail,
                   "a text expected, found the integer 0" + tail,
                   "a text expected, found the integer 0" + tail,
                   "no key 'SEMB'" + tail,
                   "'zz' is no number" + tail,
                   "no key 'SEMA' in the integer 0: a map is expected" + tail,
                   "a text expected, found the integer 0" + tail,
               }});
  EXPECT_THAT(file_text(LOG_FILE_EXCEPTION), HasSubstr("Traceback (most recent call last):"));
  EXPECT_THAT(file_text(LOG_FILE_EXCEPTION), HasSubstr(", in verify_sem_entry\n"));
}

// --- The chip's own LIF map

class jericho2_sem_test : public entry_checks_test {
 protected:
  void SetUp() override {
    entry_checks_test::SetUp();
    set_tables(j2_node, "0", ordered_map_of({{"lif", map_of({{"7", "4660"}, {"8", 4660}})}}));
    tool_prints("asic_shell_show", "LIF\n  IN_LIF   4660\n  IN_LIF 1\n");
  }
};

TEST_F(jericho2_sem_test, the_chip_maps_the_glif_to_the_lif_of_the_port) {
  EXPECT_EQ(verify_sem_entry_j2("", {j2_node, "0"}, "7", "0x00011234"), SUCCESS);
  EXPECT_EQ(verify_sem_entry_j2("", {j2_node, "0"}, "8", "0x00011234"), ERROR)
      << "a number is not the text";
  expect_told({});
}

// The blanks before the word are only looked back at, so that a run of them is read once.
TEST_F(jericho2_sem_test, the_lif_is_what_the_plain_pattern_finds_first) {
  static const pattern& definition = constant(R"(\s+IN_LIF\s+(\d+))");
  constexpr std::array<std::string_view, 9> pieces = {
      " ", "\n", "IN_LIF", " IN_LIF 7", "4660", " IN_LIF 4660", "\t", "IN_LIF  466", "x"};
  int same = 0;
  for (unsigned seed = 1; seed <= 300; ++seed) {
    std::mt19937 random(seed);
    const std::string answer = fragments(random, pieces, 2 + seed % 10);
    SCOPED_TRACE(quoted(answer));
    tool_prints("asic_shell_show", answer);
    st().exception = 0;
    const int result = verify_sem_entry_j2("", {j2_node, "0"}, "7", "0x00011234");
    const matches found = findall(definition, answer);
    ASSERT_EQ(st().exception, found.empty() ? 1 : 0);
    ASSERT_EQ(result, !found.empty() && found.text(0) == "4660" ? SUCCESS : ERROR);
    same += result;
  }
  EXPECT_GT(same, 20);
}

TEST_F(jericho2_sem_test, another_lif_is_error_without_a_word) {
  tool_prints("asic_shell_show", " IN_LIF 4661\n IN_LIF 4660\n");
  EXPECT_EQ(verify_sem_entry_j2("", {j2_node, "0"}, "7", "0x00011234"), ERROR);
  expect_told({});
}

TEST_F(jericho2_sem_test, the_chip_is_asked_for_the_last_four_characters) {
  verify_sem_entry_j2("", {j2_node, "0"}, "7", "0x00011234");
  verify_sem_entry_j2("", {j2_node, "0"}, "7", "1f");
  EXPECT_THAT(calls(),
              ElementsAre("asic_shell_show -c diag pp lif id=0x1234 gl=1 type=in -u 0 -n 2",
                          "asic_shell_show -c diag pp lif id=0x1f gl=1 type=in -u 0 -n 2"));
  EXPECT_TRUE(file_exists("/tmp/tessel_glif1234_0_2.log"));
  EXPECT_TRUE(file_exists("/tmp/tessel_glif1f_0_2.log"));
}

TEST_F(jericho2_sem_test, what_cannot_be_looked_up_is_a_failure) {
  const std::string tail = ": SEM entry verification failed";
  EXPECT_EQ(verify_sem_entry_j2("", {j2_node, "0"}, "9", "0x1234"), ERROR);
  EXPECT_EQ(verify_sem_entry_j2("", {j2_node, "1"}, "7", "0x1234"), ERROR);
  EXPECT_THAT(calls(), ElementsAre()) << "the chip is asked last";
  tool_prints("asic_shell_show", "");
  EXPECT_EQ(verify_sem_entry_j2("", {j2_node, "0"}, "7", "0x1234"), ERROR);
  st().nodeinfo.set(map_of({}));
  EXPECT_EQ(verify_sem_entry_j2("", {j2_node, "0"}, "7", "0x1234"), ERROR);
  expect_told({.exception = {"no key '9'" + tail, "no key '1'" + tail, "no in-LIF for 1234" + tail,
                             "no key '0/1/CPU0'" + tail}});
}

TEST_F(jericho2_sem_test, a_glif_that_would_leave_the_command_is_never_asked_for) {
  for (const std::string& glif : glifs_that_plant()) {
    SCOPED_TRACE(glif);
    SetUp();
    EXPECT_EQ(verify_sem_entry_j2("", {j2_node, "0"}, "7", glif), ERROR);
    EXPECT_THAT(calls(), ElementsAre());
    EXPECT_EQ(st().exception, 2);
    EXPECT_THAT(messages(LOG_FILE_EXCEPTION),
                ElementsAre(testing::StartsWith("the GLIF of 0/1/CPU0 is "),
                            testing::EndsWith(": SEM entry verification failed")));
  }
}

TEST_F(jericho2_sem_test, a_chip_that_cannot_be_asked_is_reported_by_command_and_check) {
  EXPECT_EQ(
      command_line_of("glif1234_0_2",
                      [] {
                        EXPECT_EQ(verify_sem_entry_j2("", {j2_node, "0"}, "7", "0x1234"), ERROR);
                      }),
      "/opt/nos/bin/asic_shell_show -c \"diag pp lif id=0x1234 gl=1 type=in\" -u 0 -n 2");
  EXPECT_THAT(messages(LOG_FILE_EXCEPTION).back(),
              "a text expected, found the integer 0: SEM entry verification failed");
  EXPECT_EQ(st().exception, 2);
}

// --- Router interfaces of the earlier chips

class rif_test : public entry_checks_test {
 protected:
  int verify(const value& bundle, int is_sub = 0) {
    return verify_rif_entry(bundle.as_record(), {older_node, "0"}, err, is_sub);
  }
  // Sets the chip's MAC in the row of RIF 5.
  void chip_holds(std::string_view mac) {
    set_tables(older_node, "0", older_tables("", "", vsi_row("4", "1") + vsi_row("5", mac)));
  }
};

TEST_F(rif_test, mac_values_that_differ_above_the_low_ten_bits_of_the_last_three_digits_pass) {
  struct row {
    const char* why;
    const char* mac;
    const char* chip;
  };
  const std::array rows = {
      row{"abc compares as 2bc", "0011.2233.4abc", "2bc"},
      row{"of the chip's value too the low ten bits", "0011.2233.4abc", "56bc"},
      row{"bits ten and eleven of the third digit", "0011.2233.4ebc", "2bc"},
      row{"digits in front of the last three", "ffff.ffff.f2bc", "2bc"},
      row{"capitals", "0011.2233.4ABC", "2bC"},
      row{"a text of three digits", "2bc", "2bc"},
      row{"short texts", "1", "1"},
      row{"zero", "0000.0000.0000", "0"},
  };
  for (const row& each : rows) {
    SCOPED_TRACE(each.why);
    chip_holds(each.chip);
    EXPECT_EQ(verify(bundle_with("0x5", each.mac)), SUCCESS);
  }
  expect_told({});
}

TEST_F(rif_test, a_mac_that_differs_in_the_low_ten_bits_is_reported_as_the_table_has_it) {
  chip_holds("056bC");
  EXPECT_EQ(verify(bundle_with("0x5", "0011.2233.4abd")), SUCCESS);
  expect_told({.programming_error = {
                   fmt::format("Programming Error 1: BM PI MAC 0011.2233.4abd != BCM MAC MSB 056bC "
                               "for {}",
                               err)}});
}

TEST_F(rif_test, a_differing_mac_of_a_bundle_that_is_being_deleted_is_noted) {
  chip_holds("1");
  EXPECT_EQ(verify(bundle_with("0x5", "0011.2233.4abd", 1)), SUCCESS);
  expect_told({.programming_error = {fmt::format(
                   "Programming Error 1: BM PI MAC 0011.2233.4abd != BCM MAC MSB 1 for {}", err)},
               .delete_pending = {
                   fmt::format("INFO: Inconsistent object {} is marked for delay delete", err)}});
}

TEST_F(rif_test, a_rif_without_a_row_is_a_finding_and_no_delete_pending_test_is_made) {
  chip_holds("1");
  EXPECT_EQ(verify(bundle_with("0x6", "no mac", 1)), SUCCESS) << "the MAC is not read";
  expect_told({.programming_error = {
                   fmt::format("Programming Error 1: DPA RIF 0x6 not found in BCM for {}", err)}});
}

TEST_F(rif_test, a_rif_is_read_with_the_base_of_its_prefix) {
  set_tables(older_node, "0",
             older_tables("", "", vsi_row("16", "1") + vsi_row("8", "1") + vsi_row("10", "1")));
  for (const char* rif : {"0x10", "010", "10", " +0x8 "}) {
    EXPECT_EQ(verify(bundle_with(rif, "001")), SUCCESS);
  }
  expect_told({});
}

TEST_F(rif_test, with_is_sub_true_no_search_is_made_at_all) {
  EXPECT_EQ(verify(value(new_record<subBundles>()), 1), SUCCESS) << "no tables, no RIF, no MAC";
  expect_told({});
}

TEST_F(rif_test, a_rif_that_cannot_be_verified_is_a_failure) {
  const std::string tail = fmt::format(": RIF verification failed for {}", err);
  chip_holds("zz");
  EXPECT_EQ(verify(bundle_with(DEFAULT, "001")), ERROR);
  EXPECT_EQ(verify(bundle_with("0x5", "001")), ERROR);
  chip_holds("1");
  EXPECT_EQ(verify(bundle_with("0x5", DEFAULT)), ERROR);
  EXPECT_EQ(verify(bundle_with("0x5", "0011.2233.4.bc")), ERROR) << "a dot is not a digit";
  EXPECT_EQ(verify(bundle_with("0x5", "")), ERROR);
  EXPECT_EQ(verify(bundle_with("0x5", 5)), ERROR);
  EXPECT_EQ(verify(bundle_with(5, "001")), ERROR);
  EXPECT_EQ(verify(value(new_record<subBundles>())), ERROR) << "not set";
  set_tables(older_node, "0", older_tables("", "", ERROR));
  EXPECT_EQ(verify(bundle_with("0x5", "001")), ERROR);
  set_tables(older_node, "0", map_of({}));
  EXPECT_EQ(verify(bundle_with("0x5", "001")), ERROR);
  st().BCM.set(map_of({}));
  EXPECT_EQ(verify(bundle_with("0x5", "001")), ERROR);
  expect_told({.exception = {
                   "'Not set' is no number" + tail,
                   "'zz' is no number" + tail,
                   "'set' is no number" + tail,
                   "'.bc' is no number" + tail,
                   "'' is no number" + tail,
                   "a text expected, found the integer 5" + tail,
                   "a text expected, found the integer 5" + tail,
                   "'Not set' is no number" + tail,
                   "a text expected, found the integer 0" + tail,
                   "no key 'VSI'" + tail,
                   "no key '0/0/CPU0'" + tail,
               }});
}

TEST_F(rif_test, junk_in_place_of_the_tables_has_no_row) {
  const std::string not_found =
      fmt::format("Programming Error 1: DPA RIF 0x5 not found in BCM for {}", err);
  for (const auto* outputs : {&meaningless_outputs(), &endless_outputs()}) {
    for (const bad_output& each : *outputs) {
      SCOPED_TRACE(each.why);
      SetUp();
      set_tables(older_node, "0", older_tables(each.output, each.output, each.output));
      EXPECT_EQ(verify(bundle_with("0x5", "001")), SUCCESS);
      EXPECT_EQ(verify_sem_entry(any_llif, {older_node, "0"}, "1005"), ERROR);
      EXPECT_EQ(verify_sem_entry(any_llif, {older_node, "0"}, "Not set"), ERROR);
      expect_told({.programming_error = {not_found}});
    }
  }
}

// --- Router interfaces of Jericho2

class jericho2_rif_test : public entry_checks_test {
 protected:
  int verify(const value& bundle, const value& rif, int is_sub = 0) {
    return verify_rif_entry_j2(bundle.as_record(), {j2_node, "0"}, err, is_sub, rif);
  }
  void chip_holds(const value& mac) {
    set_tables(j2_node, "0", ordered_map_of({{"VSI", map_of({{"5", mac}})}}));
  }
};

TEST_F(jericho2_rif_test, a_mac_that_agrees_in_its_low_ten_bits_is_not_a_finding) {
  chip_holds("700");
  EXPECT_EQ(verify(bundle_with("0x5", "0011.2233.4abc"), "0x5"), SUCCESS) << "abc is 2bc is 700";
  EXPECT_EQ(verify(bundle_with("0x5", "0011.2233.4abc"), "5"), SUCCESS);
  chip_holds(700);
  EXPECT_EQ(verify(bundle_with("0x5", "0011.2233.4abc"), "0x5"), SUCCESS);
  expect_told({});
}

TEST_F(jericho2_rif_test, the_chips_value_is_read_as_plain_decimal) {
  chip_holds("010");
  EXPECT_EQ(verify(bundle_with("0x5", "0011.2233.400a"), "0x5"), SUCCESS) << "ten, not eight";
  expect_told({});
  chip_holds("0x2bc");
  EXPECT_EQ(verify(bundle_with("0x5", "0011.2233.4abc"), "0x5"), ERROR);
  expect_told(
      {.exception = {fmt::format("'0x2bc' is no number: RIF verification failed for {}", err)}});
}

TEST_F(jericho2_rif_test, a_mac_that_differs_never_writes_its_message) {
  chip_holds("701");
  EXPECT_EQ(verify(bundle_with("0x5", "0011.2233.4abc", 1), "0x5"), ERROR);
  EXPECT_EQ(st().programming_error, 1);
  EXPECT_THAT(messages(LOG_FILE_PROGRAMMING_ERROR), ElementsAre());
  EXPECT_EQ(st().exception, 1);
  EXPECT_THAT(messages(LOG_FILE_EXCEPTION),
              ElementsAre(fmt::format("the chip's MAC 701 has no first element: RIF verification "
                                      "failed for {}",
                                      err)));
  EXPECT_EQ(st().deletePending, 0) << "the delete-pending test is not reached";
  EXPECT_THAT(messages(LOG_FILE_DELETE_PENDING), ElementsAre());
}

TEST_F(jericho2_rif_test, the_chips_value_is_not_masked) {
  chip_holds(std::to_string(0x6bc));
  EXPECT_EQ(verify(bundle_with("0x5", "0011.2233.46bc"), "0x5"), ERROR);
  EXPECT_EQ(st().programming_error, 1);
  EXPECT_EQ(st().exception, 1);
}

TEST_F(jericho2_rif_test, a_mac_of_0_is_a_rif_that_the_chip_does_not_have) {
  chip_holds("0");
  EXPECT_EQ(verify(bundle_with("0x05", "no mac", 1), "0x5"), SUCCESS);
  expect_told({.programming_error = {
                   fmt::format("Programming Error 1: DPA RIF 0x05 not found in BCM for {}", err)}});
}

TEST_F(jericho2_rif_test, with_is_sub_true_no_search_is_made_at_all) {
  EXPECT_EQ(verify(value(new_record<subBundles>()), "0x5", 1), SUCCESS);
  expect_told({});
}

TEST_F(jericho2_rif_test, a_rif_text_that_is_not_a_number_ends_in_the_handler) {
  chip_holds("700");
  EXPECT_EQ(verify(bundle_with("0x5", "0011.2233.4abc"), DEFAULT), ERROR);
  EXPECT_EQ(verify(bundle_with("0x5", "0011.2233.4abc"), "0xzz"), ERROR);
  const std::string tail = fmt::format(": RIF verification failed for {}", err);
  expect_told({.exception = {"no key 'Not set'" + tail, "no key '0xzz'" + tail}});
}

TEST_F(jericho2_rif_test, a_rif_that_cannot_be_verified_is_a_failure) {
  const value bundle = bundle_with("0x5", "0011.2233.4abc");
  const std::string tail = fmt::format(": RIF verification failed for {}", err);
  chip_holds("701");
  EXPECT_EQ(verify(bundle, "0x6"), ERROR) << "a RIF that is missing is not a finding";
  chip_holds("a mac");
  EXPECT_EQ(verify(bundle, "0x5"), ERROR);
  chip_holds("701");
  EXPECT_EQ(verify(bundle_with("0x5", DEFAULT), "0x5"), ERROR);
  set_tables(j2_node, "0", ordered_map_of({{"VSI", ERROR}}));
  EXPECT_EQ(verify(bundle, "0x5"), ERROR);
  st().BCM.set(map_of({}));
  EXPECT_EQ(verify(bundle, "0x5"), ERROR);
  expect_told({.exception = {"no key '6'" + tail, "'a mac' is no number" + tail,
                             "'set' is no number" + tail,
                             "no key '5' in the integer 0: a map is expected" + tail,
                             "no key '0/1/CPU0'" + tail}});
}

TEST_F(entry_checks_test, a_failure_is_logged_before_it_is_counted) {
  EXPECT_TRUE(logs_before_counting([] { verify_sem_entry(any_llif, {older_node, "9"}, "1005"); }));
  EXPECT_TRUE(logs_before_counting([] {
    verify_rif_entry(bundle_with("0x5", "001").as_record(), {older_node, "9"}, err, 0);
  }));
  EXPECT_TRUE(logs_before_counting([] {
    verify_rif_entry_j2(bundle_with("0x5", "001").as_record(), {older_node, "9"}, err, 0, "0x5");
  }));
}

TEST_F(entry_checks_test, a_failure_before_the_logs_are_open_waits_for_them) {
  start_new_state();
  verify_sem_entry(any_llif, {older_node, "0"}, "1005");
  ASSERT_EQ(kept_messages().size(), 1U);
  EXPECT_THAT(kept_messages()[0], StartsWith("no key '0/0/CPU0': SEM"));
}

}  // namespace
}  // namespace tessel
