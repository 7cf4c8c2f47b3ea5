#include "lab/base/options.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <limits>

namespace lab {
namespace {

bool among(const std::vector<std::string>& names, const std::string& name) {
  return std::find(names.begin(), names.end(), name) != names.end();
}

}  // namespace

std::string option_values::value_of(const std::string& name) const {
  const auto found = values.find(name);
  return found == values.end() ? std::string{} : found->second.back();
}

std::vector<std::string> option_values::all_of(const std::string& name) const {
  const auto found = values.find(name);
  return found == values.end() ? std::vector<std::string>{} : found->second;
}

option_values parse_options(const std::vector<std::string>& arguments, const option_names& names) {
  option_values o;
  o.command = arguments.front();
  for (std::size_t i = 1; i < arguments.size(); ++i) {
    const std::string& word = arguments[i];
    if (names.rest && word == "--") {
      o.rest.assign(arguments.begin() + static_cast<std::ptrdiff_t>(i) + 1, arguments.end());
      break;
    }
    if (!word.starts_with('-')) {
      o.operands.push_back(word);
    } else if (among(names.flags, word)) {
      o.values[word].emplace_back();
    } else if (!among(names.with_value, word)) {
      throw usage_error(
          fmt::format("{}: unknown option {}; see tessel-lab --help", o.command, word));
    } else if (++i == arguments.size()) {
      throw usage_error(fmt::format("{}: {} needs a value", o.command, word));
    } else {
      o.values[word].push_back(arguments[i]);
    }
  }
  return o;
}

void expect_operands(const option_values& o, std::size_t count, const char* what) {
  if (o.operands.size() != count)
    throw usage_error(
        fmt::format("{}: expected {}, got {} operands", o.command, what, o.operands.size()));
}

unsigned number_of(const option_values& o, const std::string& name, unsigned otherwise) {
  if (!o.has(name)) return otherwise;
  const std::string text = o.value_of(name);
  unsigned number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (text.empty() || error != std::errc{} || end != text.data() + text.size())
    throw usage_error(fmt::format("{}: {} {}: not a number from 0 to {}", o.command, name, text,
                                  std::numeric_limits<unsigned>::max()));
  return number;
}

}  // namespace lab
