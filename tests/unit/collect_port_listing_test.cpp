#include "collect/port_listing.h"

#include <string>

#include "support/fake_router.h"
#include "support/hostile.h"

namespace tessel {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

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

TEST_F(member_details_test, the_port_listing_is_kept_as_lines) {
  tool_prints("qos_voq_show", "one\n\ntwo\n");
  EXPECT_EQ(dump_voq_usage(), SUCCESS);
  EXPECT_EQ(st().voq_usage.get(), list_of({"one", "", "two", ""}));
}

TEST_F(member_details_test, a_port_listing_that_cannot_be_fetched_is_counted_and_logged) {
  const read_only_folder no_captures("/tmp");
  EXPECT_EQ(dump_voq_usage(), ERROR);
  EXPECT_EQ(kept_messages().back(), "a text expected, found the integer 0: dump_voq_usage failed");
  EXPECT_EQ(st().exception, 2);
}

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
  EXPECT_TRUE(logs_before_counting([] { fill(""); }));
}

TEST_F(member_details_test, a_line_that_cannot_be_read_is_a_failure) {
  struct row {
    const char* why;
    std::string text;
    std::string message;
  };
  for (const row& each :
       {row{"a short port line", "Hu0/0/0/1 60 1 local\n", "no word 4 in a line of 4"},
        row{"a handle that is not a number", "Hu0/0/0/1 xyz 1 0 5 33 1024 local\n",
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
