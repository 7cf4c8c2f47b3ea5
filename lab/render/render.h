// From the model to the text of every tool. Each function adds the whole outputs of one family of
// tools to a capture, as the tools themselves print them: with headings, with fields that have no
// value, with rows that the audit's own filters drop.
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

// The whole capture. The faults that the router lists are not planted: see render in
// lab/faults/render_faulty.h.
capture render_answers(const router& r);

// A chip command of one NPU, as the platform is asked for it.
std::string chip_command(const std::string& command, unsigned npu, const node& n);
// The same under the name that stands for every chip without an answer of its own.
std::string chip_command_of_all(const std::string& command);

// The key under which the chip keeps a sub-bundle, empty if its encapsulation gives none; and
// whether it stands in the second table, the one of double-tagged frames.
struct sem_key {
  std::string digits;
  bool double_tagged = false;
};
sem_key key_of(const bundle& b, const sub_bundle& s);
sem_key untagged_key_of(const bundle& b);

// Adds the answers to "diag pp lif" for every global LIF: one for all chips, which hold a LIF
// alike, and one for each NPU that is made to differ.
void render_lif_queries(const router& r, capture& c);

}  // namespace lab
