#include "programming/programming_pass.h"

#include <fmt/format.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <initializer_list>
#include <latch>
#include <set>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "base/worker.h"
#include "support/chip_world.h"
#include "support/crew.h"
#include "support/fake_router.h"
#include "support/hostile.h"

namespace tessel {
namespace {

using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;
using testing::UnorderedElementsAreArray;

constexpr std::string_view title = "Bundle Programming Check................";
constexpr std::string_view chip_answer = "x1234 -> Local In_LIF:0x456\n  type: VLAN\n  vsid: 16\n";

struct port {
  std::string_view nodename;
  std::string_view name;
  std::string_view npu;
  value vlan_domain = "0x8";
};

// Adds a layer 2 bundle without sub-bundles; the chips of its ports have its VLAN domain.
record& add_bundle(std::string_view name, std::initializer_list<port> ports) {
  const value bundle = new_record<Bundles>();
  record& fields = bundle.as_record();
  fields.set("ifh", "0x3000120");
  fields.set("glif", "0x00011234");
  fields.set("is_l2", 1);
  fields.set("untagged", 0);
  const value members = fields.get("members");
  const value domains = fields.get("vlan_domain");
  for (const port& each : ports) {
    const value member = new_record<memberInfo>();
    member.as_record().set("name", each.name);
    member.as_record().set("npu_id", each.npu);
    member.as_record().set("npu_core", "0");
    member.as_record().get("vlan_domain").as_map().set(each.nodename, each.vlan_domain);
    if (!members.contains(each.nodename)) {
      members.as_map().set(each.nodename, make_ordered_map());
      domains.as_map().set(each.nodename, make_map());
    }
    members.at(each.nodename).as_map().set(each.name, member);
    domains.at(each.nodename).as_map().set(each.npu, each.vlan_domain);
  }
  st().tesselDb.as_map().set(name, bundle);
  return fields;
}

value sub_with(const value& encap) {
  const value sub = new_record<subBundles>();
  sub.as_record().set("ifh", "0x3000a60");
  sub.as_record().set("glif", "0x00021234");
  sub.as_record().set("is_l2", 1);
  sub.as_record().set("encap", encap);
  return sub;
}

record& add_sub(record& bundle, std::string_view name, const value& encap) {
  const value sub = sub_with(encap);
  bundle.get("sub_bundles").as_map().set(name, sub);
  return sub.as_record();
}

std::string sem_missing(int number, std::string_view object) {
  return fmt::format("Programming Error {}: SEMA/B entry is not present for glif {}", number,
                     object);
}

// The first member of the bundle on this node, and its name in messages.
value first_member(std::string_view bundle, std::string_view nodename) {
  return st()
      .tesselDb.at(bundle)
      .as_record()
      .get("members")
      .at(nodename)
      .as_map()
      .items()[0]
      .second;
}

class programming_pass_test : public router_test {
 protected:
  void SetUp() override {
    router_test::SetUp();
    open_logs();
    set_up_nodes();
    for (const char* npu : {"0", "1"}) {
      set_tables(older_node, npu, older_tables("", "", ""));
      set_tables(j2_node, npu, ordered_map_of({{"VSI", map_of({{"5", "0"}})}}));
    }
  }

