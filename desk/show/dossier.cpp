#include "desk/show/dossier.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <vector>

#include "desk/model/coverage.h"
#include "desk/model/numbers.h"
#include "desk/show/dossier_table.h"

namespace desk {

namespace {

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

// ---- Tables -------------------------------------------------------------------------------------

constexpr std::size_t label_width = 16;
constexpr std::size_t gap = 2;

struct heading {
  std::string_view layer;
  std::string_view tool;
  std::string place;
};

heading heading_of(const dossier_column& of) {
  return {word_for(of.of), short_tool(of.from), printable(of.place)};
}

std::string text_of(const dossier_cell& cell) {
  return cell.text.empty() ? "-" : printable(cell.text);
}

std::vector<std::size_t> widths_of(const dossier_section& of) {
  std::vector<std::size_t> widths;
  for (const dossier_column& column : of.columns) {
    const heading head = heading_of(column);
    widths.push_back(std::max({head.layer.size(), head.tool.size(), columns_of(head.place)}));
  }
  for (const dossier_part& part : of.parts)
    for (const dossier_row& row : part.rows)
      for (std::size_t i = 0; i < widths.size(); ++i)
        widths[i] = std::max(widths[i], columns_of(text_of(row.cells[i])));
  return widths;
}

// One line of a table: the blanks of a cell wait for the next one.
class table_line {
 public:
  explicit table_line(const terminal& on) : on_(on) {}
  void add(std::string_view text, std::size_t width, tone in = tone::plain) {
    if (!text.empty()) {
      line_.append(blanks_, ' ').append(toned(on_, in, text));
      blanks_ = 0;
    }
    const std::size_t has = columns_of(text);
    blanks_ += has < width ? width - has : gap;
  }
  [[nodiscard]] const std::string& text() const { return line_; }

