#include "runs/options.h"

#include <algorithm>

#include "runs/sizes.h"

namespace bench {

const char* const help_text =
    R"(usage: tessel-bench [SIZE...] [--family FAMILY] [--hqos on|off] [--latency LIST] [--repeat N]
                    [--callgrind FILE]

Audits generated routers and prints what each audit cost, as Markdown tables.
  SIZE             S, M, L or XL; several may be named (all)
  --family FAMILY  the chips: older, jericho2 or mixed (all)
  --hqos on|off    hierarchical QoS (both)
  --latency LIST   the tools answer late, as with tessel-lab: ssh=150ms,chip=300ms
  --callgrind FILE counts instructions: runs each audit under valgrind, whose result goes to FILE
  --repeat N       of N audits of a router show the one with the least processor time, and the
                   shortest floors and wall times; with late tools, the one that took least beside
                   them (1)
)";

namespace {

bool is_one_of(const std::vector<std::string>& names, const std::string& name) {
  return std::find(names.begin(), names.end(), name) != names.end();
}

unsigned count_of(const std::string& text) {
  if (text.empty() || text.size() > 3 ||
      text.find_first_not_of("0123456789") != std::string::npos || std::stoul(text) == 0)
    throw bad_options("--repeat: \"" + text + "\" is not a number from 1 to 999");
  return static_cast<unsigned>(std::stoul(text));
}

void take(options& wanted, const std::string& option, const std::string& value) {
  if (option == "--family") {
    if (!is_one_of(family_names(), value))
      throw bad_options("--family: \"" + value + "\" is not older, jericho2 or mixed");
    wanted.families.push_back(value);
  } else if (option == "--hqos") {
    if (value != "on" && value != "off")
      throw bad_options("--hqos: \"" + value + "\" is not on or off");
    wanted.hqos.push_back(value == "on");
  } else if (option == "--latency") {
    wanted.latency = value;
  } else if (option == "--callgrind") {
    wanted.callgrind = value;
  } else if (option == "--repeat") {
    wanted.repeat = count_of(value);
  } else {
    throw bad_options("unknown option " + option);
  }
}

}  // namespace

options parse_options(int argc, char** argv) {
  options wanted;
  for (int at = 1; at < argc; ++at) {
    const std::string word = argv[at];
    if (word == "--help" || word == "-h") {
      wanted.help = true;
    } else if (!word.starts_with("--")) {
      if (!is_one_of(size_names(), word))
        throw bad_options("\"" + word + "\" is not one of the sizes S, M, L, XL");
      wanted.sizes.push_back(word);
    } else if (const std::size_t equal = word.find('='); equal != std::string::npos) {
      take(wanted, word.substr(0, equal), word.substr(equal + 1));
    } else {
      if (at + 1 == argc) throw bad_options(word + " needs a value");
      take(wanted, word, argv[++at]);
    }
  }
  if (wanted.sizes.empty()) wanted.sizes = size_names();
  if (wanted.families.empty()) wanted.families = family_names();
  if (wanted.hqos.empty()) wanted.hqos = {false, true};
  return wanted;
}

}  // namespace bench
