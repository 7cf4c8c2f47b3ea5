// What is read without its plain pattern, held equal to it. Each function ends the process, after
// what differs, if the two find different things in the text. Throws `failure` if the plain pattern
// gives up. A long text is cut, because a plain pattern may take time with its square, or worse.
#pragma once

#include <string_view>

namespace fuzz {

void compare_lag_rows(std::string_view text);
void compare_block_fields(std::string_view text);
void compare_slot_fields(std::string_view text);
void compare_interface_text(std::string_view text);
void compare_interface_mtus(std::string_view text);
void compare_im_handles(std::string_view text);
void compare_vlan_domains(std::string_view text);
void compare_chip_rows(std::string_view text);
void compare_lif_mappings(std::string_view text);
void compare_units(std::string_view text);
void compare_bundle_members(std::string_view text);
void compare_health_report(std::string_view text);

// Holds the snapshot of a store whose keys and contents are the lines of `text` equal to one that
// is written byte by byte.
void check_snapshot(std::string_view text);

}  // namespace fuzz
