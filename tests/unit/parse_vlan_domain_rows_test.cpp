#include "parse/vlan_domain_rows.h"

#include <array>
#include <memory>
#include <optional>
#include <random>
#include <string>

#include "base/text.h"
#include "support/fake_router.h"
#include "support/hostile.h"

namespace tessel {
namespace {

using vlan_domain_rows_test = router_test;

std::shared_ptr<const std::string> shared(std::string_view text) {
  return std::make_shared<const std::string>(text);
}

constexpr std::string_view table =
    "IHP_VTT_IN_PP_PORT_CONFIG.IHP0[3]: <PROFILE=0x1,VLAN_DOMAIN=0x10,REST=0>\n"
    "IHP_VTT_IN_PP_PORT_CONFIG.IHP1[3]: <PROFILE=0x1,VLAN_DOMAIN=0x11,REST=0>\n"
    "IHP_VTT_IN_PP_PORT_CONFIG.IHP0[30]: <PROFILE=0x1,VLAN_DOMAIN=0x12,REST=0>\n"
    "IHP_VTT_IN_PP_PORT_CONFIG.IHP0[3]: <PROFILE=0x1,VLAN_DOMAIN=0x13,REST=0>\n";

TEST_F(vlan_domain_rows_test, core_and_port_find_their_first_row) {
  const auto text = shared(table);
  EXPECT_EQ(vlan_domain_of(text, "0", "3"), "0x10");
  EXPECT_EQ(vlan_domain_of(text, "1", "3"), "0x11");
  EXPECT_EQ(vlan_domain_of(text, "0", "30"), "0x12");
  EXPECT_EQ(vlan_domain_of(text, "1", "30"), std::nullopt);
  EXPECT_EQ(vlan_domain_of(text, "0", "-3"), std::nullopt);
}

TEST_F(vlan_domain_rows_test, an_empty_table_has_no_row) {
  EXPECT_EQ(vlan_domain_of(shared(""), "0", "3"), std::nullopt);
}

TEST_F(vlan_domain_rows_test, each_table_is_read_for_itself) {
  EXPECT_EQ(vlan_domain_of(shared(table), "0", "3"), "0x10");
  EXPECT_EQ(vlan_domain_of(shared("A.IHP0[3]: <P=1,VLAN_DOMAIN=0x99,"), "0", "3"), "0x99");
}

TEST_F(vlan_domain_rows_test, names_that_are_not_plain_words_are_put_in_without_escaping) {
  const auto text = shared(table);
  EXPECT_EQ(vlan_domain_of(text, ".", "30"), "0x12") << "a point matches any character";
  EXPECT_EQ(vlan_domain_of(text, "1", "\\d"), "0x11");
  EXPECT_THROW(vlan_domain_of(text, "(", "3"), failure);
}

TEST_F(vlan_domain_rows_test, an_endless_line_behind_the_rows_harms_nothing) {
  std::string names;
  while (names.size() < 1U << 20) names += "IHPIHP0IHP";
  for (const std::string& line : {std::string(8U << 20, 'I'), names}) {
    const auto text = shared(std::string(table) + line);
    EXPECT_EQ(vlan_domain_of(text, "0", "3"), "0x10");
    EXPECT_EQ(vlan_domain_of(text, "0", "9"), std::nullopt);
    EXPECT_EQ(vlan_domain_of(text, "0", std::string(25, '1')), std::nullopt);
  }
}

TEST_F(vlan_domain_rows_test, numbers_of_any_length_are_names_too) {
  const std::string name(25, '1');
  const auto text = shared("T.IHP" + name + "[" + name + "]: <P=1,VLAN_DOMAIN=0x5,");
  EXPECT_EQ(vlan_domain_of(text, name, name), "0x5");
  EXPECT_EQ(vlan_domain_of(text, "1", name), std::nullopt);
}

TEST_F(vlan_domain_rows_test, a_look_up_gives_what_the_pattern_of_one_port_gives_first) {
  constexpr std::array<std::string_view, 33> pieces = {"0",
                                                       "1",
                                                       "x",
                                                       "-",
                                                       "-1",
                                                       "IHP",
                                                       "IHP0",
                                                       "IHP1[3]",
                                                       "[",
                                                       "]",
                                                       ":",
                                                       ": ",
                                                       ":\n",
                                                       "<",
                                                       "=",
                                                       ",",
                                                       ".",
                                                       "\n",
                                                       " ",
                                                       std::string_view("\0", 1),
                                                       "T.IHP0[3]: <P=1,VLAN_DOMAIN=0x10,",
                                                       "T.IHP0[1]: <P=1,VLAN_DOMAIN=0x11,",
                                                       "aIHP0[0]:\t<P=1,VLAN_DOMAIN=0x12,",
                                                       "T.IHP-1[-1]: <P=1,VLAN_DOMAIN=1,",
                                                       "T.IHP1[3]: <P=1,",
                                                       "VLAN_DOMAIN=",
                                                       ": <P=1,VLAN_DOMAIN=",
                                                       "[3]: <P=1,VLAN_DOMAIN=7,",
                                                       "IHP0[0]: <IHP=IHP,VLAN_DOMAIN=8,",
                                                       "aa",
                                                       "TABLE.IHP",
                                                       "IHP111111111111111111111[3]: <",
                                                       "T.IHP111111111111111111111[3]: "
                                                       "<P=1,VLAN_DOMAIN=0x14,"};
  constexpr std::array<std::string_view, 9> names = {
      "0", "1", "3", "x", "-1", "", "IHP0", "xIHP0", "111111111111111111111"};
  for (unsigned seed = 1; seed <= 1000; ++seed) {
    SetUp();
    std::mt19937 random(seed);
    const auto text = shared(fragments(random, pieces, 2 + seed % 40));
    for (const std::string_view core : names) {
      for (const std::string_view port : names) {
        const matches found = findall(pattern(fill(vlan_domain_definition, {core, port})), *text);
        EXPECT_EQ(vlan_domain_of(text, core, port),
                  found.empty() ? std::nullopt : std::optional<std::string>(found.text(0)))
            << "seed " << seed << ", core " << core << ", port " << port << " in "
            << quoted(std::string_view(*text));
      }
    }
    if (HasFailure()) return;
  }
}

}  // namespace
}  // namespace tessel
