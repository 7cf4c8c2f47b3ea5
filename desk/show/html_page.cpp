#include "desk/show/html_page.h"

#include <fmt/format.h>

#include <ostream>

#include "desk/show/escape.h"
#include "desk/show/html_assets.h"

namespace desk {

void open_page(const std::string& title, std::ostream& out) {
  out << fmt::format(
      "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
      "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; "
      "style-src 'unsafe-inline'; script-src '{}'; base-uri 'none'; form-action 'none'\">\n"
      "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
      "<meta name=\"referrer\" content=\"no-referrer\">\n"
      "<title>{}</title>\n<style>{}</style>\n</head>\n<body>\n",
      page_script_hash(), title, page_style());
}

void close_page(std::ostream& out) {
  out << fmt::format(
      "</main>\n<footer><p>Written by tessel-report {}. Run the audit again before you act on a "
      "single finding: a change of the configuration during the audit can cause a passing "
      "one.</p></footer>\n<script>{}</script>\n</body>\n</html>\n",
      TESSEL_VERSION, page_script());
}

void show_fact(std::string_view name, const std::string& value, std::ostream& out) {
  if (!value.empty()) out << fmt::format("<dt>{}</dt><dd>{}</dd>\n", name, html(value));
}

void show_search(std::string_view example, std::ostream& out) {
  out << fmt::format(
      "<div class=\"search\" id=\"search\" role=\"search\" hidden>"
      "<label for=\"words\">Search</label>"
      "<input id=\"words\" type=\"search\" placeholder=\"{}\" autocomplete=\"off\">"
      "<span id=\"result\" class=\"soft\" aria-live=\"polite\"></span></div>\n",
      example);
}

void open_table(std::string_view name, const std::vector<std::string_view>& columns,
                std::ostream& out) {
  out << fmt::format(
      "<div class=\"box\" tabindex=\"0\" role=\"region\" aria-label=\"{}\">"
      "<table class=\"values\">\n<thead><tr>",
      name);
  for (const auto column : columns) out << fmt::format("<th scope=\"col\">{}</th>", column);
  out << "</tr></thead>\n<tbody>\n";
}

}  // namespace desk
