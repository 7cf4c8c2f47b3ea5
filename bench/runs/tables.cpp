#include "runs/tables.h"

#include <fmt/format.h>

#include <functional>
#include <optional>

namespace bench {

namespace {

using namespace value_name;

constexpr double mega = 1e6;
constexpr double kibi = 1024;

std::string on_or_off(bool hqos) {
  return hqos ? "on" : "off";
}

std::string router_of(const result& r) {
  return fmt::format("| {} | {} | {} |", r.size, r.family, on_or_off(r.hqos));
}

double own(const measures& run) {
  return run.value(own_user) + run.value(own_system);
}

double floors(const measures& run) {
  return run.value(matching) + run.value(reading) + run.value(starting) + run.value(writing);
}

double allowed_kib(const measures& run) {
  return 2 * run.value(text_bytes) / kibi + 64 * kibi;
}

double allowed_threads(const measures& run) {
  return 64 + run.value(most_commands);
}

double allowed_files(const measures& run) {
  return 32 + run.value(most_commands);
}

std::optional<double> phase_time(const result& r, const std::string& phase) {
  for (const phase_cost& each : r.run.phases)
    if (each.name == phase) return each.own.sum();
  return std::nullopt;
}

std::vector<const result*> same_router(const std::vector<result>& results, const result& wanted) {
  std::vector<const result*> found;
  for (const result& each : results)
    if (each.family == wanted.family && each.hqos == wanted.hqos) found.push_back(&each);
  return found;
}

// Of a phase, from L to XL.
std::optional<double> growth(const std::vector<const result*>& sizes, const std::string& phase) {
  std::optional<double> half;
  std::optional<double> whole;
  for (const result* each : sizes) {
    if (each->size == "L") half = phase_time(*each, phase);
    if (each->size == "XL") whole = phase_time(*each, phase);
  }
  // The ratio of shorter times says nothing.
  constexpr double shortest = 0.01;
  if (!half || !whole || *half < shortest) return std::nullopt;
  return *whole / *half;
}

bool is_large(const result& r) {
  return r.size == "L" || r.size == "XL";
}

std::string name_of(const result& r) {
  return fmt::format("{} {} {}", r.size, r.family, r.hqos ? "hqos" : "no hqos");
}

struct limit {
  std::string what;
  double allowed = 0;
  std::string unit;
  // The value of a router, or nothing if the limit is not for it.
  std::function<std::optional<double>(const result&)> value;
};

std::optional<double> if_large(const result& r, double value) {
  return is_large(r) ? std::optional(value) : std::nullopt;
}

std::optional<double> if_smallest(const result& r, double value) {
  return r.size == "S" ? std::optional(value) : std::nullopt;
}

std::optional<double> fastest_growth(const std::vector<result>& results, const result& r) {
  std::optional<double> fastest;
  if (r.size != "XL") return fastest;
  for (const phase_cost& phase : r.run.phases) {
    const auto grown = growth(same_router(results, r), phase.name);
    if (grown && (!fastest || *grown > *fastest)) fastest = grown;
  }
  return fastest;
}

// With late tools only the time beside them counts.
std::vector<limit> limits_of_late_runs() {
  return {{"wall time, of the longest chain", 1.05, "",
           [](const result& r) { return std::optional(r.run.value(wall) / r.chain); }}};
}

std::vector<limit> limits(const std::vector<result>& results) {
  if (!results.empty() && results.front().chain > 0) return limits_of_late_runs();
  const auto share = [](const char* name, double (*allowed)(const measures&)) {
    return [=](const result& r) { return std::optional(r.run.value(name) / allowed(r.run)); };
  };
  return {
      {"own CPU on L and XL, of the floors", 3, "",
       [](const result& r) { return if_large(r, own(r.run) / floors(r.run)); }},
      {"growth of a phase from L to XL", 2.2, "",
       [&](const result& r) { return fastest_growth(results, r); }},
      {"peak memory, of twice the text and 64 MiB", 1, "", share(peak_kib, allowed_kib)},
      {"threads started, of 64 and the most commands at once", 1, "",
       share(threads, allowed_threads)},
      {"open files, of 32 and the most commands at once", 1, "", share(most_files, allowed_files)},
      {"first line on S", 20, " ms",
       [](const result& r) { return if_smallest(r, r.run.value(first_line) * 1e3); }},
      {"own CPU on S", 30, " ms", [](const result& r) { return if_smallest(r, own(r.run) * 1e3); }},
  };
}

std::string limit_row(const limit& each, const std::vector<result>& results) {
  std::optional<double> worst;
  std::string place;
  for (const result& r : results) {
    const std::optional<double> value = each.value(r);
    if (!value || (worst && *value <= *worst)) continue;
    worst = value;
    place = name_of(r);
  }
  if (!worst) return {};
  return fmt::format("| {} | {}{} | {:.2f}{} | {} | {} |\n", each.what, each.allowed, each.unit,
                     *worst, each.unit, place, *worst <= each.allowed ? "yes" : "no");
}

std::string phase_table(const std::vector<const result*>& sizes) {
  std::string text = fmt::format("\nOwn processor time of the phases in ms, chips {}, hqos {}:\n\n",
                                 sizes.front()->family, on_or_off(sizes.front()->hqos));
  std::string head = "| phase |";
  std::string line = "| --- |";
  for (const result* each : sizes) {
    head += fmt::format(" {} |", each->size);
    line += " ---: |";
  }
  text += head + " L→XL |\n" + line + " ---: |\n";
  for (const phase_cost& phase : sizes.front()->run.phases) {
    text += fmt::format("| {} |", phase.name);
    for (const result* each : sizes)
      text += fmt::format(" {:.1f} |", phase_time(*each, phase.name).value_or(0) * 1e3);
    const auto grown = growth(sizes, phase.name);
    text += grown ? fmt::format(" {:.2f} |\n", *grown) : " – |\n";
  }
  return text;
}

}  // namespace

std::string cost_head() {
  return "| router | chips | hqos | text MB | own CPU s | user | system | floors s | match | read "
         "| start | write | CPU / floors | wall s | first line ms | tools CPU s |\n"
         "| --- | --- | --- | ---: | ---: | ---: | ---: | ---: | ---: | ---: | ---: | ---: | ---: "
         "| "
         "---: | ---: | ---: |\n";
}

std::string cost_row(const result& r) {
  const measures& run = r.run;
  return fmt::format(
      "{} {:.1f} | {:.3f} | {:.3f} | {:.3f} | {:.3f} | {:.3f} | {:.3f} | {:.3f} | {:.3f} | {:.2f} "
      "| {:.2f} | {:.1f} | {:.2f} |\n",
      router_of(r), run.value(text_bytes) / mega, own(run), run.value(own_user),
      run.value(own_system), floors(run), run.value(matching), run.value(reading),
      run.value(starting), run.value(writing), own(run) / floors(run), run.value(wall),
      run.value(first_line) * 1e3, run.value(tools));
}

std::string count_head() {
  return "| router | chips | hqos | peak MiB | of allowed | threads started | of allowed | most "
         "alive | most files | of allowed | commands | most at once | snapshot MB |\n"
         "| --- | --- | --- | ---: | ---: | ---: | ---: | ---: | ---: | ---: | ---: | ---: | ---: "
         "|\n";
}

std::string count_row(const result& r) {
  const measures& run = r.run;
  return fmt::format(
      "{} {:.1f} | {:.2f} | {:.0f} | {:.2f} | {:.0f} | {:.0f} | {:.2f} | {:.0f} | {:.0f} | {:.1f} "
      "|\n",
      router_of(r), run.value(peak_kib) / kibi, run.value(peak_kib) / allowed_kib(run),
      run.value(threads), run.value(threads) / allowed_threads(run), run.value(most_threads),
      run.value(most_files), run.value(most_files) / allowed_files(run), run.value(commands),
      run.value(most_commands), run.value(snapshot_bytes) / mega);
}

std::string phase_tables(const std::vector<result>& results) {
  std::string text;
  for (const result& each : results) {
    const auto sizes = same_router(results, each);
    if (sizes.front() == &each) text += phase_table(sizes);
  }
  return text;
}

std::string limit_table(const std::vector<result>& results) {
  std::string text =
      "| limit | allowed | worst | router | kept |\n| --- | ---: | ---: | --- | --- |\n";
  for (const limit& each : limits(results)) text += limit_row(each, results);
  return text;
}

std::string chain_head() {
  return "| router | chips | hqos | wall s | longest chain s | wall / chain |\n"
         "| --- | --- | --- | ---: | ---: | ---: |\n";
}

std::string chain_row(const result& r) {
  const double taken = r.run.value(wall);
  return fmt::format("{} {:.3f} | {:.3f} | {:.3f} |\n", router_of(r), taken, r.chain,
                     taken / r.chain);
}

}  // namespace bench
