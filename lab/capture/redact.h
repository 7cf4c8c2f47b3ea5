// Removes confidential data from a capture, but nothing that the audit compares:
//
// clang-format off
//     IPv4 addresses      240.0.0.1, 240.0.0.2, ...        masks stay
//     IPv6 addresses      2001:db8::0:1, 2001:db8::0:2, ...
//     MAC addresses       02aa.0000.0402, in the original notation and case; the low ten bits
//                         stay, as the chips' tables hold them; also system ids
//     descriptions        text-1, text-2, ...              also contacts, locations, remarks, banners
//     names               name-1, ...                      of the router, its domain and its users
//     secrets             secret-1, ...                    passwords, keys, communities
//     serial numbers      serial-1, ...
// clang-format on
//
// Each value has one replacement everywhere, so that equal values stay equal and different values
// stay different. The router's own name is replaced in all answers, other names where the
// configuration defines them. Node addresses stay: they are the same on every router of a type,
// cannot be reached from outside, and the audit finds the nodes by them.
#pragma once

#include <cstddef>
#include <string>

#include "lab/capture/capture.h"

namespace lab {

struct redaction_counts {
  std::size_t addresses = 0;  // distinct ones
  std::size_t macs = 0;
  std::size_t texts = 0;
  std::size_t names = 0;
  std::size_t secrets = 0;
  std::size_t serials = 0;
};

// Redacts every answer and the journal in place. Does not change the router's name in the manifest:
// the caller does.
redaction_counts redact(capture& c);

}  // namespace lab
