#include "desk/commands/options.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>

#include "command_line/usage_error.h"

namespace desk {
namespace {

std::string host_name() {
  std::array<char, 256> name{};
  return ::gethostname(name.data(), name.size() - 1) == 0 ? name.data() : "";
}

TEST(options, name_the_router_of_the_machines_own_logs_only) {
  const bool has_name = host_name() != "localhost" && host_name() != "(none)";
  EXPECT_EQ(parse_options({"json"}).router, has_name ? host_name() : "");
  EXPECT_EQ(parse_options({"json", "--logs", "/var/log"}).router, "");
  EXPECT_EQ(parse_options({"--capture", "x", "html"}).router, "");
  EXPECT_EQ(parse_options({"--logs", "x", "--router", "core 7", "json"}).router, "core 7");
  EXPECT_EQ(parse_options({"json", "--router", "core-7"}).router, "core-7");
  EXPECT_EQ(parse_options({"--router=", "json"}).router, "");
}

TEST(options, name_each_run_that_is_compared_as_an_operand) {
  EXPECT_THROW((void)parse_options({"--capture", "x", "diff", "a", "b"}),
               command_line::usage_error);
  EXPECT_THROW((void)parse_options({"confirm", "a", "b", "--logs", "x"}),
               command_line::usage_error);
  EXPECT_THROW((void)parse_options({"diff", "a", "b", "--run", "2"}), command_line::usage_error);
  EXPECT_THROW((void)parse_options({"diff", "a"}), command_line::usage_error);
  EXPECT_EQ(parse_options({"diff", "a", "b"}).places.size(), 2U);
  EXPECT_EQ(parse_options({"history", "--store", "s", "--capture", "x"}).capture, "x");
}

TEST(options, compare_runs_for_what_is_new) {
  EXPECT_THROW((void)parse_options({"--fail-on", "new"}), command_line::usage_error);
  EXPECT_THROW((void)parse_options({"nagios", "--fail-on", "never"}), command_line::usage_error);
  EXPECT_EQ(parse_options({"--fail-on", "new", "diff", "a", "b"}).when, fail_on::is_new);
}

}  // namespace
}  // namespace desk
