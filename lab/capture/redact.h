// Removes confidential data from a capture, but nothing that the audit compares:
//
// clang-format off
//     IPv4 addresses      240.0.0.1, 240.0.0.2, ...        masks stay
//     IPv6 addresses      2001:db8::0:1, 2001:db8::0:2, ...
//     MAC addresses       02aa.0000.0402, in the original notation and case; the low ten bits
//                         stay, as the chips' tables hold them; also system ids
//     descriptions        text-1, text-2, ...              also contacts, locations, remarks,
//                                                          banners; the words stay that the audit
//                                                          reads (lab/capture/redact_words.h)
//     names               name-1, ...                      of the router, its domain and its users
//                         vrf-1, acl-1, trustpoint-1       on request
//     secrets             secret-1, ...                    passwords, keys, communities
//     serial numbers      serial-1, ...
// clang-format on
//
// Each value has one replacement everywhere, so that equal values stay equal and different values
// stay different. The router's own name is replaced in all answers, other names where the
// configuration defines them. Node addresses stay: they are the same on every router of a type,
// cannot be reached from outside, and the audit finds the nodes by them.
#pragma once

#include <compare>
#include <cstddef>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "lab/capture/capture.h"
#include "lab/capture/redact_names.h"

namespace lab {

struct redaction_counts {
  std::size_t addresses = 0;  // distinct ones
  std::size_t macs = 0;
  std::size_t texts = 0;
  std::size_t names = 0;
  std::size_t secrets = 0;
  std::size_t serials = 0;
};

// A value and what stands in its place.
struct replaced_value {
  std::string kind;  // "ipv4", "text", ...
  std::string original;
  std::string replacement;
  // NOLINTNEXTLINE(modernize-use-nullptr): clang-tidy 14 takes the default for a comparison with 0.
  auto operator<=>(const replaced_value&) const = default;
};

// The replacements for one capture. Not for several threads.
class redaction {
 public:
  // Reads the names in the capture; those of `kinds` are replaced, too.
  explicit redaction(const capture& c, const name_kinds& kinds = {});
  ~redaction();
  redaction(const redaction&) = delete;
  redaction& operator=(const redaction&) = delete;

  // Redacts every answer and the journal in place. Does not change the router's name in the
  // manifest: the caller does.
  void apply(capture& c);
  // Another text about this router, with the same replacements.
  std::string redacted(const std::string& text);

  // What stands in the place of the machine's name.
  std::string name_for(const std::string& name);

  // The names that stay because the audit reads them as words of its own, with their kinds.
  const std::map<std::string, std::string>& kept_names() const;

  redaction_counts counts() const;
  // What was replaced up to now, by kind. A MAC stands for all that differ in the low ten bits.
  std::vector<replaced_value> all() const;

 private:
  struct state;
  std::unique_ptr<state> state_;
};

// Redacts a capture in one step.
redaction_counts redact(capture& c, const name_kinds& kinds = {});

}  // namespace lab
