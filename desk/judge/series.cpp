#include "desk/judge/series.h"

#include <algorithm>
#include <unordered_map>
#include <utility>

namespace desk {

series track(std::vector<run_record> runs) {
  series made;
  std::unordered_map<std::string, std::size_t> known;  // by fingerprint
  const std::size_t count = runs.size();
  for (std::size_t run = count; run-- > 0;) {
    for (known_finding& one : runs[run].findings) {
      const auto [at, is_new] = known.try_emplace(one.fingerprint, made.findings.size());
      if (is_new) {
        tracked_finding& tracked = made.findings.emplace_back();
        tracked.in.assign(count, sighting::absent);
        tracked.values_in.resize(count);
      }
      tracked_finding& tracked = made.findings[at->second];
      tracked.in[run] = sighting::seen;
      tracked.values_in[run] = one.values;
      if (is_new) tracked.latest = std::move(one);
    }
    runs[run].findings.clear();
  }
  for (tracked_finding& one : made.findings)
    for (std::size_t run = 0; run < count; ++run)
      if (one.in[run] == sighting::absent && !would_show(runs[run], one.latest))
        one.in[run] = sighting::not_judged;
  made.runs = std::move(runs);
  return made;
}

change change_of(const tracked_finding& one) {
  const std::size_t last = one.in.size() - 1;
  if (one.in[last] == sighting::absent) return change::gone;
  if (one.in[last] == sighting::not_judged) return change::not_judged;
  // A run that did not judge it says nothing about it.
  for (std::size_t run = last; run-- > 0;) {
    if (one.in[run] == sighting::not_judged) continue;
    if (one.in[run] == sighting::seen)
      return one.values_in[run] == one.values_in[last] ? change::persisting : change::changed;
    const auto earlier = one.in.begin() + static_cast<std::ptrdiff_t>(run);
    return std::find(one.in.begin(), earlier, sighting::seen) != earlier ? change::back
                                                                         : change::is_new;
  }
  return change::is_new;
}

bool may_be_older(const tracked_finding& one) {
  const auto first = std::find(one.in.begin(), one.in.end(), sighting::seen);
  return first != one.in.begin() && *(first - 1) == sighting::not_judged;
}

bool is_confirmed(const tracked_finding& one) {
  return std::all_of(one.in.begin(), one.in.end(),
                     [](sighting in) { return in == sighting::seen; });
}

}  // namespace desk
