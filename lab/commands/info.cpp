#include <fmt/format.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "lab/base/error.h"
#include "lab/capture/archive.h"
#include "lab/capture/capture_check.h"
#include "lab/commands/commands.h"

namespace lab {
namespace {

void show(const char* what, const std::string& value) {
  if (!value.empty()) fmt::print("{:<11} {}\n", what, value);
}

std::string origin_of(const pedigree& made) {
  if (made.origin.empty()) return "not known";
  std::string text = made.origin;
  if (!made.version.empty()) text += " by tessel-lab " + made.version;
  if (!made.redacted_by.empty()) text += ", redacted by tessel-lab " + made.redacted_by;
  return text;
}

std::string node_text(const capture& c) {
  std::string text;
  for (const auto& [address, name] : c.nodes)
    text += fmt::format("{}{} ({})", text.empty() ? "" : ", ", name, address);
  return text;
}

std::string size_of_files(const capture& c) {
  std::uint64_t bytes = c.calls.size() + c.files.size() + c.journal.size();
  std::size_t count = 0;
  for (const std::string* text : {&c.calls, &c.files, &c.journal}) count += text->empty() ? 0 : 1;
  for (const auto& [key, text] : c.answers) {
    bytes += text.size();
    ++count;
  }
  return fmt::format("{}, {} bytes", count, bytes);
}

std::string state_of(const capture& c) {
  if (c.sums.empty()) return "complete; a capture without sums does not know whether it changed";
  const std::vector<std::string> changed = changed_files(c);
  if (changed.empty()) return "complete, as it was made";
  return fmt::format("complete; {} of its files changed since it was made, the first is {}",
                     changed.size(), changed.front());
}

}  // namespace

int info_command(const info_options& o) {
  const capture c = read_unchecked(o.capture);
  show("router", c.router);
  show("type", c.made.type);
  show("origin", origin_of(c.made));
  show("format", std::to_string(c.made.format));
  show("host", c.made.host_name);
  show("begin", c.made.begin);
  show("end", c.made.end);
  if (c.made.calls > 0) show("calls", std::to_string(c.made.calls));
  show("node id", std::to_string(c.host_node_id));
  show("nodes", node_text(c));
  show("files", size_of_files(c));
  try {
    check_recording(c, o.capture);
  } catch (const lab_error& failure) {
    show("state", fmt::format("damaged: {}", failure.what()));
    return EXIT_FAILURE;
  }
  show("state", state_of(c));
  return EXIT_SUCCESS;
}

}  // namespace lab
