// Rows are found with patterns that are not tried from every byte of a long run. They must find
// exactly what the plain patterns find, which define the rows.
#include <array>
#include <random>
#include <string>

#include "base/numbers.h"
#include "base/text.h"
#include "parse/bcm_lag.h"
#include "parse/dpa_objects.h"
#include "parse/lag_rows.h"
#include "platform/node_inventory.h"
#include "support/fake_router.h"
#include "support/hostile.h"

namespace tessel {
namespace {

constexpr std::string_view node = "0/0/CPU0";

class definitions_test : public router_test {
 protected:
  void SetUp() override {
    router_test::SetUp();
    st().router = birch;
    nodeinfo_init();
    open_logs();
  }
};

// The table of `tm lag`, found with the plain patterns; ERROR for a piece before any id. At its end
// a piece marks its last LAG.
value tm_lag_by_definition(std::string_view text) {
  static const pattern& start = constant(tm_lag_pieces::definition);
  static const pattern& row = constant(tm_lag_rows::definition);
  value lags = make_map();
  std::string lag_id;
  const auto pieces = split(text, start);
  for (std::size_t piece = 1; piece < pieces.size(); ++piece) {
    const matches rows = findall(row, pieces[piece]);
    for (std::size_t at = 0; at < rows.size(); ++at) {
      if (!rows[at][0].empty()) {
        lag_id = convert_to_hex(rows[at][0]);
        lags.as_map().set(lag_id, map_of({{"members", make_list()}}));
      }
      if (rows[at][1].empty()) continue;
      if (lag_id.empty()) return ERROR;
      lags.at(lag_id).at("members").as_list().emplace_back(rows[at][1]);
    }
    if (lag_id.empty()) return ERROR;
    if (!lags.at(lag_id).at("members").truthy()) continue;
    lags.at(lag_id).as_map().set("Visited", 0);
    lags.at(lag_id).as_map().set("Node Description", lag_id + "_npu0_node0/0/CPU0");
  }
  return lags;
}

TEST_F(definitions_test, tm_lag_rows_are_those_of_the_plain_pattern) {
  constexpr std::array<std::string_view, 16> pieces = {"|",
                                                       " ",
                                                       "  ",
                                                       "\n",
                                                       "| 0 | 1 |",
                                                       " 7 | 1 | yes | 0xc1 | 0 |\n",
                                                       "   |   | 1 |   | yes | 0xc2 | 0 |\n",
                                                       "|   |   |   |   | yes | 0xc000022 | 0 |\n",
                                                       "12",
                                                       "x",
                                                       " |  5 ",
                                                       " | 0xc3 ",
                                                       " |  ",
                                                       " |\n",
                                                       "\t|",
                                                       "| 0 | 1 |   | 1 | yes | 0xc000021 | 0 |\n"};
  for (unsigned seed = 1; seed <= 2000; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    const std::string text = fragments(random, pieces, 2 + seed % 30);
    // Printed, because maps that differ only in their order are equal.
    ASSERT_EQ(printed(parse_tm_lag(text, node, "0")), printed(tm_lag_by_definition(text)))
        << quoted(text);
  }
}

TEST_F(definitions_test, diag_lag_rows_are_those_of_the_plain_pattern) {
  static const pattern& row = constant(R"(\d+\s+\|\s+\w+\s+\|\s+[YN])");
  constexpr std::array<std::string_view, 12> pieces = {"1",
                                                       "12",
                                                       " ",
                                                       "\n",
                                                       "|",
                                                       " | ",
                                                       "0xc1",
                                                       "Y",
                                                       "N",
                                                       " 0 | 0xc000021 | Y\n",
                                                       "| Y1 | x | N",
                                                       " | 7 | 0xc1 |  Y"};
  for (unsigned seed = 1; seed <= 2000; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    const std::string rows = fragments(random, pieces, 2 + seed % 20);
    const value lags = parse_diag_lag_BCM("LAG ID: 1\n" + rows, node, "0");
    value expected = make_map();
    const std::string section = " ID: 1\n" + rows;
    const matches found = findall(row, section);
    for (std::size_t at = 0; at < found.size(); ++at) {
      const auto cells = split(found.text(at), "|");
      expected.as_map().set(convert_to_hex(cells[0]), strip(cells[1]));
    }
    value gports = make_map();
    for (const auto& [key, member] : lags.at("LAG 0x1").as_map().items()) {
      if (member.is_map()) gports.as_map().set(key, member.at("gport"));
    }
    ASSERT_EQ(gports, expected) << quoted(rows);
  }
}

TEST_F(definitions_test, object_fields_are_those_of_the_plain_pattern) {
  static const pattern& field = constant(R"((\w+)\s=>\s([\w:]*))");
  constexpr std::array<std::string_view, 12> pieces = {"rif", " => ", "\n=>\t",       "=>",
                                                       " ",   "\n",   "0x1",          "00:11",
                                                       ":",   "x",    "rif => 0x5\n", "arif => "};
  for (unsigned seed = 1; seed <= 2000; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    const std::string block =
        "@dpa_intf_t intf => 0x60\n lif => 0x1\n bia_mac => 0:1\n rif => 0x9\n" +
        fragments(random, pieces, 2 + seed % 20);
    std::string rif;
    const matches found = findall(field, block);
    for (std::size_t at = 0; at < found.size(); ++at) {
      if (found[at][0] == "rif") rif = found[at][1];
    }
    ASSERT_EQ(parse_l2port_object_DPA(block, node).at("0x60").at("rif"), rif) << quoted(block);
  }
}

// Each of these took minutes when the search was tried from every byte.
TEST_F(definitions_test, long_runs_of_anything_are_read_once) {
  const std::size_t megabyte = 1U << 20;
  for (const char c : {'0', 'a', ' ', '\n', '|', '/'}) {
    const value junk = std::string(4 * megabyte, c);
    EXPECT_TRUE(parse_diag_lag_BCM(junk, node, "0").is_map());
    EXPECT_TRUE(parse_tm_lag(junk, node, "0").is_map());
    EXPECT_TRUE(parse_lagport_object_DPA(junk, node).is_map());
    EXPECT_EQ(parse_l1port_object_DPA(junk, node), SUCCESS);
    EXPECT_EQ(parse_l2port_object_DPA(junk, node), ERROR);
  }
  const value after_cut = "| 0 | 1 |" + std::string(4 * megabyte, ' ');
  EXPECT_EQ(parse_tm_lag(after_cut, node, "0"), ERROR);
}

}  // namespace
}  // namespace tessel
