#include "runs/sizes.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <array>

#include "lab/base/error.h"

namespace bench {

namespace {

struct named_size {
  std::string_view name;
  unsigned cards, npus, bundles, members, l2_subs, l3_subs;
};

// XL has as many cards, bundles and sub-bundles as a router of this type can have.
constexpr std::array<named_size, 4> sizes{{{"S", 1, 1, 1, 1, 1, 1},
                                           {"M", 4, 2, 64, 4, 512, 64},
                                           {"L", 16, 4, 128, 16, 4096, 512},
                                           {"XL", 16, 4, 256, 16, 8192, 1024}}};

lab::chip_mix family_named(std::string_view name) {
  if (name == "older") return lab::chip_mix::older;
  if (name == "jericho2") return lab::chip_mix::jericho2;
  if (name == "mixed") return lab::chip_mix::mixed;
  throw lab::lab_error(
      fmt::format("\"{}\" is not one of {}", name, fmt::join(family_names(), ", ")));
}

}  // namespace

const std::vector<std::string>& size_names() {
  static const std::vector<std::string> names = [] {
    std::vector<std::string> all;
    for (const named_size& size : sizes) all.emplace_back(size.name);
    return all;
  }();
  return names;
}

const std::vector<std::string>& family_names() {
  static const std::vector<std::string> names{"older", "jericho2", "mixed"};
  return names;
}

lab::generate_request sized_request(std::string_view size, std::string_view family, bool hqos) {
  const auto found = std::find_if(sizes.begin(), sizes.end(),
                                  [&](const named_size& each) { return each.name == size; });
  if (found == sizes.end())
    throw lab::lab_error(
        fmt::format("\"{}\" is not one of {}", size, fmt::join(size_names(), ", ")));
  lab::generate_request wanted = lab::default_request("birch");
  wanted.cards = found->cards;
  wanted.npus = found->npus;
  wanted.bundles = found->bundles;
  wanted.members = found->members;
  wanted.l2_subs = found->l2_subs;
  wanted.l3_subs = found->l3_subs;
  wanted.family = family_named(family);
  wanted.hqos = hqos;
  return wanted;
}

}  // namespace bench
