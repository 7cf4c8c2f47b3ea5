#include "desk/show/html_layers.h"

#include <fmt/format.h>

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

// Most of a page of the largest router are rows, and most of their cells are empty.
void append_row(std::string& to, const dossier_row& of) {
  to.append("<tr><th scope=\"row\">").append(of.label).append("</th>");
  for (const dossier_cell& each : of.cells) {
    if (each.text.empty() && !each.is_odd) {
      to += "<td></td>";
      continue;
    }
    to += each.is_odd ? "<td class=\"e\">" : "<td>";
    append_html(to, each.text);
    to += "</td>";
  }
  to += "</tr>\n";
}

void append_part(std::string& to, const dossier_part& of, std::string_view width) {
  if (of.rows.empty()) return;
  to += "<tbody>\n";
  if (!of.name.empty()) {
    to.append("<tr><th scope=\"rowgroup\" colspan=\"").append(width).append("\"><bdi>");
    append_html(to, of.name);
    to += "</bdi> <span class=\"soft\">";
    append_html(to, of.place);
    to += "</span></th></tr>\n";
  }
  for (const dossier_row& row : of.rows) append_row(to, row);
  to += "</tbody>\n";
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
  std::string text;
  for (const dossier_section& each : of.sections) {
    if (each.columns.empty()) continue;
    show_head(each, out);
    const std::string width = fmt::format("{}", each.columns.size() + 1);
    for (const dossier_part& part : each.parts) {
      text.clear();
      append_part(text, part, width);
      out << text;
    }
    out << "</table></div>\n";
  }
  show_legend(of, out);
}

}  // namespace desk
