#include "desk/show/html.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "desk/show/escape.h"
#include "tests/desk/example_runs.h"

namespace desk {
namespace {

using testing::HasSubstr;
using testing::Not;

std::string shown(const judged_run& of) {
  std::ostringstream out;
  show_html(of, out);
  return out.str();
}

std::size_t count(const std::string& text, const std::string& part) {
  std::size_t found = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
    ++found;
  return found;
}

std::string part_of(const std::string& text, const std::string& from, const std::string& to) {
  const auto start = text.find(from);
  return start == std::string::npos ? "" : text.substr(start, text.find(to, start) - start);
}

TEST(html_view, says_in_one_sentence_how_the_run_ended) {
  EXPECT_THAT(shown(healthy_run()), HasSubstr("<span>3 bundles agree.</span>"));
  EXPECT_THAT(shown(run_with_faults()), HasSubstr("<span>3 of 4 bundles differ.</span>"));
  EXPECT_THAT(shown(run_not_judged()), HasSubstr("<span>1 of 2 bundles not judged.</span>"));
  EXPECT_THAT(shown(run_that_stopped()),
              HasSubstr("<span>The audit stopped before its end; no bundle was found.</span>"));
  auto stale = healthy_run();
  stale.causes.resize(1);
  EXPECT_THAT(shown(stale), HasSubstr("<span>3 bundles agree; one other thing to look at.</span>"));
}

TEST(html_view, goes_by_the_name_of_the_router) {
  const auto named = shown(run_with_faults());
  EXPECT_THAT(named, HasSubstr("<title>Link bundles of core-7</title>"));
  EXPECT_THAT(named, HasSubstr("<h1>Link bundles of <bdi>core-7</bdi></h1>"));
  EXPECT_THAT(named, HasSubstr("<dt>Read from</dt><dd>/var/log/audit</dd>"));
  const auto nameless = shown(healthy_run());
  EXPECT_THAT(nameless, HasSubstr("<title>Link bundles of /var/log/audit</title>"));
  EXPECT_THAT(nameless, Not(HasSubstr("Read from")));
}

TEST(html_view, shows_each_cause_before_the_bundles) {
  const auto page = shown(run_with_faults());
  const auto why = part_of(page, "id=\"c0\"", "</article>");
  EXPECT_THAT(why,
              HasSubstr("<h3>BE1: global LIF is 0x14500 on 0/2/CPU0, 0x14000 on 3 others</h3>"));
  EXPECT_THAT(why, HasSubstr("majority</span> 3 of 4 nodes hold the other value"));
  EXPECT_THAT(why, HasSubstr("Next: <code class=\"command\">Run fwd_object_show -t l2port"));
  EXPECT_THAT(why, HasSubstr("<a href=\"#b0\">"));
  EXPECT_THAT(why, HasSubstr("<details><summary>1 message</summary>"));
  EXPECT_THAT(why, HasSubstr("<code>TC-108</code>"));
  EXPECT_LT(page.find("id=\"causes\""), page.find("id=\"bundles\""));
}

TEST(html_view, marks_the_cell_of_each_bundle_and_node_with_a_sign_and_words) {
  const auto page = shown(run_with_faults());
  const auto row = part_of(page, "<tr data-hit=\"b0\">", "</tr>");
  EXPECT_THAT(row, HasSubstr("<td class=\"k\">✓</td><td class=\"k\">✓</td><td class=\"e\">"
                             "<a href=\"#b0\" aria-label=\"BE1 on 0/2/CPU0: differs\">✕</a></td>"
                             "<td class=\"k\">✓</td>"));
  EXPECT_THAT(part_of(page, "<tr data-hit=\"b2\">", "</tr>"),
              HasSubstr("<td class=\"w\"><a href=\"#b2\" aria-label=\"BE10 on the router: "));
  EXPECT_THAT(page,
              HasSubstr("<tr class=\"k\" data-hit=\"b3\"><th scope=\"row\"><a href=\"#b3\">"
                        "<bdi>BE20</bdi></a></th><td class=\"k\" colspan=\"5\"><a href=\"#b3\" "
                        "aria-label=\"BE20: agrees\">✓ agrees</a></td></tr>"));
}

TEST(html_view, shows_the_worst_of_a_cell) {
  auto run = run_with_faults();
  auto note = run.of.findings[0];
  note.kind = finding_kind::note;
  run.of.findings.push_back(note);
  run.of.findings.insert(run.of.findings.begin(), note);
  for (auto& why : run.causes)
    for (auto& each : why.findings) ++each;
  run.unexplained[0] += 1;
  EXPECT_THAT(shown(run), HasSubstr("aria-label=\"BE1 on 0/2/CPU0: differs\""));
}

TEST(html_view, marks_a_node_that_was_not_read_in_rows_with_cells) {
  auto run = run_with_faults();
  run.of.covered.back().state = coverage_state::failed;
  run.of.covered.back().reason = "timed out";
  const auto page = shown(run);
  EXPECT_THAT(page, HasSubstr("aria-label=\"BE1 on 0/3/CPU0: not read or not verified\">?</a>"));
  EXPECT_THAT(page, HasSubstr("<th scope=\"row\">BCM of 0/3/CPU0</th><td class=\"q\">? failed</td>"
                              "<td>timed out</td>"));
}

TEST(html_view, has_a_column_for_a_node_that_only_a_finding_names) {
  auto run = run_with_faults();
  run.of.findings[1].node = "0/77/CPU0";
  EXPECT_THAT(shown(run), HasSubstr("<th scope=\"col\"><bdi>0/77/CPU0</bdi></th></tr></thead>"));
}

TEST(html_view, marks_the_odd_node_and_not_the_one_that_a_message_blames) {
  auto run = run_with_faults();
  run.of.findings[0].node = "0/1/CPU0";
  const auto row = part_of(shown(run), "<tr data-hit=\"b0\">", "</tr>");
  EXPECT_EQ(count(row, "class=\"e\""), 1U);
  EXPECT_THAT(row, HasSubstr("BE1 on 0/2/CPU0: differs"));
}

TEST(html_view, shows_the_witnesses_of_a_difference_with_the_odd_one_first) {
  const auto dossier = part_of(shown(run_with_faults()), "id=\"b0\"", "</section>");
  EXPECT_THAT(
      dossier,
      HasSubstr("<tbody>\n<tr class=\"odd\"><th scope=\"row\">✕ odd: <code>0x14500</code></th>"
                "<td>DPA</td><td>fwd_object_show -t l2port</td><td>0/2/CPU0</td></tr>\n"));
  EXPECT_THAT(dossier,
              HasSubstr("<code>0x14000</code></th><td>DPA</td><td>fwd_object_show -t l2port"
                        "</td><td>0/0/CPU0, 0/1/CPU0, 0/3/CPU0</td>"));
  EXPECT_THAT(dossier, HasSubstr("<th scope=\"row\">absent</th>"));
  EXPECT_THAT(dossier, HasSubstr("<th scope=\"row\">not read: no chip tables</th>"));
  EXPECT_EQ(count(dossier, "<pre>"), 1U);
}

TEST(html_view, says_why_a_bundle_was_not_judged) {
  auto run = run_not_judged();
  EXPECT_THAT(part_of(shown(run), "id=\"b1\"", "</section>"),
              HasSubstr("<li>DPA on 0/1/CPU0: ssh timed out</li>"));
  run.bundles[1].not_judged.assign(144, "a reason");
  const auto dossier = part_of(shown(run), "id=\"b1\"", "</section>");
  EXPECT_EQ(count(dossier, "<li>a reason</li>"), 20U);
  EXPECT_THAT(dossier, HasSubstr("and 124 more"));
}

TEST(html_view, folds_causes_that_would_push_the_bundles_away) {
  const auto page = shown(large_run(100, 4));
  EXPECT_THAT(part_of(page, "<details class=\"more\">", "</article>"),
              HasSubstr("<summary>14 more</summary>\n<article class=\"cause\" id=\"c20\""));
  EXPECT_THAT(shown(large_run(60, 4)), Not(HasSubstr("<details class=\"more\">")));
}

TEST(html_view, refers_to_nothing_outside) {
  for (const auto& run : {healthy_run(), run_with_faults(), run_not_judged(), run_that_stopped()}) {
    const auto page = shown(run);
    EXPECT_THAT(page, Not(HasSubstr("http:")));
    EXPECT_THAT(page, Not(HasSubstr("https:")));
    EXPECT_THAT(page, Not(HasSubstr("url(")));
    EXPECT_THAT(page, Not(HasSubstr(" src=")));
  }
}

TEST(html_view, holds_hostile_texts_as_text) {
  const auto page = shown(hostile_run());
  EXPECT_EQ(count(page, "<script"), 1U);
  EXPECT_EQ(count(page, "</script"), 1U);
  EXPECT_EQ(count(page, "<!--"), 0U);
  EXPECT_THAT(page, Not(HasSubstr("<b>bold")));
  EXPECT_THAT(page, HasSubstr("&lt;/script&gt;&lt;script&gt;alert(1)&lt;/script&gt;&lt;!--"));
  EXPECT_EQ(page.find('\x1b'), std::string::npos);
  EXPECT_EQ(page.find('\0'), std::string::npos);
  EXPECT_EQ(utf8(page), page);
}

TEST(html_view, stays_small_for_a_large_router) {
  EXPECT_LT(shown(large_run(1000, 48)).size(), 4'000'000U);
}

TEST(html_view, has_a_dossier_with_the_layers_of_every_bundle) {
  const auto page = shown(run_with_faults());
  for (const auto* id : {"b0", "b1", "b2", "b3"}) {
    const auto dossier = part_of(page, fmt::format("id=\"{}\"", id), "</section>");
    EXPECT_THAT(dossier, HasSubstr("<table class=\"layers\">")) << id;
    EXPECT_THAT(dossier, HasSubstr("<tr><th scope=\"row\">global LIF</th>")) << id;
    EXPECT_THAT(page, HasSubstr(fmt::format("<a href=\"#{}\">", id)));
  }
  EXPECT_EQ(count(page, "class=\"dossier calm\""), 1U);
}

TEST(html_view, marks_the_odd_value_in_a_column_of_its_own) {
  const auto dossier = part_of(shown(run_with_faults()), "id=\"b0\"", "</section>");
  EXPECT_THAT(dossier, HasSubstr("<th scope=\"col\">DPA<br>l2port<br>3 nodes</th>"
                                 "<th scope=\"col\">DPA<br>l2port<br>0/2/CPU0</th>"));
  EXPECT_THAT(dossier, HasSubstr("<td>0x14000</td><td class=\"e\">0x14500*</td>"));
  EXPECT_THAT(dossier, HasSubstr("<p class=\"soft\">3 nodes: <bdi>0/0/CPU0</bdi>, "
                                 "<bdi>0/1/CPU0</bdi>, <bdi>0/3/CPU0</bdi></p>"));
}

TEST(html_view, shows_what_a_chip_lacks_in_the_layers) {
  auto run = run_with_faults();
  run.of.findings.at(1).what = field::presence;
  const auto dossier = part_of(shown(run), "id=\"b1\"", "</section>");
  EXPECT_THAT(dossier, HasSubstr("<th scope=\"rowgroup\" colspan=\"2\"><bdi>0/0/0/2</bdi>"));
  EXPECT_THAT(dossier, HasSubstr("<th scope=\"col\">BCM<br>asic_shell<br>0/0/CPU0</th>"));
  EXPECT_THAT(dossier, HasSubstr("<td class=\"e\">missing* (NPU 1)</td>"));
}

}  // namespace
}  // namespace desk
