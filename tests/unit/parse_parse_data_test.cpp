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

}  // namespace
}  // namespace tessel
