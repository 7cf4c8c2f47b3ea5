#include "command_line/command_line.h"

#include <algorithm>
#include <memory>
#include <utility>

#include "command_line/help_text.h"
#include "command_line/one_line.h"

namespace command_line {
namespace {

// CLI11's layout with wrapped lines and plain labels, without the second blank line that it prints
// for an empty group.
class layout : public CLI::Formatter {
 public:
  explicit layout(std::string usage_end) : usage_end_(std::move(usage_end)) {
    label("Positionals", "Operands");
    label("SUBCOMMAND", "COMMAND ...");
  }

  std::string make_help(const CLI::App* app, std::string name,
                        CLI::AppFormatMode mode) const override {
    return with_single_blank_lines(CLI::Formatter::make_help(app, std::move(name), mode));
  }

  std::string make_description(const CLI::App* app) const override {
    const std::string text = app->get_description();
    return wrapped(text.ends_with('.') ? text : text + '.', 0) + "\n\n";
  }

  std::string make_usage(const CLI::App* app, std::string name) const override {
    std::string line = CLI::Formatter::make_usage(app, std::move(name));
    if (!usage_end_.empty()) line.insert(line.find('\n'), ' ' + usage_end_);
    return line;
  }

  std::string make_subcommand(const CLI::App* command) const override {
    return entry(command->get_name(), command->get_description());
  }

  std::string make_option(const CLI::Option* option, bool is_operand) const override {
    std::string name = make_option_name(option, is_operand);
    if (const auto comma = name.find(','); comma != std::string::npos) name.insert(comma + 1, " ");
    const bool has_label = !is_operand && option->get_type_size() != 0;
    return entry(has_label ? name + ' ' + option->get_type_name() : name, make_option_desc(option));
  }

