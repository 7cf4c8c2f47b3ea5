#include "measures.h"

#include <fstream>
#include <iomanip>
#include <sstream>
#include <stdexcept>

namespace bench {

namespace {

[[noreturn]] void refuse(const std::filesystem::path& file, const std::string& why) {
  throw std::runtime_error(file.string() + ": " + why);
}

// Numbers first, then the text up to the end of the line.
std::string rest_of(std::istream& line) {
  std::string rest;
  std::getline(line >> std::ws, rest);
  return rest;
}

void read_line(const std::string& text, measures& all) {
  std::istringstream line(text);
  std::string kind;
  line >> kind;
  if (kind == "value") {
    double number = 0;
    line >> number;
    all.values[rest_of(line)] = number;
  } else if (kind == "phase") {
    phase_cost phase;
    line >> phase.own.user >> phase.own.system >> phase.wall >> phase.peak_kib;
    phase.name = rest_of(line);
    all.phases.push_back(phase);
  } else if (kind == "command") {
    command_run command;
    line >> command.begin >> command.end;
    command.line = rest_of(line);
    all.commands.push_back(command);
  } else {
    throw std::runtime_error("unknown line \"" + text + "\"");
  }
  if (line.fail()) throw std::runtime_error("unreadable line \"" + text + "\"");
}

}  // namespace

double measures::value(const std::string& name) const {
  const auto found = values.find(name);
  return found == values.end() ? 0 : found->second;
}

void write_measures(const measures& all, const std::filesystem::path& file) {
  std::ofstream out(file);
  out << std::fixed << std::setprecision(6);
  for (const auto& [name, number] : all.values) out << "value " << number << ' ' << name << '\n';
  for (const phase_cost& phase : all.phases)
    out << "phase " << phase.own.user << ' ' << phase.own.system << ' ' << phase.wall << ' '
        << phase.peak_kib << ' ' << phase.name << '\n';
  for (const command_run& command : all.commands)
    out << "command " << command.begin << ' ' << command.end << ' ' << command.line << '\n';
  out.close();
  if (!out) refuse(file, "cannot be written");
}

measures read_measures(const std::filesystem::path& file) {
  std::ifstream in(file);
  if (!in) refuse(file, "cannot be read");
  measures all;
  for (std::string line; std::getline(in, line);) {
    try {
      read_line(line, all);
    } catch (const std::runtime_error& wrong) {
      refuse(file, wrong.what());
    }
  }
  return all;
}

}  // namespace bench
