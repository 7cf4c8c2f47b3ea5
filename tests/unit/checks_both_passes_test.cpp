#include "checks/both_passes.h"

#include <cstdint>
#include <string>
#include <vector>

#include "support/bundle_world.h"

namespace tessel {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using both_passes_test = bundle_test;

record& bundle() {
  return bundle_record(be12::name);
}

// --- bundle_record

TEST_F(both_passes_test, bundle_record_gives_the_record_of_a_configured_bundle_alone) {
  const value configured = new_record<Bundles>();
  st().tesselDb = ordered_map_of({{"hqos", 1}, {"BE12", configured}});
  EXPECT_EQ(&bundle_record("BE12"), &configured.as_record());
  EXPECT_THAT(failure_of([] { bundle_record("BE1"); }), HasSubstr("'BE1'"));
  EXPECT_THAT(failure_of([] { bundle_record("hqos"); }), HasSubstr("a record expected"));
}

// --- check_delete_pending

TEST_F(both_passes_test, check_delete_pending_on_a_Bundles_record_at_Not_set_does_nothing) {
  check_delete_pending(bundle(), "BE12");
  EXPECT_EQ(counted(), outcome());
  EXPECT_THAT(delete_notes(), IsEmpty());
}

TEST_F(both_passes_test, check_delete_pending_notes_and_counts_an_object_marked_for_delete) {
  bundle().set("delPending", 1);
  check_delete_pending(bundle(), be12::bundle_text);
  sub_record(be12::l3_sub).set("delPending", 1);
  check_delete_pending(sub_record(be12::l3_sub), "BE12.100");
  EXPECT_THAT(delete_notes(),
              ElementsAre("INFO: Inconsistent object BE12(0x3000120), 0/0/CPU0 is marked for delay "
                          "delete",
                          "INFO: Inconsistent object BE12.100 is marked for delay delete"));
  EXPECT_EQ(counted(), (outcome{.deletePending = 2}));
  EXPECT_THAT(findings(), IsEmpty());
}

TEST_F(both_passes_test, check_delete_pending_wants_the_integer_1) {
  const std::vector<value> others = {0, 2, "1", DEFAULT, value()};
  for (const value& other : others) {
    bundle().set("delPending", other);
    check_delete_pending(bundle(), "BE12");
  }
  EXPECT_EQ(counted(), outcome());
  EXPECT_THAT(delete_notes(), IsEmpty());
}

TEST_F(both_passes_test, check_delete_pending_lets_a_failure_out) {
  const value port = new_record<memberInfo>();
  EXPECT_THAT(failure_of([&] { check_delete_pending(port.as_record(), "BE12"); }),
              HasSubstr("'delPending'"));
  EXPECT_EQ(counted(), outcome());
}

TEST_F(both_passes_test, check_delete_pending_logs_and_then_counts) {
  bundle().set("delPending", 1);
  const std::string name = page_long_name();
  EXPECT_EQ(count_while_logging("delete_pending", st().deletePending,
                                [&] { check_delete_pending(bundle(), name); }),
            0);
  EXPECT_EQ(st().deletePending, 1);
}

}  // namespace
}  // namespace tessel
