// Takes out of a capture what its owner may not give away, and nothing that the audit compares:
//
// clang-format off
//     IPv4 addresses      240.0.0.1, 240.0.0.2, ...        masks stay
//     IPv6 addresses      2001:db8::0:1, 2001:db8::0:2, ...
//     MAC addresses       02aa.0000.0402, in the notation and case that they had; the low ten bits
//                         stay, which is what the chips' tables hold of them; system ids, too
//     descriptions        text-1, text-2, ...              also contacts, locations, remarks, banners
//     names               name-1, ...                      of the router, its domain and its users
//     secrets             secret-1, ...                    passwords, keys, communities
//     serial numbers      serial-1, ...
// clang-format on
//
// One thing has one replacement wherever it is replaced, so that what was equal stays equal and
// what differed differs. The router's own name is replaced in all answers, others where the
// configuration defines them. Addresses of nodes stay: they are the same on every router of a type,
// nobody outside reaches them, and the audit finds the nodes by them.
#pragma once

#include <cstddef>
#include <string>

#include "lab/capture/capture.h"

namespace lab {

struct redaction_counts {
  std::size_t addresses = 0;  // different ones
  std::size_t macs = 0;
  std::size_t texts = 0;
  std::size_t names = 0;
  std::size_t secrets = 0;
  std::size_t serials = 0;
};

// Redacts every answer in place. The router's name in the manifest is left to the caller.
redaction_counts redact(capture& c);

}  // namespace lab
