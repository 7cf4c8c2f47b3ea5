#include "checks/object_name.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <string_view>

namespace tessel {
namespace {

std::string shown(const object_name& name) {
  return fmt::format("<{}>", name);
}

TEST(object_name_test, a_text_of_any_type_is_its_own_name) {
  EXPECT_EQ(shown("BE12"), "<BE12>");
  EXPECT_EQ(shown(std::string("BE12.100")), "<BE12.100>");
  EXPECT_EQ(shown(std::string_view("BE12", 3)), "<BE1>");
  EXPECT_EQ(shown(""), "<>");
}

TEST(object_name_test, a_form_is_called_for_each_message_and_for_nothing_else) {
  int calls = 0;
  const auto named = [&] { return fmt::format("BE12, call {}", ++calls); };
  const object_name name(named);
  const object_name same = name;
  EXPECT_EQ(calls, 0);
  EXPECT_EQ(shown(name), "<BE12, call 1>");
  EXPECT_EQ(same.text(), "BE12, call 2");
}

TEST(object_name_test, a_form_that_fails_is_a_failure_of_the_message) {
  const auto named = []() -> std::string { throw std::runtime_error("no name"); };
  EXPECT_THROW(shown(object_name(named)), std::runtime_error);
}

}  // namespace
}  // namespace tessel
