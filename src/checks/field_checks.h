// The vocabulary of every layer check: is an entry there, and does one reported value agree with
// the record that stands for the bundle, sub-bundle or member?
//
// A record's field that is not set takes what is reported: the first layer to report it sets the
// expectation for all later ones. Values are compared as they stand, without case folding or
// conversion, unless a function says otherwise. Every disagreement is numbered, logged on the
// channel "inconsistent" and returned as ERROR; a failure (a missing field, a value of the wrong
// kind) is logged on "exception", counted and returned as ERROR. All may be called from any
// thread.
//
// `error_string` names the object under comparison, `layer` where the value comes from.
#pragma once

#include <string_view>

#include "base/records.h"
#include "base/value.h"

namespace tessel {

// SUCCESS if `nodename` is a key of the map `obj`. `type` is a word for the message.
int is_node_present(std::string_view nodename, const value& obj, std::string_view type,
                    std::string_view layer);

// SUCCESS if the text `entry` is a key of the map `obj`, whose entry then carries "Visited" 1. An
// `entry` that is not set is ERROR without a word.
int is_entry_present(const value& entry, const value& obj, std::string_view layer,
                     std::string_view error_string);

// The fields `lagid` (hexadecimal text), `mtu` (decimal text), `rif` and `memid` (hexadecimal
// text).
int check_lagid(const value& lagid, record& element, std::string_view error_string,
                std::string_view layer);
int check_mtu(const value& mtu, record& element, std::string_view error_string,
              std::string_view layer);
int check_rif(const value& rif, record& element, std::string_view error_string,
              std::string_view layer);
int check_memid(const value& memid, record& element, std::string_view error_string,
                std::string_view layer);

// The field `glif`, hexadecimal text, by its last four characters. A text of less than five cannot
// set the expectation.
int check_lif(const value& lif, record& element, std::string_view error_string,
              std::string_view layer);

// The field `mac`, which the bundle manager has set: xxxx.xxxx.xxxx there, xx:xx:xx:xx:xx:xx here.
int check_mac(const value& mac, record& element, std::string_view error_string,
              std::string_view layer);

// The field `is_l2`, which the running configuration has set, against a number as text with its
// base taken from the prefix. No layer reports it today; it stands ready for the first that does.
int check_bundle_type(const value& is_l2, record& element, std::string_view error_string,
                      std::string_view layer);

}  // namespace tessel
