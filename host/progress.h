// How far an audit is, from its journal.
#pragma once

#include "journal_tail.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace tessel_host {

class progress {
 public:
  void take(const journal_event& event);

  // Lines of text without an end; `now` is in seconds since the run began.
  //     12 commands running on 4 nodes, 345 of 380 done, 37 s; slowest: 0/3/CPU0 NPU 2
  //     asic_shell_show -c "diag lag" -u 2 -n 3, 12 s
  [[nodiscard]] std::string present(double now) const;
  // Of the nodes and chips that run any: how many of their commands are done.
  //     0/3/CPU0 NPU 2: 3/4, 0/0/CPU0: 13/15 +2
  // The one that waits longest comes first; the last number counts those that are left out.
  [[nodiscard]] std::string places() const;
  // Both in one line that fits a terminal. Where it is narrow they take turns.
  //     12 running, 345/380 done, 37 s; slowest 12 s: 0/3/CPU0 NPU 2 asic_shell_show
  [[nodiscard]] std::string drawn(double now, std::size_t width) const;
  // What the whole run took, and its slowest command.
  [[nodiscard]] std::string summary(double now) const;

  [[nodiscard]] std::size_t running() const { return running_.size(); }
  [[nodiscard]] std::size_t timed_out() const { return timed_out_; }

 private:
  struct command {
    std::string place;
    std::string node;
    std::string line;
    pid_t shell = 0;
    double at = 0;  // when it began
    double seconds = 0;
  };
  struct counts {
    std::size_t begun = 0;
    std::size_t done = 0;
  };
  void take_end(const journal_event& event);
  void drop_ended();
  [[nodiscard]] const command* oldest() const;
  [[nodiscard]] std::vector<std::string> running_places() const;
  [[nodiscard]] std::string places_within(std::size_t most, std::size_t room) const;
  static std::string shown(const command& one, double seconds);

  std::map<std::uint64_t, command> running_;
  std::set<std::uint64_t> dropped_;  // counted as done before the line of their end
  std::map<std::string, counts> places_;
  command slowest_;  // of those that have ended
  std::uint64_t last_line_ = 0;
  std::uint64_t begun_ = 0;
  std::uint64_t done_ = 0;
  std::size_t timed_out_ = 0;
};

}  // namespace tessel_host
