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
constexpr std::array<std::string_view, 4> no_names{"default", "all", "log-update", "maximum"};

// Words between the keyword of an access list and its name.
constexpr std::array<std::string_view, 13> words_before_list{
    "ipv4",     "ipv6",     "IPv4", "IPv6",       "common", "ingress",   "egress",
    "extended", "standard", "peer", "query-only", "serve",  "serve-only"};

constexpr std::array<std::string_view, 4> ip_words{"ipv4", "ipv6", "IPv4", "IPv6"};
constexpr std::array<std::string_view, 7> rights{"RO",          "RW",      "ro",      "rw",
                                                 "SystemOwner", "LROwner", "SDROwner"};

template <std::size_t Size>
bool among(const std::array<std::string_view, Size>& list, std::string_view word) {
  return std::find(list.begin(), list.end(), word) != list.end();
}

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
  return !among(no_names, word) && std::any_of(word.begin(), word.end(), [](char c) {
    return std::isalpha(static_cast<unsigned char>(c)) != 0;
  });
}

// Texts of users are no commands.
bool is_free_text(std::string_view word) {
  return word == "description" || word == "remark" || word == "alias";
}

using word_list = std::vector<std::string_view>;
using name_map = std::map<std::string, std::string>;

void add_name(const word_list& words, std::size_t at, const char* kind, name_map& names) {
  if (at < words.size() && is_name(words[at])) names.try_emplace(std::string{words[at]}, kind);
}

// "access-group NAME ingress", "access-class ingress NAME", "access-group common NAME NAME
// ingress", "access-group vrf VRF ipv4 peer NAME".
void add_list(const word_list& words, std::size_t at, const char* kind, name_map& names) {
  if (words[at] == "vrf") at += 2;
  bool is_common = false;
  for (; at < words.size() && among(words_before_list, words[at]); ++at)
    is_common = is_common || words[at] == "common";
  add_name(words, at, kind, names);
  if (is_common && at + 1 < words.size() && !among(words_before_list, words[at + 1]))
    add_name(words, at + 1, kind, names);
}

// "snmp-server community SECRET RO SystemOwner NAME", "snmp-server group ... ipv4 NAME".
void add_lists_of_snmp(const word_list& words, name_map& names) {
  constexpr std::size_t behind_secret = 3;
  if (words.size() <= behind_secret || words[0] != "snmp-server") return;
  const bool has_rights = words[1] == "community";
  if (!has_rights && words[1] != "user" && words[1] != "group") return;
  const auto announces = [&](std::string_view word) {
    return among(ip_words, word) || (has_rights && among(rights, word));
  };
  for (std::size_t i = behind_secret; i + 1 < words.size(); ++i)
    if (announces(words[i]) && !announces(words[i + 1])) add_name(words, i + 1, "acl", names);
}

void add_names(std::string_view line, const name_kinds& kinds, name_map& names) {
  const word_list words = words_in(line);
  if (kinds.acl) add_lists_of_snmp(words, names);
  for (std::size_t i = 0; i + 1 < words.size() && !is_free_text(words[i]); ++i)
    for (const keyword& one : keywords) {
      if (!(kinds.*one.wanted) || words[i] != one.word) continue;
      if (one.wanted == &name_kinds::acl)
        add_list(words, i + 1, one.kind, names);
      else
        add_name(words, i + 1, one.kind, names);
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