 private:
  const terminal& on_;
  std::string line_;
  std::size_t blanks_ = 0;
};

// The columns from..to, which fit beside each other.
struct block {
  std::size_t from = 0;
  std::size_t to = 0;
};

block next_block(const std::vector<std::size_t>& widths, std::size_t from, std::size_t room) {
  block made{from, from};
  std::size_t width = label_width;
  while (made.to < widths.size()) {
    width += widths[made.to];
    if (made.to != from && width > room) break;
    width += gap;
    ++made.to;
  }
  return made;
}

void show_headings(const dossier_section& of, const std::vector<std::size_t>& widths, block in,
                   const terminal& on, std::ostream& out) {
  std::array<table_line, 3> lines = {table_line(on), table_line(on), table_line(on)};
  for (table_line& line : lines) line.add("", label_width);
  for (std::size_t i = in.from; i < in.to; ++i) {
    const heading head = heading_of(of.columns[i]);
    lines[0].add(head.layer, widths[i] + gap, tone::strong);
    lines[1].add(head.tool, widths[i] + gap, tone::strong);
    lines[2].add(head.place, widths[i] + gap, tone::strong);
  }
  for (const table_line& line : lines)
    if (!line.text().empty()) out << line.text() << '\n';
}

void show_row(const dossier_row& row, const std::vector<std::size_t>& widths, block in,
              std::string_view margin, const terminal& on, std::ostream& out) {
  table_line line(on);
  line.add(fmt::format("{}{}", margin, row.label), label_width);
  for (std::size_t i = in.from; i < in.to; ++i)
    line.add(text_of(row.cells[i]), widths[i] + gap, row.cells[i].is_odd ? tone::bad : tone::plain);
  out << line.text() << '\n';
}

bool has_cell(const dossier_row& row, block in) {
  for (std::size_t i = in.from; i < in.to; ++i)
    if (!row.cells[i].text.empty()) return true;
  return false;
}

void show_part(const dossier_part& of, const std::vector<std::size_t>& widths, block in,
               const terminal& on, std::ostream& out) {
  bool has_name = of.name.empty();
  for (const dossier_row& row : of.rows) {
    if (!has_cell(row, in)) continue;
    if (!has_name) {
      out << toned(on, tone::strong, printable(of.name));
      if (!of.place.empty()) out << "  " << printable(of.place);
      out << '\n';
    }
    has_name = true;
    show_row(row, widths, in, of.name.empty() ? "" : "  ", on, out);
  }
}

void show_section(const dossier_section& of, const terminal& on, std::ostream& out) {
  if (of.columns.empty()) return;
  const std::vector<std::size_t> widths = widths_of(of);
  out << '\n' << toned(on, tone::strong, of.title) << '\n';
  for (block in = next_block(widths, 0, on.width);; in = next_block(widths, in.to, on.width)) {
    if (in.from != 0) out << '\n';
    show_headings(of, widths, in, on, out);
    for (const dossier_part& part : of.parts) show_part(part, widths, in, on, out);
    if (in.to == widths.size()) return;
  }
}

// What the headings are short for.
void show_legend(const dossier_table& of, const terminal& on, std::ostream& out) {
  if (of.tools.empty()) return;
  out << '\n' << toned(on, tone::strong, "Read from") << '\n';
  for (const source each : of.tools)
    out << fmt::format("  {} {} {}\n", padded(word_for(layer_of(each)), 7),
                       padded(short_tool(each), label_width - 3), tool_of(each));
  for (const auto& [label, nodes] : of.folds)
    out << "  "
        << wrapped(printable(fmt::format("{}: {}", label, fmt::join(nodes, ", "))), on.width, 4)
        << '\n';
}

// ---- What stands above them ---------------------------------------------------------------------

// A cause that bundles share can have hundreds of messages: those of this bundle, and the first
// ones of none.
void show_messages(const run& of, const cause& one, std::string_view bundle, const terminal& on,
                   std::ostream& out) {
  constexpr std::size_t most_of_none = 8;
  std::size_t of_none = 0;
  std::size_t left_out = 0;
  for (const std::size_t index : one.findings) {
    const finding& each = of.findings[index];
    const bool is_shown =
        each.object.bundle.empty() ? of_none++ < most_of_none : each.object.bundle == bundle;
    if (is_shown)
      out << fmt::format("    {} {}\n", printable(each.code),
                         wrapped(printable(each.text), on.width, 11));
    else
      ++left_out;
  }
  if (left_out != 0)
    out << fmt::format(
        "    and {} of this cause; summary --all shows everything\n",
        left_out == 1 ? "1 more message" : fmt::format("{} more messages", left_out));
}

void show_causes(const judged_run& of, const bundle_verdict& is, const terminal& on,
                 std::ostream& out) {
  for (const std::size_t index : is.causes) {
    const cause& one = of.causes[index];
    out << "- " << wrapped(printable(one.title), on.width, 2) << '\n';
    out << "  "
        << wrapped(fmt::format("{}: {}", word_for(one.how_sure), printable(one.why)), on.width, 4)
        << '\n';
    show_messages(of.of, one, is.bundle, on, out);
    if (!one.next.empty()) out << fmt::format("  next: {}\n", printable(one.next));
  }
}

std::string words_for_hole(const coverage& of) {
  return fmt::format("not judged: {} of {}{}: {}, {}", word_for(of.of),
                     of.node.empty() ? "the router" : printable(of.node),
                     of.npu.empty() ? "" : " NPU " + printable(of.npu), word_for(of.state),
                     printable(of.reason));
}

void show_unread(const run& of, const terminal& on, std::ostream& out) {
  for (const coverage& one : of.covered)
    if (is_hole(one))
      out << toned(on, tone::doubt, wrapped(words_for_hole(one), on.width, 2)) << '\n';
}

// "BE12" of "BE12", "be12", "12", "Bundle-Ether12" and "BE12.100"; else the word itself.
std::string bundle_named(std::string_view word) {
  std::string small(word.substr(0, word.find('.')));
  std::transform(small.begin(), small.end(), small.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  for (const std::string_view before : {"bundle-ether", "be", ""}) {
    if (!small.starts_with(before)) continue;
    const std::string number = small.substr(before.size());
    if (all_digits(number)) return fmt::format("BE{}", number);
  }
  return std::string(word.substr(0, word.find('.')));
}

}  // namespace

std::optional<std::string> bundle_meant(const judged_run& judged, std::string_view word) {
  const run& of = judged.of;
  const std::string name = bundle_named(word);
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

std::string unknown_sub_bundle(const run& of, std::string_view word) {
  const std::size_t dot = word.find('.');
  const std::string bundle = bundle_named(word);
  if (dot == std::string_view::npos || !bundle.starts_with("BE") || !of.has_snapshot ||
      !of.marks.empty())
    return {};
  std::string name = bundle + std::string(word.substr(dot));
  if (of.find(object_kind::sub_bundle, bundle, name) != nullptr ||
      std::any_of(of.findings.begin(), of.findings.end(),
                  [&](const finding& one) { return one.object.name == name; }))
    return {};
  return name;
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
  const dossier_table table = dossier_maker(of).table_of(*one);
  for (const dossier_section& each : table.sections) show_section(each, on, out);
  show_legend(table, on, out);
}

}  // namespace desk
