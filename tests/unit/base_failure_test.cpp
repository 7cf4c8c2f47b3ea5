#include "base/failure.h"

#include <array>
#include <new>
#include <stdexcept>
#include <string>
#include <type_traits>

#include "base/text.h"
#include "support/fake_router.h"

namespace tessel {
namespace {

using testing::HasSubstr;
using testing::MatchesRegex;
using failure_test = router_test;

static_assert(!std::is_base_of_v<std::exception, exit_request>,
              "a handler of failures would swallow the end of the run");
static_assert(std::is_base_of_v<std::exception, failure>);

void look_up_lagid() {
  throw failure("no key 'lagid'");
}
[[noreturn]] void run_out_of_memory() {
  throw std::bad_alloc();
}

// The text that the handler of check_lag logs.
template <class Body>
std::string traceback_in_check_lag(Body body) {
  const auto check_lag = [&]() -> std::string {
    try {
      body();
    } catch (const std::exception& error) {
      return traceback_of(error);
    }
    return "";
  };
  return check_lag();
}

std::vector<std::string> lines_of(const std::string& text) {
  std::vector<std::string> lines;
  for (const std::string_view line : split(text, "\n")) lines.emplace_back(line);
  EXPECT_EQ(lines.back(), "") << "every line has its line end";
  lines.pop_back();
  return lines;
}

TEST_F(failure_test, the_text_is_kept_to_one_line) {
  struct row {
    const char* why;
    std::string given;
    std::string kept;
  };
  const std::array rows = {
      row{"plain", "no key 'lagid'", "no key 'lagid'"},
      row{"line feed", "a\nb", "a\\nb"},
      row{"carriage return", "a\rb", "a\\x0db"},
      row{"tab", "a\tb", "a\\x09b"},
      row{"NUL, behind which what() would end", std::string("a\0b", 3), "a\\x00b"},
      row{"delete", "a\x7f", "a\\x7f"},
      row{"bytes above stay", "\xc3\xa9\xff", "\xc3\xa9\xff"},
      row{"nothing", "", ""},
  };
  for (const row& each : rows) {
    SCOPED_TRACE(each.why);
    EXPECT_STREQ(failure(each.given).what(), each.kept.c_str());
  }
}

TEST_F(failure_test, it_remembers_where_it_was_thrown) {
  const failure here("x");
  EXPECT_EQ(here.where().line(), __LINE__ - 1U);
  EXPECT_THAT(here.where().file_name(), HasSubstr("base_failure_test.cpp"));
}

TEST_F(failure_test, a_traceback_names_the_handler_the_place_and_the_failure) {
  const auto lines = lines_of(traceback_in_check_lag(look_up_lagid));
  ASSERT_EQ(lines.size(), 4U);
  EXPECT_EQ(lines[0], "Traceback (most recent call last):");
  EXPECT_THAT(lines[1], MatchesRegex("  File \".*base_failure_test\\.cpp\", line [0-9]+, in .+"));
  EXPECT_THAT(lines[2], MatchesRegex("  File \".*base_failure_test\\.cpp\", line [0-9]+, "
                                     "in look_up_lagid"));
  EXPECT_EQ(lines[3], "failure: no key 'lagid'");
}

TEST_F(failure_test, a_failure_that_its_own_function_handles_is_one_place) {
  std::string text;
  try {
    throw failure("no key 'lagid'");
  } catch (const std::exception& error) {
    text = traceback_of(error);
  }
  EXPECT_EQ(lines_of(text).size(), 3U);
}

TEST_F(failure_test, running_out_of_memory_is_an_ordinary_failure) {
  const auto lines = lines_of(traceback_in_check_lag(run_out_of_memory));
  ASSERT_EQ(lines.size(), 3U);
  EXPECT_EQ(lines[2], "std::bad_alloc: std::bad_alloc");
}

TEST_F(failure_test, the_kind_of_a_library_failure_is_named) {
  EXPECT_THAT(traceback_in_check_lag([] { throw std::out_of_range("vector::at"); }),
              HasSubstr("std::out_of_range: vector::at\n"));
}

TEST_F(failure_test, the_current_failure_is_the_one_that_is_being_handled) {
  const auto where = here::current();
  EXPECT_EQ(traceback_of_current(where), "") << "none is";
  try {
    throw failure("outer");
  } catch (const std::exception&) {
    try {
      throw failure("inner");
    } catch (const std::exception&) {
      EXPECT_THAT(traceback_of_current(where), HasSubstr("failure: inner\n"));
    }
    EXPECT_THAT(traceback_of_current(where), HasSubstr("failure: outer\n"));
  }
  EXPECT_EQ(traceback_of_current(where), "");
}

TEST_F(failure_test, an_exit_request_passes_every_handler_of_failures) {
  bool handled = false;
  const auto phase = [&] {
    try {
      throw exit_request();
    } catch (const std::exception&) {
      handled = true;
    }
  };
  EXPECT_THROW(phase(), exit_request);
  EXPECT_FALSE(handled);
}

}  // namespace
}  // namespace tessel
