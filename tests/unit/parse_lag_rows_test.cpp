#include "parse/lag_rows.h"

#include <array>
#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "base/text.h"
#include "support/fake_router.h"
#include "support/hostile.h"

namespace tessel {
namespace {

using testing::ElementsAre;
using texts = std::vector<std::string>;

texts diag_lag_rows(std::string_view lag) {
  std::vector<diag_lag_row> rows(3);
  find_diag_lag_rows(lag, rows);
  texts all;
  for (const diag_lag_row& row : rows) {
    all.push_back(fmt::format("{},{},{}", row.member, row.gport, row.is_active));
  }
  return all;
}

texts tm_lag_pieces_of(std::string_view text) {
  texts all;
  tm_lag_pieces pieces(text);
  while (pieces.next()) all.emplace_back(pieces.piece());
  return all;
}

texts tm_lag_rows_of(std::string_view piece) {
  texts all;
  tm_lag_rows rows(piece);
  while (rows.next()) all.push_back(fmt::format("{},{}", rows.lag_id(), rows.gport()));
  return all;
}

// Constants are never destroyed, so each is made once.
const pattern& known(std::string_view definition) {
  static auto& all = *new std::map<std::string_view, const pattern*>;
  const pattern*& found = all[definition];
  if (found == nullptr) found = &constant(definition);
  return *found;
}

// The groups of all matches, the first `count` of each.
texts groups_of(std::string_view definition, std::string_view text, std::size_t count) {
  texts all;
  const matches found = findall(known(definition), text);
  for (std::size_t at = 0; at < found.size(); ++at) {
    std::string row(found[at][0]);
    for (std::size_t group = 1; group < count; ++group) {
      row.append(",").append(found[at][group]);
    }
    all.push_back(row);
  }
  return all;
}

TEST(lag_rows_test, a_block_of_diag_lag_has_its_id_and_rows) {
  constexpr std::string_view lag =
      " ID: 257  members: 2\n"
      "  Member ID | Global port | Active\n"
      "          0 | 0x04001001 | Y\n"
      "         10 | 0x04001002 | N\n";
  EXPECT_EQ(diag_lag_id(lag), "257");
  EXPECT_THAT(diag_lag_rows(lag), ElementsAre("0,0x04001001,Y", "10,0x04001002,N"));
  EXPECT_EQ(diag_lag_id(""), "");
  EXPECT_THAT(diag_lag_rows(""), ElementsAre());
}

TEST(lag_rows_test, a_table_of_tm_lag_has_its_pieces_and_rows) {
  constexpr std::string_view table =
      "| Entry | Hash | Ports | LAG  | Mode | Global port | State |\n"
      "| 0     | 2    | 2     | 1    | hash | 0xc001001   | up    |\n"
      "|       |      |       |      | hash | 0xc001002   |       |\n"
      "| 1     | 2    | 0     | 2    |      |             |       |\n";
  const texts pieces = tm_lag_pieces_of(table);
  ASSERT_EQ(pieces.size(), 2U);
  EXPECT_THAT(tm_lag_rows_of(pieces[0]), ElementsAre("1,0xc001001", ",0xc001002"));
  EXPECT_THAT(tm_lag_rows_of(pieces[1]), ElementsAre("2,"));
  EXPECT_THAT(tm_lag_pieces_of(""), ElementsAre());
  EXPECT_THAT(tm_lag_rows_of(""), ElementsAre());
}

void expect_equal_to_definitions(std::string_view text) {
  const pattern& cut = known(tm_lag_pieces::definition);
  const matches ids = findall(known(diag_lag_id_definition), text);
  EXPECT_EQ(diag_lag_id(text), ids.empty() ? std::string_view() : ids.text(0));
  EXPECT_EQ(diag_lag_rows(text), groups_of(diag_lag_row_definition, text, 3));
  EXPECT_EQ(tm_lag_rows_of(text), groups_of(tm_lag_rows::definition, text, 2));
  const auto pieces = split(text, cut);
  EXPECT_EQ(tm_lag_pieces_of(text), texts(std::next(pieces.begin()), pieces.end()));
}

template <std::size_t Size>
void expect_equal_on(const std::array<std::string_view, Size>& pieces, unsigned most,
                     std::size_t enough) {
  std::size_t rows = 0;
  for (unsigned seed = 1; seed <= 10000; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    const std::string text = fragments(random, pieces, 1 + seed % most);
    SCOPED_TRACE(quoted(text));
    expect_equal_to_definitions(text);
    if (testing::Test::HasFailure()) return;
    rows += diag_lag_rows(text).size() + tm_lag_rows_of(text).size();
  }
  EXPECT_GT(rows, enough) << "the texts must be worth the comparison";
}

TEST(lag_rows_test, torn_tables_are_read_as_the_patterns_read_them) {
  constexpr std::array<std::string_view, 30> pieces = {"|",
                                                       " ",
                                                       "  ",
                                                       "\n",
                                                       "|\n",
                                                       "| ",
                                                       " |",
                                                       "\t",
                                                       "\r",
                                                       "x",
                                                       "0x1",
                                                       "12",
                                                       "Y",
                                                       "N",
                                                       "NO",
                                                       "ID: 5",
                                                       "ID:\n",
                                                       "ID:",
                                                       " 0 | 0xc1 | Y",
                                                       " | 7 | 0xc2 |  N",
                                                       "3 |x| Y",
                                                       "| 0 | 1 |",
                                                       "\n 5 | 7 |",
                                                       " 7 | 1 | yes | 0xc1 | 0 |\n",
                                                       "|   |   |   |   | yes | 0xc000022 | 0 |\n",
                                                       "|   |   |   |   |     |           |   |\n",
                                                       "|  |  |  |  |\n",
                                                       "| 0 | 1 |   | 1 | yes | 0xc000021 | 0 |\n",
                                                       "\xe9",
                                                       std::string_view("\0", 1)};
  expect_equal_on(pieces, 24, 1000);
}

// Of few kinds of characters, so that every small shape occurs.
TEST(lag_rows_test, every_small_shape_is_read_as_the_patterns_read_it) {
  constexpr std::array<std::string_view, 13> of_rows = {
      "|", " ", "1", "a", "Y", "\n", "  ", " | ", "|\n", " 1 |", "  |", " a |", " a |\n"};
  expect_equal_on(of_rows, 40, 300);
}

TEST(lag_rows_test, a_text_that_is_none_is_read_as_the_patterns_read_it) {
  for (const bad_output& each : meaningless_outputs()) {
    SCOPED_TRACE(each.why);
    expect_equal_to_definitions(each.output.as_text().substr(0, 1U << 13));
  }
}

}  // namespace
}  // namespace tessel