  static int check() {
    int result = -1;
    st().line_is_open = false;
    EXPECT_EQ(output_of([&] { result = check_bundle_programming(); }), title);
    return result;
  }
  static void sema(std::string_view rows) {
    set_tables(older_node, "0", older_tables(rows, "", ""));
  }
};

// --- Which work is started

TEST_F(programming_pass_test, with_no_bundle_but_hqos_the_pass_starts_no_worker_and_succeeds) {
  EXPECT_EQ(check(), SUCCESS);
  st().tesselDb.as_map().set("hqos", 1);
  EXPECT_EQ(check(), SUCCESS);
  expect_told({});
}

TEST_F(programming_pass_test,
       a_node_without_a_vlan_domain_entry_is_reported_on_a_run_without_findings) {
  record& bundle = add_bundle("BE12", {{older_node, "0/0/0/1", "0"}, {j2_node, "0/1/0/1", "0"}});
  bundle.set("vlan_domain", map_of({}));
  bundle.set("delPending", 1);
  EXPECT_EQ(check(), SUCCESS);
  const auto note = [](std::string_view nodename) {
    return fmt::format("INFO: Inconsistent object BE12(0x3000120), {} is marked for delay delete",
                       nodename);
  };
  expect_told({.programming_error =
                   {"Programming Error1:Not able to get vlan domain for BE12(0x3000120), 0/0/CPU0",
                    "Programming Error2:Not able to get vlan domain for BE12(0x3000120), 0/1/CPU0"},
               .delete_pending = {note(older_node), note(j2_node)}});
}

TEST_F(programming_pass_test,
       a_node_without_a_vlan_domain_entry_gives_no_message_once_there_was_a_failure) {
  add_bundle("BE12", {{older_node, "0/0/0/1", "0"}}).set("vlan_domain", map_of({}));
  ++st().exception;
  EXPECT_EQ(check(), SUCCESS);
  EXPECT_EQ(st().programming_error, 0);
}

TEST_F(programming_pass_test,
       a_node_without_a_vlan_domain_entry_gives_no_message_once_there_was_an_inconsistency) {
  add_bundle("BE12", {{older_node, "0/0/0/1", "0"}}).set("vlan_domain", map_of({}));
  ++st().inconsistent;
  EXPECT_EQ(check(), SUCCESS);
  EXPECT_EQ(st().programming_error, 0);
  EXPECT_THAT(messages(LOG_FILE_PROGRAMMING_ERROR), IsEmpty());
}

TEST_F(programming_pass_test,
       a_note_or_a_programming_error_does_not_silence_a_missing_vlan_domain) {
  add_bundle("BE12", {{older_node, "0/0/0/1", "0"}}).set("vlan_domain", map_of({}));
  ++st().info;
  ++st().programming_error;
  EXPECT_EQ(check(), SUCCESS);
  EXPECT_THAT(messages(LOG_FILE_PROGRAMMING_ERROR),
              ElementsAre("Programming Error2:Not able to get vlan domain for BE12(0x3000120), "
                          "0/0/CPU0"));
}

TEST_F(programming_pass_test, a_node_that_takes_no_part_is_skipped) {
  struct row {
    const char* why;
    const char* field;
    value content;
  };
  const std::array rows = {
      row{"its chip is not supported", "asic_supported", 0},
      row{"its chip was never asked", "asic_supported", ""},
      row{"it was not collected", "dump", 0},
  };
  for (const row& each : rows) {
    SCOPED_TRACE(each.why);
    SetUp();
    add_bundle("BE12", {{older_node, "0/0/0/1", "0"}}).set("untagged", 1);
    st().nodeinfo.get().at(older_node).as_map().set(each.field, each.content);
    EXPECT_EQ(check(), SUCCESS);
    expect_told({});
  }
}

TEST_F(programming_pass_test, a_mismatch_of_one_member_skips_only_that_member) {
  record& bundle = add_bundle(
      "BE12", {{older_node, "0/0/0/1", "0", "0x9"}, {older_node, "0/0/0/2", "0", "0x8"}});
  bundle.set("untagged", 1);
  bundle.set("delPending", 1);
  EXPECT_EQ(check(), SUCCESS);
  const std::string note =
      "INFO: Inconsistent object BE12(0x3000120) NPU 0,0/0/CPU0 is marked for delay delete";
  expect_told({.programming_error =
                   {"Programming Error 1: BE12(0x3000120) NPU 0,0/0/CPU0 Vlan Domain 0x8 != Member "
                    "0/0/0/1 Vlan Domain 0x9",
                    sem_missing(2, "0x00011234,BE12(0x3000120) NPU 0,0/0/CPU0")},
               .delete_pending = {note, note}});
}

TEST_F(programming_pass_test, a_mismatch_of_all_members_of_an_npu_starts_nothing_there) {
  record& bundle = add_bundle("BE12", {{older_node, "0/0/0/1", "0", "0x9"},
                                       {older_node, "0/0/0/2", "0", 0},
                                       {older_node, "0/0/0/3", "1"}});
  bundle.get("vlan_domain").at(older_node).as_map().set("0", "0x8");
  bundle.set("untagged", 1);
  EXPECT_EQ(check(), SUCCESS);
  const std::string head = "BE12(0x3000120) NPU 0,0/0/CPU0 Vlan Domain 0x8 != Member ";
  EXPECT_THAT(
      messages(LOG_FILE_PROGRAMMING_ERROR),
      testing::UnorderedElementsAre("Programming Error 1: " + head + "0/0/0/1 Vlan Domain 0x9",
                                    "Programming Error 2: " + head + "0/0/0/2 Vlan Domain 0",
                                    sem_missing(3, "0x00011234,BE12(0x3000120) NPU 1,0/0/CPU0")));
}

TEST_F(programming_pass_test, on_jericho2_no_vlan_domain_comparison_takes_place) {
  record& bundle = add_bundle("BE12", {{j2_node, "0/1/0/1", "0", "0x9"}});
  bundle.get("vlan_domain").at(j2_node).as_map().set("0", "0x8");
  bundle.get("members").at(j2_node).at("0/1/0/1").as_record().set("vlan_domain", ERROR);
  EXPECT_EQ(check(), SUCCESS);
  expect_told({});
}

TEST_F(programming_pass_test, on_jericho2_a_missing_vlan_domain_entry_is_reported_all_the_same) {
  add_bundle("BE12", {{j2_node, "0/1/0/1", "0"}}).get("vlan_domain").as_map().erase(j2_node);
  EXPECT_EQ(check(), SUCCESS);
  expect_told(
      {.programming_error = {
           "Programming Error1:Not able to get vlan domain for BE12(0x3000120), 0/1/CPU0"}});
}

TEST_F(programming_pass_test, a_member_on_the_same_npu_as_an_earlier_one_starts_nothing) {
  add_bundle("BE12", {{older_node, "0/0/0/1", "0"},
                      {older_node, "0/0/0/2", "1"},
                      {older_node, "0/0/0/3", "0"},
                      {older_node, "0/0/0/4", "1"}})
      .set("untagged", 1);
  EXPECT_EQ(check(), SUCCESS);
  EXPECT_EQ(st().programming_error, 2) << "one for each NPU";
  EXPECT_THAT(messages(LOG_FILE_PROGRAMMING_ERROR),
              testing::UnorderedElementsAre(EndsWith("BE12(0x3000120) NPU 0,0/0/CPU0"),
                                            EndsWith("BE12(0x3000120) NPU 1,0/0/CPU0")));
}

TEST_F(programming_pass_test, an_npu_of_the_same_number_on_another_node_is_another_npu) {
  record& bundle = add_bundle("BE12", {{older_node, "0/0/0/1", "0"}, {j2_node, "0/1/0/1", "0"}});
  bundle.set("untagged", 1);
  bundle.set("is_l2", 0);
  bundle.set("rif", "0x5");
  set_tables(older_node, "0", older_tables("8fff Payload=0x1", "", ""));
  EXPECT_EQ(check(), SUCCESS);
  EXPECT_THAT(messages(LOG_FILE_PROGRAMMING_ERROR),
              testing::UnorderedElementsAre(
                  EndsWith("DPA RIF 0x5 not found in BCM for BE12(0x3000120) NPU 0,0/0/CPU0"),
                  EndsWith("DPA RIF 0x5 not found in BCM for BE12(0x3000120) NPU 0,0/1/CPU0")));
}

TEST_F(programming_pass_test,
       a_bundle_without_sub_bundles_and_without_untagged_traffic_asks_nothing) {
  st().BCM.set(map_of({}));
  for (const value& untagged : {value(0), value(DEFAULT), value("1"), value(2)}) {
    add_bundle("BE12", {{older_node, "0/0/0/1", "0"}, {j2_node, "0/1/0/1", "0"}})
        .set("untagged", untagged);
    EXPECT_EQ(check(), SUCCESS);
  }
  EXPECT_THAT(calls(), IsEmpty());
  expect_told({});
}

TEST_F(programming_pass_test, sub_bundles_on_jericho2_are_not_verified) {
  record& bundle = add_bundle("BE12", {{j2_node, "0/1/0/1", "0"}});
  record& sub = add_sub(bundle, "BE12.5", list_of({"abc"}));
  sub.set("is_l2", 0);
  sub.set("rif", "0x77");
  st().BCM.set(map_of({}));
  EXPECT_EQ(check(), SUCCESS);
  expect_told({});
}

// --- Chip keys

TEST_F(programming_pass_test, the_vlan_domain_0x10_and_encap_5_give_the_key_1005) {
  record& bundle = add_bundle("BE12", {{older_node, "0/0/0/1", "0", "0x10"}});
  const record& sub = add_sub(bundle, "BE12.5", list_of({"5"}));
  sema("0x0010005 Payload=0x1\nx10005 Payload=0x2\n2005 Payload=0x3\n1005 Payload=0x44\n");
  EXPECT_EQ(check(), SUCCESS);
  EXPECT_EQ(sub.get("llif"), "0x44");
  expect_told({});
}

TEST_F(programming_pass_test, with_vd_8_and_the_untagged_bundle_check_the_key_is_8fff) {
  record& bundle = add_bundle("BE12", {{older_node, "0/0/0/1", "0", "0x8"}});
  bundle.set("untagged", 1);
  sema("fff Payload=0x1\n9fff Payload=0x2\n8fff Payload=0x44\n");
  EXPECT_EQ(check(), SUCCESS);
  EXPECT_EQ(bundle.get("llif"), "0x44");
  expect_told({});
}

TEST_F(programming_pass_test, encap_100_and_200_give_the_tag_200_and_the_key_0c8_vd_064) {
  record& bundle = add_bundle("BE12", {{older_node, "0/0/0/1", "0", "0x8"}});
  const record& sub = add_sub(bundle, "BE12.5", list_of({"100", "200"}));
  sema("0648064 Payload=0x1\n0c880c8 Payload=0x2\n1908064 Payload=0x3\n0c88064 Payload=0x44\n");
  EXPECT_EQ(check(), SUCCESS);
  EXPECT_EQ(sub.get("llif"), "0x44");
  expect_told({});
}

TEST_F(programming_pass_test, a_vlan_domain_is_trimmed_by_the_set_of_0_and_x) {
  struct row {
    const char* vlan_domain;
    const char* key;
  };
  const std::array rows = {
      row{"0x8", "8fff"},     row{"0x10", "1fff"},     row{"0x100", "1fff"},
      row{"0x101", "101fff"}, row{"0xf0f0", "f0ffff"}, row{"0x", "fff"},
      row{"0x0", "fff"},      row{"16", "16fff"},      row{"0X10", "X1fff"},
  };
  for (const row& each : rows) {
    SCOPED_TRACE(each.vlan_domain);
    SetUp();
    record& bundle = add_bundle("BE12", {{older_node, "0/0/0/1", "0", each.vlan_domain}});
    bundle.set("untagged", 1);
    // The key follows a character that is not part of a word, so only the whole key is found.
    sema(fmt::format("|{} Payload=0x44\n", each.key));
    EXPECT_EQ(check(), SUCCESS);
    EXPECT_EQ(bundle.get("llif"), "0x44");
    expect_told({});
  }
}

struct key_row {
  const char* why;
  value encap;
  const char* key;
};

TEST_F(programming_pass_test, a_sub_bundle_with_one_or_two_tags_has_an_exact_key) {
  const std::array rows = {
      key_row{"three digits at least", list_of({"1"}), "8001"},
      key_row{"lower case", list_of({"4095"}), "8fff"},
      key_row{"four digits", list_of({"4096"}), "81000"},
      key_row{"decimal, whatever stands in front", list_of({" 010"}), "800a"},
      key_row{"a number", list_of({5}), "8005"},
      key_row{"two tags, the second is not read", list_of({"1", "no number"}), "0028001"},
      key_row{"two tags, both fields grow", list_of({"4095", "1"}), "1ffe8fff"},
      key_row{"two tags, a small one", list_of({"0", "1"}), "0008000"},
  };
  for (const key_row& each : rows) {
    SCOPED_TRACE(each.why);
    SetUp();
    sema(fmt::format("|{} Payload=0x44\n", each.key));
    const value sub = sub_with(each.encap);
    EXPECT_EQ(check_sub_bdl_prgm_task(sub.as_record(), {older_node, "0"}, "8", "here"), SUCCESS);
    EXPECT_EQ(sub.as_record().get("llif"), "0x44");
    EXPECT_THAT(calls(), IsEmpty());
    expect_told({});
  }
}

TEST_F(programming_pass_test, a_sub_bundle_without_an_exact_key_is_looked_up_by_its_glif) {
  const std::array rows = {
      key_row{"untagged", list_of({"untagged"}), ""},
      key_row{"no tag", list_of({}), ""},
      key_row{"three tags", list_of({"1", "2", "3"}), ""},
      key_row{"four tags", list_of({"1", "2", "3", "4"}), ""},
  };
  for (const key_row& each : rows) {
    SCOPED_TRACE(each.why);
    SetUp();
    tool_prints("asic_shell_show", "");
    const value sub = sub_with(each.encap);
    EXPECT_EQ(check_sub_bdl_prgm_task(sub.as_record(), {older_node, "0"}, "8", "here"), SUCCESS);
    EXPECT_THAT(calls(),
                ElementsAre("asic_shell_show -c diag pp lif id=0x1234 gl=1 type=in -u 0 -n 1"));
    expect_told({.programming_error = {
                     "Programming Error 1: Not able to find GLIF 0x00021234 to LLIF mapping for "
                     "here"}});
  }
}

TEST_F(programming_pass_test,
       a_sub_bundle_whose_lif_the_chip_knows_ends_in_a_failure_without_an_exact_key) {
  tool_prints("asic_shell_show", chip_answer);
  add_sub(add_bundle("BE12", {{older_node, "0/0/0/1", "0"}}), "BE12.5", list_of({"untagged"}));
  EXPECT_EQ(check(), SUCCESS);
  expect_told({.exception = {"cannot add 1 to the text '0x456': "
                             "verify_lif_rif_mac_mapping_key_llif failed for BE12.5(0x3000a60) NPU "
                             "0,0/0/CPU0"}});
}

TEST_F(programming_pass_test,
       a_missing_entry_of_a_sub_bundle_is_reported_with_name_handle_npu_and_node) {
  add_sub(add_bundle("BE12", {{older_node, "0/0/0/1", "1"}}), "BE12.5", list_of({"5"}));
  EXPECT_EQ(check(), SUCCESS);
  expect_told(
      {.programming_error = {sem_missing(1, "0x00021234,BE12.5(0x3000a60) NPU 1,0/0/CPU0")}});
}

// --- Failures

TEST_F(programming_pass_test,
       an_encapsulation_that_is_not_a_number_is_a_failure_of_its_sub_bundle) {
  const std::array rows = {
      key_row{"one tag", list_of({"abc"}), "'abc' is no number"},
      key_row{"a hexadecimal tag", list_of({"0x5"}), "'0x5' is no number"},
      key_row{"an empty tag", list_of({""}), "'' is no number"},
      key_row{"the first of two", list_of({"untagged", "5"}), "'untagged' is no number"},
      key_row{"too large", list_of({"99999999999999999999"}),
              "'99999999999999999999' is too large a number"},
      key_row{"too large to be doubled", list_of({"9223372036854775807", "1"}),
              "9223372036854775807 is too large a VLAN"},
      key_row{"no list", DEFAULT, "a list expected, found the text 'Not set'"},
      key_row{"a list in the list", list_of({list_of({})}), "a text expected, found a list of 0"},
  };
  for (const key_row& each : rows) {
    SCOPED_TRACE(each.why);
    SetUp();
    const value sub = sub_with(each.encap);
    EXPECT_EQ(check_sub_bdl_prgm_task(sub.as_record(), {older_node, "0"}, "8", "here"), ERROR);
    expect_told(
        {.exception = {fmt::format("{}: verify_lif_rif_mac_mapping failed for here", each.key)}});
  }
}

TEST_F(programming_pass_test,
       a_failure_in_a_sub_bundle_task_stops_neither_its_siblings_nor_the_bundle) {
  record& bundle = add_bundle("BE12", {{older_node, "0/0/0/1", "0"}});
  bundle.set("untagged", 1);
  add_sub(bundle, "BE12.1", list_of({"abc"}));
  add_sub(bundle, "BE12.2", list_of({"2"}));
  EXPECT_EQ(check(), SUCCESS);
  EXPECT_EQ(st().programming_error, 2);
  EXPECT_THAT(messages(LOG_FILE_EXCEPTION),
              ElementsAre("'abc' is no number: verify_lif_rif_mac_mapping failed for "
                          "BE12.1(0x3000a60) NPU 0,0/0/CPU0"));
  EXPECT_THAT(file_text(LOG_FILE_EXCEPTION), HasSubstr(", in check_sub_bdl_prgm_task\n"));
}

TEST_F(programming_pass_test, a_member_whose_npu_has_no_vlan_domain_ends_the_pass) {
  record& bundle = add_bundle("BE12", {{older_node, "0/0/0/1", "0"}});
  bundle.get("vlan_domain").at(older_node).as_map().erase("0");
  add_bundle("BE13", {{older_node, "0/0/0/2", "0"}}).set("untagged", 1);
  EXPECT_EQ(check(), ERROR);
  expect_told({.exception = {"no key '0': Bundle programming verification failed"}});
  EXPECT_THAT(file_text(LOG_FILE_EXCEPTION), HasSubstr(", in check_bundle_programming\n"));
}

TEST_F(programming_pass_test, what_cannot_be_walked_ends_the_pass) {
  struct row {
    const char* why;
    const char* field;
    value content;
    const char* message;
  };
  const std::array rows = {
      row{"members", "members", DEFAULT,
          "'0/0/CPU0' looked for in the text 'Not set': a map is expected"},
      row{"VLAN domains", "vlan_domain", ERROR,
          "'0/0/CPU0' looked for in the integer 0: a map is expected"},
      row{"a member", "members", map_of({{older_node, map_of({{"0/0/0/1", ERROR}})}}),
          "a record expected, found the integer 0"},
      row{"a VLAN domain that both do not have", "vlan_domain",
          map_of({{older_node, map_of({{"0", 0}})}}), "a text expected, found the integer 0"},
  };
  for (const row& each : rows) {
    SCOPED_TRACE(each.why);
    SetUp();
    record& bundle = add_bundle("BE12", {{older_node, "0/0/0/1", "0"}});
    first_member("BE12", older_node).as_record().get("vlan_domain").as_map().set(older_node, 0);
    bundle.get("vlan_domain").at(older_node).as_map().set("0", 0);
    bundle.set(each.field, each.content);
    EXPECT_EQ(check(), ERROR);
    expect_told(
        {.exception = {fmt::format("{}: Bundle programming verification failed", each.message)}});
  }
  SetUp();
  st().tesselDb.as_map().set("BE12", "text");
  EXPECT_EQ(check(), ERROR);
  expect_told({.exception = {"a record expected, found the text 'text': Bundle programming "
                             "verification failed"}});
}

TEST_F(programming_pass_test, a_title_that_cannot_be_written_is_a_failure) {
  EXPECT_EQ(status_in_child([] {
              if (std::freopen("/dev/full", "w", stdout) == nullptr) return 2;
              return check_bundle_programming() == ERROR && st().exception == 1 ? 0 : 1;
            }),
            0);
  EXPECT_THAT(messages(LOG_FILE_EXCEPTION),
              ElementsAre(EndsWith(": Bundle programming verification failed")));
}

TEST_F(programming_pass_test, a_task_that_cannot_be_carried_out_names_its_bundle) {
  add_bundle("BE12", {{older_node, "0/0/0/1", "0"}}).get("sub_bundles").as_map().set("BE12.5", 0);
  const value member = first_member("BE12", older_node);
  const std::string node(older_node);
  EXPECT_EQ(check_bdl_prgm_task("BE9", node, member, "8", "here"), ERROR);
  EXPECT_EQ(check_bdl_prgm_task("BE12", node, ERROR, "8", "here"), ERROR);
  EXPECT_EQ(check_bdl_prgm_task("BE12", node, member, "8", "here"), ERROR);
  EXPECT_EQ(check_bdl_prgm_task_j2("BE9", node, member, "8", "here"), ERROR);
  EXPECT_EQ(check_bdl_prgm_task_j2("BE12", node, new_record<Bundles>(), "8", "here"), ERROR);
  const std::string text = ": Hardware data unavailable/check_bdl_prgm_task failed for ";
  expect_told({.exception = {"no key 'BE9'" + text + "BE9",
                             "a record expected, found the integer 0" + text + "BE12",
                             "a record expected, found the integer 0" + text + "BE12",
                             "no key 'BE9'" + text + "BE9", "no field 'npu_id'" + text + "BE12"}});
}

TEST_F(programming_pass_test, tasks_that_were_carried_out_succeed_whatever_they_found) {
  record& bundle = add_bundle("BE12", {{older_node, "0/0/0/1", "0"}, {j2_node, "0/1/0/1", "0"}});
  bundle.set("untagged", 1);
  const value sub = sub_with(list_of({"5"}));
  EXPECT_EQ(check_bdl_prgm_task("BE12", std::string(older_node), first_member("BE12", older_node),
                                "8", "here"),
            SUCCESS);
  EXPECT_EQ(check_bdl_prgm_task_j2("BE12", std::string(j2_node), first_member("BE12", j2_node), "8",
                                   "here"),
            SUCCESS);
  EXPECT_EQ(check_sub_bdl_prgm_task(sub.as_record(), {older_node, "0"}, "8", "there"), SUCCESS);
  EXPECT_EQ(check_sub_bdl_prgm_task_j2(sub.as_record(), {j2_node, "0"}, "8", "0", "there"),
            SUCCESS);
  expect_told({.programming_error = {sem_missing(1, "0x00011234,here"),
                                     sem_missing(2, "0x00021234,there")}});
}

TEST_F(programming_pass_test, a_task_on_jericho2_takes_the_core_of_its_member) {
  add_bundle("BE12", {{j2_node, "0/1/0/1", "0"}});
  const value no_core = new_record<subBundles>();
  no_core.as_record().set("npu_id", "0");
  EXPECT_EQ(check_bdl_prgm_task_j2("BE12", std::string(j2_node), no_core, "8", "here"), ERROR);
  EXPECT_EQ(check_bdl_prgm_task("BE12", std::string(j2_node), no_core, "8", "here"), SUCCESS);
  expect_told({.exception = {"no field 'npu_core': Hardware data unavailable/check_bdl_prgm_task "
                             "failed for BE12"}});
}

// After a failed dump, the NPU has no entry.
TEST_F(programming_pass_test, an_npu_missing_from_bcm_is_reported_for_each_object_on_it) {
  for (const std::string_view nodename : {older_node, j2_node}) {
    st().BCM.get().at(nodename).as_map().erase("0");
  }
  record& bundle = add_bundle("BE12", {{older_node, "0/0/0/1", "0"}, {j2_node, "0/1/0/1", "0"}});
  add_sub(bundle, "BE12.5", list_of({"5"}));
  bundle.set("untagged", 1);
  bundle.set("is_l2", 0);
  bundle.set("rif", "0x5");
  EXPECT_EQ(check(), SUCCESS);
  const std::string rif = "no key '0': RIF verification failed for BE12(0x3000120) NPU 0,";
  EXPECT_THAT(messages(LOG_FILE_EXCEPTION),
              testing::UnorderedElementsAre("no key '0': SEM entry verification failed",
                                            "no key '0': SEM entry verification failed",
                                            rif + "0/0/CPU0", rif + "0/1/CPU0"));
  EXPECT_EQ(st().exception, 4);
  EXPECT_THAT(messages(LOG_FILE_PROGRAMMING_ERROR),
              Each(HasSubstr(": SEMA/B entry is not present for glif ")));
  EXPECT_EQ(st().programming_error, 2);
}

TEST_F(programming_pass_test, a_failure_is_logged_before_it_is_counted) {
  const value sub = sub_with(DEFAULT);
  EXPECT_TRUE(logs_before_counting([&] {
    check_sub_bdl_prgm_task(sub.as_record(), {older_node, "0"}, "8", "here");
  }));
  EXPECT_TRUE(
      logs_before_counting([] { check_bdl_prgm_task("BE9", "0/0/CPU0", ERROR, "8", "here"); }));
  st().tesselDb.as_map().set("BE12", "text");
  output_of([] { EXPECT_TRUE(logs_before_counting([] { check_bundle_programming(); })); });
}

// --- Workers

// The chip answers a call only when `condition`, a test for /bin/sh, is true; then it runs `note`.
// After a minute it gives up and answers nothing, which is a finding.
void chip_answers_when(std::string_view condition, std::string_view note = ":") {
  tool("asic_shell_show",
       fmt::format("tries=0\nuntil {}; do\n  tries=$((tries + 1))\n"
                   "  [ $tries -lt 3000 ] || exit 1\n  sleep 0.02\ndone\n{}\nprintf '{}'\n",
                   condition, note, chip_answer));
}

TEST_F(programming_pass_test, all_npus_and_sub_bundles_of_a_bundle_are_asked_together) {
  record& bundle = add_bundle("BE12", {{older_node, "0/0/0/1", "0"}, {older_node, "0/0/0/2", "1"}});
  for (const char* name : {"BE12.1", "BE12.2"}) add_sub(bundle, name, list_of({"untagged"}));
  bundle.get("sub_bundles").at("BE12.2").as_record().set("glif", "0x00031234");
  chip_answers_when("[ $(wc -l </opt/nos/calls) -ge 4 ]");
  EXPECT_EQ(check(), SUCCESS);
  EXPECT_EQ(calls().size(), 4U);
  EXPECT_THAT(messages(LOG_FILE_EXCEPTION), Each(StartsWith("cannot add 1 to the text '0x456'")));
  EXPECT_EQ(st().exception, 4);
  EXPECT_EQ(st().programming_error, 0);
}

TEST_F(programming_pass_test, the_bundle_is_checked_while_its_sub_bundles_are) {
  record& bundle = add_bundle("BE12", {{older_node, "0/0/0/1", "0"}});
  bundle.set("untagged", 1);
  add_sub(bundle, "BE12.1", list_of({"untagged"}));
  chip_answers_when(fmt::format("grep -q 'glif 0x00011234,' {}", LOG_FILE_PROGRAMMING_ERROR));
  EXPECT_EQ(check(), SUCCESS);
  EXPECT_EQ(st().exception, 1);
  EXPECT_THAT(messages(LOG_FILE_PROGRAMMING_ERROR),
              ElementsAre(sem_missing(1, "0x00011234,BE12(0x3000120) NPU 0,0/0/CPU0")));
}

TEST_F(programming_pass_test, a_bundle_waits_for_its_workers_of_the_consistency_pass) {
  record& bundle = add_bundle("BE12", {{older_node, "0/0/0/1", "0"}});
  bundle.set("untagged", 1);
  const value domains = bundle.get("vlan_domain");
  const value of_node = domains.at(older_node);
  domains.as_map().erase(older_node);
  bool came_too_soon = false;
  st().bundle_workers["BE12"] = start_worker([&] {
    came_too_soon = happens_too_soon([] { return st().programming_error > 0; });
    domains.as_map().set(older_node, of_node);
  });
  EXPECT_EQ(check(), SUCCESS);
  EXPECT_FALSE(came_too_soon);
  expect_told({.programming_error = {sem_missing(1, "0x00011234,BE12(0x3000120) NPU 0,0/0/CPU0")}});
}

TEST_F(programming_pass_test, a_bundle_begins_when_all_workers_of_the_one_before_have_ended) {
  for (const char* name : {"BE1", "BE2"}) {
    record& bundle = add_bundle(name, {{older_node, "0/0/0/1", "0"}, {older_node, "0/0/0/2", "1"}});
    bundle.set("untagged", 1);
    bundle.set("glif", name);
    add_sub(bundle, fmt::format("{}.1", name), list_of({"untagged"}));
  }
  // The two chips of BE1 leave a BE2 that comes too soon some time, those of BE2 await both
  // findings.
  const std::string found = fmt::format("$(grep -c 'glif BE2' {})", LOG_FILE_PROGRAMMING_ERROR);
  chip_answers_when(
      fmt::format("if [ $(wc -l </opt/nos/calls) -le 2 ]; then sleep 0.1; else [ {} = 2 ]; fi",
                  found),
      fmt::format("echo \"{}\" >>/tmp/seen", found));
  EXPECT_EQ(check(), SUCCESS);
  const std::vector<std::string> seen = log_lines("/tmp/seen");
  ASSERT_EQ(seen.size(), 4U);
  EXPECT_EQ(seen[0] + seen[1], "00") << "while the chips answered for BE1 nothing of BE2 was found";
  EXPECT_EQ(seen[2] + seen[3], "22");
}

TEST_F(programming_pass_test, a_failure_of_the_walk_does_not_wait_for_workers_already_started) {
  record& bundle = add_bundle("BE12", {{older_node, "0/0/0/1", "0"}, {older_node, "0/0/0/2", "7"}});
  bundle.get("vlan_domain").at(older_node).as_map().erase("7");
  add_sub(bundle, "BE12.1", list_of({"untagged"}));
  chip_answers_when("[ -e /tmp/go ]");
  EXPECT_EQ(check(), ERROR);
  EXPECT_THAT(messages(LOG_FILE_EXCEPTION),
              ElementsAre("no key '7': Bundle programming verification failed"));
  write_file("/tmp/go", "");
  const auto give_up = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  while (st().exception + st().programming_error < 2 &&
         std::chrono::steady_clock::now() < give_up) {
    std::this_thread::yield();
  }
  EXPECT_THAT(messages(LOG_FILE_EXCEPTION),
              Contains(StartsWith("cannot add 1 to the text '0x456'")));
  EXPECT_EQ(st().programming_error, 0);
}

TEST_F(programming_pass_test, a_worker_of_a_failed_pass_still_sees_the_tables_that_the_pass_saw) {
  record& bundle =
      add_bundle("BE12", {{older_node, "0/0/0/1", "0", "0x10"}, {older_node, "0/0/0/2", "7"}});
  bundle.get("vlan_domain").at(older_node).as_map().erase("7");
  add_sub(bundle, "BE12.5", list_of({"5"}));
  sema("1005 Payload=0x44\n");
  std::latch done(1);
  {
    busy_core busy;
    EXPECT_EQ(check(), ERROR);
    st().BCM.set(make_ordered_map());  // as the stale entry check reduces it
    start_worker([&] { done.count_down(); });
    EXPECT_EQ(st().exception, 1) << "of the pass itself";
  }
  done.wait();
  expect_told({.exception = {"no key '7': Bundle programming verification failed"}});
}

TEST_F(programming_pass_test, each_of_many_findings_has_a_number_of_its_own) {
  record& bundle = add_bundle("BE12", {{older_node, "0/0/0/1", "0"}, {older_node, "0/0/0/2", "1"}});
  constexpr int subs = 40;
  std::set<std::string> expected;
  for (int number = 1; number <= subs; ++number) {
    add_sub(bundle, fmt::format("BE12.{}", number), list_of({std::to_string(number)}));
    expected.insert(fmt::format("Programming Error {}", number));
    expected.insert(fmt::format("Programming Error {}", subs + number));
  }
  EXPECT_EQ(check(), SUCCESS);
  EXPECT_EQ(st().programming_error, 2 * subs);
  std::vector<std::string> found;
  for (const std::string& message : messages(LOG_FILE_PROGRAMMING_ERROR)) {
    found.push_back(message.substr(0, message.find(':')));
  }
  EXPECT_THAT(found, UnorderedElementsAreArray(expected));
}

TEST_F(programming_pass_test, workers_of_several_npus_write_one_llif) {
  record& bundle = add_bundle("BE12", {{older_node, "0/0/0/1", "0"}, {older_node, "0/0/0/2", "1"}});
  const record& sub = add_sub(bundle, "BE12.5", list_of({"5"}));
  set_tables(older_node, "0", older_tables("8005 Payload=0x1", "", ""));
  set_tables(older_node, "1", older_tables("", "8005 Payload=0x2", ""));
  EXPECT_EQ(check(), SUCCESS);
  EXPECT_THAT(sub.get("llif").as_text(), testing::AnyOf("0x1", "0x2")) << "the last writer wins";
  expect_told({});
}

}  // namespace
}  // namespace tessel
