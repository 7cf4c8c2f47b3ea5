// What an audit in the lab has found, in a form that two audits of the same router share: without
// times, the numbers of findings, and the order in which threads wrote them.
#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace lab {

struct run_findings {
  int status = 0;
  // "console", "tessel_inconsistencies.log" and so on, to their lines. A log that was rotated may
  // have lost lines: it has none here, and the console has the counts.
  std::map<std::string, std::vector<std::string>> lines;
};

// Reads the logs in a folder, the console's text and the exit status. `edited` changes each text
// before it is compared.
run_findings read_findings(const std::filesystem::path& logs, const std::string& console,
                           int status,
                           const std::function<std::string(const std::string&)>& edited);

struct comparison {
  // The first thing that is the same in all audits of each capture, and not the same in both:
  // "tessel_inconsistencies.log lacks \"Inconsistency #: ...\"". Empty if there is none.
  std::string difference;
  // What two audits of the same capture gave differently, so that it says nothing of the other
  // capture: a log to the count of such lines.
  std::map<std::string, std::size_t> moving;
  bool status_moves = false;
  std::size_t entries = 0;  // lines of logs that all audits share

  bool anything_moves() const { return status_moves || !moving.empty(); }
};

// Each is a capture's audits, at least one.
comparison compared(const std::vector<run_findings>& of_one,
                    const std::vector<run_findings>& of_other);

}  // namespace lab
