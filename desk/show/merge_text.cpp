#include <fmt/format.h>

#include <algorithm>

#include "desk/show/figures.h"
#include "desk/show/merge.h"

namespace desk {

namespace {

constexpr std::size_t causes_of_a_router = 3;
constexpr std::size_t marks_of_a_router = 3;
constexpr std::size_t gap = 2;  // between two columns

struct view {
  const std::vector<merged_router>& of;
  const summary_options& how;
  const terminal& on;
  std::ostream& out;
};

// ---- The table ----------------------------------------------------------------------------------

struct column {
  std::string_view head;
  std::vector<std::string> cells;
  bool is_number = false;
  bool may_go = false;  // where the terminal is too narrow for all
  [[nodiscard]] std::size_t width() const {
    std::size_t widest = head.size();
    for (const std::string& cell : cells) widest = std::max(widest, columns_of(cell));
    return widest;
  }
};

column column_of(const view& v, std::string_view head, auto cell_of) {
  column made;
  made.head = head;
  for (const merged_router& one : v.of) made.cells.push_back(cell_of(one));
  return made;
}

// Nothing is known of a router whose report was not read.
column numbers_of(const view& v, std::string_view head, auto number_of) {
  column made = column_of(v, head, [&](const merged_router& one) {
    return one.trouble.empty() ? std::to_string(number_of(one)) : std::string("-");
  });
  made.is_number = true;
  return made;
}

std::string or_dash(const std::string& text) {
  return text.empty() ? std::string("-") : text;
}

std::vector<column> table_of(const view& v) {
  std::vector<column> made;
  made.push_back(column_of(v, "router", [](const auto& one) { return printable(one.name); }));
  made.push_back(column_of(
      v, "type", [](const auto& one) { return or_dash(printable(one.of.of.router_type)); }));
  made.back().may_go = true;
  made.push_back(column_of(v, "started", [](const auto& one) {
    const std::string& started = one.of.of.started;
    return or_dash(printable(started.substr(0, started.find(','))));
  }));
  made.back().may_go = true;
  const auto bundles = [](verdict is) {
    return [is](const merged_router& one) { return total(one.of, is); };
  };
  made.push_back(numbers_of(v, "agree", bundles(verdict::agrees)));
  made.push_back(numbers_of(v, "differ", bundles(verdict::differs)));
  made.push_back(numbers_of(v, "not judged", bundles(verdict::not_judged)));
  made.push_back(numbers_of(v, "findings", findings_of));
  made.push_back(column_of(v, "new", [](const merged_router& one) {
    const auto number = new_findings_of(one);
    return number ? std::to_string(*number) : std::string("-");
  }));
  made.back().is_number = true;
  made.push_back(column_of(
      v, "verdict", [](const auto& one) { return std::string(word_for(standing_of(one))); }));
  return made;
}

void drop_columns(const view& v, std::vector<column>& columns) {
  const auto width = [&] {
    std::size_t all = 0;
    for (const column& one : columns) all += one.width() + gap;
    return all - gap;
  };
  // A column in which nothing is known only takes room.
  std::erase_if(columns, [](const column& one) {
    return one.may_go && std::all_of(one.cells.begin(), one.cells.end(),
                                     [](const std::string& cell) { return cell == "-"; });
  });
  while (width() > v.on.width) {
    const auto least =
        std::find_if(columns.begin(), columns.end(), [](const column& one) { return one.may_go; });
    if (least == columns.end()) return;
    columns.erase(least);
  }
}

tone tone_of(standing is) {
  if (is == standing::agrees) return tone::good;
  return is == standing::differs ? tone::bad : tone::doubt;
}

std::string aligned(const column& in, std::string_view text, std::size_t width) {
  const std::string blanks(width - std::min(width, columns_of(text)), ' ');
  return in.is_number ? blanks + std::string(text) : std::string(text) + blanks;
}

void show_table(const view& v) {
  std::vector<column> columns = table_of(v);
  drop_columns(v, columns);
  std::vector<std::size_t> widths;
  widths.reserve(columns.size());
  for (const column& one : columns) widths.push_back(one.width());
  const std::string between(gap, ' ');
  for (std::size_t i = 0; i + 1 < columns.size(); ++i)
    v.out << aligned(columns[i], columns[i].head, widths[i]) << between;
  v.out << columns.back().head << '\n';
  for (std::size_t row = 0; row < v.of.size(); ++row) {
    for (std::size_t i = 0; i + 1 < columns.size(); ++i)
      v.out << aligned(columns[i], columns[i].cells[row], widths[i]) << between;
    v.out << toned(v.on, tone_of(standing_of(v.of[row])), columns.back().cells[row]) << '\n';
  }
}

// ---- The routers --------------------------------------------------------------------------------

std::string_view mark_of(const std::vector<bool>& is_new, std::size_t at) {
  return at < is_new.size() && is_new[at] ? "new: " : "";
}

void show_cause(const view& v, const merged_router& of, std::size_t at) {
  constexpr std::size_t margin = 2;
  constexpr std::size_t deeper = 4;
  const cause& why = of.of.causes[at];
  const std::string title = fmt::format("{}{}", mark_of(of.new_causes, at), why.title);
  v.out << std::string(margin, ' ') << wrapped(printable(title), v.on.width, deeper) << '\n';
  if (!why.next.empty())
    v.out << std::string(deeper, ' ') << "next: " << printable(why.next) << '\n';
  if (!v.how.shows_all) return;
  for (const std::size_t index : why.findings) {
    const finding& one = of.of.of.findings[index];
    const std::string line = one.line == 0 ? one.log : fmt::format("{}:{}", one.log, one.line);
    v.out << std::string(deeper, ' ')
          << printable(fmt::format("{}{} {} {}", mark_of(of.new_findings, index), one.code, line,
                                   one.text))
          << '\n';
  }
}

void show_marks(const view& v, const std::vector<std::string>& marks) {
  const std::size_t shown =
      v.how.shows_all ? marks.size() : std::min(marks.size(), marks_of_a_router);
  for (std::size_t i = 0; i < shown; ++i)
    v.out << "  " << toned(v.on, tone::doubt, "partial: ") << printable(marks[i]) << '\n';
  if (shown < marks.size()) v.out << fmt::format("  partial: and {} more\n", marks.size() - shown);
}

void show_router(const view& v, const merged_router& of) {
  const std::vector<cause>& causes = of.of.causes;
  if (of.trouble.empty() && causes.empty() && of.of.of.marks.empty()) return;
  v.out << '\n' << toned(v.on, tone::strong, printable(of.name)) << '\n';
  if (!of.trouble.empty()) v.out << "  " << wrapped(printable(of.trouble), v.on.width, 4) << '\n';
  show_marks(v, of.of.of.marks);
  // What is new comes first, so that it is not among those that are left out.
  std::vector<std::size_t> order;
  for (std::size_t i = 0; i < causes.size(); ++i) order.push_back(i);
  std::stable_partition(order.begin(), order.end(),
                        [&](std::size_t i) { return !mark_of(of.new_causes, i).empty(); });
  const std::size_t shown =
      v.how.shows_all ? order.size() : std::min(order.size(), causes_of_a_router);
  for (std::size_t i = 0; i < shown; ++i) show_cause(v, of, order[i]);
  if (const std::size_t more = order.size() - shown; more != 0)
    v.out << fmt::format("  and {} more cause{}; --all shows everything\n", more,
                         more == 1 ? "" : "s");
}

}  // namespace

void show_merged_text(const std::vector<merged_router>& routers, const summary_options& how,
                      const terminal& on, std::ostream& out) {
  const view v{routers, how, on, out};
  out << wrapped(sentence_for(routers), on.width, 0) << "\n\n";
  show_table(v);
  if (how.is_short) return;
  for (const merged_router& one : routers) show_router(v, one);
}

}  // namespace desk
