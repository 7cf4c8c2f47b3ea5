#include "desk/show/escape.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <iterator>

#include "desk/model/utf8.h"

namespace desk {

namespace {

constexpr std::string_view replacement = replacement_character;

struct character {
  std::uint32_t code = replacement_code;
  std::string_view bytes = replacement;
};

// Takes the first character off a text that is not empty; of a broken one only its first byte.
character take_character(std::string_view& rest) {
  const utf8_character first = first_character(rest);
  const std::string_view bytes = rest.substr(0, first.length);
  rest.remove_prefix(first.is_valid ? first.length : 1);
  return first.is_valid ? character{first.code, bytes} : character{};
}

bool is_control(std::uint32_t code) {
  return code < 0x20 || (code >= 0x7f && code <= 0x9f) || turns_text(code);
}

// Unicode reserves these for ever; the formats of pages refuse them.
bool is_no_character(std::uint32_t code) {
  return (code >= 0xfdd0 && code <= 0xfdef) || (code & 0xfffeU) == 0xfffeU;
}

// Every format shows these characters as they are. Nearly all texts consist of them.
constexpr auto plain_bytes = [] {
  std::array<bool, 256> made{};
  for (std::size_t byte = 0x20; byte < 0x7f; ++byte) made[byte] = true;
  for (const char special : std::string_view("&<>\"'\\|"))
    made[static_cast<unsigned char>(special)] = false;
  return made;
}();

bool is_plain(char byte) {
  return plain_bytes[static_cast<unsigned char>(byte)];
}

// Appends the text with each character that is not plain as `shown` gives it.
template <typename Shown>
void append_mapped(std::string& to, std::string_view raw, Shown shown) {
  while (!raw.empty()) {
    const auto end = std::find_if_not(raw.begin(), raw.end(), is_plain);
    const auto length = static_cast<std::size_t>(end - raw.begin());
    to += raw.substr(0, length);
    raw.remove_prefix(length);
    if (!raw.empty()) to += shown(take_character(raw));
  }
}

template <typename Shown>
std::string mapped(std::string_view raw, Shown shown) {
  std::string text;
  text.reserve(raw.size());
  append_mapped(text, raw, shown);
  return text;
}

// The entities that XML and HTML share, or nothing.
std::string_view entity(std::uint32_t code) {
  switch (code) {
    case '&':
      return "&amp;";
    case '<':
      return "&lt;";
    case '>':
      return "&gt;";
    case '"':
      return "&quot;";
    case '\'':
      return "&#39;";
    default:
      return {};
  }
}

std::string xml_character(const character& c) {
  if (const auto known = entity(c.code); !known.empty()) return std::string(known);
  if (c.code == '\t' || c.code == '\n') return std::string(c.bytes);
  if (c.code == '\r' || (c.code >= 0x7f && c.code <= 0x9f)) return fmt::format("&#{};", c.code);
  return std::string(is_control(c.code) || is_no_character(c.code) ? replacement : c.bytes);
}

}  // namespace

std::string utf8(std::string_view raw) {
  return mapped(raw, [](const character& c) { return c.bytes; });
}

std::string xml(std::string_view raw) {
  return mapped(raw, [](const character& c) {
    const bool is_normalised = c.code == '\t' || c.code == '\n';
    return is_normalised ? fmt::format("&#{};", c.code) : xml_character(c);
  });
}

std::string xml_text(std::string_view raw) {
  return mapped(raw, xml_character);
}

void append_html(std::string& to, std::string_view raw) {
  append_mapped(to, raw, [](const character& c) {
    if (const auto known = entity(c.code); !known.empty()) return known;
    if (c.code == '\t' || c.code == '\n') return c.bytes;
    return is_control(c.code) || is_no_character(c.code) ? replacement : c.bytes;
  });
}

std::string html(std::string_view raw) {
  std::string text;
  text.reserve(raw.size());
  append_html(text, raw);
  return text;
}

std::string prometheus_label(std::string_view raw) {
  return mapped(raw, [](const character& c) -> std::string_view {
    if (c.code == '\\') return "\\\\";
    if (c.code == '"') return "\\\"";
    if (c.code == '\n') return "\\n";
    return is_control(c.code) ? replacement : c.bytes;
  });
}

std::string nagios_text(std::string_view raw) {
  return mapped(raw, [](const character& c) -> std::string_view {
    if (c.code == '|') return "/";
    const bool ends_line = is_control(c.code) || c.code == 0x2028 || c.code == 0x2029;
    return ends_line ? " " : c.bytes;
  });
}

std::string uri_path(std::string_view raw) {
  constexpr std::string_view plain =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~/";
  std::string path;
  for (const char byte : utf8(raw)) {
    if (plain.find(byte) != std::string_view::npos)
      path += byte;
    else
      fmt::format_to(std::back_inserter(path), "%{:02X}", static_cast<unsigned char>(byte));
  }
  return path;
}

std::string_view start_of(std::string_view valid_utf8, std::size_t bytes) {
  if (valid_utf8.size() <= bytes) return valid_utf8;
  while (bytes > 0 && (static_cast<unsigned char>(valid_utf8[bytes]) & 0xc0U) == 0x80U) --bytes;
  return valid_utf8.substr(0, bytes);
}

}  // namespace desk
