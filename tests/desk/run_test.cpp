#include "desk/model/run.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <map>
#include <random>
#include <string>
#include <string_view>
#include <vector>

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

// Many texts that differ little, empty ones and long ones, against an ordinary map.
TEST(run, numbers_texts_in_the_order_in_which_they_came) {
  std::mt19937 random(3);
  text_pool pool;
  std::map<std::string, text_id> ids;
  std::vector<std::string_view> views;
  for (int round = 0; round < 60'000; ++round) {
    std::string text(random() % 20, '0');
    if (random() % 500 == 0) text.resize(random() % 70'000, 'x');
    for (int change = 0; change < 3 && !text.empty(); ++change)
      text[random() % text.size()] = "0123456789abcdef\0"[random() % 17];
    const auto [at, is_new] = ids.try_emplace(text, static_cast<text_id>(ids.size()));
    ASSERT_EQ(pool.keep(text), at->second) << text;
    if (is_new) views.push_back(pool.text(at->second));
  }
  ASSERT_EQ(pool.size(), ids.size());
  EXPECT_EQ(pool.find("none of them"), std::nullopt);
  EXPECT_EQ(text_pool().find(""), std::nullopt);
  for (const auto& [text, id] : ids) {
    ASSERT_EQ(pool.text(id), text);
    ASSERT_EQ(pool.find(text), id);
    ASSERT_EQ(views[id].data(), pool.text(id).data()) << "a text does not move";
  }
}

// Texts that follow each other as before, and then do not.
TEST(run, keeps_equal_texts_once_in_any_order) {
  std::mt19937 random(7);
  text_pool pool;
  std::map<std::string, text_id> ids;
  std::vector<std::string> texts;
  for (int i = 0; i < 50; ++i) texts.push_back("0x" + std::to_string(i));
  std::array<text_id, 2> columns{};
  for (int round = 0; round < 200; ++round) {
    if (round % 3 == 0) std::swap(texts[random() % 50], texts[random() % 50]);
    for (const std::string& text : texts) {
      const text_id id = pool.keep(text, columns[random() % 10 == 0 ? 1 : 0]);
      ASSERT_EQ(ids.try_emplace(text, id).first->second, id) << text;
      ASSERT_EQ(pool.text(id), text);
    }
  }
  EXPECT_EQ(pool.size(), texts.size());
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
