#include "progress.h"

#include <algorithm>
#include <set>
#include <string_view>

#include "command_line/one_line.h"
#include "processes.h"

namespace tessel_host {

namespace {

constexpr std::size_t longest_command = 60;
constexpr std::size_t most_places = 8;

std::string whole(double seconds) {
  return std::to_string(static_cast<std::uint64_t>(std::max(0.0, seconds))) + " s";
}

std::string counted(std::uint64_t count, const std::string& what) {
  return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

// The tool's name says more than its folder.
std::string shortened(std::string_view line) {
  constexpr std::string_view folder = "/opt/nos/bin/";
  if (line.starts_with(folder)) line.remove_prefix(folder.size());
  std::string text = command_line::one_line(std::string(line));
  if (text.size() > longest_command) text = text.substr(0, longest_command - 3) + "...";
  return text;
}

std::string place_of(const journal_event& event) {
  if (event.node.empty()) return event.npu.empty() ? "" : "NPU " + event.npu;
  return event.npu.empty() ? event.node : event.node + " NPU " + event.npu;
}

}  // namespace

void progress::take(const journal_event& event) {
  // A line that is missing may have been the end of a command.
  if (last_line_ != 0 && event.number != last_line_ + 1) drop_ended();
  last_line_ = event.number;
  begun_ = std::max(begun_, event.id);
  if (event.kind == journal_event_kind::start) {
    running_[event.id] = {place_of(event), event.node, event.command, event.shell, event.at, 0};
  } else if (event.kind == journal_event_kind::end) {
    take_end(event);
  } else if (event.kind == journal_event_kind::finished) {
    running_.clear();
    done_ = begun_;
  }
}

void progress::take_end(const journal_event& event) {
  running_.erase(event.id);
  ++done_;
  if (event.timed_out) ++timed_out_;
  if (event.seconds > slowest_.seconds)
    slowest_ = {place_of(event), event.node, event.command, event.shell, 0, event.seconds};
}

void progress::drop_ended() {
  done_ += std::erase_if(
      running_, [](const auto& each) { return !process_of(each.second.shell).has_value(); });
}

std::string progress::shown(const command& one, double seconds) {
  const std::string place = one.place.empty() ? "" : command_line::one_line(one.place) + " ";
  return place + shortened(one.line) + ", " + whole(seconds);
}

std::string progress::present(double now) const {
  std::set<std::string_view> nodes;
  const command* oldest = nullptr;
  for (const auto& [id, one] : running_) {
    if (!one.node.empty()) nodes.insert(one.node);
    if (oldest == nullptr || one.at < oldest->at) oldest = &one;
  }
  std::string text = counted(running_.size(), "command") + " running";
  if (!nodes.empty()) text += " on " + counted(nodes.size(), "node");
  text += ", " + std::to_string(done_) + " of " + std::to_string(begun_) + " done, " + whole(now);
  if (oldest != nullptr) text += "; slowest: " + shown(*oldest, now - oldest->at);
  return text;
}

std::string progress::places() const {
  std::map<std::string, std::size_t> counts;
  for (const auto& [id, one] : running_)
    if (!one.place.empty()) ++counts[command_line::one_line(one.place)];
  std::string text;
  std::size_t shown = 0;
  for (const auto& [place, count] : counts) {
    if (++shown > most_places) break;
    text += (text.empty() ? "" : ", ") + place + ": " + std::to_string(count);
  }
  if (counts.size() > most_places)
    text += " and " + std::to_string(counts.size() - most_places) + " more places";
  return text;
}

std::string progress::summary(double now) const {
  std::string text = counted(done_, "command") + " done, " + whole(now);
  if (!running_.empty()) text += ", " + std::to_string(running_.size()) + " running";
  if (slowest_.seconds > 0) text += "; slowest: " + shown(slowest_, slowest_.seconds);
  return text;
}

}  // namespace tessel_host