 private:
  std::string usage_end_;
};

bool looks_like_option(const std::string& word) {
  return word.starts_with('-');
}

std::string unknown_option(const std::string& word) {
  return "unknown option " + word.substr(0, word.find('='));
}

const CLI::App& addressed(const CLI::App& app) {
  const auto commands = app.get_subcommands();
  return commands.empty() ? app : *commands.front();
}

usage_error complaint_about(const CLI::App& app, const CLI::App& command, const std::string& what) {
  return complaint(app.get_name(), &command == &app ? "" : command.get_name(), what);
}

CLI::App* command_named(const CLI::App& app, const std::string& word) {
  const auto named =
      app.get_subcommands([&](const CLI::App* command) { return command->check_name(word); });
  return named.empty() ? nullptr : app.get_subcommand(word);
}

// An option of the command, or of the app if its commands take them, too.
const CLI::Option* option_named(const CLI::App& app, const CLI::App& command,
                                const std::string& name) {
  const CLI::Option* own = command.get_option_no_throw(name);
  return own != nullptr || !command.get_fallthrough() ? own : app.get_option_no_throw(name);
}

struct given_words {
  std::vector<std::string> words;
  const CLI::App* command;
};

// In `--name=value`, CLI11 treats an empty value as missing and accepts some values for a flag.
given_words with_values_apart(CLI::App& app, const std::vector<std::string>& arguments) {
  given_words given{{}, &app};
  CLI::App* command = &app;
  for (const std::string& word : arguments) {
    if (command == &app)
      if (CLI::App* named = command_named(app, word)) command = named;
    const auto equals = word.find('=');
    const CLI::Option* option = nullptr;
    if (word.starts_with("--") && equals != std::string::npos)
      option = option_named(app, *command, word.substr(0, equals));
    if (option == nullptr) {
      given.words.push_back(word);
    } else if (option->get_items_expected_max() == 0) {
      throw complaint_about(app, *command, word.substr(0, equals) + " takes no value");
    } else {
      given.words.push_back(word.substr(0, equals));
      given.words.push_back(word.substr(equals + 1));
    }
  }
  given.command = command;
  return given;
}

std::string missing_operand(const CLI::App& command) {
  for (const CLI::Option* option : command.get_options())
    if (option->get_required() && option->count() == 0) return option->get_name() + " is missing";
  return "an operand is missing";
}

std::string stray_word(const std::string& word, const char* kind) {
  return looks_like_option(word) ? unknown_option(word) : std::string(kind) + " \"" + word + '"';
}

// CLI11's own messages name neither the given word nor the cause in a user's words.
usage_error cause_of(const CLI::App& app, const CLI::ParseError& error) {
  if (const auto stray = app.remaining(); !stray.empty()) {
    const bool has_commands = !app.get_subcommands({}).empty();
    const char* kind = has_commands ? "unknown command" : "unexpected argument";
    return complaint_about(app, app, stray_word(stray.front(), kind));
  }
  const CLI::App& command = addressed(app);
  if (const auto stray = command.remaining(); !stray.empty())
    return complaint(app, stray_word(stray.front(), "unexpected argument"));
  if (dynamic_cast<const CLI::RequiredError*>(&error) != nullptr)
    return complaint(app, missing_operand(command));
  const std::string text = error.what();
  if (dynamic_cast<const CLI::ArgumentMismatch*>(&error) != nullptr)  // begins with the option
    return complaint(app, text.substr(0, text.find(':')) + " needs a value");
  return complaint(app, text);
}

std::optional<std::string> help_or_nothing(CLI::App& app, std::vector<std::string> arguments) {
  try {
    std::reverse(arguments.begin(), arguments.end());  // CLI11 takes words from the end
    app.parse(std::move(arguments));
    return std::nullopt;
  } catch (const CLI::CallForHelp&) {
    return app.help();
  } catch (const CLI::ParseError& error) {
    throw cause_of(app, error);
  }
}

}  // namespace

usage_error::usage_error(const std::string& what) : std::runtime_error(one_line(what)) {}

usage_error complaint(const std::string& program, const std::string& command,
                      const std::string& what) {
  if (command.empty()) return usage_error(what + "; see " + program + " --help");
  return usage_error(command + ": " + what + "; see " + program + ' ' + command + " --help");
}

void set_up(CLI::App& app, const std::string& usage_end) {
  app.formatter(std::make_shared<layout>(usage_end));
  app.option_defaults()->take_last();
  app.set_help_flag("-h,--help", "show this help");
}

CLI::App& add_command(CLI::App& app, const std::string& name, const std::string& group,
                      const std::string& help, const std::string& usage_end) {
  CLI::App* command = app.add_subcommand(name, help)->group(group)->footer("");
  set_up(*command, usage_end);
  return *command;
}

CLI::Option* add_value(CLI::App& app, const std::string& name, const std::string& label,
                       const std::string& help, taker take) {
  const auto take_all = [name, take = std::move(take)](const CLI::results_t& values) {
    for (const std::string& value : values) {
      if (value.starts_with("--"))
        throw bad_value(std::string(name).append(" needs a value before ").append(value));
      try {
        take(value);
      } catch (const bad_value& refusal) {
        throw bad_value(
            std::string(name).append(" \"").append(value).append("\": ").append(refusal.what()));
      }
    }
    return true;
  };
  return app.add_option(name, take_all, help)->type_name(label)->take_all();
}

CLI::Option* add_flag(CLI::App& app, const std::string& name, const std::string& help,
                      bool& given) {
  return app.add_flag(name, given, help);
}

CLI::Option* add_operand(CLI::App& app, const std::string& name, const std::string& help,
                         std::string& value) {
  const auto take = [&value](const CLI::results_t& values) {
    if (looks_like_option(values.front())) throw bad_value(unknown_option(values.front()));
    value = values.front();
    return true;
  };
  return app.add_option(name, take, help)->required();
}

CLI::Option* add_operands(CLI::App& app, const std::string& name, const std::string& help,
                          std::size_t least, std::vector<std::string>& values) {
  const auto take = [&values](const CLI::results_t& given) {
    for (const std::string& one : given)
      if (looks_like_option(one)) throw bad_value(unknown_option(one));
    values = given;
    return true;
  };
  // The usage line shows "..." behind the name.
  constexpr int most = CLI::detail::expected_max_vector_size;
  CLI::Option* made = app.add_option(name, take, help);
  made->expected(std::max(static_cast<int>(least), 1), most)->allow_extra_args();
  return least == 0 ? made : made->required();
}

std::optional<std::string> parse(CLI::App& app, const std::vector<std::string>& arguments,
                                 const rest_places& rests) {
  const auto mark = std::find(arguments.begin(), arguments.end(), "--");
  given_words given = with_values_apart(app, {arguments.begin(), mark});
  if (mark != arguments.end()) {
    const auto rest = rests.find(given.command);
    if (rest == rests.end()) throw complaint_about(app, *given.command, "unknown option --");
    rest->second->assign(mark + 1, arguments.end());
  }
  try {
    return help_or_nothing(app, std::move(given.words));
  } catch (const bad_value& refusal) {
    throw complaint(app, refusal.what());
  }
}

usage_error complaint(const CLI::App& app, const std::string& what) {
  return complaint_about(app, addressed(app), what);
}

}  // namespace command_line
