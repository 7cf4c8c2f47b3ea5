#include "lab/capture/redact_names.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <string_view>
#include <vector>

namespace lab {
namespace {

struct keyword {
  std::string_view word;  // the name is behind it
  const char* kind;
  bool name_kinds::*wanted;
};

constexpr std::array keywords{keyword{"vrf", "vrf", &name_kinds::vrf},
                              keyword{"access-list", "acl", &name_kinds::acl},
                              keyword{"access-group", "acl", &name_kinds::acl},
                              keyword{"access-class", "acl", &name_kinds::acl},
                              keyword{"trustpoint", "trustpoint", &name_kinds::trustpoint}};

// Words that stand where a name may stand.
constexpr std::array<std::string_view, 5> no_names{"default", "all", "common", "ipv4", "ipv6"};

std::vector<std::string_view> words_in(std::string_view line) {
  constexpr std::string_view blanks = " \t\r";
  std::vector<std::string_view> words;
  for (std::size_t at = 0; (at = line.find_first_not_of(blanks, at)) != std::string_view::npos;) {
    const std::size_t end = std::min(line.find_first_of(blanks, at), line.size());
    words.push_back(line.substr(at, end - at));
    at = end;
  }
  return words;
}

bool is_name(std::string_view word) {
  return std::find(no_names.begin(), no_names.end(), word) == no_names.end() &&
         std::any_of(word.begin(), word.end(),
                     [](char c) { return std::isalpha(static_cast<unsigned char>(c)) != 0; });
}

// Texts of users are no commands.
bool is_free_text(std::string_view word) {
  return word == "description" || word == "remark" || word == "alias";
}

void add_names(std::string_view line, const name_kinds& kinds,
               std::map<std::string, std::string>& names) {
  const std::vector<std::string_view> words = words_in(line);
  for (std::size_t i = 0; i + 1 < words.size() && !is_free_text(words[i]); ++i)
    for (const keyword& one : keywords) {
      if (!(kinds.*one.wanted) || words[i] != one.word) continue;
      const bool is_behind_common = words[i + 1] == "common" && i + 2 < words.size();
      for (std::size_t at = i + 1; at <= i + (is_behind_common ? 3U : 1U) && at < words.size();
           ++at)
        if (is_name(words[at]) && words[at] != "ingress" && words[at] != "egress")
          names.try_emplace(std::string{words[at]}, one.kind);
    }
}

}  // namespace

std::map<std::string, std::string> configured_names(const capture& c, const name_kinds& kinds) {
  std::map<std::string, std::string> names;
  for (const auto& [key, text] : c.answers) {
    if (!key.second.starts_with("cfg_render")) continue;
    std::string_view rest = text;
    while (!rest.empty()) {
      const std::size_t end = std::min(rest.find('\n'), rest.size());
      add_names(rest.substr(0, end), kinds, names);
      rest.remove_prefix(std::min(end + 1, rest.size()));
    }
  }
  return names;
}

}  // namespace lab
