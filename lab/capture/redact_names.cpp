#include "lab/capture/redact_names.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <string>
#include <string_view>
#include <vector>

#include "lab/capture/configuration_words.h"

namespace lab {
namespace {

struct keyword {
  std::string_view word;  // the name is behind it
  const char* kind;
  bool name_kinds::*wanted;
};

constexpr std::array keywords{keyword{"vrf", "vrf", &name_kinds::vrf},
                              keyword{"fvrf", "vrf", &name_kinds::vrf},
                              keyword{"es-acl", "acl", &name_kinds::acl},
                              keyword{"access-list", "acl", &name_kinds::acl},
                              keyword{"access-group", "acl", &name_kinds::acl},
                              keyword{"access-class", "acl", &name_kinds::acl},
                              keyword{"group-list", "acl", &name_kinds::acl},
                              keyword{"trustpoint", "trustpoint", &name_kinds::trustpoint},
                              keyword{"tls-trustpoint", "trustpoint", &name_kinds::trustpoint},
                              keyword{"sign-trustpoint", "trustpoint", &name_kinds::trustpoint}};

// Words that stand where a name may stand.
constexpr std::array<std::string_view, 10> no_names{"default", "all",       "any",  "log-update",
                                                    "maximum", "ipv4",      "ipv6", "override",
                                                    "bidir",   "group-list"};

// "vrf definition NAME".
constexpr std::array<std::string_view, 4> words_before_vrf{"definition", "forwarding", "context",
                                                           "member"};

// Words between the keyword of an access list and its name.
constexpr std::array<std::string_view, 13> words_before_list{
    "ipv4",     "ipv6",     "IPv4", "IPv6",       "common", "ingress",   "egress",
    "extended", "standard", "peer", "query-only", "serve",  "serve-only"};

// A name like one of these would be replaced where the audit reads the word itself.
constexpr std::array<std::string_view, 28> words_of_audit{
    "interface",   "preconfigure", "mtu",         "MTU",       "encapsulation",
    "dot1q",       "second-dot1q", "dot1ad",      "untagged",  "bundle",
    "id",          "mode",         "active",      "passive",   "on",
    "line",        "protocol",     "is",          "up",        "down",
    "l2transport", "hostname",     "end",         "hw-module", "profile",
    "qos",         "hqos-enable",  "Bundle-Ether"};

// The same in the answers of other tools, and in what the audit says itself, each between blanks. A
// # stands for digits.
constexpr std::string_view words_of_tools =
    " ACTIVE Active BCM# BCM#_A# BCM#_B# Bundle CB# CPU# D# EPNI# FINAL I ID Id IHP IHP# IN_LIF"
    " In_LIF KIND LAG Lag LDP Local MAC Member MTU_PROFILE MY_MAC N Node Operational OS Payload"
    " PORT_PROFILE Process R Result RP# S STANDBY Standby TAGS Tarmac Unit VLAN_DOMAIN Y address"
    " bia_mac chip core device distributing dpa_intf_t element gport_id_lif handle hash intf"
    " intf_name l#_intf_type l#a_intf_id l#intf l#port lag_id lagmgr_distrib lagport lif mac"
    " max_member_count mbr_npu_id mifh name node npu port_class_id pp_port_id processor rif"
    " uint#_t vlan_domain vsid weight TR-ASPEN TR-BIRCH TR-BIRCH# TR-CEDAR TR-DOGWOOD-R# TR-ELM#"
    " TRCEDAR TRCEDARX Checking Entry OK Overall checking entries in not of result set ";

// In front of a number they name an interface.
constexpr std::array<std::string_view, 21> interface_types{
    "Bundle-Ether", "BE",          "Loopback", "MgmtEth",        "Null", "GigabitEthernet", "Gi",
    "GigE",         "TenGigE",     "Te",       "TwentyFiveGigE", "TF",   "FortyGigE",       "Fo",
    "FiftyGigE",    "HundredGigE", "Hu",       "TwoHundredGigE", "TH",   "FourHundredGigE", "FH"};

bool is_name(std::string_view word) {
  return !among(no_names, word) && std::any_of(word.begin(), word.end(), [](char c) {
    return std::isalpha(static_cast<unsigned char>(c)) != 0;
  });
}

// The word with each row of digits as one #.
std::string shape_of(std::string_view word) {
  std::string shape;
  for (const char c : word) {
    if (std::isdigit(static_cast<unsigned char>(c)) == 0)
      shape += c;
    else if (!shape.ends_with('#'))
      shape += '#';
  }
  return shape;
}

// "Bundle-Ether1", "Hu0", "HundredGigE0_0_0_1": also the part of "Hu0/0/0/1" that is a word.
bool names_interface(std::string_view word) {
  return std::any_of(interface_types.begin(), interface_types.end(), [&](std::string_view type) {
    return word.starts_with(type) && word.size() > type.size() &&
           word.find_first_not_of("0123456789./_", type.size()) == std::string_view::npos;
  });
}

bool is_read_by_audit(std::string_view name) {
  const std::vector<std::string_view> words = texts_in(name);
  return std::any_of(words.begin(), words.end(), [](std::string_view word) {
    return among(words_of_audit, word) ||
           words_of_tools.find(" " + shape_of(word) + " ") != words_of_tools.npos ||
           names_interface(word);
  });
}

std::string_view without_quotes(std::string_view text) {
  const bool is_quoted = text.size() > 1 && (text.front() == '"' || text.front() == '\'') &&
                         text.back() == text.front();
  return is_quoted ? text.substr(1, text.size() - 2) : text;
}

using word_list = std::vector<std::string_view>;

void add_name(const word_list& words, std::size_t at, const char* kind, named_things& names) {
  if (at >= words.size()) return;
  const std::string_view name = without_quotes(words[at]);
  if (!is_name(name)) return;
  auto& those = is_read_by_audit(name) ? names.kept : names.replaced;
  those.try_emplace(std::string{name}, kind);
}

// "vrf NAME", "vrf definition NAME", "ip vrf forwarding NAME"; a VRF may be named like the word.
void add_vrf(const word_list& words, std::size_t at, named_things& names) {
  const bool has_word_before =
      at <= 2 && at + 1 < words.size() && among(words_before_vrf, words[at]);
  add_name(words, has_word_before ? at + 1 : at, "vrf", names);
}

// "access-group NAME ingress", "access-class ingress NAME", "access-group common NAME NAME
// ingress", "access-group vrf VRF ipv4 peer NAME".
void add_list(const word_list& words, std::size_t at, const char* kind, named_things& names) {
  if (words[at] == "vrf") at += 2;
  bool is_common = false;
  for (; at < words.size() && among(words_before_list, words[at]); ++at)
    is_common = is_common || words[at] == "common";
  add_name(words, at, kind, names);
  if (is_common && at + 1 < words.size() && !among(words_before_list, words[at + 1]))
    add_name(words, at + 1, kind, names);
}

// "snmp-server community SECRET RO SystemOwner NAME", "snmp-server group ... ipv4 NAME".
void add_lists_of_snmp(const word_list& words, named_things& names) {
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

// "rp-address ADDRESS NAME".
void add_list_of_meeting_point(const word_list& words, std::size_t at, named_things& names) {
  if (words[at] == "rp-address") add_name(words, at + 2, "acl", names);
}

void add_names(std::string_view line, const name_kinds& kinds, named_things& names) {
  const word_list words = texts_in(line);
  if (kinds.acl) add_lists_of_snmp(words, names);
  for (std::size_t i = 0; i + 1 < words.size() && !among(text_words, words[i]); ++i) {
    if (kinds.acl) add_list_of_meeting_point(words, i, names);
    for (const keyword& one : keywords) {
      if (!(kinds.*one.wanted) || words[i] != one.word) continue;
      if (one.wanted == &name_kinds::acl)
        add_list(words, i + 1, one.kind, names);
      else if (one.wanted == &name_kinds::vrf)
        add_vrf(words, i + 1, names);
      else
        add_name(words, i + 1, one.kind, names);
    }
  }
}

}  // namespace

named_things configured_names(const capture& c, const name_kinds& kinds) {
  named_things names;
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
