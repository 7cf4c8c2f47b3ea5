// The comparisons that every layer's checks are made of: is an entry present, and does a reported
// value agree with the record of the bundle, sub-bundle or member?
//
// If a record's field is not set, it takes the reported value: the first layer to report it sets
// the expectation for all later layers. Values are compared without case folding or conversion,
// unless a function says otherwise. Every disagreement is numbered, logged on the channel
// "inconsistent" and returned as ERROR. A failure (a missing field, a value of the wrong kind) is
// logged on "exception", counted and returned as ERROR. All functions may be called from any
// thread.
//
// `error_string` names the object under comparison, `layer` the source of the value.
#pragma once

#include <string_view>

#include "base/records.h"
#include "base/value.h"
#include "checks/object_name.h"

namespace tessel {

// SUCCESS if `nodename` is a key of the map `obj`. `type` is a word for the message.
int is_node_present(std::string_view nodename, const value& obj, std::string_view type,
                    std::string_view layer);

// SUCCESS if the text `entry` is a key of the map `obj`; this also sets "Visited" to 1 in the
// entry. If `entry` is not set, returns ERROR without a message.
int is_entry_present(const value& entry, const value& obj, std::string_view layer,
                     const object_name& error_string);

// Compare the fields `lagid` (hexadecimal text), `mtu` (decimal text), `rif` and `memid`
// (hexadecimal text).
int check_lagid(const value& lagid, record& element, const object_name& error_string,
                std::string_view layer);
int check_mtu(const value& mtu, record& element, const object_name& error_string,
              std::string_view layer);
int check_rif(const value& rif, record& element, const object_name& error_string,
              std::string_view layer);
int check_memid(const value& memid, record& element, const object_name& error_string,
                std::string_view layer);

// Compares the last four characters of the field `glif`, a hexadecimal text. A text of fewer than
// five characters cannot set the expectation.
int check_lif(const value& lif, record& element, const object_name& error_string,
              std::string_view layer);

// Compares the field `mac`, which the bundle manager has set. The record has the form
// xxxx.xxxx.xxxx, `mac` the form xx:xx:xx:xx:xx:xx.
int check_mac(const value& mac, record& element, const object_name& error_string,
              std::string_view layer);

// Compares the field `is_l2`, which the running configuration has set, with a number given as text,
// whose prefix determines the base. No layer reports it today; the function is kept for the first
// layer that does.
int check_bundle_type(const value& is_l2, record& element, const object_name& error_string,
                      std::string_view layer);

}  // namespace tessel
