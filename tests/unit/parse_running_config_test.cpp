#include "parse/running_config.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <random>
#include <string>
#include <vector>

#include "base/text.h"
#include "support/fake_router.h"
#include "support/hostile.h"

namespace tessel {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr std::string_view active = "0/RP0/CPU0";
constexpr std::string_view standby = "0/RP1/CPU0";
constexpr std::string_view banner = "Tarmac OS Configuration\n";
constexpr std::string_view member_of_12 =
    "interface HundredGigE0/0/0/1\n"
    " bundle id 12 mode active\n"
    "!\n";

class running_config_test : public router_test {
 protected:
  void SetUp() override {
    router_test::SetUp();
    st().router = birch;
    st().dl_fd.open(LOG_FILE_DEBUG, file_mode::truncate);
    st().activenodeinfo = active;
    add_node(active, 1);
    for (const char* tail : {"0/0/0/1", "0/0/0/2", "0/0/0/3", "0/0/0/1/3"}) add_port(tail, active);
  }
  static void add_node(std::string_view name, int dump) {
    st().nodeinfo.get().as_map().set(
        name, map_of({{"asic_supported", 0}, {"asic", "BCM8868"}, {"dump", dump}}));
  }
  static value add_port(std::string_view tail, std::string_view nodename) {
    const value port = new_record<memberInfo>();
    port.as_record().set("nodename", nodename);
    port.as_record().set("mtu", "1514");
    st().voq_usage.get().as_map().set(tail, port);
    return port;
  }
  // Parses the stanzas with a banner before them.
  static void parse(std::string_view stanzas) {
    st().run_cfg.set(std::string(banner) + "!\n" + std::string(stanzas) + "end");
    EXPECT_EQ(parse_running_config(), SUCCESS);
    EXPECT_EQ(st().run_cfg.get(), value()) << "not kept longer than needed";
  }
  static record& bundle(std::string_view name) { return st().tesselDb.at(name).as_record(); }
  static record& sub_bundle(std::string_view name) {
    const std::string main(name.substr(0, name.find('.')));
    return bundle(main).get("sub_bundles").at(name).as_record();
  }
  static std::vector<std::string> members(std::string_view name) {
    return bundle(name).get("members").at(active).as_map().keys();
  }
};

TEST_F(running_config_test, a_configuration_with_no_bundle_gives_a_store_with_only_hqos) {
  parse("hostname birch\n!\ninterface HundredGigE0/0/0/1\n mtu 1514\n!\n");
  EXPECT_EQ(st().tesselDb, map_of({{"hqos", 0}}));
  EXPECT_EQ(st().num_bundles, 0);
  EXPECT_THAT(kept_messages(), IsEmpty());
  EXPECT_EQ(st().exception, 0);
}

TEST_F(running_config_test, a_bundle_with_a_member_becomes_a_record) {
  parse("interface Bundle-Ether12\n mtu 1514\n!\n" + std::string(member_of_12));
  EXPECT_THAT(st().tesselDb.as_map().keys(), ElementsAre("hqos", "BE12"));
  EXPECT_EQ(printed(st().tesselDb.at("BE12")),
            "{'Data': {'ifh': 'Not set', 'lagid': 'Not set', 'llif': 'Not set', "
            "'glif': 'Not set', 'rif': 'Not set', 'vlan_domain': {}, 'mac': 'Not set', "
            "'mtu': 'Not set', 'is_l2': 0, 'sub_bundles': {}, "
            "'members': {'0/RP0/CPU0': {'0/0/0/1': {'name': 'Not set', 'ifh': 'Not set', "
            "'pp_port': 'Not set', 'npu_id': 'Not set', 'npu_core': 'Not set', 'voq': 'Not set', "
            "'memid': 'Not set', 'nodename': '0/RP0/CPU0', 'mtu': '1514', 'vlan_domain': {}}}}, "
            "'delPending': 'Not set', 'untagged': 'Not set'}}");
  EXPECT_EQ(st().num_bundles, 1);
}

TEST_F(running_config_test, the_member_in_a_bundle_is_its_own_copy) {
  parse("interface Bundle-Ether12\n!\n" + std::string(member_of_12));
  record& own = bundle("BE12").get("members").at(active).at("0/0/0/1").as_record();
  own.set("mtu", "9192");
  EXPECT_EQ(st().voq_usage.get().at("0/0/0/1").as_record().get("mtu"), "1514")
      << "the store keeps what the forwarding layer said";
}

TEST_F(running_config_test, the_copy_is_taken_after_the_vlan_domain_is_known) {
  st().nodeinfo.get().at(active).as_map().set("asic_supported", 1);
  st().BCM.get().as_map().set(
      active, map_of({{"0", map_of({{"vd", "T.IHP0[5]: <P=1,VLAN_DOMAIN=0x10,\n"}})}}));
  record& port = st().voq_usage.get().at("0/0/0/1").as_record();
  port.set("npu_id", "0");
  port.set("npu_core", "0");
  port.set("pp_port", "5");
  parse("interface Bundle-Ether12\n!\n" + std::string(member_of_12));
  const value member = bundle("BE12").get("members").at(active).at("0/0/0/1");
  EXPECT_EQ(member.as_record().get("vlan_domain"), map_of({{active, "0x10"}}));
  EXPECT_THAT(kept_messages(), IsEmpty());
}

TEST_F(running_config_test, a_bundle_stanza_with_no_member_stanza_counts_and_leaves_no_record) {
  parse(
      "interface Bundle-Ether12\n mtu 1514\n!\ninterface Bundle-Ether12.5\n"
      " encapsulation dot1q 5\n!\n");
  EXPECT_EQ(st().num_bundles, 1);
  EXPECT_THAT(st().tesselDb.as_map().keys(), ElementsAre("hqos"));
  EXPECT_EQ(st().num_sub_bundles_l3, 0);
  EXPECT_THAT(kept_messages(), IsEmpty());
}

TEST_F(running_config_test, of_two_stanzas_with_one_name_the_first_stays_and_the_other_is_noted) {
  parse("interface Bundle-Ether12\n l2transport\n!\ninterface Bundle-Ether12\n mtu 1514\n!\n" +
        std::string(member_of_12));
  EXPECT_EQ(st().bundle_dict.at("BE12"), "['interface Bundle-Ether12 l2transport'");
  EXPECT_EQ(bundle("BE12").get("is_l2"), 1);
  EXPECT_EQ(st().num_bundles, 1);
  EXPECT_THAT(file_text(LOG_FILE_DEBUG),
              HasSubstr("\"DEBUG: Duplicate Key, ignoring cfg  'interface Bundle-Ether12 mtu "
                        "1514']\"\n"));
}

TEST_F(running_config_test, the_stanzas_of_bundles_are_dumped_to_the_debug_log) {
  parse("interface Bundle-Ether12\n mtu 1514\n!\n");
  EXPECT_EQ(file_text(LOG_FILE_DEBUG),
            "'Start of Parsed bundle config dump from running config entries...'\n"
            "{\n   \"BE12\":\"['interface Bundle-Ether12 mtu 1514']\"\n}\n"
            "'End of Parsed bundle config dump from running config entries...'\n");
}

TEST_F(running_config_test, bundle_12_does_not_pick_up_the_members_of_bundle_123) {
  parse("interface Bundle-Ether12\n!\ninterface Bundle-Ether123\n!\n" + std::string(member_of_12) +
        "interface HundredGigE0/0/0/2\n bundle id 123 mode active\n!\n"
        "interface HundredGigE0/0/0/3\n bundle id 12\n!\n");
  EXPECT_THAT(members("BE12"), ElementsAre("0/0/0/1")) << "a number at the line's end has no blank";
  EXPECT_THAT(members("BE123"), ElementsAre("0/0/0/2"));
}

TEST_F(running_config_test, a_breakout_member_yields_exactly_one_entry) {
  parse("interface Bundle-Ether12\n!\ninterface TenGigE0/0/0/1/3\n bundle id 12 mode active\n!\n");
  EXPECT_THAT(members("BE12"), ElementsAre("0/0/0/1/3"));
  EXPECT_EQ(get_members("BE12", parsed_config("interface TenGigE0/0/0/1/3\n bundle id 12 mode on")),
            list_of({"TenGigE0/0/0/1/3"}));
}

TEST_F(running_config_test, members_are_named_once_breakout_ports_first) {
  const parsed_config config(
      "interface HundredGigE0/0/0/1\n bundle id 12 mode active\n!\n"
      "interface TenGigE0/0/0/2/0\n bundle id 12 mode active\n!\n"
      "interface HundredGigE0/0/0/1\n bundle id 12 mode on\n!\n"
      "interface HundredGigE0/0/0/9\n bundle id 13 mode active\n!\n"
      "interface preconfigure HundredGigE0/0/0/8\n bundle id 12 mode active\n");
  EXPECT_EQ(get_members("BE12", config), list_of({"TenGigE0/0/0/2/0", "HundredGigE0/0/0/1"}));
  EXPECT_EQ(get_members("BE7", config), make_list());
}

TEST_F(running_config_test, a_sub_bundle_without_an_encapsulation_line_is_left_out) {
  parse("interface Bundle-Ether12\n!\ninterface Bundle-Ether12.100\n mtu 1514\n!\n" +
        std::string(member_of_12));
  EXPECT_EQ(bundle("BE12").get("sub_bundles"), make_map());
  EXPECT_THAT(kept_messages(),
              ElementsAre("interface Bundle-Ether12.100: Dont have any encapsulation config."));
  EXPECT_EQ(st().info, 1);
  EXPECT_EQ(st().exception, 0);
  EXPECT_EQ(st().num_sub_bundles_l2 + st().num_sub_bundles_l3, 0);
}

TEST_F(running_config_test, an_untagged_layer_2_sub_bundle_marks_its_bundle) {
  parse(
      "interface Bundle-Ether12\n!\ninterface Bundle-Ether12.100 l2transport\n"
      " encapsulation untagged\n!\n" +
      std::string(member_of_12));
  EXPECT_EQ(sub_bundle("BE12.100").get("encap"), list_of({"untagged"}));
  EXPECT_EQ(sub_bundle("BE12.100").get("is_l2"), 1);
  EXPECT_EQ(bundle("BE12").get("untagged"), 1);
  EXPECT_EQ(bundle("BE12").get("is_l2"), 0);
  EXPECT_EQ(st().info, 1);
  EXPECT_EQ(st().num_sub_bundles_l2, 1);
  EXPECT_THAT(kept_messages(), ElementsAre("INFO: Found untagged encap config, SEM entry check "
                                           "for BE12 will not be performed"));
}

struct encapsulation {
  const char* why;
  std::string head;
  std::string line;
  value tags;
  int is_l2;
};

TEST_F(running_config_test, every_kind_of_encapsulation_becomes_its_tags) {
  const std::array rows = {
      encapsulation{"one tag", "", "dot1q 10", list_of({"10"}), 0},
      encapsulation{"one tag, layer 2", " l2transport", "dot1q 10", list_of({"10"}), 1},
      encapsulation{"two tags", "", "dot1q 10 second-dot1q 20", list_of({"10", "20"}), 0},
      encapsulation{"provider tag", "", "dot1ad 30", list_of({"30"}), 0},
      encapsulation{"provider tag and tag", " l2transport", "dot1ad 30 dot1q 40",
                    list_of({"30", "40"}), 1},
      encapsulation{"any provider tag and a tag", " l2transport", "dot1ad any dot1q 40",
                    list_of({"40"}), 1},
      encapsulation{"the first of a range", " l2transport", "dot1q 10-20", list_of({"10"}), 1},
      encapsulation{"neither tags nor untagged", " l2transport", "default", make_list(), 1},
      encapsulation{"untagged on layer 3 is not an entry", "", "untagged", make_list(), 0},
  };
  for (const encapsulation& each : rows) {
    SCOPED_TRACE(each.why);
    SetUp();
    parse("interface Bundle-Ether12\n!\ninterface Bundle-Ether12.100" + each.head +
          "\n encapsulation " + each.line + "\n!\n" + std::string(member_of_12));
    EXPECT_EQ(sub_bundle("BE12.100").get("encap"), each.tags);
    EXPECT_EQ(sub_bundle("BE12.100").get("is_l2"), each.is_l2);
    EXPECT_EQ(st().num_sub_bundles_l2, each.is_l2);
    EXPECT_EQ(st().num_sub_bundles_l3, 1 - each.is_l2);
    EXPECT_EQ(bundle("BE12").get("untagged"), "Not set");
    EXPECT_THAT(kept_messages(), IsEmpty());
  }
}

TEST_F(running_config_test, tags_10_and_second_20_give_an_encap_of_two_entries) {
  EXPECT_EQ(get_encap_id("'interface Bundle-Ether1.5 encapsulation dot1q 10 second-dot1q 20'",
                         "interface Bundle-Ether1.5"),
            list_of({"10", "20"}));
}

TEST_F(running_config_test, an_encapsulation_with_neither_tags_nor_untagged_has_a_record) {
  parse("interface Bundle-Ether12\n!\ninterface Bundle-Ether12.100\n encapsulation default\n!\n" +
        std::string(member_of_12));
  EXPECT_EQ(sub_bundle("BE12.100").get("encap"), make_list());
}

TEST_F(running_config_test, a_live_standby_node_shares_the_active_nodes_map) {
  st().router = aspen;
  st().standbynodeinfo = standby;
  add_node(standby, 1);
  parse("interface Bundle-Ether12\n!\n" + std::string(member_of_12));
  const value members_of_12 = bundle("BE12").get("members");
  EXPECT_THAT(members_of_12.as_map().keys(), ElementsAre(active, standby));
  members_of_12.at(active).at("0/0/0/1").as_record().set("mtu", "9000");
  members_of_12.at(standby).as_map().set("one more", 1);
  EXPECT_EQ(&members_of_12.at(active).as_map(), &members_of_12.at(standby).as_map());
  EXPECT_TRUE(members_of_12.at(active).contains("one more"));
  EXPECT_EQ(members_of_12.at(standby).at("0/0/0/1").as_record().get("mtu"), "9000")
      << "records included";
}

TEST_F(running_config_test, a_standby_node_shares_only_if_live_and_on_one_router_type) {
  struct row {
    const char* why;
    router_type router;
    int dump;
  };
  for (const row& each : {row{"takes no part", aspen, 0}, row{"another router", birch, 1}}) {
    SCOPED_TRACE(each.why);
    SetUp();
    st().router = each.router;
    st().standbynodeinfo = standby;
    add_node(standby, each.dump);
    parse("interface Bundle-Ether12\n!\n" + std::string(member_of_12));
    EXPECT_THAT(bundle("BE12").get("members").as_map().keys(), ElementsAre(active));
  }
}

TEST_F(running_config_test, a_live_standby_without_members_on_the_active_node_ends_the_parsing) {
  st().router = aspen;
  st().standbynodeinfo = standby;
  add_node(standby, 1);
  add_node("0/0/CPU0", 1);
  add_port("0/0/0/1", "0/0/CPU0");
  parse("interface Bundle-Ether12\n!\n" + std::string(member_of_12));
  EXPECT_THAT(kept_messages(), ElementsAre("no key '0/RP0/CPU0': parse_running_config failed"));
  EXPECT_EQ(st().exception, 1);
  EXPECT_THAT(st().tesselDb.as_map().keys(), ElementsAre("hqos"));
}

TEST_F(running_config_test, a_bundle_scale_line_leaves_the_run_states_scale_unset) {
  for (const char* line : {"hw-module profile bundle-scale 512",
                           "hw-module profile bundle-scale 99999999999999999999"}) {
    SetUp();
    parse(std::string(line) + "\n!\n");
    EXPECT_EQ(st().BUNDLE_SCALE, "Not set");
    EXPECT_EQ(st().exception, 0);
  }
}

TEST_F(running_config_test, hierarchical_qos_is_a_line_of_the_configuration) {
  parse("hw-module profile qos hqos-enable\n!\n");
  EXPECT_EQ(st().tesselDb.at("hqos"), 1);
  SetUp();
  parse("hw-module profile qos other\n!\n");
  EXPECT_EQ(st().tesselDb.at("hqos"), 0);
}

TEST_F(running_config_test, mentions_in_other_protocols_are_not_bundles) {
  parse(
      "router ospf 1\n area 0\n  interface Bundle-Ether99\n   cost 1\n  !\n"
      "  interface Bundle-Ether98.7\n  !\n !\n!\n"
      "interface Bundle-Ether12\n!\n" +
      std::string(member_of_12));
  EXPECT_EQ(st().num_bundles, 1);
  EXPECT_THAT(st().bundle_dict.as_map().keys(), ElementsAre("BE12"));
}

TEST_F(running_config_test, an_exclamation_mark_in_a_description_splits_its_stanza) {
  parse("interface Bundle-Ether12\n description hot! l2transport\n!\n" + std::string(member_of_12));
  EXPECT_EQ(bundle("BE12").get("is_l2"), 0);
  EXPECT_EQ(st().bundle_dict.at("BE12"), "['interface Bundle-Ether12 description hot']");
}

TEST_F(running_config_test, a_comma_in_a_stanza_cuts_its_text_there) {
  parse("interface Bundle-Ether12\n description a, l2transport\n!\n" + std::string(member_of_12));
  EXPECT_EQ(st().bundle_dict.at("BE12"), "['interface Bundle-Ether12 description a");
  EXPECT_EQ(bundle("BE12").get("is_l2"), 0) << "what stands behind the comma is another piece";
}

TEST_F(running_config_test, a_quote_in_a_description_changes_the_quotes_around_the_stanza) {
  parse(
      "interface Bundle-Ether12\n description bob's\n!\n"
      "interface Bundle-Ether12.5\n description \"bob's\"\n encapsulation dot1q 5\n!\n" +
      std::string(member_of_12));
  EXPECT_EQ(st().bundle_dict.at("BE12"), "[\"interface Bundle-Ether12 description bob's\"");
  EXPECT_EQ(st().bundle_dict.at("BE12.5"),
            " 'interface Bundle-Ether12.5 description \"bob\\'s\" encapsulation dot1q 5']");
  EXPECT_EQ(sub_bundle("BE12.5").get("encap"), list_of({"5"}));
}

TEST_F(running_config_test, a_stanza_head_is_where_the_character_before_is_neither_blank_nor_plus) {
  const auto [bundles, cfg] =
      get_bundles(parsed_config("interface Bundle-Ether1\n!\ndescription x+interface Bundle-Ether2"
                                "\n!\ndescription x-interface Bundle-Ether3\n!\n"
                                "description x interface Bundle-Ether4\n"));
  EXPECT_THAT(bundles, ElementsAre("interface Bundle-Ether1", "interface Bundle-Ether3"));
  EXPECT_THAT(cfg, HasSubstr("x+interface Bundle-Ether2"));
  EXPECT_THAT(cfg, Not(HasSubstr("Ether4")));
}

TEST_F(running_config_test, a_sub_bundle_head_alone_names_its_bundle) {
  parse("interface Bundle-Ether12.5\n encapsulation dot1q 5\n!\n" + std::string(member_of_12));
  EXPECT_EQ(st().num_bundles, 1);
  EXPECT_THAT(kept_messages(), ElementsAre("no key 'BE12': parse_running_config failed"))
      << "such a bundle has no stanza of its own";
  EXPECT_EQ(st().exception, 1);
}

TEST_F(running_config_test, bundles_and_sub_bundles_stand_in_the_order_of_first_appearance) {
  parse(
      "interface Bundle-Ether13\n!\ninterface Bundle-Ether12\n!\n"
      "interface Bundle-Ether12.9\n encapsulation dot1q 9\n!\n"
      "interface Bundle-Ether12.1\n encapsulation dot1q 1\n!\n"
      "interface Bundle-Ether12.9\n encapsulation dot1q 10\n!\n" +
      std::string(member_of_12) + "interface HundredGigE0/0/0/2\n bundle id 13 mode active\n!\n");
  EXPECT_THAT(st().tesselDb.as_map().keys(), ElementsAre("hqos", "BE13", "BE12"));
  EXPECT_THAT(bundle("BE12").get("sub_bundles").as_map().keys(), ElementsAre("BE12.9", "BE12.1"));
  EXPECT_EQ(sub_bundle("BE12.9").get("encap"), list_of({"9"}));
  EXPECT_EQ(st().num_sub_bundles_l3, 2);
}

TEST_F(running_config_test, an_unescaped_point_matches_any_character) {
  EXPECT_EQ(get_bundle_type("'interface Bundle-Ether1x5 l2transport'", "interface Bundle-Ether1.5"),
            1);
  EXPECT_EQ(get_bundle_type("'interface Bundle-Ether1.6 l2transport'", "interface Bundle-Ether1.5"),
            0);
}

TEST_F(running_config_test, a_member_that_the_forwarding_layer_does_not_know_is_dropped) {
  parse("interface Bundle-Ether12\n!\n" + std::string(member_of_12) +
        "interface HundredGigE0/7/0/1\n bundle id 12 mode active\n!\n");
  EXPECT_THAT(members("BE12"), ElementsAre("0/0/0/1")) << "it costs the bundle that member only";
  EXPECT_THAT(kept_messages(),
              ElementsAre("no key '0/7/0/1': parse_vlan_domain failed",
                          "no key '0/7/0/1': get_member_pp_port failed for HundredGigE0/7/0/1"));
  EXPECT_EQ(st().exception, 2);
}

TEST_F(running_config_test, a_bundle_of_unknown_members_only_has_a_record_without_members) {
  parse(
      "interface Bundle-Ether12\n!\ninterface HundredGigE0/7/0/1\n bundle id 12 mode active\n!\n");
  EXPECT_EQ(bundle("BE12").get("members"), make_map());
}

TEST_F(running_config_test, each_function_names_itself_in_its_failure) {
  EXPECT_EQ(get_bundle_type(ERROR, "interface Bundle-Ether1"), ERROR);
  EXPECT_EQ(get_encap_id(ERROR, "interface Bundle-Ether1.5"), ERROR);
  EXPECT_EQ(get_member_pp_port("HundredGigE0/9/9/9", "0/9/9/9"), (std::pair<value, value>(0, 0)));
  st().dl_fd.close();
  const auto [bundles, cfg] = get_bundles(parsed_config("interface Bundle-Ether1\n"));
  EXPECT_THAT(bundles, IsEmpty());
  EXPECT_EQ(cfg, "");
  st().run_cfg.set(make_list());
  EXPECT_EQ(parse_running_config(), SUCCESS);
  const std::string not_text = "a text expected, found the integer 0: ";
  const std::vector<std::string> found = kept_messages();
  ASSERT_EQ(found.size(), 6U);
  EXPECT_EQ(found[0],
            not_text + "get_bundle_type from running config failed for interface Bundle-Ether1");
  EXPECT_EQ(found[1], not_text + "get_encap_id failed for interface Bundle-Ether1.5");
  EXPECT_EQ(found[3], "no key '0/9/9/9': get_member_pp_port failed for HundredGigE0/9/9/9");
  EXPECT_THAT(found[4], testing::EndsWith(": get_bundles from running config failed"));
  EXPECT_THAT(found[5], testing::EndsWith(": parse_running_config failed"));
  EXPECT_EQ(st().exception, 6);
  for (const waiting_entry& each : st().waiting_entries) {
    EXPECT_THAT(each.entry, HasSubstr("Traceback (most recent call last):"));
  }
}

TEST_F(running_config_test, failures_are_logged_before_they_are_counted) {
  EXPECT_TRUE(logs_before_counting([] { get_bundle_type(ERROR, "x"); }));
  EXPECT_TRUE(logs_before_counting([] { get_encap_id(ERROR, "x"); }));
  EXPECT_TRUE(logs_before_counting([] {
    st().run_cfg.set(ERROR);
    parse_running_config();
  }));
}

TEST_F(running_config_test, a_configuration_that_was_not_read_leaves_the_store_empty) {
  st().run_cfg.set(ERROR);
  EXPECT_EQ(parse_running_config(), SUCCESS);
  EXPECT_EQ(st().tesselDb, make_ordered_map());
  EXPECT_EQ(st().exception, 1);
  EXPECT_EQ(st().run_cfg.get(), value());
}

TEST_F(running_config_test, a_configuration_and_its_form_without_line_ends_are_held) {
  run_state& run = st();
  const std::string text = std::string(banner) + "!\n" + std::string(1000, 'x') + "\n!\nend";
  run.run_cfg.set(held_copy(run.texts, text, "the configuration"));
  {
    const parsed_config config(run.run_cfg.get());
    EXPECT_EQ(run.texts.held(), 2 * text.size());
    run.run_cfg.set(value());
    EXPECT_EQ(run.texts.held(), text.size());
  }
  EXPECT_EQ(run.texts.held(), 0U);
}

TEST_F(running_config_test, a_configuration_that_does_not_fit_a_second_time_is_a_counted_failure) {
  run_state& run = st();
  run.texts.set_limit({3000, "RLIMIT_AS"});
  run.run_cfg.set(held_copy(run.texts, std::string(1000, 'x'), "the configuration"));
  EXPECT_EQ(parse_running_config(), SUCCESS);
  EXPECT_THAT(kept_messages(),
              ElementsAre("cannot hold the running configuration without its line ends: it has "
                          "1000 bytes, at most 500 bytes are left in the half of RLIMIT_AS that "
                          "outputs may take; give the audit more memory: parse_running_config "
                          "failed"));
  EXPECT_EQ(run.exception, 1);
  EXPECT_EQ(run.texts.held(), 0U);
}

TEST_F(running_config_test, a_line_of_many_megabytes_is_read_as_any_other) {
  parse("interface Bundle-Ether12\n description " + std::string(4U << 20, 'x') + "\n!\n" +
        std::string(member_of_12));
  EXPECT_THAT(members("BE12"), ElementsAre("0/0/0/1"));
  EXPECT_EQ(st().exception, 0);
}

TEST_F(running_config_test, junk_between_stanzas_harms_nothing) {
  for (const bad_output& each : meaningless_outputs()) {
    SCOPED_TRACE(each.why);
    SetUp();
    const std::string junk =
        "junk " + std::string(each.output.as_text().substr(0, 1U << 20)) + "\n!\n";
    parse(junk + "interface Bundle-Ether12\n!\n" + junk + std::string(member_of_12) + junk);
    EXPECT_THAT(members("BE12"), ElementsAre("0/0/0/1"));
    EXPECT_EQ(st().exception, 0);
  }
}

TEST_F(running_config_test, a_run_of_blanks_of_any_length_is_read_as_any_other) {
  const std::string blanks(1U << 20, ' ');
  const std::string line_feeds(1U << 20, '\n');
  for (const std::string& run : {blanks, line_feeds, std::string(1U << 20, '\t'), blanks + "\n"}) {
    SetUp();
    parse("interface Bundle-Ether12\n description" + run + "x\n" + run + " !\n!\n" + line_feeds +
          blanks + "interface Bundle-Ether12.5\n" + blanks + "encapsulation dot1q 5" + blanks +
          "\n!\n" + std::string(member_of_12) + "router ospf 1\n" + run +
          " interface Bundle-Ether99\n!\n");
    EXPECT_THAT(kept_messages(), IsEmpty());
    EXPECT_EQ(st().num_bundles, 1);
    EXPECT_THAT(members("BE12"), ElementsAre("0/0/0/1"));
    EXPECT_EQ(st().bundle_dict.as_map().keys(), (std::vector<std::string>{"BE12", "BE12.5"}));
  }
}

TEST_F(running_config_test, a_stanza_of_many_megabytes_is_searched_as_any_other) {
#ifdef TESSEL_UNDER_SANITIZER
  constexpr std::size_t bytes = 2U << 20;
#else
  constexpr std::size_t bytes = 16U << 20;
#endif
  const std::string long_text = " description " + std::string(bytes, 'x') + "\n";
  parse("interface Bundle-Ether12\n" + long_text +
        "!\ninterface Bundle-Ether12.5 l2transport\n encapsulation dot1q 5\n" + long_text +
        "!\ninterface Bundle-Ether12.6 l2transport\n encapsulation untagged\n" + long_text +
        "!\ninterface Bundle-Ether12.7\n" + long_text + " encapsulation dot1ad 7 dot1q 8\n!\n" +
        std::string(member_of_12));
  EXPECT_THAT(kept_messages(), testing::Each(HasSubstr("SEM entry check for BE12")));
  EXPECT_EQ(st().exception, 0);
  EXPECT_EQ(bundle("BE12").get("is_l2"), 0);
  EXPECT_EQ(sub_bundle("BE12.5").get("encap"), list_of({"5"}));
  EXPECT_EQ(sub_bundle("BE12.5").get("is_l2"), 1);
  EXPECT_EQ(sub_bundle("BE12.6").get("encap"), list_of({"untagged"}));
  EXPECT_EQ(sub_bundle("BE12.7").get("encap"), list_of({"7", "8"}));
  EXPECT_EQ(sub_bundle("BE12.7").get("is_l2"), 0);
}

TEST_F(running_config_test, a_member_name_of_a_hundred_thousand_digits_is_searched_once) {
  parse("interface Bundle-Ether12\n!\ninterface H" + std::string(100'000, '7') +
        "x/0/0/1\n bundle id 12 mode active\n!\n");
  EXPECT_EQ(st().exception, 1) << "it is the name of no port";
}

TEST_F(running_config_test, a_word_repeated_in_a_stanza_ten_thousand_times_costs_no_time) {
  const auto often = [](std::string_view word) {
    return replace_all(std::string(10'000, '.'), ".", word) + std::string(1U << 20, 'x');
  };
  for (const char* word : {" encapsulation", " encapsulation dot1q", " l2transport",
                           "-interface Bundle-Ether12.5", "-interface Bundle-Ether12.5 l2transport",
                           "-interface Bundle-Ether12.5 l2transport encapsulation dot1q x"}) {
    SCOPED_TRACE(word);
    const std::string cfg = "'interface Bundle-Ether12.5 l2transport encapsulation" + often(word);
    EXPECT_EQ(get_encap_id(cfg, "interface Bundle-Ether12.5"), make_list());
    EXPECT_EQ(get_bundle_type("'interface Bundle-Ether12.5" + often(word) + "'",
                              "interface Bundle-Ether12.5"),
              std::string_view(word).find("l2") == std::string_view::npos ? 0 : 1);
  }
  const std::string provider = "'interface Bundle-Ether12.5 encapsulation dot1ad " +
                               replace_all(std::string(200'000, '.'), ".", "dot") + " dot1q 5'";
  EXPECT_EQ(get_encap_id(provider, "interface Bundle-Ether12.5"), list_of({"5"}));
  EXPECT_EQ(st().exception, 0);
}

TEST_F(running_config_test, a_configuration_cut_anywhere_is_reported_as_counted) {
  const std::string whole =
      "interface Bundle-Ether12 l2transport\n mtu 1514\n!\n"
      "interface Bundle-Ether12.100 l2transport\n encapsulation dot1q 10 second-dot1q 20\n!\n" +
      std::string(member_of_12);
  for (std::size_t length = 0; length < whole.size(); ++length) {
    SetUp();
    parse(whole.substr(0, length));
    expect_every_message_counted();
  }
}

// --- indexes compared with the searches that define them

std::string quoted_text_of(const value& text) {
  return quoted(std::string_view(text.as_text()));
}

std::vector<std::string_view> stanzas_with(const parsed_config& config, std::string_view number) {
  std::vector<std::string_view> found;
  const std::string wanted = "bundle id " + std::string(number) + " ";
  std::copy_if(config.stanzas().begin(), config.stanzas().end(), std::back_inserter(found),
               [&](std::string_view stanza) { return stanza.find(wanted) != stanza.npos; });
  return found;
}

// The ports of a bundle, found by one search of all its stanzas.
value members_by_definition(const parsed_config& config, std::string_view number) {
  static const pattern& five = constant(R"((?<=interface\s)\w+\/\d+\/\d+\/\d+\/\d+)");
  static const pattern& four = constant(R"((?<=interface\s)\w+\/\d+\/\d+\/\d+)");
  const std::string text = list_text(stanzas_with(config, number));
  const std::string remainder = sub(five, "", text);
  std::vector<value> names;
  for (const matches& found : {findall(five, text), findall(four, remainder)}) {
    for (std::size_t at = 0; at < found.size(); ++at) {
      const value name = found.text(at);
      if (std::find(names.begin(), names.end(), name) == names.end()) names.push_back(name);
    }
  }
  return make_list(std::move(names));
}

TEST_F(running_config_test, members_are_those_that_one_search_of_all_stanzas_gives) {
  constexpr std::array<std::string_view, 23> pieces = {"!",
                                                       "bundle id ",
                                                       "id ",
                                                       "1 ",
                                                       "\n!\n",
                                                       " ",
                                                       "'",
                                                       "\"",
                                                       "\\",
                                                       "\x1e",
                                                       "/1",
                                                       "/",
                                                       "interface ",
                                                       "interface",
                                                       "\ninterface\t",
                                                       "bundle id 1 ",
                                                       "bundle id 12 mode active\n",
                                                       "Te0/0/0/1",
                                                       "Te0/0/0/1/3",
                                                       "Te0/0/0/1/3/4",
                                                       "interface Te0/0/0/1\n",
                                                       "interface Te0/0/0/2/0\n",
                                                       "interface preconfigure Te0/0/0/2\n"};
  for (unsigned seed = 1; seed <= 3000; ++seed) {
    std::mt19937 random(seed);
    const value text = fragments(random, pieces, 3 + seed % 40);
    const parsed_config config(text);
    for (const std::string_view name : {"BE1", "BE12", "BE3"}) {
      EXPECT_EQ(get_members(name, config), members_by_definition(config, name.substr(2)))
          << "seed " << seed << ", " << name << " in " << quoted_text_of(text);
    }
    if (HasFailure()) return;
  }
}

TEST_F(running_config_test, a_stanza_with_the_ids_of_many_bundles_is_searched_once) {
  constexpr int bundles = 20'000;
  std::string stanza = "interface HundredGigE0/0/0/1";
  for (int number = 1; number <= bundles; ++number)
    stanza += fmt::format(" bundle id {} x", number);
  const parsed_config config(stanza);
  for (int number = 1; number <= bundles; ++number) {
    ASSERT_EQ(get_members(fmt::format("BE{}", number), config), list_of({"HundredGigE0/0/0/1"}));
  }
}

// The sub-bundles of each bundle that has a record, found by one search per bundle.
std::vector<std::pair<std::string, std::vector<std::string>>> by_definition(const value& text) {
  std::vector<std::pair<std::string, std::vector<std::string>>> expected;
  const parsed_config config(text);
  const auto [heads, cfg] = get_bundles(config);
  for (const std::string& head : heads) {
    const std::string name = replace_all(head, "interface Bundle-Ether", "BE");
    if (get_members(name, config).as_list().empty()) continue;
    if (!st().bundle_dict.contains(name)) break;
    std::vector<std::string> subs;
    const pattern sub_bundles(fill(R"((?<=[^\s+]){}\.\d+)", {head}));
    const matches found = findall(sub_bundles, cfg);
    bool all_have_stanzas = true;
    for (std::size_t at = 0; at < found.size(); ++at) {
      const std::string sub = replace_all(found.text(at), "interface Bundle-Ether", "BE");
      if (!st().bundle_dict.contains(sub)) {
        all_have_stanzas = false;
        break;
      }
      if (std::find(subs.begin(), subs.end(), sub) != subs.end()) continue;
      if (get_encap_id(st().bundle_dict.at(sub), found.text(at)) != ERROR) subs.push_back(sub);
    }
    if (!all_have_stanzas) break;
    expected.emplace_back(name, subs);
  }
  return expected;
}

TEST_F(running_config_test, sub_bundles_are_grouped_as_one_search_for_each_bundle_finds_them) {
  constexpr std::array<std::string_view, 24> pieces = {
      "interface Bundle-Ether1",
      "interface Bundle-Ether12",
      "interface Bundle-Ether1.5",
      "interface Bundle-Ether12.5",
      "interface Bundle-Ether12.50",
      "interface Bundle-Ether",
      "12",
      ".5",
      ".",
      "!",
      "\n!\n",
      "\n!\n",
      "\n!\n",
      "\n",
      " ",
      "+",
      "'",
      ",",
      "l2transport",
      "\n encapsulation dot1q 5\n",
      " encapsulation dot1q 7",
      "\n  interface Bundle-Ether12.7\n",
      "\n!\ninterface Bundle-Ether1\n!\n",
      "\n!\ninterface Bundle-Ether12.9 encapsulation dot1q 9\n!\n"};
  std::size_t grouped = 0;
  for (unsigned seed = 1; seed <= 2000; ++seed) {
    std::mt19937 random(seed);
    const value text = "banner\n!\ninterface Bundle-Ether12\n!\n" +
                       fragments(random, pieces, 3 + seed % 40) + "\n!\n" +
                       std::string(member_of_12) +
                       "interface HundredGigE0/0/0/2\n bundle id 1 mode active\n!\n";
    SetUp();
    const auto expected = by_definition(text);
    SetUp();
    st().run_cfg.set(text);
    parse_running_config();
    std::vector<std::pair<std::string, std::vector<std::string>>> found;
    for (const auto& [name, entry] : st().tesselDb.as_map().items()) {
      if (name == "hqos") continue;
      found.emplace_back(name, entry.as_record().get("sub_bundles").as_map().keys());
      grouped += found.back().second.size();
    }
    EXPECT_EQ(found, expected) << "seed " << seed << " in " << quoted_text_of(text);
    if (HasFailure()) return;
  }
  EXPECT_GT(grouped, 400U) << "the texts must be worth the comparison";
}

TEST_F(running_config_test, line_ends_are_removed_as_the_pattern_removes_them) {
  constexpr std::array<std::string_view, 12> pieces = {"\n", "\n", " ",  "!",     "\n!", "\n !",
                                                       "x",  "\t", "\r", "\n\n!", " !",  "\v"};
  const pattern line_ends("\n\\s+!|\n");
  for (unsigned seed = 1; seed <= 20000; ++seed) {
    std::mt19937 random(seed);
    const std::string text = fragments(random, pieces, seed % 30);
    ASSERT_EQ(without_line_ends(text), sub(line_ends, "", text))
        << "seed " << seed << " in " << quoted(std::string_view(text));
  }
}

TEST_F(running_config_test, indented_mentions_are_removed_as_the_pattern_removes_them) {
  constexpr std::array<std::string_view, 8> pieces = {
      " ", "  ", "\t", "interface Bundle-Ether", "interface Bundle-Ether12", "7", "x", "+"};
  const pattern mention(R"(\s+interface Bundle-Ether\d+)");
  for (unsigned seed = 1; seed <= 5000; ++seed) {
    std::mt19937 random(seed);
    const std::string stanza(strip(fragments(random, pieces, 1 + seed % 20)));
    SetUp();
    const auto [bundles, cfg] = get_bundles(parsed_config(stanza));
    const std::array<std::string_view, 1> entries = {stanza};
    const bool has_bundle = stanza.find("interface Bundle-Ether") != std::string::npos;
    ASSERT_EQ(cfg, has_bundle ? sub(mention, "", list_text(entries)) : "[]")
        << "seed " << seed << " in " << quoted(std::string_view(stanza));
  }
}

}  // namespace
}  // namespace tessel
