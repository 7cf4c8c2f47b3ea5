#include "programming/chip.h"

#include <string>
#include <string_view>

#include "support/chip_world.h"
#include "support/fake_router.h"

namespace tessel {
namespace {

using testing::HasSubstr;
using testing::Optional;

class chip_test : public router_test {
 protected:
  void SetUp() override {
    router_test::SetUp();
    set_up_nodes();
    set_tables(older_node, "0", older_tables("1005 Payload=0x1\n", "1005 Payload=0x2\n", "vsi"));
  }
};

TEST_F(chip_test, a_chip_gives_its_own_tables) {
  set_tables(older_node, "1", older_tables("1005 Payload=0x3\n", "", ""));
  const chip first(older_node, "0");
  const chip second(older_node, "1");
  EXPECT_EQ(first.table("VSI"), "vsi");
  EXPECT_THAT(first.sem(sem_name::a).payload_of("1005"), Optional(std::string_view("0x1")));
  EXPECT_THAT(first.sem(sem_name::b).payload_of("1005"), Optional(std::string_view("0x2")));
  EXPECT_THAT(second.sem(sem_name::a).payload_of("1005"), Optional(std::string_view("0x3")));
  EXPECT_EQ(first.nodename(), older_node);
  EXPECT_EQ(second.npu(), "1");
}

TEST_F(chip_test, what_is_missing_fails_where_it_is_read_and_each_time) {
  const chip of_no_node("0/9/CPU0", "0");
  const chip of_no_npu(older_node, "9");
  set_tables(older_node, "1", ordered_map_of({{"SEMA", ERROR}}));
  const chip unreadable(older_node, "1");
  for (int time = 0; time < 2; ++time) {
    EXPECT_THAT(failure_of([&] { of_no_node.table("VSI"); }), HasSubstr("no key '0/9/CPU0'"));
    EXPECT_THAT(failure_of([&] { of_no_npu.sem(sem_name::a); }), HasSubstr("no key '9'"));
    EXPECT_THAT(failure_of([&] { unreadable.sem(sem_name::a); }), HasSubstr("a text expected"));
    EXPECT_THAT(failure_of([&] { unreadable.sem(sem_name::b); }), HasSubstr("no key 'SEMB'"));
  }
}

TEST_F(chip_test, during_the_pass_the_tables_are_those_that_it_saw_at_its_beginning) {
  st().chip_tables.set(st().BCM.get());
  st().BCM.set(make_ordered_map());
  EXPECT_EQ(chip(older_node, "0").table("VSI"), "vsi");
  st().chip_tables.set(value());
  EXPECT_THAT(failure_of([] { chip(older_node, "0").table("VSI"); }),
              HasSubstr("no key '0/0/CPU0'"));
}

TEST_F(chip_test, an_index_outlives_the_ones_that_the_run_keeps) {
  const chip where(older_node, "0");
  EXPECT_TRUE(where.sem(sem_name::a).payload_of("1005"));
  const chip copy = where;
  set_tables(older_node, "0", older_tables("", "", ""));
  st().indexes.clear();
  EXPECT_THAT(where.sem(sem_name::a).payload_of("005"), Optional(std::string_view("0x1")));
  EXPECT_THAT(copy.sem(sem_name::a).payload_of("1005"), Optional(std::string_view("0x1")));
}

}  // namespace
}  // namespace tessel
