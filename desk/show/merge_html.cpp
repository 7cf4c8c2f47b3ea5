#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <utility>

#include "desk/model/coverage.h"
#include "desk/show/escape.h"
#include "desk/show/figures.h"
#include "desk/show/html_marks.h"
#include "desk/show/html_matrix.h"
#include "desk/show/html_page.h"
#include "desk/show/merge.h"
#include "desk/show/phrases.h"

namespace desk {

namespace {

// A router on which everything differs must not make the page of all routers as large as its own.
constexpr std::size_t most_causes = 50;
constexpr std::size_t most_findings = 10;  // of a cause
constexpr std::size_t most_holes = 20;
constexpr std::size_t most_names = 12;

using routers = std::vector<merged_router>;

look look_of(standing is) {
  const std::string_view word = word_for(is);
  switch (is) {
    case standing::agrees:
      return {"k", "✓", word};
    case standing::not_judged:
    case standing::not_read:
      return {"q", "?", word};
    case standing::notable:
      return {"w", "!", word};
    case standing::differs:
      break;
  }
  return {"e", "✕", word};
}

// A router of which there is no more to say than its row has no fold.
bool has_fold(const merged_router& of) {
  return !of.trouble.empty() || !of.of.causes.empty() || !of.of.of.marks.empty() ||
         !of.of.of.covered.empty() || findings_of(of) != 0;
}

std::string chip(const look& shown) {
  return fmt::format("<span class=\"chip {}\"><span aria-hidden=\"true\">{}</span> {}</span>",
                     shown.css, shown.sign, shown.word);
}

std::string_view new_chip(const std::vector<bool>& is_new, std::size_t at) {
  return at < is_new.size() && is_new[at] ? "<span class=\"chip fresh\">new</span>" : "";
}

// ---- The table of routers -----------------------------------------------------------------------

void show_number(std::string_view css, std::size_t number, std::ostream& out) {
  out << fmt::format("<td class=\"number{}{}\">{}</td>", number == 0 ? "" : " ",
                     number == 0 ? "" : css, number);
}

void show_row(const merged_router& of, std::size_t index, bool has_types, std::ostream& out) {
  const look shown = look_of(standing_of(of));
  const std::string name = fmt::format("<bdi>{}</bdi>", html(of.name));
  out << fmt::format("<tr class=\"{}\" data-hit=\"r{}\"><th scope=\"row\">", shown.css, index);
  out << (has_fold(of) ? fmt::format("<a href=\"#r{}\">{}</a></th>", index, name) : name + "</th>");
  out << fmt::format("<td>{}</td>", chip(shown));
  if (!of.trouble.empty()) {
    out << fmt::format("<td colspan=\"{}\">{}</td></tr>\n", has_types ? 7 : 6, html(of.file));
    return;
  }
  show_number("", total(of.of, verdict::agrees), out);
  show_number("e", total(of.of, verdict::differs), out);
  show_number("q", total(of.of, verdict::not_judged), out);
  show_number("", findings_of(of), out);
  if (const auto fresh = new_findings_of(of))
    show_number("fresh", *fresh, out);
  else
    out << "<td class=\"number\">–</td>";
  const std::string& started = of.of.of.started;
  if (has_types) out << fmt::format("<td>{}</td>", html(of.of.of.router_type));
  out << fmt::format("<td>{}</td></tr>\n", html(started.substr(0, started.find(','))));
}

void show_table(const routers& all, std::ostream& out) {
  out << "<section id=\"routers\" aria-labelledby=\"routers-title\">\n"
         "<h2 id=\"routers-title\">Routers</h2>\n"
         "<input type=\"checkbox\" id=\"only\" class=\"only\">"
         "<label for=\"only\" class=\"only\">Leave out routers that agree</label>\n"
         "<div class=\"box matrix routers\" tabindex=\"0\" role=\"region\" "
         "aria-label=\"Routers\">\n"
         "<table>\n<thead><tr>";
  const bool has_types = std::any_of(
      all.begin(), all.end(), [](const auto& one) { return !one.of.of.router_type.empty(); });
  for (const std::string_view head :
       {"Router", "Verdict", "Agree", "Differ", "Not judged", "Findings", "New", "Type", "Started"})
    if (has_types || head != "Type") out << fmt::format("<th scope=\"col\">{}</th>", head);
  out << "</tr></thead>\n<tbody>\n";
  for (std::size_t i = 0; i < all.size(); ++i) show_row(all[i], i, has_types, out);
  out << "</tbody>\n</table>\n</div>\n</section>\n";
}

// ---- One router ---------------------------------------------------------------------------------

// The first of these, the new ones in front; the rest only by number.
std::vector<std::size_t> chosen(const std::vector<std::size_t>& all,
                                const std::vector<bool>& is_new, std::size_t most) {
  std::vector<std::size_t> made = all;
  std::stable_partition(made.begin(), made.end(),
                        [&](std::size_t i) { return i < is_new.size() && is_new[i]; });
  made.resize(std::min(made.size(), most));
  return made;
}

void show_rest(std::size_t all, std::size_t shown, std::string_view what, std::ostream& out) {
  if (shown < all)
    out << fmt::format("<p class=\"soft\">and {} more {}: see the report of the router</p>\n",
                       all - shown, what);
}

// Where a cause is new, its findings need no mark of their own.
void show_findings(const merged_router& of, const std::vector<std::size_t>& findings,
                   bool is_cause_new, std::ostream& out) {
  const auto shown = chosen(findings, of.new_findings, most_findings);
  for (const std::size_t each : shown) {
    if (!is_cause_new) out << new_chip(of.new_findings, each);
    show_finding(of.of.of.findings[each], out);
  }
  show_rest(findings.size(), shown.size(), "findings", out);
}

void show_cause(const merged_router& of, std::size_t at, std::ostream& out) {
  const cause& why = of.of.causes[at];
  const look shown = look_of(mark_of(of.of.of, why));
  out << fmt::format(
      "<article class=\"cause\">\n<header><span class=\"chip {}\"><span aria-hidden=\"true\">{}"
      "</span><span class=\"spoken\">{}</span></span>{}<h3>{}</h3></header>\n",
      shown.css, shown.sign, shown.word, new_chip(of.new_causes, at), html(why.title));
  show_reasons(why, out);
  if (!why.findings.empty()) {
    out << fmt::format("<details><summary>{} {}</summary>\n", why.findings.size(),
                       why.findings.size() == 1 ? "finding" : "findings");
    show_findings(of, why.findings, at < of.new_causes.size() && of.new_causes[at], out);
    out << "</details>\n";
  }
  out << "</article>\n";
}

void show_causes(const merged_router& of, std::ostream& out) {
  std::vector<std::size_t> all;
  for (std::size_t i = 0; i < of.of.causes.size(); ++i) all.push_back(i);
  const auto shown = chosen(all, of.new_causes, most_causes);
  for (const std::size_t each : shown) show_cause(of, each, out);
  show_rest(all.size(), shown.size(), "causes", out);
}

void show_loose(const merged_router& of, std::ostream& out) {
  std::vector<std::size_t> loose;
  for (const std::size_t each : of.of.unexplained)
    if (of.of.of.findings[each].kind != finding_kind::note || is_scale(of.of.of.findings[each]))
      loose.push_back(each);
  if (loose.empty()) return;
  out << "<h4>Findings without a cause</h4>\n";
  show_findings(of, loose, false, out);
}

void show_holes(const merged_router& of, std::ostream& out) {
  const auto& holes = of.of.of.covered;
  if (holes.empty()) return;
  out << "<h4>Not read</h4>\n<ul>\n";
  for (std::size_t i = 0; i < std::min(holes.size(), most_holes); ++i)
    out << fmt::format("<li>{}</li>\n", html(sentence_for(holes[i])));
  out << "</ul>\n";
  show_rest(holes.size(), most_holes, "places", out);
}

void show_facts(const merged_router& of, std::ostream& out) {
  out << "<dl class=\"facts\">\n";
  show_fact("Report", of.file, out);
  if (of.trouble.empty()) {
    show_fact("Read from", of.of.of.origin, out);
    show_fact("Started", of.of.of.started, out);
    show_fact("End", std::string(sentence_for(of.of.of.end)), out);
  }
  show_fact("Trouble", of.trouble, out);
  for (const earlier_report& one : of.earlier)
    show_fact("Earlier",
              fmt::format("{}{}{}", one.file, one.started.empty() ? "" : ", started ", one.started),
              out);
  out << "</dl>\n";
  if (of.of.of.marks.empty()) return;
  out << "<ul>\n";
  for (const auto& mark : of.of.of.marks) out << fmt::format("<li>{}</li>\n", html(mark));
  out << "</ul>\n";
}

void show_router(const merged_router& of, std::size_t index, std::ostream& out) {
  const std::string sentence =
      of.trouble.empty() ? sentence_for_bundles(of.of) : std::string("its report was not read");
  // The link from the table leads inside, so that a browser opens the fold also without a script.
  out << fmt::format(
      "<details class=\"more router\"><summary>{} <bdi>{}</bdi>: {}</summary>\n<div id=\"r{}\">\n",
      chip(look_of(standing_of(of))), html(of.name), sentence, index);
  show_facts(of, out);
  show_causes(of, out);
  show_loose(of, out);
  show_holes(of, out);
  out << "</div>\n</details>\n";
}

void show_routers(const routers& all, std::ostream& out) {
  out << "<section id=\"details\" aria-labelledby=\"details-title\">\n"
         "<h2 id=\"details-title\">What was found</h2>\n";
  if (std::none_of(all.begin(), all.end(), has_fold)) out << "<p>Nothing on any router.</p>\n";
  for (std::size_t i = 0; i < all.size(); ++i)
    if (has_fold(all[i])) show_router(all[i], i, out);
  out << "</section>\n";
}

// ---- The same on several routers ----------------------------------------------------------------

struct message_use {
  std::size_t findings = 0;
  std::vector<std::size_t> on;
};

void show_message(std::string_view code, finding_kind kind, const message_use& of,
                  const routers& all, std::ostream& out) {
  const look shown = look_of(mark_of(kind));
  out << fmt::format(
      "<tr><th scope=\"row\"><code>{}</code></th><td><span class=\"chip {}\">{} {}</span></td>"
      "<td class=\"number\">{}</td><td class=\"number\">{}</td><td>",
      html(code), shown.css, shown.sign, word_for(kind), of.findings, of.on.size());
  for (std::size_t i = 0; i < std::min(of.on.size(), most_names); ++i)
    out << fmt::format("{}<a href=\"#r{}\"><bdi>{}</bdi></a>", i == 0 ? "" : ", ", of.on[i],
                       html(all[of.on[i]].name));
  if (of.on.size() > most_names) out << fmt::format(" and {} more", of.on.size() - most_names);
  out << "</td></tr>\n";
}

void show_messages(const routers& all, std::ostream& out) {
  using key = std::pair<std::string_view, finding_kind>;
  std::map<key, message_use> uses;
  for (std::size_t i = 0; i < all.size(); ++i) {
    if (!has_fold(all[i])) continue;
    for (const finding& one : all[i].of.of.findings) {
      if (one.kind == finding_kind::note && !is_scale(one)) continue;
      message_use& use = uses[{one.code, one.kind}];
      ++use.findings;
      if (use.on.empty() || use.on.back() != i) use.on.push_back(i);
    }
  }
  std::vector<std::pair<key, message_use>> sorted(uses.begin(), uses.end());
  std::stable_sort(sorted.begin(), sorted.end(), [](const auto& a, const auto& b) {
    return a.second.on.size() > b.second.on.size();
  });
  out << "<section id=\"messages\" aria-labelledby=\"messages-title\">\n"
         "<h2 id=\"messages-title\">Messages</h2>\n";
  if (sorted.empty()) out << "<p>None.</p>\n";
  if (!sorted.empty()) {
    open_table("Messages", {"Code", "Kind", "Findings", "Routers", "Where"}, out);
    for (const auto& [of, use] : sorted) show_message(of.first, of.second, use, all, out);
    out << "</tbody></table></div>\n";
  }
  out << "</section>\n";
}

// ---- The page -----------------------------------------------------------------------------------

void show_head(const routers& all, std::ostream& out) {
  standing worst = standing::agrees;
  for (const merged_router& one : all) worst = std::max(worst, standing_of(one));
  const look shown = look_of(worst);
  out << fmt::format(
      "<header>\n<h1>Link bundles of {} router{}</h1>\n"
      "<p class=\"verdict {}\"><span aria-hidden=\"true\">{}</span><span>{}</span></p>\n"
      "<nav aria-label=\"Parts of this page\"><ul><li><a href=\"#routers\">Routers</a></li>"
      "<li><a href=\"#details\">What was found</a></li>"
      "<li><a href=\"#messages\">Messages</a></li></ul></nav>\n",
      all.size(), all.size() == 1 ? "" : "s", shown.css, shown.sign, html(sentence_for(all)));
  show_search("a router, a bundle, a value", out);
  out << "</header>\n<main>\n";
}

}  // namespace

void show_merged_html(const routers& all, std::ostream& out) {
  open_page("Link bundles of all routers", out);
  show_head(all, out);
  show_table(all, out);
  show_routers(all, out);
  show_messages(all, out);
  close_page(out);
}

}  // namespace desk
