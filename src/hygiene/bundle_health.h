// The bundle manager's own health check.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

namespace tessel {

// Runs the bundle manager's health check, logs the cleaned report on the channel "bundle_health"
// even if it is empty, and stores how often it names a bundle. Returns SUCCESS, or ERROR after
// logging and counting a failure. Main thread.
int check_bundle_health();

// Removed from the report: rules, all line feeds of a run except one, and then either the blocks of
// information or the table's head with its first row.
inline constexpr std::string_view health_rule = "---*";
inline constexpr std::string_view health_empty_lines = "\n\n\n*";
inline constexpr std::string_view health_table_head =
    R"(Process\s+Node\s+Result\s+\w+\s+[\w 0-9\/,.]+)";

// A block of information: a word and a colon, a number, and three lines of text.
inline constexpr std::string_view information_block_definition =
    "\\w+:\\s+\\d+\\s+[\\w 0-9\\/,.]+\n+\\s+[\\w 0-9\\/,.]+\n+\\s+[\\w 0-9\\/,.]+";
// Finds the same, in time that grows only with the text: a word, a line's text and the line feed
// after it match in only one way, and a line of blanks matches only by its last blank.
inline constexpr std::string_view information_block =
    "(?<!\\w)\\w++:\\s++\\d++\\s+(?:[\\w\\/,.][\\w \\/,.]*+|[ ](?=\n))\n"
    "\\s+(?:[\\w\\/,.][\\w \\/,.]*+|[ ](?=\n))\n"
    "\\s+(?:[\\w\\/,.][\\w \\/,.]*+|[ ](?![\\w \\/,.]))";

// Returns the report without rules, table head and information blocks, with bundle lines at the
// margin and details indented by three, and the number of times that it names a bundle. Throws
// `failure` if the report cannot be searched. Any thread.
//
//   "--------\nBundle-Ether12\n  not distributing\n"
//     ->  {"   \nBundle-Ether12\n   not distributing", 1}
std::pair<std::string, std::int64_t> parse_bundle_health(std::string_view bdlHealthCheck);

}  // namespace tessel
