#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "command_line/one_line.h"
#include "desk/commands/commands.h"
#include "desk/judge/judging.h"
#include "desk/judge/series.h"
#include "desk/read/line_reader.h"
#include "desk/show/figures.h"
#include "desk/show/merge.h"
#include "desk/show/output.h"
#include "desk/store/report_file.h"

namespace desk {

namespace {

// A report that was read, with what is needed to compare it with a later one.
struct read_file {
  std::string file;
  judged_run of;
  run_record record;
  std::optional<std::int64_t> start;
};

// "birch-7" of "reports/birch-7.json".
std::string name_of_file(const std::string& file) {
  constexpr std::string_view ending = ".json";
  std::string name = file.substr(file.rfind('/') + 1);
  if (name.size() > ending.size() && name.ends_with(ending))
    name.resize(name.size() - ending.size());
  return name;
}

// What was read, by the name of the router, and a router for each file that cannot be read.
struct intake {
  std::map<std::string, std::vector<read_file>> by_router;
  std::vector<read_file> nameless;
  std::vector<merged_router> routers;
};

void take_file(intake& in, const std::string& file) {
  try {
    read_file made;
    made.file = file;
    made.of = read_report(file);
    made.record = record_of(made.of);
    made.start = start_of(made.of.of);
    keep_for_merge(made.of);
    const std::string& name = made.of.of.router;
    // Files of one name need not be of one router.
    if (name.empty())
      in.nameless.push_back(std::move(made));
    else
      in.by_router[name].push_back(std::move(made));
  } catch (const read_error& error) {
    std::fprintf(stderr, "tessel-report: %s\n", command_line::one_line(error.what()).c_str());
    merged_router& unread = in.routers.emplace_back();
    unread.name = name_of_file(file);
    unread.file = file;
    unread.trouble = error.what();
  }
}

// What the run before did not find is new, also where it could not have found it.
void mark_new(merged_router& of, read_file& latest, read_file& before) {
  std::vector<run_record> runs;
  runs.push_back(std::move(before.record));
  runs.push_back(std::move(latest.record));
  const series both = track(std::move(runs));
  std::set<std::string> prints;
  std::set<std::string> silent;  // causes without a message
  for (const tracked_finding& one : both.findings) {
    if (change_of(one) != change::is_new) continue;
    prints.insert(one.latest.fingerprint);
    if (one.latest.count == 0) silent.insert(one.latest.cause);
  }
  for (const finding& one : of.of.of.findings)
    of.new_findings.push_back(prints.contains(fingerprint(one)));
  for (const cause& why : of.of.causes)
    of.new_causes.push_back(why.findings.empty()
                                ? silent.contains(why.title)
                                : std::all_of(why.findings.begin(), why.findings.end(),
                                              [&](std::size_t i) { return of.new_findings[i]; }));
}

// The latest report counts, of equal ones the one that was named last; an unknown start is early.
merged_router router_of(const std::string& name, std::vector<read_file>& files) {
  std::stable_sort(files.begin(), files.end(),
                   [](const read_file& a, const read_file& b) { return a.start < b.start; });
  read_file& latest = files.back();
  merged_router made;
  made.name = name;
  made.file = latest.file;
  made.of = std::move(latest.of);
  made.is_open = latest.record.is_open;
  read_file* before = nullptr;
  for (std::size_t i = files.size() - 1; i-- > 0;) {
    if (files[i].start == latest.start) {
      made.of.of.marks.push_back(fmt::format(
          "{} is a report of the same router {}, and was left out", files[i].file,
          latest.start ? "and start" : "without a start, so nobody knows which is later"));
      continue;
    }
    if (before == nullptr) before = &files[i];
    made.earlier.push_back({files[i].file, files[i].of.of.started});
  }
  if (before != nullptr) mark_new(made, latest, *before);
  return made;
}

// Each file is a router: by the file's name, or by its whole path where another has that name.
void add_nameless(intake& in) {
  std::map<std::string, std::size_t> uses;
  for (const merged_router& one : in.routers) ++uses[one.name];
  for (const read_file& one : in.nameless) ++uses[name_of_file(one.file)];
  for (read_file& one : in.nameless) {
    std::string name = name_of_file(one.file);
    if (uses[name] > 1) name = one.file;
    std::vector<read_file> alone;
    alone.push_back(std::move(one));
    in.routers.push_back(router_of(name, alone));
  }
}

merge_format format_of(const report_options& options) {
  if (options.as != merge_format::by_name) return options.as;
  if (options.output.ends_with(".json")) return merge_format::json;
  return options.output.ends_with(".html") ? merge_format::html : merge_format::text;
}

void show(const std::vector<merged_router>& routers, const report_options& options,
          std::ostream& out) {
  const merge_format as = format_of(options);
  const bool is_screen = as == merge_format::text && options.output.empty();
  const summary_options how{options.is_short, options.shows_all};
  if (is_screen) return show_merged_text(routers, how, standard_output(), out);
  write_output(options.output, [&](std::ostream& to) {
    if (as == merge_format::text) show_merged_text(routers, how, {}, to);
    if (as == merge_format::json) show_merged_json(routers, to);
    if (as == merge_format::html) show_merged_html(routers, to);
  });
}

bool has_new(const merged_router& of) {
  if (new_findings_of(of).value_or(0) != 0) return true;
  for (std::size_t i = 0; i < of.new_causes.size(); ++i)
    if (of.new_causes[i] && is_difference(of.of.of, of.of.causes[i])) return true;
  return false;
}

int status_of(const std::vector<merged_router>& routers, fail_on when) {
  if (when == fail_on::never) return status_nothing_found;
  bool is_found = false;
  bool is_open = false;
  for (const merged_router& one : routers) {
    const standing is = standing_of(one);
    const bool is_wrong = is == standing::differs || is == standing::notable;
    is_found = is_found || (is_wrong && (when == fail_on::any || has_new(one)));
    is_open = is_open || one.is_open || is == standing::not_judged || is == standing::not_read;
  }
  if (is_found) return status_findings;
  return is_open ? status_not_judged : status_nothing_found;
}

}  // namespace

int merge_command(const report_options& options, std::ostream& out) {
  intake in;
  for (const std::string& file : options.reports) take_file(in, file);
  if (in.by_router.empty() && in.nameless.empty())
    return status_wrong_call;  // each file has had its line
  for (auto& [name, files] : in.by_router) in.routers.push_back(router_of(name, files));
  add_nameless(in);
  sort_routers(in.routers);
  show(in.routers, options, out);
  return status_of(in.routers, options.when);
}

}  // namespace desk
