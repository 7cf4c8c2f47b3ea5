// The results as Markdown tables.
#pragma once

#include <string>
#include <vector>

#include "host/measures.h"

namespace bench {

struct result {
  std::string size;
  std::string family;
  bool hqos = false;
  double chain = 0;  // seconds; see runs/chain.h. 0 if the tools answered at once.
  measures run;
};

// The heads and one row of each of the tables of costs and of counts.
std::string cost_head();
std::string cost_row(const result& r);
std::string count_head();
std::string count_row(const result& r);

// The tables of the phases: for routers that differ only in size, the processor time of each phase
// and its growth from L to XL.
std::string phase_tables(const std::vector<result>& results);

// What a run may cost, or how long it may take with late tools, with the router that comes closest
// to each limit or exceeds it most.
std::string limit_table(const std::vector<result>& results);

// Wall time against the longest chain of commands.
std::string chain_head();
std::string chain_row(const result& r);

}  // namespace bench
