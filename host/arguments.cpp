#include "arguments.h"

#include <tessel/tessel.h>

#include <charconv>
#include <system_error>

namespace tessel_host {

namespace {

constexpr std::string_view usage_text =
    R"(usage: tessel-host [--library FILE] [--node-id N] [--help] [--version]

Runs one audit of the router's link bundles: loads the Tessel Checker library
and calls its entry points in order.

  --library FILE  the shared object to load: a path, or, without a slash, a name
                  that the dynamic linker looks up. Default: libtessel.so beside
                  this program or in the library folder of its installation,
                  else libtessel.so as the dynamic linker finds it
  --node-id N     node id of the route processor that this host runs on, decimal
                  or hexadecimal behind 0x, 32 bits. Default: 4096
  --help, -h      print this text
  --version       print the version

Exit status:
  0   the audit ended by itself; whether it was complete stands on its output:
      six times "Done" and the result table, or "TESSEL Stopped", "Log ERROR".
      Findings do not change it, they stand in /var/log/tessel_*.log
  1   the audit stopped before it collected anything
  2   the audit was aborted; its traceback stands on standard error
  64  an argument was wrong
  69  the library could not be loaded or lacks an entry point
  74  --help or --version could not write to standard output
)";

constexpr std::string_view help_hint = "; 'tessel-host --help' shows the options";

usage_error wrong(std::string_view what) {
  return usage_error(std::string(what).append(help_hint));
}

struct option_text {
  std::string_view name;
  std::optional<std::string_view> value;
};

option_text split_option(std::string_view argument) {
  const auto equals = argument.find('=');
  if (!argument.starts_with("--") || equals == std::string_view::npos) return {argument, {}};
  return {argument.substr(0, equals), argument.substr(equals + 1)};
}

class argument_reader {
 public:
  explicit argument_reader(std::span<const char* const> arguments) : rest_(arguments) {}

  [[nodiscard]] bool at_end() const { return rest_.empty(); }

  std::string_view take() {
    const std::string_view argument = rest_.front();
    rest_ = rest_.subspan(1);
    return argument;
  }

  std::string value_of(const option_text& option) {
    const std::string name(option.name);
    if (!option.value && at_end()) throw wrong("option '" + name + "' needs a value");
    std::string value(option.value ? *option.value : take());
    if (value.empty()) throw wrong("option '" + name + "' has an empty value");
    return value;
  }

 private:
  std::span<const char* const> rest_;
};

void refuse_value(const option_text& option) {
  if (!option.value) return;
  throw wrong("option '" + std::string(option.name) + "' takes no value");
}

std::uint32_t node_id_of(const std::string& text) {
  if (const auto number = read_node_id(text)) return *number;
  throw wrong("'" + text +
              "' is no node id: give a decimal number, or a hexadecimal one behind 0x, from 0 "
              "to 4294967295");
}

}  // namespace

host_arguments parse_arguments(std::span<const char* const> arguments) {
  host_arguments parsed;
  argument_reader reader(arguments);
  while (!reader.at_end()) {
    const auto option = split_option(reader.take());
    if (option.name == "--library") {
      parsed.library = reader.value_of(option);
    } else if (option.name == "--node-id") {
      parsed.node_id = node_id_of(reader.value_of(option));
    } else if (option.name == "--help" || option.name == "-h") {
      refuse_value(option);
      parsed.action = host_action::help;
    } else if (option.name == "--version") {
      refuse_value(option);
      if (parsed.action == host_action::run) parsed.action = host_action::version;
    } else if (option.name.starts_with('-')) {
      throw wrong("unknown option '" + std::string(option.name) + "'");
    } else {
      throw wrong("unexpected argument '" + std::string(option.name) + "'");
    }
  }
  return parsed;
}

std::optional<std::uint32_t> read_node_id(std::string_view text) {
  int base = 10;
  if (text.starts_with("0x") || text.starts_with("0X")) {
    text.remove_prefix(2);
    base = 16;
  }
  std::uint32_t number = 0;
  const auto* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number, base);
  if (error != std::errc{} || stop != end) return std::nullopt;
  return number;
}

returned_run describe_returned_run(std::int32_t result) {
  const std::string head = "the audit did not complete: ";
  if (result == TESSEL_STOPPED_EARLY) {
    return {head +
                "it stopped before it collected anything; what it printed above and "
                "/var/log/tessel_exception.log say why",
            1};
  }
  if (result == TESSEL_ABORTED) {
    return {head + "it was aborted by the failure in the traceback above", 2};
  }
  return {head + "tessel_run returned " + std::to_string(result) + ", which it never should", 2};
}

std::string_view help_text() {
  return usage_text;
}

}  // namespace tessel_host
