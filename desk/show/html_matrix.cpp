#include "desk/show/html_matrix.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <ostream>
#include <set>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "desk/model/coverage.h"
#include "desk/show/dossier_table.h"
#include "desk/show/escape.h"
#include "desk/show/html_layers.h"
#include "desk/show/html_marks.h"

namespace desk {

namespace {

constexpr std::size_t most_upright_nodes = 8;
constexpr std::size_t most_reasons = 20;

// The worst mark of a bundle at each node; "" is the router as a whole.
using marks = std::map<std::string_view, mark, std::less<>>;

void add(marks& to, std::string_view node, mark is) {
  mark& worst = to[node];
  worst = std::max(worst, is);
}

// What each bundle's own findings and differences mark, by the bundle's place in the run.
std::vector<marks> marks_of(const judged_run& of) {
  std::map<std::string_view, std::size_t> places;
  for (std::size_t i = 0; i < of.bundles.size(); ++i) places[of.bundles[i].bundle] = i;
  std::vector<marks> made(of.bundles.size());
  const auto take = [&](std::string_view bundle, std::string_view node, mark is) {
    if (const auto at = places.find(bundle); at != places.end()) add(made[at->second], node, is);
  };
  // A message can blame the nodes that are right. Where the values show the odd one, they count.
  std::set<std::size_t> explained;
  for (const auto& why : of.causes)
    if (!why.differences.empty()) explained.insert(why.findings.begin(), why.findings.end());
  for (std::size_t i = 0; i < of.of.findings.size(); ++i) {
    const finding& each = of.of.findings[i];
    if (!explained.contains(i)) take(each.object.bundle, each.node, mark_of(each.kind));
  }
  for (const auto& why : of.causes) {
    const mark is = mark_of(of.of, why);
    for (const auto& differs : why.differences)
      for (const auto& each : differs.witnesses)
        if (each.is_odd) take(differs.object.bundle, each.node, is);
  }
  return made;
}

// The nodes that could hold a bundle, and those that are marked all the same.
std::vector<std::string_view> columns_of(const run& of, const std::vector<marks>& bundles) {
  std::set<std::string_view> marked;
  for (const auto& each : bundles)
    for (const auto& [node, is] : each) marked.insert(node);
  std::vector<std::string_view> columns = {""};
  marked.erase("");
  for (const auto& each : of.nodes) {
    const bool is_marked = marked.erase(each.name) > 0;
    if (is_marked || (each.takes_part && !each.is_empty_slot)) columns.push_back(each.name);
  }
  columns.insert(columns.end(), marked.begin(), marked.end());
  return columns;
}

// The nodes of which something holds the bundle, a member or a sub-bundle.
void add_present(const run& of, const std::string& bundle, marks& to) {
  const object* found = of.find(object_kind::bundle, bundle, bundle);
  if (found == nullptr) return;
  const auto take = [&](const object& each) {
    for (const auto& value : each.cells) {
      const bool is_whole = value.node == no_place;
      add(to, is_whole ? std::string_view() : of.nodes[static_cast<std::size_t>(value.node)].name,
          mark::fine);
    }
  };
  take(*found);
  for (const std::size_t part : found->parts) take(of.objects[part]);
}

void show_head(const std::vector<std::string_view>& columns, std::ostream& out) {
  out << fmt::format(
      "<div class=\"box matrix\" tabindex=\"0\" role=\"region\" aria-label=\"Bundles and nodes\">\n"
      "<table{}>\n<thead><tr><th scope=\"col\">Bundle</th>",
      columns.size() > most_upright_nodes ? " class=\"tall\"" : "");
  for (const auto column : columns)
    out << fmt::format("<th scope=\"col\"><bdi>{}</bdi></th>",
                       column.empty() ? "router" : html(column));
  out << "</tr></thead>\n<tbody>\n";
}

// Only the verdict: a reason would make the columns of all rows as wide as it is.
void show_plain_row(const bundle_verdict& bundle, std::size_t index, std::size_t columns,
                    std::ostream& out) {
  const look shown = look_of(mark_of(bundle.is));
  const std::string text = fmt::format("{} {}", shown.sign, word_for(bundle.is));
  out << fmt::format("<td class=\"{}\" colspan=\"{}\">", shown.css, columns);
  out << fmt::format("<a href=\"#b{}\" aria-label=\"{}: {}\">{}</a></td>", index,
                     html(bundle.bundle), word_for(bundle.is), text);
}

void show_cells(const bundle_verdict& bundle, std::size_t index, const marks& at,
                const std::vector<std::string_view>& columns, std::ostream& out) {
  const std::string name = html(bundle.bundle);
  for (const auto column : columns) {
    const auto found = at.find(column);
    const mark is = found == at.end() ? mark::nothing : found->second;
    const look shown = look_of(is);
    if (is <= mark::fine)
      out << fmt::format("<td class=\"{}\">{}</td>", shown.css, shown.sign);
    else
      out << fmt::format(
          "<td class=\"{0}\"><a href=\"#b{1}\" aria-label=\"{2} on {3}: {4}\">{5}</a></td>",
          shown.css, index, name, column.empty() ? "the router" : html(column), shown.word,
          shown.sign);
  }
}

void show_place(const witness& each, std::ostream& out) {
  out << (each.node.empty() ? "the router" : html(each.node));
  if (!each.npu.empty()) out << " NPU " << html(each.npu);
}

// Witnesses that say the same are one row: the odd ones first.
using group = std::tuple<bool, std::string_view, decltype(witness::is), source>;

void show_group(const std::vector<const witness*>& same, std::ostream& out) {
  const witness& first = *same.front();
  out << (first.is_odd ? "<tr class=\"odd\"><th scope=\"row\">✕ odd: " : "<tr><th scope=\"row\">");
  if (first.is == witness::state::holds)
    out << fmt::format("<code>{}</code>", html(first.value));
  else if (first.is == witness::state::absent)
    out << "absent";
  else
    out << "not read: " << html(first.value);
  out << fmt::format("</th><td>{}</td><td>{}</td><td>", word_for(layer_of(first.from)),
                     tool_of(first.from));
  for (std::size_t i = 0; i < same.size(); ++i) {
    if (i > 0) out << ", ";
    show_place(*same[i], out);
  }
  out << "</td></tr>\n";
}

std::string name_of(const object_ref& of) {
  if (of.name.empty() || of.name == of.bundle) return of.bundle;
  return of.bundle.empty() ? of.name : fmt::format("{} {}", of.bundle, of.name);
}

// The reasons are left out if they are those of the cause, which stand above.
void show_difference(const difference& of, const cause& why, std::ostream& out) {
  std::map<group, std::vector<const witness*>> groups;
  for (const auto& each : of.witnesses)
    groups[{!each.is_odd, each.value, each.is, each.from}].push_back(&each);
  out << fmt::format("<h4>{}: {}</h4>\n", html(name_of(of.object)), word_for(of.what));
  if (of.why != why.why || of.how_sure != why.how_sure)
    out << fmt::format("<p><span class=\"chip plain\">{}</span> {}</p>\n", word_for(of.how_sure),
                       html(of.why));
  out << "<div class=\"box\" tabindex=\"0\" role=\"region\" aria-label=\"Values\">"
         "<table class=\"values\">\n"
         "<thead><tr><th scope=\"col\">Value</th><th scope=\"col\">Layer</th>"
         "<th scope=\"col\">Shown by</th><th scope=\"col\">Where</th></tr></thead>\n<tbody>\n";
  for (const auto& [key, same] : groups) show_group(same, out);
  out << "</tbody></table></div>\n";
}

void show_not_judged(const std::vector<std::string>& reasons, std::ostream& out) {
  if (reasons.empty()) return;
  out << "<p>Not judged:</p>\n<ul>\n";
  for (std::size_t i = 0; i < std::min(reasons.size(), most_reasons); ++i)
    out << fmt::format("<li>{}</li>\n", html(reasons[i]));
  if (reasons.size() > most_reasons)
    out << fmt::format("<li>and {} more: see <a href=\"#coverage\">coverage</a></li>\n",
                       reasons.size() - most_reasons);
  out << "</ul>\n";
}

// Whether nothing is to be said about a bundle but what it holds.
bool is_calm(const bundle_verdict& bundle) {
  return bundle.is == verdict::agrees && bundle.findings == 0 && bundle.causes.empty();
}

void show_dossier(const judged_run& of, const bundle_verdict& bundle, std::size_t index,
                  dossier_maker& maker, std::ostream& out) {
  const look shown = look_of(mark_of(bundle.is));
  out << fmt::format(
      "<section class=\"dossier{5}\" id=\"b{0}\" aria-label=\"Dossier of {1}\">\n"
      "<header><h3><bdi>{1}</bdi></h3><span class=\"chip {2}\">{3} {4}</span>",
      index, html(bundle.bundle), shown.css, shown.sign, word_for(bundle.is),
      is_calm(bundle) ? " calm" : "");
  if (bundle.first != layer::none)
    out << fmt::format("<span>from {} on</span>", word_for(bundle.first));
  out << "<a href=\"#bundles\">close</a></header>\n";
  show_not_judged(bundle.not_judged, out);

  std::set<std::size_t> findings;
  for (const std::size_t each : bundle.causes) {
    const auto& why = of.causes[each];
    out << fmt::format("<h4><a href=\"#c{}\">{}</a></h4>\n", each, html(why.title));
    show_reasons(why, out);
    for (const auto& differs : why.differences)
      if (differs.object.bundle == bundle.bundle) show_difference(differs, why, out);
    findings.insert(why.findings.begin(), why.findings.end());
  }
  for (const std::size_t each : of.unexplained) findings.insert(each);
  std::erase_if(findings, [&](std::size_t each) {
    return of.of.findings[each].object.bundle != bundle.bundle;
  });
  if (!findings.empty()) out << "<h4>Findings</h4>\n";
  for (const std::size_t each : findings) show_finding(of.of.findings[each], out);
  const object* held = of.of.find(object_kind::bundle, bundle.bundle, bundle.bundle);
  if (held != nullptr) show_layers(maker.table_of(*held), out);
  out << "</section>\n";
}

}  // namespace

void show_matrix(const judged_run& of, std::ostream& out) {
  std::vector<marks> at = marks_of(of);
  const auto columns = columns_of(of.of, at);
  show_head(columns, out);
  for (std::size_t i = 0; i < of.bundles.size(); ++i) {
    const auto& bundle = of.bundles[i];
    const std::string name = html(bundle.bundle);
    // With the class of a bundle that agrees, so that it can be left out.
    const bool is_fine = bundle.is == verdict::agrees && at[i].empty();
    out << fmt::format("<tr{} data-hit=\"b{}\"><th scope=\"row\">", is_fine ? " class=\"k\"" : "",
                       i);
    out << fmt::format("<a href=\"#b{}\"><bdi>{}</bdi></a></th>", i, name);
    if (at[i].empty()) {
      show_plain_row(bundle, i, columns.size(), out);
    } else {
      add_present(of.of, bundle.bundle, at[i]);
      for (const auto& hole : of.of.covered)
        if (is_hole(hole)) add(at[i], hole.node, mark::doubt);
      show_cells(bundle, i, at[i], columns, out);
    }
    out << "</tr>\n";
  }
  out << "</tbody>\n</table>\n</div>\n";
}

void show_dossiers(const judged_run& of, std::ostream& out) {
  dossier_maker maker(of);
  for (std::size_t i = 0; i < of.bundles.size(); ++i)
    show_dossier(of, of.bundles[i], i, maker, out);
}

void show_reasons(const cause& why, std::ostream& out) {
  out << fmt::format("<p><span class=\"chip plain\">{}</span> {}</p>\n", word_for(why.how_sure),
                     html(why.why));
  if (!why.next.empty())
    out << fmt::format("<p>Next: <code class=\"command\">{}</code></p>\n", html(why.next));
}

void show_finding(const finding& of, std::ostream& out) {
  const look shown = look_of(mark_of(of.kind));
  out << fmt::format("<div class=\"finding\"><span class=\"chip {}\">{} {}</span> <code>{}</code>",
                     shown.css, shown.sign, word_for(of.kind), html(of.code));
  if (!of.log.empty()) {
    out << " <span class=\"soft\">" << html(of.log);
    if (of.line > 0) out << ", line " << of.line;
    out << "</span>";
  }
  // A line feed behind the tag would be dropped.
  out << fmt::format("<pre>\n{}</pre></div>\n", html(of.text));
}

}  // namespace desk
