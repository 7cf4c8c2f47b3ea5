#include "base/filled_line.h"

#include <fmt/format.h>

#include <array>

#include "base/failure.h"
#include "base/text.h"
#include "base/value.h"

namespace tessel {

namespace {

struct alphabet {
  filling kind;
  std::string_view name;    // in messages
  std::string_view admits;  // a pattern for the whole value
};

// In the order of `filling`. A GLIF is the end of a global LIF: see glif_tail. A chip command is
// between double quotes, where the shell still interprets four characters.
constexpr std::array<alphabet, 8> alphabets = {{
    {filling::address, "address", "[0-9A-Za-z_.:%][0-9A-Za-z_.:%-]*"},
    {filling::node_name, "node name", "[0-9A-Za-z_/]+"},
    {filling::node_in_file_name, "node name", "[0-9A-Za-z_]+"},
    {filling::node_id, "node id", "[0-9]+|A"},
    {filling::npu, "NPU", "[0-9]+|all"},
    {filling::glif, "GLIF", "[0-9A-Za-z_:]{0,4}"},
    {filling::chip_command, "chip command", R"([ !#%-\[\]^_a-~]*)"},
    {filling::capture, "capture name", "[0-9A-Za-z_:]+"},
}};

constexpr bool stands_at_its_kind() {
  for (std::size_t at = 0; at < alphabets.size(); ++at) {
    if (static_cast<std::size_t>(alphabets[at].kind) != at) return false;
  }
  return true;
}
static_assert(stands_at_its_kind());

const pattern& whole_value(filling kind) {
  static const auto* const patterns = [] {
    auto* made = new std::array<const pattern*, alphabets.size()>;
    for (std::size_t at = 0; at < alphabets.size(); ++at) {
      (*made)[at] = &constant(fmt::format(R"(\A(?:{})\z)", alphabets[at].admits));
    }
    return made;
  }();
  return *patterns->at(static_cast<std::size_t>(kind));
}

void check(const filled_value& value) {
  if (!findall(whole_value(value.kind), value.text).empty()) return;
  const alphabet& known = alphabets.at(static_cast<std::size_t>(value.kind));
  const std::string owner = value.owner.empty() ? "" : fmt::format(" of {}", value.owner);
  throw failure(fmt::format("the {}{} is {}, and a command line takes only {}", known.name, owner,
                            brief_text(value.text), known.admits));
}

}  // namespace

std::string filled_line::filled() const {
  std::vector<std::string_view> texts;
  texts.reserve(values_.size());
  for (const filled_value& each : values_) texts.push_back(each.text);
  return fill(form_, texts);
}

std::string filled_line::text() const {
  for (const filled_value& each : values_) check(each);
  std::string line = filled();
  if (line.find('\0') != std::string::npos) throw failure("a NUL byte would end the command line");
  return line;
}

std::string filled_line::shown() const {
  return on_one_line(filled());
}

}  // namespace tessel
