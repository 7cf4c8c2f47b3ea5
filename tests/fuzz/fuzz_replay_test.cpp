// Every parser on every seed, whole and mutilated: cut, doubled, with bytes flipped, blanks and
// line ends gone. The seeds are the lab's texts; the mutations repeat with their number.
#include <gtest/gtest.h>

#include <random>
#include <string>

#include "parsers.h"
#include "seeds.h"

namespace {

std::string mutilated(const std::string& text, std::mt19937& random) {
  std::string result = text;
  if (result.empty()) return result;
  const auto place = [&] { return random() % result.size(); };
  switch (random() % 5) {
    case 0:
      result.resize(place());
      break;
    case 1:
      result.insert(place(), result.substr(place(), 200));
      break;
    case 2:
      for (int flips = 0; flips < 20; ++flips) result[place()] = static_cast<char>(random());
      break;
    case 3:
      std::erase(result, '\n');
      break;
    default:
      result.erase(place(), 1 + random() % 40);
  }
  return result;
}

class fuzz_replay : public testing::TestWithParam<std::size_t> {};

TEST_P(fuzz_replay, survives_every_seed_and_its_mutations) {
  fuzz::set_up();
  const fuzz::fuzzed_parser& parser = fuzz::parsers()[GetParam()];
  const auto texts = fuzz::seeds();
  ASSERT_FALSE(texts.empty());
  std::mt19937 random(static_cast<unsigned>(GetParam()));
  for (const std::string& text : texts) {
    fuzz::run(parser, text);
    fuzz::run(parser, mutilated(text, random));
  }
}

INSTANTIATE_TEST_SUITE_P(parsers, fuzz_replay,
                         testing::Range<std::size_t>(0, fuzz::parsers().size()),
                         [](const testing::TestParamInfo<std::size_t>& parameter) {
                           return std::string(fuzz::parsers()[parameter.param].name);
                         });

}  // namespace
