// What an audit in the lab has found, in a form that two audits of the same router share: without
// times, the numbers of findings, and the order in which threads wrote them.
#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <map>
#include <set>
#include <string>

namespace lab {

// A log, or the console.
struct found_lines {
  std::map<std::string, std::size_t> counts;  // how often each line is there
  std::set<std::string> newest;               // the lines of the newer half
  bool is_rotated = false;                    // with its backup, but older lines may be lost
};

struct run_findings {
  int status = 0;
  std::map<std::string, found_lines> logs;  // "console", "tessel_inconsistencies.log" and so on
};

// Reads the logs in a folder, the console's text and the exit status. `edited` changes each text
// before it is compared.
run_findings read_findings(const std::filesystem::path& logs, const std::string& console,
                           int status,
                           const std::function<std::string(const std::string&)>& edited);

// What several audits of one capture have found, each line once.
class capture_findings {
 public:
  struct line {
    std::size_t least = 0;  // the fewest in one audit
    std::size_t most = 0;
    std::size_t newest = 0;  // audits that have it in the log's newer half
  };
  using log = std::map<std::string, line>;

  void add(const run_findings& found);
  std::size_t audits() const { return audits_; }
  int status() const { return *statuses_.begin(); }
  bool status_moves() const { return statuses_.size() > 1; }
  const std::map<std::string, log>& logs() const { return logs_; }
  const log& log_named(const std::string& name) const;
  bool is_rotated(const std::string& name) const { return rotated_.contains(name); }
  // True if the line is in the newer half of the log in every audit, so that no rotation can have
  // taken it away.
  bool is_always_new(const line& one) const { return one.newest == audits_; }
  bool logs_nothing() const;

 private:
  std::size_t audits_ = 0;
  std::set<int> statuses_;
  std::map<std::string, log> logs_;
  std::set<std::string> rotated_;
};

struct comparison {
  // The first thing that is the same in all audits of each capture, and not the same in both:
  // "tessel_inconsistencies.log lacks \"Inconsistency #: ...\"". Empty if there is none.
  std::string difference;
  // What two audits of the same capture gave differently, so that it says nothing of the other
  // capture: a log to the count of such lines.
  std::map<std::string, std::size_t> moving;
  // Logs whose oldest lines were rotated away, so that only the newer ones were compared.
  std::set<std::string> rotated;
  bool status_moves = false;
  std::size_t entries = 0;  // lines of logs that all audits share

  bool anything_moves() const { return status_moves || !moving.empty(); }
  bool is_complete() const { return !anything_moves() && rotated.empty(); }
};

comparison compared(const capture_findings& one, const capture_findings& other);

}  // namespace lab
