// One chip as the checks of one worker see it.
//
//   const chip where("0/0/CPU0", "0");
//   where.sem(sem_name::a).payload_of("1005");
//
// A worker checks all sub-bundles of a bundle on one chip, so the way to the chip's tables and to
// their indexes, which all workers share and which have locks, is gone once for all of them.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>

#include "base/here.h"
#include "base/value.h"
#include "checks/store_part.h"
#include "programming/chip_rows.h"

namespace tessel {

// The tables are those that BCM held when the pass began. Each worker has a chip of its own: a look
// changes what it remembers.
class chip {
 public:
  // Two names convert, so that an entry can be checked by itself. A chip that is not in the tables
  // is a failure where they are read.
  chip(std::string_view nodename, std::string_view npu);

  const std::string& nodename() const { return nodename_; }
  const std::string& npu() const { return npu_; }
  // The table under `key`. Throws `failure` if chip or table is missing.
  value table(std::string_view key, here where = here::current()) const;
  // The rows of SEMA or SEMB. Throws `failure` if the table is missing or is no text.
  const sem_table& sem(sem_name name, here where = here::current()) const;

 private:
  std::string nodename_;
  std::string npu_;
  store_part tables_;
  mutable std::array<std::optional<sem_table>, 2> sems_;  // by sem_name
};

}  // namespace tessel
