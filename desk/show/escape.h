// Texts of a run as each format can hold them. They come from logs: they can contain anything, also
// NUL, terminal sequences and bytes that are no UTF-8.
//
// In every format a byte that is no UTF-8 becomes U+FFFD. What a format cannot hold becomes U+FFFD
// as well, unless it is said otherwise. Nothing here fails except for want of memory. Any thread.
#pragma once

#include <string>
#include <string_view>

namespace desk {

// Valid UTF-8, otherwise unchanged: still with control characters.
[[nodiscard]] std::string utf8(std::string_view raw);

// For quoted attributes of XML 1.0, and for text. Tabs, line feeds and carriage returns come back
// as they were when the file is read.
[[nodiscard]] std::string xml(std::string_view raw);

// For text only: line feeds stay line feeds, so that a person can read it in the file as well.
[[nodiscard]] std::string xml_text(std::string_view raw);

// For text and for quoted attributes of HTML.
[[nodiscard]] std::string html(std::string_view raw);
// The same behind another text.
void append_html(std::string& to, std::string_view raw);

// For a quoted label of Prometheus' text format.
[[nodiscard]] std::string prometheus_label(std::string_view raw);

// For the text of a monitoring plug-in, which is one line and ends at the first "|": a control
// character becomes a blank, "|" becomes "/".
[[nodiscard]] std::string nagios_text(std::string_view raw);

// For a relative reference in a URI: everything but letters, digits and "-._~/" as %XX.
[[nodiscard]] std::string uri_path(std::string_view raw);

// The longest start that has at most so many bytes and does not end inside a character.
[[nodiscard]] std::string_view start_of(std::string_view valid_utf8, std::size_t bytes);

}  // namespace desk
