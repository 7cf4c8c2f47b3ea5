#include "desk/show/html_layers.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <ostream>
#include <string>
#include <string_view>

#include "desk/show/escape.h"

namespace desk {

namespace {

void show_head(const dossier_section& of, std::ostream& out) {
  out << fmt::format(
      "<h4>{0} by layers</h4>\n<div class=\"box\" tabindex=\"0\" role=\"region\" "
      "aria-label=\"{0} by layers\"><table class=\"layers\">\n<thead><tr><td></td>",
      of.title);
  for (const dossier_column& each : of.columns)
    out << fmt::format("<th scope=\"col\">{}<br>{}<br>{}</th>", word_for(each.of),
                       short_tool(each.from), html(each.place));
  out << "</tr></thead>\n";
}

constexpr auto plain_bytes = [] {
  std::array<bool, 256> made{};
  for (const char c : std::string_view("0123456789abcdefghijklmnopqrstuvwxyz:. "))
    made[static_cast<unsigned char>(c)] = true;
  return made;
}();

// Most of a page of the largest router are these, and most of their texts are plain.
bool is_plain(std::string_view text) {
  return std::all_of(text.begin(), text.end(),
                     [](char c) { return plain_bytes[static_cast<unsigned char>(c)]; });
}

void show_row(const dossier_row& of, std::string& line, std::ostream& out) {
  line.assign("<tr><th scope=\"row\">").append(of.label).append("</th>");
  for (const dossier_cell& each : of.cells) {
    line += each.is_odd ? "<td class=\"e\">" : "<td>";
    if (is_plain(each.text))
      line += each.text;
    else
      line += html(each.text);
    line += "</td>";
  }
  out << line.append("</tr>\n");
}

void show_part(const dossier_part& of, std::size_t columns, std::ostream& out) {
  if (of.rows.empty()) return;
  out << "<tbody>\n";
  if (!of.name.empty())
    out << fmt::format(
        "<tr><th scope=\"rowgroup\" colspan=\"{}\"><bdi>{}</bdi> <span class=\"soft\">{}</span>"
        "</th></tr>\n",
        columns + 1, html(of.name), html(of.place));
  std::string line;
  for (const dossier_row& row : of.rows) show_row(row, line, out);
  out << "</tbody>\n";
}

void show_legend(const dossier_table& of, std::ostream& out) {
  out << "<p class=\"soft\">An asterisk marks what differs. Shown by: ";
  for (std::size_t i = 0; i < of.tools.size(); ++i)
    out << fmt::format("{}{} <code>{}</code>", i == 0 ? "" : ", ", word_for(layer_of(of.tools[i])),
                       tool_of(of.tools[i]));
  out << ".</p>\n";
  for (const auto& [label, nodes] : of.folds) {
    out << "<p class=\"soft\">" << html(label);
    for (std::size_t i = 0; i < nodes.size(); ++i)
      out << (i == 0 ? ": " : ", ") << "<bdi>" << html(nodes[i]) << "</bdi>";
    out << "</p>\n";
  }
}

}  // namespace

void show_layers(const dossier_table& of, std::ostream& out) {
  if (of.tools.empty()) return;
  for (const dossier_section& each : of.sections) {
    if (each.columns.empty()) continue;
    show_head(each, out);
    for (const dossier_part& part : each.parts) show_part(part, each.columns.size(), out);
    out << "</table></div>\n";
  }
  show_legend(of, out);
}

}  // namespace desk
