#include "desk/model/run.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace desk {
namespace {

TEST(run, makes_the_bundle_of_a_member) {
  run r;
  const auto member = r.object_at(object_kind::member, "BE1", "0/0/0/1");
  EXPECT_EQ(r.objects[r.objects[member].bundle].name, "BE1");
  EXPECT_THAT(r.objects[r.objects[member].bundle].parts, testing::ElementsAre(member));
  EXPECT_EQ(r.find(object_kind::member, "BE2", "0/0/0/1"), nullptr);
}

TEST(run, keeps_equal_texts_once) {
  text_pool pool;
  EXPECT_EQ(pool.keep("0x1"), pool.keep("0x1"));
  EXPECT_NE(pool.keep("0x1"), pool.keep("0x2"));
  EXPECT_EQ(pool.text(pool.keep("0x2")), "0x2");
}

TEST(run, a_fingerprint_has_no_values) {
  finding one;
  one.code = "TC-103";
  one.object = {object_kind::member, "BE1", "0/0/0/1"};
  one.node = "0/0/CPU0";
  one.npu = "0";
  one.of = layer::dpa;
  one.reported = "0x1";
  one.number = 3;
  finding other = one;
  other.reported = "0x2";
  other.number = 4;
  other.line = 7;
  EXPECT_EQ(fingerprint(one), "TC-103|member|BE1|0/0/0/1|0/0/CPU0|0|DPA");
  EXPECT_EQ(fingerprint(one), fingerprint(other));
}

}  // namespace
}  // namespace desk
