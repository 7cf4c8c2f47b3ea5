#include "seeds.h"

#include <fmt/format.h>

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <set>
#include <stdexcept>

#include "lab/capture/file_names.h"
#include "lab/describe/description.h"
#include "lab/faults/render_faulty.h"

namespace fuzz {

namespace {

const std::vector<lab::capture>& captures() {
  static const std::vector<lab::capture> made = [] {
    std::vector<lab::capture> all;
    setenv("TESSEL_LAB_ROUTERS", TESSEL_FUZZ_ROUTERS, 0);
    for (const std::string& name : lab::router_names()) {
      all.push_back(lab::render(lab::load_router(name)));
    }
    return all;
  }();
  return made;
}

// The beginning of the names of a command's files, up to where the command is left open.
std::string start_of_file_name(std::string_view command) {
  const bool is_open = std::count(command.begin(), command.end(), '"') % 2 != 0;
  return lab::file_name(fmt::format("{}{}", command, is_open ? "\"" : ""));
}

// The filter that the audit appends to a command: "grep ... | sort", or nothing.
std::string filter_of(std::string_view command) {
  static const std::vector<std::string> lines = command_lines();
  constexpr std::string_view pipe = " | ";
  for (const std::string& line : lines) {
    if (line.find(command) == std::string::npos) continue;
    const std::size_t end = line.find(pipe);
    return end == std::string::npos ? "" : line.substr(end + pipe.size());
  }
  return "";
}

[[noreturn]] void cannot_filter(const std::string& filter) {
  throw std::runtime_error(fmt::format("cannot run \"{}\": {}", filter, std::strerror(errno)));
}

// Runs the filter in a shell and returns what it leaves of `text`.
std::string filtered(const std::string& text, const std::string& filter) {
  if (filter.empty()) return text;
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> whole(std::tmpfile(), &std::fclose);
  if (!whole) cannot_filter(filter);
  std::fwrite(text.data(), 1, text.size(), whole.get());
  if (std::fflush(whole.get()) != 0) cannot_filter(filter);
  const std::string line =
      fmt::format("cat /proc/{}/fd/{} | {}", ::getpid(), ::fileno(whole.get()), filter);
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> shell(::popen(line.c_str(), "r"),
                                                              &::pclose);
  if (!shell) cannot_filter(filter);
  std::string left;
  std::array<char, 65536> part{};
  while (const std::size_t count = std::fread(part.data(), 1, part.size(), shell.get())) {
    left.append(part.data(), count);
  }
  return left;
}

// All answers to one command, from every node and chip of a router, as the audit gets them.
std::vector<std::string> answers_of(const lab::capture& router, std::string_view command) {
  const std::string start = start_of_file_name(command);
  const std::string filter = filter_of(command);
  std::vector<std::string> found;
  for (const auto& [place, text] : router.answers) {
    if (place.second.starts_with(start)) found.push_back(filtered(text, filter));
  }
  return found;
}

// Makes one input for each answer to the parser's first command. A router lists its nodes in one
// order, so the answers to the other commands at the same position are mostly of the same node or
// chip.
void add_inputs(const fuzzed_parser& parser, const lab::capture& router,
                std::set<std::string>& inputs) {
  std::vector<std::vector<std::string>> answers;
  for (const std::string_view command : parser.commands) {
    answers.push_back(answers_of(router, command));
  }
  for (std::size_t at = 0; at < answers.front().size(); ++at) {
    std::string input;
    for (const auto& each : answers) {
      if (&each != &answers.front()) input += text_separator;
      if (!each.empty()) input += each[std::min(at, each.size() - 1)];
    }
    inputs.insert(std::move(input));
  }
}

}  // namespace

std::vector<std::string> all_texts() {
  std::set<std::string> texts;
  for (const lab::capture& router : captures()) {
    for (const auto& [place, text] : router.answers) texts.insert(text);
  }
  return {texts.begin(), texts.end()};
}

std::vector<std::string> seeds(const fuzzed_parser& parser) {
  std::set<std::string> inputs;
  for (const lab::capture& router : captures()) add_inputs(parser, router, inputs);
  return {inputs.begin(), inputs.end()};
}

void write_seeds(const std::filesystem::path& folder) {
  for (const fuzzed_parser& parser : parsers()) {
    const std::filesystem::path own = folder / parser.name;
    std::filesystem::create_directories(own);
    const std::vector<std::string> inputs = seeds(parser);
    for (std::size_t at = 0; at < inputs.size(); ++at) {
      std::ofstream file(own / fmt::format("{:04}", at), std::ios::binary);
      file << inputs[at] << std::flush;
      if (!file) throw std::runtime_error(fmt::format("cannot write seeds into {}", own.string()));
    }
  }
}

}  // namespace fuzz
