#include "collect/interface_mtus.h"

#include <array>
#include <random>
#include <string>

#include "base/text.h"
#include "support/fake_router.h"
#include "support/hostile.h"

namespace tessel {
namespace {

// The result of all matches of the definition.
value by_definition(std::string_view listing) {
  static const pattern& mtu = constant(interface_mtu_definition);
  const std::string interfaces = replace_all(listing, "Bundle-Ether", "BE");
  value mtus = make_map();
  const matches found = findall(mtu, interfaces);
  for (std::size_t at = 0; at < found.size(); ++at) mtus.as_map().set(found[at][0], found[at][1]);
  return mtus;
}

struct listing_row {
  const char* why;
  std::string listing;
  value expected;
};

value one(const char* key, const char* mtu) {
  value mtus = make_map();
  mtus.as_map().set(key, mtu);
  return mtus;
}

TEST(interface_mtus_test, an_interface_has_the_mtu_behind_its_status) {
  const std::array<listing_row, 8> rows = {{
      {"status and MTU on two lines",
       "HundredGigE0/0/0/1 is up, line protocol is up \n  MTU 1514 bytes\n",
       one("0/0/0/1", "1514")},
      {"a bundle counts under its short name",
       "Bundle-Ether12 is up, line protocol is up\n  MTU 9216\n", one("12", "9216")},
      {"a character outside of words and blanks ends the search",
       "Loopback0 is up (spoofing)\n  MTU 1500\n", make_map()},
      {"the last MTU within reach counts", "Null0 is up\n MTU 1500\n MTU 1400 bytes\n",
       one("0", "1400")},
      {"the MTU must stand on a line of its own", "Null0 is up MTU 1500\n", make_map()},
      {"the last of a number wins", "A1 is up\n MTU 5\nB1 is up\n MTU 6\n.C1 is up\n MTU 7\n",
       one("1", "7")},
      {"no status", "HundredGigE0/0/0/1\n MTU 1514\n", make_map()},
      {"nothing at all", "", make_map()},
  }};
  for (const listing_row& row : rows) {
    EXPECT_EQ(parse_interface_mtus(row.listing), row.expected) << row.why;
    EXPECT_EQ(by_definition(row.listing), row.expected) << row.why;
  }
}

TEST(interface_mtus_test, one_pass_gives_what_the_definition_gives) {
  constexpr std::array<std::string_view, 30> pieces = {
      "0",
      "1",
      "/",
      "0/0/0/1",
      " ",
      "\n",
      "\t",
      " is ",
      " is\n",
      "is ",
      "\nis\n",
      "MTU",
      "MTU ",
      "\n MTU ",
      "\n\nMTU 3",
      "\n \n MTU 1514",
      " MTU 9",
      "MTU MTU 7",
      "\n MTU\n MTU 5",
      "up",
      ",",
      "[",
      "+",
      ".",
      "-",
      "Bundle-Ether",
      "HundredGigE0/0/0/1 is up, line protocol is up \n",
      "  MTU 1514 bytes",
      std::string_view("\0", 1),
      "\n MTU 15/3 is up\n MTU 4"};
  for (unsigned seed = 1; seed <= 20000; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    const std::string text = fragments(random, pieces, 2 + seed % 24);
    ASSERT_EQ(parse_interface_mtus(text), by_definition(text)) << quoted(text);
  }
}

TEST(interface_mtus_test, a_listing_without_mtu_lines_is_read_once) {
  std::string listing;
  while (listing.size() < 8U << 20) listing += "1 is up, line protocol is up\n";
  EXPECT_TRUE(parse_interface_mtus(listing).as_map().empty());
}

TEST(interface_mtus_test, a_line_full_of_mtus_is_read_once) {
  std::string listing = "HundredGigE0/0/0/1 is up\n ";
  while (listing.size() < 8U << 20) listing += "MTU 1514 ";
  EXPECT_EQ(parse_interface_mtus(listing), one("0/0/0/1", "1514"));
}

}  // namespace
}  // namespace tessel
