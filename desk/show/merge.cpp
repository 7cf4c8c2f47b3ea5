#include "desk/show/merge.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <tuple>
#include <utility>

#include "desk/model/coverage.h"
#include "desk/show/figures.h"
#include "desk/show/html_marks.h"

namespace desk {

namespace {

std::size_t number_of(const std::vector<merged_router>& routers, standing is) {
  return static_cast<std::size_t>(
      std::count_if(routers.begin(), routers.end(),
                    [&](const merged_router& one) { return standing_of(one) == is; }));
}

}  // namespace

void keep_for_merge(judged_run& of) {
  std::vector<object>().swap(of.of.objects);
  std::vector<node>().swap(of.of.nodes);
  of.of.index.clear();
  of.of.debug_notes.clear();
  of.of.complaints.clear();
  std::erase_if(of.of.covered, [](const coverage& one) { return !is_hole(one); });
  for (cause& why : of.causes)
    for (difference& one : why.differences) std::vector<witness>().swap(one.witnesses);
  for (bundle_verdict& one : of.bundles) std::vector<std::string>().swap(one.not_judged);
}

standing standing_of(const merged_router& of) {
  if (!of.trouble.empty()) return standing::not_read;
  const int status = exit_status(of.of);
  if (status == 0) return standing::agrees;
  if (status != 1) return standing::not_judged;
  const bool differs = total(of.of, verdict::differs) != 0 || mark_of(of.of) == mark::fault;
  return differs ? standing::differs : standing::notable;
}

std::string_view word_for(standing is) {
  switch (is) {
    case standing::agrees:
      return "agrees";
    case standing::not_judged:
      return "not judged";
    case standing::not_read:
      return "not read";
    case standing::notable:
      return "to look at";
    case standing::differs:
      break;
  }
  return "differs";
}

std::size_t findings_of(const merged_router& of) {
  const auto& all = of.of.of.findings;
  return static_cast<std::size_t>(std::count_if(all.begin(), all.end(), counts_as_finding));
}

std::optional<std::size_t> new_findings_of(const merged_router& of) {
  if (of.earlier.empty()) return std::nullopt;
  std::size_t number = 0;
  for (std::size_t i = 0; i < of.new_findings.size(); ++i)
    if (of.new_findings[i] && counts_as_finding(of.of.of.findings[i])) ++number;
  return number;
}

void sort_routers(std::vector<merged_router>& routers) {
  std::vector<std::pair<int, std::size_t>> order;
  for (std::size_t i = 0; i < routers.size(); ++i)
    order.emplace_back(-static_cast<int>(standing_of(routers[i])), i);
  std::sort(order.begin(), order.end(), [&](const auto& a, const auto& b) {
    const merged_router& x = routers[a.second];
    const merged_router& y = routers[b.second];
    return std::tie(a.first, x.name, x.file) < std::tie(b.first, y.name, y.file);
  });
  std::vector<merged_router> sorted;
  sorted.reserve(routers.size());
  for (const auto& [rank, at] : order) sorted.push_back(std::move(routers[at]));
  routers = std::move(sorted);
}

std::string sentence_for(const std::vector<merged_router>& routers) {
  constexpr std::array from_best = {standing::agrees, standing::differs, standing::notable,
                                    standing::not_judged, standing::not_read};
  std::string text = fmt::format("{} router{}: ", routers.size(), routers.size() == 1 ? "" : "s");
  std::vector<std::string> parts;
  for (const standing is : from_best) {
    const std::size_t number = number_of(routers, is);
    const bool is_verb = is == standing::agrees || is == standing::differs;
    std::string_view word = word_for(is);
    if (is_verb && number != 1) word.remove_suffix(1);
    if (is_verb || number != 0) parts.push_back(fmt::format("{} {}", number, word));
  }
  std::size_t findings = 0;
  std::optional<std::size_t> fresh;
  for (const merged_router& one : routers) {
    findings += findings_of(one);
    if (const auto more = new_findings_of(one)) fresh = fresh.value_or(0) + *more;
  }
  text +=
      fmt::format("{}. {} finding{}", fmt::join(parts, ", "), findings, findings == 1 ? "" : "s");
  if (fresh) text += fmt::format(", {} new", *fresh);
  return text + ".";
}

}  // namespace desk
