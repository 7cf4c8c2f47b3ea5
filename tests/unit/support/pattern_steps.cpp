#include "support/pattern_steps.h"

#define PCRE2_CODE_UNIT_WIDTH 8
#include <gtest/gtest.h>
#include <pcre2.h>

#include <array>
#include <limits>
#include <map>
#include <memory>
#include <new>
#include <random>
#include <vector>

#include "base/text.h"
#include "support/hostile.h"

namespace tessel {

namespace {

struct step_count {
  std::uint64_t steps = 0;
  std::uint64_t most = 0;
  std::size_t place = 0;
};

int count(pcre2_callout_block* tried, void* data) {
  auto& counted = *static_cast<step_count*>(data);
  ++counted.steps;
  if (tried->current_position > counted.place) {
    counted.steps += tried->current_position - counted.place;
  }
  counted.place = tried->current_position;
  return counted.steps > counted.most ? PCRE2_ERROR_CALLOUT : 0;
}

template <auto Free>
struct freed {
  template <class Object>
  void operator()(Object* object) const {
    Free(object);
  }
};

using compile_context = std::unique_ptr<pcre2_compile_context, freed<pcre2_compile_context_free>>;
using compiled_code = std::unique_ptr<pcre2_code, freed<pcre2_code_free>>;
using match_data = std::unique_ptr<pcre2_match_data, freed<pcre2_match_data_free>>;
using match_context = std::unique_ptr<pcre2_match_context, freed<pcre2_match_context_free>>;

compiled_code counting_code(std::string_view expression) {
  const compile_context context(pcre2_compile_context_create(nullptr));
  pcre2_set_newline(context.get(), PCRE2_NEWLINE_LF);
  int error = 0;
  PCRE2_SIZE position = 0;
  return compiled_code(
      pcre2_compile(reinterpret_cast<PCRE2_SPTR>(expression.data()), expression.size(),
                    PCRE2_AUTO_CALLOUT | PCRE2_NO_START_OPTIMIZE | PCRE2_NO_AUTO_POSSESS, &error,
                    &position, context.get()));
}

std::vector<std::string_view> parts_of(const matches& found) {
  std::vector<std::string_view> parts;
  for (std::size_t at = 0; at < found.size(); ++at) {
    parts.insert(parts.end(), found[at].begin(), found[at].end());
  }
  return parts;
}

// Constants are never freed, so each expression becomes a constant only once.
const pattern& machine_code(std::string_view expression) {
  static auto* const made = new std::map<std::string, const pattern*, std::less<>>;
  auto found = made->find(expression);
  if (found == made->end()) {
    found = made->emplace(std::string(expression), &constant(expression)).first;
  }
  return *found->second;
}

}  // namespace

std::uint64_t steps_of(std::string_view expression, std::string_view text) {
  const compiled_code code = counting_code(expression);
  if (!code) {
    ADD_FAILURE() << "no pattern: " << expression;
    return 0;
  }
  const match_data data(pcre2_match_data_create_from_pattern(code.get(), nullptr));
  const match_context context(pcre2_match_context_create(nullptr));
  if (!data || !context) throw std::bad_alloc();
  step_count counted;
  counted.most = 10'000'000 + text.size() * 1000;
  pcre2_set_callout(context.get(), count, &counted);
  pcre2_set_match_limit(context.get(), std::numeric_limits<std::uint32_t>::max());
  std::size_t start = 0;
  int result = 0;
  while (true) {
    counted.place = start;
    result = pcre2_match(code.get(), reinterpret_cast<PCRE2_SPTR>(text.data()), text.size(), start,
                         0, data.get(), context.get());
    if (result < 0) break;
    const std::size_t end = pcre2_get_ovector_pointer(data.get())[1];
    EXPECT_GT(end, start) << "an empty match";
    if (end <= start) break;
    start = end;
  }
  EXPECT_EQ(result, PCRE2_ERROR_NOMATCH) << "given up after " << counted.steps << " steps";
  return counted.steps;
}

std::string near_miss::text(std::size_t bytes) const {
  const std::size_t ends = head.size() + tail.size();
  const std::size_t units = bytes > ends ? (bytes - ends + unit.size() - 1) / unit.size() : 0;
  std::string middle = unit;
  while (middle.size() < units * unit.size()) middle += middle;
  middle.resize(units * unit.size());
  return head + middle + tail;
}

void expect_linear(std::string_view expression, const near_miss& shape) {
  SCOPED_TRACE(quoted(expression) + " on " + shape.why);
  const std::string text = shape.text(longest_counted);
  const std::uint64_t of_part = steps_of(expression, shape.text(longest_counted / 16));
  const std::uint64_t steps = steps_of(expression, text);
  EXPECT_GE(steps, text.size()) << "each byte is looked at";
  // Exactly sixteen times, except for the two ends of the text.
  EXPECT_LE(steps, of_part * 16 + of_part / 5) << "a sixteenth took " << of_part;
  const matches interpreted = findall(pattern(expression), text);
  const matches compiled = findall(machine_code(expression), text);
  // Not EXPECT_EQ, whose message would show megabytes of parts.
  EXPECT_TRUE(parts_of(interpreted) == parts_of(compiled));
}

void expect_linear_on_fragments(std::string_view expression,
                                std::span<const std::string_view> pieces, unsigned seeds) {
  constexpr std::size_t bytes = 2048;
  for (unsigned seed = 1; seed <= seeds; ++seed) {
    std::mt19937 random(seed);
    near_miss shape{"fragments", fragments(random, pieces, random() % 5), "",
                    fragments(random, pieces, random() % 4)};
    while (shape.unit.empty()) shape.unit = fragments(random, pieces, 1 + random() % 4);
    const std::uint64_t of_half = steps_of(expression, shape.text(bytes));
    const std::uint64_t steps = steps_of(expression, shape.text(2 * bytes));
    // The longer text may have one unit more or fewer than twice the shorter one.
    ASSERT_LE(steps, of_half * 2 + of_half / 10)
        << quoted(expression) << ", seed " << seed << ": " << quoted(shape.head) << ", "
        << quoted(shape.unit) << " again and again, " << quoted(shape.tail);
  }
}

}  // namespace tessel
