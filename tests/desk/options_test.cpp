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

}  // namespace
}  // namespace desk
