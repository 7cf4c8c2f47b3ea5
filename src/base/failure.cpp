#include "base/failure.h"

#include <cxxabi.h>
#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <new>
#include <string_view>
#include <typeinfo>

namespace tessel {

namespace {

// The bare name in "int tessel::check_lagid(...)". Compilers differ in the text around it. Template
// arguments and "(anonymous namespace)" may contain the characters that otherwise end a name.
std::string_view bare_name(std::string_view signature) {
  constexpr std::string_view anonymous = "(anonymous namespace)";
  std::size_t start = 0;
  std::size_t end = signature.npos;
  int depth = 0;
  for (std::size_t at = 0; at < signature.size(); ++at) {
    const char c = signature[at];
    if (signature.substr(at).starts_with(anonymous)) {
      at += anonymous.size() - 1;
    } else if (c == '<') {
      if (depth++ == 0) end = at;
    } else if (c == '>') {
      --depth;
    } else if (depth == 0 && c == '(') {
      end = std::min(end, at);
      break;
    } else if (depth == 0 && std::string_view(" :*&").find(c) != std::string_view::npos) {
      start = at + 1;
      end = signature.npos;
    }
  }
  return signature.substr(start, end == signature.npos ? end : end - start);
}

std::string place_line(const here& where) {
  return fmt::format("  File \"{}\", line {}, in {}\n", where.file_name(), where.line(),
                     bare_name(where.function_name()));
}

std::string kind_of(const std::exception& error) {
  int status = 0;
  const std::unique_ptr<char, decltype(&std::free)> name(
      abi::__cxa_demangle(typeid(error).name(), nullptr, nullptr, &status), &std::free);
  const std::string_view full = status == 0 ? name.get() : typeid(error).name();
  return std::string(full.starts_with("tessel::") ? full.substr(8) : full);
}

}  // namespace

std::string on_one_line(std::string_view text) {
  std::string line;
  line.reserve(text.size());
  for (const char c : text) {
    if (c == '\n') {
      line += "\\n";
    } else if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f) {
      line += fmt::format("\\x{:02x}", static_cast<unsigned char>(c));
    } else {
      line += c;
    }
  }
  return line;
}

failure::failure(const std::string& text, here where) : text_(on_one_line(text)), where_(where) {}

std::string traceback_of(const std::exception& error, here handler) try {
  std::string text = "Traceback (most recent call last):\n";
  const auto* known = dynamic_cast<const failure*>(&error);
  const bool same_function = known != nullptr && std::string_view(known->where().function_name()) ==
                                                     handler.function_name();
  if (!same_function) text += place_line(handler);
  if (known != nullptr) text += place_line(known->where());
  return text + fmt::format("{}: {}\n", kind_of(error), error.what());
} catch (const std::bad_alloc&) {
  return "out of memory\n";  // short enough to need none
}

std::string traceback_of_current(here handler) {
  const std::exception_ptr pending = std::current_exception();
  if (!pending) return "";
  try {
    std::rethrow_exception(pending);
  } catch (const std::exception& error) {
    return traceback_of(error, handler);
  }
}

}  // namespace tessel
