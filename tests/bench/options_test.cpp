#include "runs/options.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <initializer_list>
#include <string>
#include <vector>

#include "runs/sizes.h"

namespace bench {
namespace {

options parse(std::vector<std::string> words) {
  words.insert(words.begin(), "tessel-bench");
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(word.data());
  return parse_options(static_cast<int>(arguments.size()), arguments.data());
}

TEST(options, nothing_named_means_everything) {
  const options all = parse({});
  EXPECT_EQ(all.sizes, size_names());
  EXPECT_EQ(all.families, family_names());
  EXPECT_THAT(all.hqos, testing::ElementsAre(false, true));
  EXPECT_EQ(all.repeat, 1U);
}

TEST(options, a_value_follows_a_blank_or_an_equal_sign) {
  const options some = parse({"M", "--family", "older", "XL", "--hqos=on", "--repeat", "3"});
  EXPECT_THAT(some.sizes, testing::ElementsAre("M", "XL"));
  EXPECT_THAT(some.families, testing::ElementsAre("older"));
  EXPECT_THAT(some.hqos, testing::ElementsAre(true));
  EXPECT_EQ(some.repeat, 3U);
}

TEST(options, a_mistake_is_refused) {
  for (const std::vector<std::string>& words :
       std::initializer_list<std::vector<std::string>>{{"XXL"},
                                                       {"--family", "new"},
                                                       {"--hqos", "yes"},
                                                       {"--repeat", "0"},
                                                       {"--repeat", "x"},
                                                       {"--repeat"},
                                                       {"--size", "M"}})
    EXPECT_THROW(parse(words), bad_options) << words.front();
}

}  // namespace
}  // namespace bench
