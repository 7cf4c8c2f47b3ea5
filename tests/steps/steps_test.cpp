// The steps of every function that reads a tool's text grow at most in proportion to the text,
// whatever it contains: texts made of torn pieces of what the tools print in the lab.
#include "steps.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "base/text.h"
#include "parsers.h"
#include "seeds.h"

namespace {

// With TESSEL_LONG_STEPS in the environment the tests try more texts, and texts of up to 4 MiB.
bool is_long() {
  return std::getenv("TESSEL_LONG_STEPS") != nullptr;
}

// A text of any length: a head, then a unit again and again, then a tail.
struct shape {
  std::string head;
  std::string unit;
  std::string tail;

  std::string text(std::size_t bytes) const {
    std::string all = head;
    while (all.size() < bytes) all += unit;
    return all + tail;
  }
};

std::string shown(const shape& each) {
  return tessel::quoted(each.head) + ", " + tessel::quoted(each.unit) + " again and again, " +
         tessel::quoted(each.tail);
}

// While it lives, what the audit prints goes nowhere.
class silence {
 public:
  silence() : output_(::dup(STDOUT_FILENO)) {
    std::fflush(stdout);
    const int nowhere = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
    ::dup2(nowhere, STDOUT_FILENO);
    ::close(nowhere);
  }
  ~silence() {
    std::fflush(stdout);
    ::dup2(output_, STDOUT_FILENO);
    ::close(output_);
  }
  silence(const silence&) = delete;
  silence& operator=(const silence&) = delete;

 private:
  int output_;
};

// A parser with the texts that it reads, of which one is replaced by others.
class reader {
 public:
  explicit reader(const fuzz::fuzzed_parser& parser) : parser_(parser) {
    constexpr std::size_t enough = 1500;
    for (const std::string& seed : fuzz::seeds(parser)) {
      std::vector<std::string> texts;
      for (const std::string_view each :
           tessel::split(seed, std::string(1, fuzz::text_separator))) {
        texts.emplace_back(each.substr(0, enough));
      }
      seeds_.push_back(std::move(texts));
    }
  }

  std::size_t texts() const { return parser_.commands.size(); }
  const std::vector<std::vector<std::string>>& seeds() const { return seeds_; }

  std::uint64_t steps(const std::vector<std::string>& seed, std::size_t replaced,
                      const std::string& by) const {
    std::string input;
    for (std::size_t at = 0; at < texts(); ++at) {
      if (at > 0) input += fuzz::text_separator;
      input += at == replaced ? by : seed[at];
    }
    const silence quiet;
    return tessel::steps_of([&] { fuzz::run(parser_, input); });
  }

 private:
  const fuzz::fuzzed_parser& parser_;
  std::vector<std::vector<std::string>> seeds_;
};

constexpr std::array<std::string_view, 12> units = {" ",   "\n", "\t\n", "1", "a",  "|",
                                                    "|\n", "/",  ":",    "-", "0x", "  |\n"};

std::string piece(std::mt19937& random, const std::string& text, std::size_t most) {
  if (text.empty()) return "";
  const std::size_t start = random() % text.size();
  return text.substr(start, 1 + random() % most);
}

// From a line's start, where rows begin.
std::string lines(std::mt19937& random, const std::string& text, std::size_t most) {
  if (text.empty()) return "";
  const std::size_t before = text.rfind('\n', random() % text.size());
  return text.substr(before == std::string::npos ? 0 : before + 1, random() % most);
}

shape any_shape(std::mt19937& random, const std::string& text) {
  shape made{lines(random, text, 160), "", ""};
  if (random() % 3 == 0) made.head.clear();
  switch (random() % 4) {
    case 0:
      made.unit = lines(random, text, 160);
      break;
    case 1:
      made.unit = piece(random, text, 12);
      break;
    default:
      made.unit = units[random() % units.size()];
  }
  if (made.unit.empty()) made.unit = " ";
  if (random() % 2 == 0) made.tail = random() % 2 == 0 ? "!" : piece(random, text, 60);
  return made;
}

struct costly_shape {
  shape text;
  std::size_t seed = 0;
  std::size_t replaced = 0;
  double per_byte = 0;
};

class steps_test : public testing::TestWithParam<std::size_t> {
 protected:
  static const fuzz::fuzzed_parser& parser() { return fuzz::parsers()[GetParam()]; }
};

// The steps that each doubling of a text adds. Those that a text of any length takes cancel out.
std::vector<double> growth(const reader& each, const costly_shape& text, std::size_t doublings) {
  constexpr std::size_t shortest = 768;
  std::vector<double> added;
  double last = 0;
  for (std::size_t size = shortest; added.size() <= doublings; size *= 2) {
    const auto steps = static_cast<double>(
        each.steps(each.seeds()[text.seed], text.replaced, text.text.text(size)));
    added.push_back(steps - last);
    last = steps;
  }
  added.erase(added.begin());
  return added;
}

// A single doubling may add more, for example where a search needs more memory for the first time.
bool grows_faster(const std::vector<double>& added) {
  for (std::size_t at = 1; at < added.size(); ++at) {
    if (added[at] <= added[at - 1] * 2.5 + 3000) return false;
  }
  return true;
}

// Raises `worst` to the costliest of so many shapes.
void search_shapes(const reader& each, int shapes, costly_shape& worst) {
  std::mt19937 random(1);
  for (int number = 0; number < shapes; ++number) {
    costly_shape next;
    next.seed = random() % each.seeds().size();
    next.replaced = random() % each.texts();
    next.text = any_shape(random, each.seeds()[next.seed][next.replaced]);
    const std::vector<double> added = growth(each, next, 2);
    if (grows_faster(added)) {
      ASSERT_FALSE(grows_faster(growth(each, next, 5))) << number << ": " << shown(next.text);
    }
    next.per_byte = added.back() / 1536;
    if (next.per_byte > worst.per_byte) worst = next;
  }
}

TEST_P(steps_test, grow_linearly_with_the_text) {
  const reader each(parser());
  costly_shape worst;
  search_shapes(each, is_long() ? 5000 : 300, worst);
  if (HasFatalFailure()) return;
  const std::size_t longest = is_long() ? 4U << 20 : 256U << 10;
  for (std::size_t size = 16U << 10; size <= longest; size *= 4) {
    const std::uint64_t steps =
        each.steps(each.seeds()[worst.seed], worst.replaced, worst.text.text(size));
    EXPECT_LE(static_cast<double>(steps), worst.per_byte * static_cast<double>(size) * 1.3 + 200000)
        << size << " bytes: " << shown(worst.text);
  }
  RecordProperty("steps_per_byte", std::to_string(worst.per_byte));
}

std::vector<std::size_t> all_readers() {
  std::vector<std::size_t> numbers;
  for (std::size_t at = 0; at < fuzz::parsers().size(); ++at) {
    // A whole run calls all the others, and plain patterns may take any number of steps.
    const std::string_view name = fuzz::parsers()[at].name;
    if (name == "whole_run" || name == "snapshot" || name.starts_with("definition_")) continue;
    numbers.push_back(at);
  }
  return numbers;
}

INSTANTIATE_TEST_SUITE_P(readers, steps_test, testing::ValuesIn(all_readers()),
                         [](const testing::TestParamInfo<std::size_t>& parameter) {
                           return std::string(fuzz::parsers()[parameter.param].name);
                         });

}  // namespace
