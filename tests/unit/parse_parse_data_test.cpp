#include "parse/parse_data.h"

#include <cstdio>
#include <string>

#include "support/fake_router.h"
#include "support/hostile.h"

namespace tessel {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class parse_data_test : public router_test {
 protected:
  void SetUp() override {
    router_test::SetUp();
    st().dl_fd.open(LOG_FILE_DEBUG, file_mode::truncate);
    st().nodeinfo.get().as_map().set("0/0/CPU0", map_of({{"asic_supported", 0}}));
    const value port = new_record<memberInfo>();
    port.as_record().set("nodename", "0/0/CPU0");
    st().voq_usage.get().as_map().set("0/0/0/1", port);
  }
};

constexpr std::string_view one_bundle =
    "Tarmac OS Configuration\n!\ninterface Bundle-Ether12\n!\n"
    "interface HundredGigE0/0/0/1\n bundle id 12 mode active\n!\nend";

TEST_F(parse_data_test, with_only_hqos_the_stage_fails_with_one_count_and_one_line) {
  st().run_cfg.set("Tarmac OS Configuration\n!\nhostname birch\n!\nend");
  int result = SUCCESS;
  EXPECT_EQ(output_of([&] { result = parse_data(); }), "Parsing Data............................");
  EXPECT_EQ(result, ERROR);
  EXPECT_EQ(st().exception, 1);
  EXPECT_THAT(kept_messages(),
              ElementsAre("INFO: No Bundle is configured/No member is added to Bundle"));
}

TEST_F(parse_data_test, with_one_bundle_the_stage_succeeds) {
  st().run_cfg.set(one_bundle);
  int result = ERROR;
  EXPECT_EQ(output_of([&] { result = parse_data(); }), "Parsing Data............................");
  EXPECT_EQ(result, SUCCESS);
  EXPECT_EQ(st().tesselDb.as_map().size(), 2U);
  EXPECT_THAT(kept_messages(), IsEmpty());
  EXPECT_EQ(st().exception, 0);
}

TEST_F(parse_data_test, a_configuration_that_was_not_read_is_counted_once) {
  st().run_cfg.set(ERROR);
  int result = ERROR;
  output_of([&] { result = parse_data(); });
  EXPECT_EQ(result, SUCCESS) << "the driver looks at the counter too";
  EXPECT_EQ(st().exception, 1);
  EXPECT_THAT(kept_messages(),
              ElementsAre("a text expected, found the integer 0: parse_running_config failed"));
}

TEST_F(parse_data_test, no_bundle_is_counted_before_it_is_logged) {
  st().run_cfg.set("no bundle");
  output_of([] { EXPECT_TRUE(counts_before_logging([] { parse_data(); })); });
}

TEST_F(parse_data_test, a_failure_of_printing_goes_up) {
  st().run_cfg.set(one_bundle);
  EXPECT_EQ(status_in_child([] {
              if (std::freopen("/dev/full", "w", stdout) == nullptr) return 100;
              try {
                parse_data();
              } catch (const failure&) {
                return 7;
              }
              return 0;
            }),
            7);
}

// ---- the port listing

class member_details_test : public router_test {
 protected:
  void SetUp() override {
    router_test::SetUp();
    st().router = birch;
    st().activenodeinfo = "0/RP0/CPU0";
  }
  static int fill(std::string_view listing) {
    tool_prints("qos_voq_show", listing);
    return fill_member_details();
  }
  static value node_of(std::string_view tail) {
    return st().voq_usage.get().at(tail).as_record().get("nodename");
  }
};

constexpr std::string_view listing =
    "VOQ usage of all nodes\n"
    "Node ID: 0/0/CPU0\n"
    "Interface  handle npu core pport sport voq\n"
    "Hu0/0/0/1  60     1   0    5     33    1024 8 local 100G\n"
    "Hu0/0/0/2  61     1   1    6     34    1032 8 remote 100G\n"
    "Node ID: 0/1/CPU0\n"
    "Te0/1/0/2/3 0a   0   1    7     35    1040 8 local 10G\n";

TEST_F(member_details_test, port_lines_become_member_records) {
  EXPECT_EQ(fill(listing), SUCCESS);
  EXPECT_THAT(calls(), ElementsAre("qos_voq_show -v x -i 0x10 -n A -t n -p 0x0"));
  EXPECT_THAT(st().voq_usage.get().as_map().keys(), ElementsAre("0/0/0/1", "0/1/0/2/3"));
  EXPECT_EQ(printed(st().voq_usage.get().at("0/0/0/1")),
            "{'name': 'Hu0/0/0/1', 'ifh': '0x60', 'pp_port': '5', 'npu_id': '1', "
            "'npu_core': '0', 'voq': '1024', 'memid': 'Not set', 'nodename': '0/0/CPU0', "
            "'mtu': 'Not set', 'vlan_domain': {}, 'sys_port': '33'}");
  EXPECT_EQ(st().voq_usage.get().at("0/1/0/2/3").as_record().get("ifh"), "0xa");
  EXPECT_EQ(node_of("0/1/0/2/3"), "0/1/CPU0");
  EXPECT_THAT(kept_messages(), IsEmpty());
}

TEST_F(member_details_test, an_aspen_router_reads_the_first_section_only_for_its_active_node) {
  st().router = aspen;
  EXPECT_EQ(fill(listing), SUCCESS);
  EXPECT_THAT(st().voq_usage.get().as_map().keys(), ElementsAre("0/0/0/1"));
  EXPECT_EQ(node_of("0/0/0/1"), "0/RP0/CPU0");
}

TEST_F(member_details_test, a_local_line_in_front_of_the_first_section_has_no_node) {
  EXPECT_EQ(fill("Hu0/0/0/1 60 1 0 5 33 1024 local\n"), SUCCESS);
  EXPECT_EQ(node_of("0/0/0/1"), "Not set");
}

TEST_F(member_details_test, a_listing_without_ports_is_an_error_that_is_logged_and_counted) {
  for (const char* text : {"", "Node ID: 0/0/CPU0\n"}) {
    SetUp();
    EXPECT_EQ(fill(text), ERROR);
    EXPECT_EQ(st().voq_usage.get(), make_map());
    EXPECT_THAT(kept_messages(),
                ElementsAre("ERROR: 'sh controller npu voq_usage' has no port information"));
    EXPECT_EQ(st().exception, 1);
  }
  EXPECT_FALSE(counts_before_logging([] { fill(""); }));
}

TEST_F(member_details_test, a_line_that_cannot_be_read_is_a_failure) {
  struct row {
    const char* why;
    std::string text;
    std::string message;
  };
  for (const row& each :
       {row{"a short port line", "Hu0/0/0/1 60 1 local\n", "no word 4 in a line of 4"},
        row{"a handle that is no number", "Hu0/0/0/1 xyz 1 0 5 33 1024 local\n",
            "'0xxyz' is no number"},
        row{"a section without a name", "Node ID:\n", "no word 2 in a line of 2"}}) {
    SCOPED_TRACE(each.why);
    SetUp();
    EXPECT_EQ(fill(each.text), ERROR);
    EXPECT_THAT(kept_messages(),
                ElementsAre(each.message + ": dump_parse_fill_member_details failed"));
    EXPECT_THAT(st().waiting_entries.at(0).entry, HasSubstr("Traceback (most recent call last)"));
    EXPECT_EQ(st().exception, 1);
  }
}

TEST_F(member_details_test, a_listing_that_cannot_be_fetched_is_three_failures) {
  const read_only_folder no_captures("/tmp");
  EXPECT_EQ(fill_member_details(), ERROR);
  EXPECT_EQ(st().exception, 3) << "the command, the dump, and what finds no list of lines";
  EXPECT_EQ(kept_messages().size(), 3U);
}

TEST_F(member_details_test, a_name_of_one_letter_leaves_an_empty_key) {
  EXPECT_EQ(fill("X 60 1 0 5 33 1024 local\n"), SUCCESS);
  EXPECT_THAT(st().voq_usage.get().as_map().keys(), ElementsAre(""));
}

}  // namespace
}  // namespace tessel
