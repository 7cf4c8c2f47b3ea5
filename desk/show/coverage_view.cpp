#include "desk/show/coverage_view.h"

#include <fmt/format.h>

#include <algorithm>

#include "desk/model/coverage.h"
#include "desk/show/phrases.h"

namespace desk {

namespace {

tone tone_of(const coverage& one) {
  if (one.state == coverage_state::read) return tone::good;
  return is_hole(one) ? tone::bad : tone::faint;
}

// "0-3": the chips of one node of which the same is to be said; moves on to the last of them.
std::string npus_alike(const std::vector<coverage>& all, std::size_t& at) {
  const coverage& first = all[at];
  if (first.npu.empty()) return {};
  while (at + 1 < all.size() && all[at + 1].node == first.node && all[at + 1].of == first.of &&
         all[at + 1].state == first.state && all[at + 1].reason == first.reason)
    ++at;
  return all[at].npu == first.npu ? first.npu : fmt::format("{}-{}", first.npu, all[at].npu);
}

std::string ending_of(const journal_command& one, const journal& in) {
  if (!one.failed.empty()) return printable(one.failed);
  if (!one.has_ended)
    return in.lacks_lines ? "the journal has lost how it ended" : "had not ended when the run did";
  if (one.is_timed_out) return "ended, because its time was over";
  return one.signal ? fmt::format("ended by signal {}", *one.signal)
                    : fmt::format("exit status {}", *one.status);
}

// What the journal adds: how much was asked, and what took longest.
void show_commands(const journal& of, const terminal& on, std::ostream& out) {
  const auto slowest =
      std::max_element(of.commands.begin(), of.commands.end(),
                       [](const auto& a, const auto& b) { return a.seconds < b.seconds; });
  std::string words = fmt::format("{} commands in {:.1f} s", of.commands.size(), of.seconds);
  if (slowest != of.commands.end())
    words += fmt::format("; the slowest took {:.1f} s: {}", slowest->seconds,
                         printable(shown_call(*slowest)));
  out << '\n' << wrapped(words, on.width, 0) << '\n';
  for (const journal_command& one : of.commands) {
    const bool ended_well =
        one.has_ended && !one.signal && !one.is_timed_out && one.status.value_or(0) <= 1;
    if (one.failed.empty() && ended_well) continue;
    const std::string ending =
        fmt::format("{}: {}", printable(shown_call(one)), ending_of(one, of));
    out << "  " << wrapped(ending, on.width, 4) << '\n';
  }
}

constexpr std::string_view sentence_for_chips =
    "Of each chip the logs show the table of LAGs only; with a journal or a capture the report "
    "knows "
    "of the others, too.";

bool has_lags_only(const run& of) {
  if (of.log_of_commands || of.keeps_questions) return false;
  return std::any_of(of.covered.begin(), of.covered.end(), [](const coverage& one) {
    return one.of == layer::bcm && one.state == coverage_state::read;
  });
}

}  // namespace

void show_marks(const run& of, const terminal& on, std::ostream& out) {
  if (!of.marks.empty()) out << '\n';
  for (const std::string& mark : of.marks)
    out << toned(on, tone::doubt, "partial: ") << printable(mark) << '\n';
}

void show_coverage(const judged_run& of, const terminal& on, std::ostream& out) {
  std::size_t widest = std::string_view("node").size();
  for (const coverage& one : of.of.covered)
    widest = std::max(widest, columns_of(printable(one.node)));
  const std::size_t place = widest + 1;
  out << fmt::format("{} {} {} {} {}\n", padded("node", place), padded("NPU", 4),
                     padded("layer", 7), padded("state", 15), "why");
  for (std::size_t i = 0; i < of.of.covered.size(); ++i) {
    const coverage& one = of.of.covered[i];
    const std::string npus = npus_alike(of.of.covered, i);
    const std::string_view node = one.node.empty() ? std::string_view("router") : one.node;
    const std::string head = fmt::format("{} {} {} ", padded(printable(node), place),
                                         padded(printable(npus), 4), padded(word_for(one.of), 7));
    out << head << toned(on, tone_of(one), padded(word_for(one.state), 15)) << ' '
        << wrapped(printable(one.reason), on.width, head.size() + 16) << '\n';
  }
  if (of.of.log_of_commands) show_commands(*of.of.log_of_commands, on, out);
  if (of.of.stale == stale_search::skipped)
    out << '\n' << wrapped(sentence_for_stale, on.width, 0) << '\n';
  show_marks(of.of, on, out);
  const auto holes = std::count_if(of.of.covered.begin(), of.of.covered.end(), is_hole);
  const bool is_partial = !of.of.marks.empty();
  const std::string words =
      holes == 0
          ? fmt::format("Everything that was asked was read{}.",
                        is_partial ? ", as far as these logs show it" : "")
          : fmt::format("{} of {} places were not wholly read; what they hold is not judged.",
                        holes, of.of.covered.size());
  out << '\n' << wrapped(words, on.width, 0) << '\n';
  if (holes == 0 && has_lags_only(of.of)) out << wrapped(sentence_for_chips, on.width, 0) << '\n';
}

}  // namespace desk
