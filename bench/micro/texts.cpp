#include "micro/texts.h"

#include <map>

#include "base/text.h"

#include "lab/faults/render_faulty.h"

namespace bench {

namespace {

struct rendered {
  lab::router router;
  lab::capture answers;
};

rendered& router_of(unsigned bundles) {
  static std::map<unsigned, rendered> kept;
  const auto found = kept.find(bundles);
  if (found != kept.end()) return found->second;
  rendered made;
  made.router = lab::generate(sized(bundles));
  made.answers = lab::render(made.router);
  return kept.emplace(bundles, std::move(made)).first->second;
}

bool passes(std::string_view line, const tessel::pattern* kept, const tessel::pattern* dropped) {
  if (kept != nullptr && tessel::findall(*kept, line).empty()) return false;
  return dropped == nullptr || tessel::findall(*dropped, line).empty();
}

}  // namespace

lab::generate_request sized(unsigned bundles) {
  lab::generate_request wanted;
  wanted.cards = 4;
  wanted.npus = 2;
  wanted.bundles = bundles;
  wanted.members = 4;
  wanted.l2_subs = 8 * bundles;
  wanted.l3_subs = bundles;
  wanted.hqos = true;
  return wanted;
}

std::string text_of(unsigned bundles, std::string_view place, std::string_view command_line,
                    std::string_view kept, std::string_view dropped) {
  const std::string& whole = lab::answer_to(router_of(bundles).answers, place, command_line);
  const tessel::pattern* keep = kept.empty() ? nullptr : &tessel::constant(kept);
  const tessel::pattern* drop = dropped.empty() ? nullptr : &tessel::constant(dropped);
  std::string text;
  for (const std::string_view line : tessel::split(whole, "\n")) {
    if (passes(line, keep, drop)) text.append(line).append(1, '\n');
  }
  return text;
}

std::string card_address(unsigned bundles, unsigned card) {
  constexpr unsigned route_processors = 2;
  return router_of(bundles).router.nodes.at(route_processors + card).address;
}

}  // namespace bench
