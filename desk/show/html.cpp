#include "desk/show/html.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <map>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "desk/judge/judged_run.h"
#include "desk/model/coverage.h"
#include "desk/show/escape.h"
#include "desk/show/figures.h"
#include "desk/show/html_marks.h"
#include "desk/show/html_matrix.h"
#include "desk/show/html_page.h"
#include "desk/show/phrases.h"

namespace desk {

namespace {

// A router on which everything differs must not push the matrix out of sight.
constexpr std::size_t most_open_causes = 20;

// ---- The head of the page -----------------------------------------------------------------------

std::string with_capital(std::string text) {
  if (!text.empty() && text[0] >= 'a' && text[0] <= 'z') text[0] = static_cast<char>(text[0] - 32);
  return text;
}

std::string sentence_for(const judged_run& of) {
  std::string text(sentence_for(of.of.end));
  if (!text.empty()) text += "; ";
  text += sentence_for_bundles(of);
  const bool is_calm = std::all_of(of.bundles.begin(), of.bundles.end(),
                                   [](const auto& bundle) { return bundle.is == verdict::agrees; });
  if (is_calm && !of.causes.empty())
    text += fmt::format("; {} to look at", of.causes.size() == 1
                                               ? "one other thing"
                                               : fmt::format("{} other things", of.causes.size()));
  return with_capital(text) + ".";
}

std::string name_of(const run& of) {
  const std::string& name = of.router.empty() ? of.origin : of.router;
  return name.empty() ? std::string("a router") : html(name);
}

void show_header(const judged_run& of, std::ostream& out) {
  const look shown = look_of(mark_of(of));
  out << fmt::format(
      "<header>\n<h1>Link bundles of <bdi>{}</bdi></h1>\n"
      "<p class=\"verdict {}\"><span aria-hidden=\"true\">{}</span><span>{}</span></p>\n"
      "<dl class=\"facts\">\n",
      name_of(of.of), shown.css, shown.sign, html(sentence_for(of)));
  if (!of.of.router.empty()) show_fact("Read from", of.of.origin, out);
  show_fact("Router type", of.of.router_type, out);
  show_fact("Started", of.of.started, out);
  if (const auto seconds = seconds_of(of.of))
    show_fact("Took", fmt::format("{:.1f} s", *seconds), out);
  show_fact("End",
            of.of.end == run_end::complete ? "it came to its result table"
                                           : std::string(sentence_for(of.of.end)),
            out);
  out << "</dl>\n";
  if (!of.of.marks.empty()) {
    out << "<ul>\n";
    for (const auto& mark : of.of.marks) out << fmt::format("<li>{}</li>\n", html(mark));
    out << "</ul>\n";
  }
  out << "<nav aria-label=\"Parts of this page\"><ul><li><a href=\"#causes\">Causes</a></li>"
         "<li><a href=\"#bundles\">Bundles and nodes</a></li>"
         "<li><a href=\"#loose\">Findings without a cause</a></li>"
         "<li><a href=\"#coverage\">Coverage</a></li></ul></nav>\n";
  show_search("a bundle, a node, a value", out);
  out << "</header>\n<main>\n";
}

// ---- Causes -------------------------------------------------------------------------------------

void show_findings(const run& of, const std::vector<std::size_t>& findings, std::ostream& out) {
  if (findings.empty()) return;
  out << fmt::format("<details><summary>{} {}</summary>\n", findings.size(),
                     findings.size() == 1 ? "message" : "messages");
  for (const std::size_t each : findings) show_finding(of.findings[each], out);
  out << "</details>\n";
}

void show_cause(const judged_run& of, std::size_t index,
                const std::map<std::string_view, std::size_t>& dossiers, std::ostream& out) {
  const auto& why = of.causes[index];
  const look shown = look_of(mark_of(of.of, why));
  out << fmt::format(
      "<article class=\"cause\" id=\"c{}\" data-hit=\"\">\n<header>"
      "<span class=\"chip {}\"><span aria-hidden=\"true\">{}</span>"
      "<span class=\"spoken\">{}</span></span><h3>{}</h3></header>\n",
      index, shown.css, shown.sign, shown.word, html(why.title));
  show_reasons(why, out);
  if (const auto at = dossiers.find(why.object.bundle); at != dossiers.end())
    out << fmt::format("<p><a href=\"#b{}\">Dossier of <bdi>{}</bdi></a></p>\n", at->second,
                       html(why.object.bundle));
  show_findings(of.of, why.findings, out);
  out << "</article>\n";
}

void show_causes(const judged_run& of, std::ostream& out) {
  std::map<std::string_view, std::size_t> dossiers;
  for (std::size_t i = 0; i < of.bundles.size(); ++i) dossiers[of.bundles[i].bundle] = i;
  out << "<section id=\"causes\" aria-labelledby=\"causes-title\">\n"
         "<h2 id=\"causes-title\">Causes</h2>\n";
  const std::size_t all = of.causes.size();
  if (all == 0) out << "<p>None.</p>\n";
  for (std::size_t i = 0; i < all; ++i) {
    if (i == most_open_causes)
      out << fmt::format("<details class=\"more\"><summary>{} more</summary>\n", all - i);
    show_cause(of, i, dossiers, out);
  }
  out << (all > most_open_causes ? "</details>\n</section>\n" : "</section>\n");
}

// ---- Bundles ------------------------------------------------------------------------------------

void show_bundles(const judged_run& of, std::ostream& out) {
  out << "<section id=\"bundles\" aria-labelledby=\"bundles-title\">\n"
         "<h2 id=\"bundles-title\">Bundles and nodes</h2>\n";
  if (of.bundles.empty()) {
    out << "<p>No bundle was found.</p>\n</section>\n";
    return;
  }
  out << "<ul class=\"legend\">";
  for (const auto each : {mark::fault, mark::warning, mark::doubt, mark::fine, mark::nothing}) {
    const look shown = look_of(each);
    out << fmt::format("<li><b class=\"{}\">{}</b>{}</li>", shown.css, shown.sign, shown.word);
  }
  out << "</ul>\n<input type=\"checkbox\" id=\"only\" class=\"only\">"
         "<label for=\"only\" class=\"only\">Leave out bundles that agree</label>\n";
  show_matrix(of, out);
  show_dossiers(of, out);
  out << "</section>\n";
}

// ---- Findings without a cause -------------------------------------------------------------------

void show_loose(const judged_run& of, std::ostream& out) {
  out << "<section id=\"loose\" aria-labelledby=\"loose-title\">\n"
         "<h2 id=\"loose-title\">Findings without a cause</h2>\n";
  out << (of.unexplained.empty() ? "<p>None.</p>\n" : "<p>Notes among them are normal.</p>\n");
  for (const std::size_t each : of.unexplained) {
    out << "<div class=\"loose\" data-hit=\"\">";
    show_finding(of.of.findings[each], out);
    out << "</div>\n";
  }
  out << "</section>\n";
}

// ---- Coverage -----------------------------------------------------------------------------------

void show_holes(const run& of, std::ostream& out) {
  open_table("Not read", {"What", "State", "Why", "Command"}, out);
  for (const auto& each : of.covered) {
    if (!is_hole(each)) continue;
    out << fmt::format(
        "<tr data-hit=\"\"><th scope=\"row\">{}</th><td class=\"q\">? {}</td>"
        "<td>{}</td><td>",
        html(place_of(each)), word_for(each.state), html(each.reason));
    if (!each.command.empty()) out << fmt::format("<code>{}</code>", html(each.command));
    out << "</td></tr>\n";
  }
  out << "</tbody></table></div>\n";
}

// Every answer: a row for each node and chip, a column for each layer.
void show_answers(const run& of, std::ostream& out) {
  using answers = std::array<const coverage*, all_layers.size()>;
  std::vector<std::pair<const coverage*, answers>> rows;
  std::map<std::pair<std::string_view, std::string_view>, std::size_t> places;
  for (const auto& each : of.covered) {
    if (each.of == layer::none) continue;
    const auto [at, is_new] = places.try_emplace({each.node, each.npu}, rows.size());
    if (is_new) rows.push_back({&each, {}});
    rows[at->second].second[static_cast<std::size_t>(each.of)] = &each;
  }
  out << fmt::format("<details><summary>All {} answers</summary>\n", of.covered.size());
  std::vector<std::string_view> columns = {"Where"};
  for (const auto each : all_layers) columns.push_back(word_for(each));
  open_table("All answers", columns, out);
  for (const auto& [where, row] : rows) {
    out << fmt::format("<tr data-hit=\"\"><th scope=\"row\">{}{}{}</th>",
                       where->node.empty() ? "router" : html(where->node),
                       where->npu.empty() ? "" : " NPU ", html(where->npu));
    for (const coverage* each : row) {
      if (each == nullptr) {
        out << "<td></td>";
        continue;
      }
      const look shown = look_of(mark_of(*each));
      out << fmt::format("<td class=\"{}\">{} {}</td>", shown.css, shown.sign,
                         word_for(each->state));
    }
    out << "</tr>\n";
  }
  out << "</tbody></table></div>\n</details>\n";
}

void show_covered(const run& of, std::ostream& out) {
  out << "<section id=\"coverage\" aria-labelledby=\"coverage-title\">\n"
         "<h2 id=\"coverage-title\">Coverage</h2>\n";
  const auto holes = std::count_if(of.covered.begin(), of.covered.end(), is_hole);
  if (of.covered.empty())
    out << "<p>Nothing shows what was read.</p>\n";
  else if (holes == 0)
    out << "<p>Everything was read.</p>\n";
  else
    show_holes(of, out);
  if (!of.covered.empty()) show_answers(of, out);
  out << "</section>\n";
}

}  // namespace

void show_html(const judged_run& of, std::ostream& out) {
  open_page("Link bundles of " + name_of(of.of), out);
  show_header(of, out);
  show_causes(of, out);
  show_bundles(of, out);
  show_loose(of, out);
  show_covered(of.of, out);
  close_page(out);
}

}  // namespace desk
