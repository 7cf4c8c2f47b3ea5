#include "base/text_index.h"

#include <atomic>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "base/text.h"
#include "support/fake_router.h"
#include "support/together.h"

namespace tessel {
namespace {

using testing::HasSubstr;
using text_index_test = router_test;

std::atomic<int> built = 0;
std::atomic<int> failing = 0;

// The lines of a text.
class lines_index {
 public:
  explicit lines_index(std::string_view text) : lines_(split(text, "\n")) {
    ++built;
    if (failing.exchange(0) > 0) throw failure("cannot be read");
  }
  std::string_view line(std::size_t at) const { return lines_.at(at); }

 private:
  std::vector<std::string_view> lines_;
};

struct size_index {
  explicit size_index(std::string_view text) : size(text.size()) {}
  std::size_t size;
};

std::shared_ptr<const std::string> shared(const char* text) {
  return std::make_shared<const std::string>(text);
}

TEST_F(text_index_test, a_text_is_read_once) {
  built = 0;
  text_indexes indexes;
  const auto text = shared("a\nb");
  const auto first = indexes.get<lines_index>(text);
  EXPECT_EQ(first->line(1), "b");
  EXPECT_EQ(indexes.get<lines_index>(text), first);
  EXPECT_EQ(built, 1);
}

TEST_F(text_index_test, another_text_with_the_same_content_has_its_own_index) {
  built = 0;
  text_indexes indexes;
  EXPECT_NE(indexes.get<lines_index>(shared("a")), indexes.get<lines_index>(shared("a")));
  EXPECT_EQ(built, 2);
}

TEST_F(text_index_test, one_text_has_an_index_of_each_type) {
  text_indexes indexes;
  const auto text = shared("a\nbc");
  EXPECT_EQ(indexes.get<size_index>(text)->size, 4U);
  EXPECT_EQ(indexes.get<lines_index>(text)->line(0), "a");
}

TEST_F(text_index_test, the_text_lives_as_long_as_its_index_is_kept) {
  text_indexes indexes;
  auto text = shared("a\nb");
  const std::weak_ptr<const std::string> watched = text;
  const auto index = indexes.get<lines_index>(text);
  text.reset();
  EXPECT_FALSE(watched.expired());
  EXPECT_EQ(index->line(0), "a");
  indexes.clear();
  EXPECT_TRUE(watched.expired());
}

TEST_F(text_index_test, after_clearing_a_text_is_read_anew) {
  built = 0;
  text_indexes indexes;
  const auto text = shared("a\nb");
  const auto before = indexes.get<lines_index>(text);
  indexes.clear();
  EXPECT_EQ(before->line(1), "b") << "who holds one may go on using it";
  indexes.get<lines_index>(text);
  EXPECT_EQ(built, 2);
}

TEST_F(text_index_test, a_text_that_cannot_be_read_is_read_once_and_fails_every_time) {
  text_indexes indexes;
  const auto text = shared("a");
  built = 0;
  failing = 1;
  for (int call = 0; call < 3; ++call) {
    EXPECT_THAT(failure_of([&] { indexes.get<lines_index>(text); }), HasSubstr("cannot be read"));
  }
  EXPECT_EQ(built, 1);
  indexes.clear();
  EXPECT_EQ(indexes.get<lines_index>(text)->line(0), "a") << "until it is forgotten";
}

TEST_F(text_index_test, many_threads_meet_the_one_failure) {
  for (int round = 0; round < 20; ++round) {
    text_indexes indexes;
    const auto text = shared("a");
    built = 0;
    failing = 1;
    std::atomic<int> failures = 0;
    together(8, [&](int) {
      try {
        indexes.get<lines_index>(text);
      } catch (const failure& error) {
        if (std::string_view(error.what()) == "cannot be read") ++failures;
      }
    });
    EXPECT_EQ(failures, 8);
    EXPECT_EQ(built, 1);
  }
}

TEST_F(text_index_test, many_threads_that_ask_at_once_get_the_one_index) {
  for (int round = 0; round < 20; ++round) {
    built = 0;
    text_indexes indexes;
    const auto text = shared("a\nb");
    const auto other = shared("c");
    together(8, [&](int number) {
      EXPECT_EQ(indexes.get<lines_index>(number % 2 == 0 ? text : other)->line(0),
                number % 2 == 0 ? "a" : "c");
    });
    EXPECT_EQ(built, 2);
  }
}

TEST_F(text_index_test, the_text_of_a_value_is_shared_and_not_copied) {
  const value output = "a\nb";
  EXPECT_EQ(st().indexes.get<lines_index>(output.as_shared_text()),
            st().indexes.get<lines_index>(value(output).as_shared_text()));
}

}  // namespace
}  // namespace tessel
