#include "lab/base/parse_toml.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>

#include "lab/base/error.h"

namespace lab {
namespace {

struct failed_assertion {};

// Per line, and so per key: a name of 255 bytes may consist of dots.
constexpr std::ptrdiff_t most_dots = 256;

std::string_view first_lines(std::string_view text, std::size_t count) {
  std::size_t end = 0;
  for (; count > 0 && end < text.size(); --count)
    end = std::min(text.find('\n', end), text.size() - 1) + 1;
  return text.substr(0, end);
}

bool breaks_an_assertion(std::string_view text) {
  try {
    const toml::table unused = toml::parse(text);
  } catch (const toml::parse_error&) {
    return false;
  } catch (const failed_assertion&) {
    return true;
  }
  return false;
}

// An assertion does not know its line: it is the last line of the shortest beginning that fails.
std::size_t line_of_assertion(std::string_view text) {
  std::size_t without = 0;
  std::size_t with = static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n')) + 1;
  while (with - without > 1) {
    const std::size_t between = without + (with - without) / 2;
    (breaks_an_assertion(first_lines(text, between)) ? with : without) = between;
  }
  return with;
}

void refuse_deep_keys(std::string_view text, const std::string& file) {
  for (std::size_t line = 1; !text.empty(); ++line) {
    const std::string_view one = first_lines(text, 1);
    if (std::count(one.begin(), one.end(), '.') > most_dots)
      throw lab_error(fmt::format("{}:{}: more than {} dots in one line", file, line, most_dots));
    text.remove_prefix(one.size());
  }
}

}  // namespace

void toml_assertion_failed(const char*) {
  throw failed_assertion{};
}

toml::table parse_toml(std::string_view text, const std::string& file) {
  refuse_deep_keys(text, file);
  try {
    return toml::parse(text);
  } catch (const toml::parse_error& failure) {
    throw lab_error(
        fmt::format("{}:{}: {}", file, failure.source().begin.line, failure.description()));
  } catch (const failed_assertion&) {
    throw lab_error(fmt::format("{}:{}: not TOML: the text in brackets is not a name", file,
                                line_of_assertion(text)));
  }
}

}  // namespace lab
