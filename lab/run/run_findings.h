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
  // "console", "tessel_inconsistencies.log" and so on, to their lines in order. A log that was
  // rotated may have lost lines: it has none here, and the console has the counts.
  std::map<std::string, std::vector<std::string>> lines;

  std::size_t entries() const;  // lines of all logs
};

// Reads the logs in a folder, the console's text and the exit status. `edited` changes each text
// before it is compared.
run_findings read_findings(const std::filesystem::path& logs, const std::string& console,
                           int status,
                           const std::function<std::string(const std::string&)>& edited);

// Empty if they are the same, else the first thing that differs:
// "tessel_inconsistencies.log lacks \"Inconsistency #: ...\"".
std::string first_difference(const run_findings& expected, const run_findings& actual);

}  // namespace lab
