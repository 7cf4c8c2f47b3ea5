// Renders the output of every tool from the model. Each function adds the complete outputs of one
// family of tools to a capture, as the tools print them: with headings, fields without a value, and
// rows that the audit's filters drop.
#pragma once

#include <string>

#include "lab/capture/capture.h"
#include "lab/model/router.h"

namespace lab {

void render_platform(const router& r, capture& c);    // version, inventory, units, node ids
void render_interfaces(const router& r, capture& c);  // interfaces, their manager, configuration
void render_lagmgr(const router& r, capture& c);      // bundle manager, its agents, its own check
void render_forwarding(const router& r, capture& c);  // forwarding objects of every node
void render_older_chips(const router& r, capture& c);
void render_jericho2_chips(const router& r, capture& c);

// The whole capture. Does not plant the faults that the router lists: see render in
// lab/faults/render_faulty.h.
capture render_answers(const router& r);

// The command line of a chip command for one NPU.
std::string chip_command(const std::string& command, unsigned npu, const node& n);
// The same under the name that serves every chip without its own answer.
std::string chip_command_of_all(const std::string& command);

// The chip's key of a sub-bundle, empty if its encapsulation gives none; and whether it is in the
// second table, that of double-tagged frames.
struct sem_key {
  std::string digits;
  bool double_tagged = false;
};
sem_key key_of(const bundle& b, const sub_bundle& s);
sem_key untagged_key_of(const bundle& b);

// Adds the answers to "diag pp lif" for every global LIF: one for all chips, and one for each NPU
// that an override makes differ.
void render_lif_queries(const router& r, capture& c);

}  // namespace lab
