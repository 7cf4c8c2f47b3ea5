#include "desk/show/dossier.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <map>
#include <set>
#include <tuple>

#include "desk/judge/differences.h"
#include "desk/model/coverage.h"
#include "desk/model/numbers.h"

namespace desk {

namespace {

constexpr std::array shown_fields = {
    field::type,        field::encapsulation, field::handle,   field::mac,    field::mtu,
    field::lag_id,      field::lif,           field::rif,      field::npu,    field::member_id,
    field::system_port, field::vlan_domain,   field::deletion, field::weight, field::presence};

// ---- Which bundle -------------------------------------------------------------------------------

bool all_digits(std::string_view text) {
  return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
}

std::optional<std::string> bundle_with_value(const run& of, std::string_view word) {
  const auto wanted = number_in(word);
  if (!wanted) return {};
  for (const field what : {field::handle, field::lag_id}) {
    for (const object& one : of.objects)
      for (const cell& c : one.cells)
        if (c.what == what && number_in(of.texts.text(c.value)) == wanted)
          return of.objects[one.bundle].name;
  }
  for (const auto& [lag, bundles] : of.lag_ids)
    if (number_in(of.texts.text(lag)) == wanted && !bundles.empty())
      return of.objects[of.objects[bundles.front()].bundle].name;
  return {};
}

// ---- A table of one object ----------------------------------------------------------------------

// Where a column's values come from; the order of the columns.
struct column {
  layer of = layer::none;
  std::string node;
  auto operator<=>(const column&) const = default;
};

// The values of one column, each with its NPUs; of equal ones the first notation.
struct shown_value {
  std::string text;
  std::string compared;
  std::vector<std::string> npus;
  bool is_odd = false;
};
using shown_cell = std::vector<shown_value>;

struct table {
  std::vector<column> columns;
  std::vector<field> rows;
  std::map<std::pair<field, column>, shown_cell> cells;
};

column column_of(const witness& one) {
  return {layer_of(one.from), one.node};
}

void add_value(shown_cell& cell, field what, const witness& one) {
  const std::string compared = one.is == witness::state::holds ? compared_form(what, one.value)
                                                               : std::string(words_for(one));
  auto same = std::find_if(cell.begin(), cell.end(), [&](const shown_value& v) {
    return v.compared == compared && v.is_odd == one.is_odd;
  });
  if (same == cell.end())
    same = cell.insert(cell.end(), {printable(words_for(one)), compared, {}, one.is_odd});
  if (!one.npu.empty() &&
      std::find(same->npus.begin(), same->npus.end(), one.npu) == same->npus.end())
    same->npus.push_back(one.npu);
}

// "present", or "present (NPU 0, 1), missing* (NPU 2)".
std::string text_of(const shown_cell& cell) {
  std::vector<std::string> parts;
  for (const shown_value& one : cell) {
    std::string part = one.text + (one.is_odd ? "*" : "");
    if (cell.size() > 1 && !one.npus.empty())
      part += fmt::format(" (NPU {})", fmt::join(one.npus, ", "));
    parts.push_back(std::move(part));
  }
  return fmt::format("{}", fmt::join(parts, " / "));
}

bool has_odd(const shown_cell& cell) {
  return std::any_of(cell.begin(), cell.end(), [](const shown_value& v) { return v.is_odd; });
}

void add_row(table& into, const difference& of) {
  if (of.witnesses.empty()) return;
  if (std::find(into.rows.begin(), into.rows.end(), of.what) == into.rows.end())
    into.rows.push_back(of.what);
  for (const witness& one : of.witnesses) {
    const column at = column_of(one);
    if (std::find(into.columns.begin(), into.columns.end(), at) == into.columns.end())
      into.columns.push_back(at);
    add_value(into.cells[{of.what, at}], of.what, one);
  }
}

table table_of(const judged_run& of, const object& one, const object_ref& name) {
  table made;
  for (const field what : shown_fields) add_row(made, compare_field(of.of, one, what));
  for (const cause& c : of.causes)
    for (const difference& d : c.differences)
      if (d.object == name && d.what == field::presence) add_row(made, d);
  std::sort(made.columns.begin(), made.columns.end());
  return made;
}

std::string heading_of(const column& of) {
  std::string words(word_for(of.of));
  if (!of.node.empty()) words += " " + of.node;
  return printable(words);
}

std::size_t width_of(const table& of, const column& at) {
  std::size_t width = columns_of(heading_of(at));
  for (const field row : of.rows) {
    const auto cell = of.cells.find({row, at});
    if (cell != of.cells.end()) width = std::max(width, columns_of(text_of(cell->second)));
  }
  return width + 2;
}

constexpr std::size_t label_width = 16;

void show_block(const table& of, std::size_t from, std::size_t to, const terminal& on,
                std::ostream& out) {
  out << padded("", label_width);
  for (std::size_t i = from; i < to; ++i)
    out << toned(on, tone::strong, padded(heading_of(of.columns[i]), width_of(of, of.columns[i])));
  out << '\n';
  for (const field row : of.rows) {
    std::string line;
    bool has_cell = false;
    for (std::size_t i = from; i < to; ++i) {
      const auto cell = of.cells.find({row, of.columns[i]});
      has_cell = has_cell || cell != of.cells.end();
      const bool is_odd = cell != of.cells.end() && has_odd(cell->second);
      const std::string text = cell == of.cells.end() ? "-" : text_of(cell->second);
      line +=
          toned(on, is_odd ? tone::bad : tone::plain, padded(text, width_of(of, of.columns[i])));
    }
    if (!has_cell) continue;
    line.erase(line.find_last_not_of(' ') + 1);
    out << padded(word_for(row), label_width) << line << '\n';
  }
}

void show_table(const table& of, const terminal& on, std::ostream& out) {
  std::size_t from = 0;
  while (from < of.columns.size()) {
    std::size_t to = from;
    std::size_t width = label_width;
    while (to < of.columns.size()) {
      width += width_of(of, of.columns[to]);
      if (to != from && width > on.width) break;
      ++to;
    }
    if (from != 0) out << '\n';
    show_block(of, from, to, on, out);
    from = to;
  }
}

bool has_odd(const table& of) {
  return std::any_of(of.cells.begin(), of.cells.end(),
                     [](const auto& one) { return has_odd(one.second); });
}

// One line for a member or sub-bundle on which everyone agrees.
void show_line(const run& of, const object& one, const table& cells, std::ostream& out) {
  std::vector<std::string> facts;
  const auto place = of.places.find(static_cast<std::size_t>(&one - of.objects.data()));
  if (place != of.places.end() && place->second.node != no_place)
    facts.push_back(fmt::format("{} NPU {} core {}",
                                of.nodes[static_cast<std::size_t>(place->second.node)].name,
                                place->second.npu, place->second.core));
  for (const field row : cells.rows) {
    if (row == field::npu || row == field::presence) continue;
    for (const auto& [key, cell] : cells.cells) {
      if (key.first != row) continue;
      facts.push_back(fmt::format("{} {}", word_for(row), text_of(cell)));
      break;
    }
  }
  out << fmt::format("  {} {}\n", padded(printable(one.name), 12),
                     printable(fmt::format("{}", fmt::join(facts, ", "))));
}

void show_parts(const judged_run& of, const object& bundle, object_kind kind,
                std::string_view heading, const terminal& on, std::ostream& out) {
  bool has_heading = false;
  for (const std::size_t index : bundle.parts) {
    const object& part = of.of.objects[index];
    if (part.kind != kind) continue;
    if (!has_heading) out << '\n' << toned(on, tone::strong, heading) << '\n';
    has_heading = true;
    const table cells = table_of(of, part, {part.kind, bundle.name, part.name});
    if (!has_odd(cells)) {
      show_line(of.of, part, cells, out);
      continue;
    }
    out << "  " << toned(on, tone::bad, fmt::format("{} differs", printable(part.name))) << '\n';
    show_table(cells, on, out);
  }
}

// Which tool each field of the bundle and its parts was read from.
void show_tools(const run& of, const object& bundle, std::ostream& out) {
  std::map<field, std::set<std::string_view>> tools;
  const auto add = [&](const object& one) {
    for (const cell& c : one.cells) tools[c.what].insert(tool_of(c.from));
  };
  add(bundle);
  for (const std::size_t part : bundle.parts) add(of.objects[part]);
  out << "\nRead from\n";
  for (const auto& [what, names] : tools)
    out << "  " << padded(word_for(what), label_width - 2)
        << fmt::format("{}", fmt::join(names, ", ")) << "\n";
}

void show_causes(const judged_run& of, const bundle_verdict& is, const terminal& on,
                 std::ostream& out) {
  for (const std::size_t index : is.causes) {
    const cause& one = of.causes[index];
    out << "- " << wrapped(printable(one.title), on.width, 2) << '\n';
    out << fmt::format("  {}: {}\n", word_for(one.how_sure), printable(one.why));
    for (const std::size_t f : one.findings)
      out << fmt::format("    {} {}\n", of.of.findings[f].code,
                         wrapped(printable(of.of.findings[f].text), on.width, 11));
    if (!one.next.empty()) out << fmt::format("  next: {}\n", printable(one.next));
  }
}

void show_unread(const run& of, const terminal& on, std::ostream& out) {
  for (const coverage& one : of.covered)
    if (is_hole(one))
      out << toned(on, tone::doubt,
                   fmt::format("not judged: {} of {}{}", word_for(one.of),
                               one.node.empty() ? "the router" : printable(one.node),
                               one.npu.empty() ? "" : " NPU " + printable(one.npu)))
          << fmt::format(": {}, {}\n", word_for(one.state), printable(one.reason));
}

}  // namespace

std::optional<std::string> bundle_meant(const judged_run& judged, std::string_view word) {
  const run& of = judged.of;
  std::string name(word);
  constexpr std::string_view long_word = "Bundle-Ether";
  if (word.starts_with(long_word)) name = fmt::format("BE{}", word.substr(long_word.size()));
  if (all_digits(word)) name = fmt::format("BE{}", word);
  name = name.substr(0, name.find('.'));
  if (of.find(object_kind::bundle, name, name) != nullptr) return name;
  // Without a snapshot the messages alone name bundles.
  for (const bundle_verdict& one : judged.bundles)
    if (one.bundle == name) return name;
  const std::size_t digits = word.find_first_of("0123456789");
  const std::string_view tail = digits == std::string_view::npos ? word : word.substr(digits);
  for (const object& one : of.objects)
    if (one.kind == object_kind::member && (one.name == word || one.name == tail))
      return of.objects[one.bundle].name;
  return bundle_with_value(of, word);
}

void show_dossier(const judged_run& of, std::string_view bundle, const terminal& on,
                  std::ostream& out) {
  const object* one = of.of.find(object_kind::bundle, bundle, bundle);
  const auto is = std::find_if(of.bundles.begin(), of.bundles.end(),
                               [&](const bundle_verdict& v) { return v.bundle == bundle; });
  out << toned(on, tone::strong, printable(bundle));
  if (is != of.bundles.end()) out << fmt::format(" {}", word_for(is->is));
  if (one != nullptr && !one->is_configured) out << ", not in the running configuration";
  out << '\n';
  if (is != of.bundles.end()) show_causes(of, *is, on, out);
  show_unread(of.of, on, out);
  if (one == nullptr) return;
  out << '\n';
  show_table(table_of(of, *one, {object_kind::bundle, one->name, one->name}), on, out);
  show_parts(of, *one, object_kind::member, "Members", on, out);
  show_parts(of, *one, object_kind::sub_bundle, "Sub-bundles", on, out);
  show_tools(of.of, *one, out);
}

}  // namespace desk
