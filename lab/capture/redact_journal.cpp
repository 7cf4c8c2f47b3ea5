#include "lab/capture/redact_journal.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <optional>
#include <vector>

namespace lab {
namespace {

enum class content { number, text, plain };

struct known_key {
  std::string_view name;
  content kind;
  std::string_view admits;  // for a plain text: its characters
};

constexpr std::string_view digits = "0123456789.";
constexpr std::string_view letters = "abcdefghijklmnopqrstuvwxyz";
constexpr std::string_view removed = "(removed)";

constexpr std::array known_keys{known_key{"n", content::number, digits},
                                known_key{"event", content::plain, letters},
                                known_key{"format", content::number, digits},
                                known_key{"version", content::plain, digits},
                                known_key{"time", content::plain, "0123456789-:.TZ"},
                                known_key{"id", content::number, digits},
                                known_key{"at", content::number, digits},
                                known_key{"pid", content::number, digits},
                                known_key{"node_id", content::number, digits},
                                known_key{"node", content::text, {}},
                                known_key{"npu", content::plain, digits},
                                known_key{"command", content::text, {}},
                                known_key{"seconds", content::number, digits},
                                known_key{"status", content::number, digits},
                                known_key{"signal", content::number, digits},
                                known_key{"bytes", content::number, digits},
                                known_key{"failed", content::text, {}},
                                known_key{"cut", content::number, {}}};

struct member {
  std::string_view key;
  std::string_view value;  // as it is written, without quotes
  bool is_quoted = false;
};

// Takes a text in quotes from the front; nothing if there is none that ends.
std::optional<std::string_view> take_quoted(std::string_view& line) {
  if (!line.starts_with('"')) return std::nullopt;
  for (std::size_t at = 1; at < line.size(); ++at) {
    if (line[at] == '\\') {
      ++at;
    } else if (line[at] == '"') {
      const std::string_view text = line.substr(1, at - 1);
      line.remove_prefix(at + 1);
      return text;
    }
  }
  return std::nullopt;
}

std::optional<member> take_member(std::string_view& line) {
  const auto key = take_quoted(line);
  if (!key || !line.starts_with(':')) return std::nullopt;
  line.remove_prefix(1);
  if (const auto text = take_quoted(line)) return member{*key, *text, true};
  const std::size_t end = std::min(line.find_first_of(",}\""), line.size());
  const member found{*key, line.substr(0, end), false};
  line.remove_prefix(end);
  return found;
}

// The members of a flat object, as the audit writes it; empty if the line is none.
std::vector<member> members_of(std::string_view line) {
  std::vector<member> members;
  for (char expected = '{'; line.starts_with(expected); expected = ',') {
    line.remove_prefix(1);
    const auto next = take_member(line);
    if (!next) return {};
    members.push_back(*next);
  }
  return line == "}" ? members : std::vector<member>{};
}

bool consists_of(std::string_view text, std::string_view characters) {
  return !text.empty() && text.find_first_not_of(characters) == std::string_view::npos;
}

// The text behind the quotes if it is printable and its only escapes are those of quotes.
std::optional<std::string> plain_text(std::string_view quoted) {
  std::string text;
  for (std::size_t at = 0; at < quoted.size(); ++at) {
    if (quoted[at] == '\\' && ++at < quoted.size() && quoted[at] != '"') return std::nullopt;
    if (quoted[at] < ' ' || quoted[at] > '~') return std::nullopt;
    text += quoted[at];
  }
  return text;
}

std::string in_quotes(std::string_view text) {
  std::string quoted = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') quoted += '\\';
    quoted += c;
  }
  return quoted + '"';
}

// Empty if the member is to be left out.
std::string redacted_value(const member& one, bool is_cut,
                           const std::function<std::string(const std::string&)>& redacted) {
  const auto known = std::find_if(known_keys.begin(), known_keys.end(),
                                  [&](const known_key& each) { return each.name == one.key; });
  if (known == known_keys.end()) return {};
  if (!one.is_quoted) {
    const bool is_word = one.value == "null" || one.value == "true";
    return is_word || consists_of(one.value, digits) ? std::string{one.value} : std::string{};
  }
  if (known->kind == content::number) return {};
  if (known->kind == content::plain)
    return consists_of(one.value, known->admits) ? in_quotes(one.value) : std::string{};
  const auto text = is_cut ? std::nullopt : plain_text(one.value);
  return in_quotes(text ? redacted(*text) : removed);
}

std::string redacted_line(std::string_view line,
                          const std::function<std::string(const std::string&)>& redacted) {
  const std::vector<member> members = members_of(line);
  const bool is_cut = std::any_of(members.begin(), members.end(),
                                  [](const member& one) { return one.key == "cut"; });
  std::string out;
  for (const member& one : members) {
    const std::string value = redacted_value(one, is_cut, redacted);
    if (value.empty()) continue;
    out += out.empty() ? '{' : ',';
    out += in_quotes(one.key) + ':' + value;
  }
  return out.empty() ? out : out + "}\n";
}

}  // namespace

std::string redacted_journal(std::string_view journal,
                             const std::function<std::string(const std::string&)>& redacted) {
  std::string out;
  while (!journal.empty()) {
    const std::size_t end = std::min(journal.find('\n'), journal.size());
    out += redacted_line(journal.substr(0, end), redacted);
    journal.remove_prefix(std::min(end + 1, journal.size()));
  }
  return out;
}

}  // namespace lab
