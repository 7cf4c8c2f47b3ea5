#include "progress.h"

#include <algorithm>
#include <set>
#include <string_view>

#include "command_line/one_line.h"
#include "processes.h"

namespace tessel_host {

namespace {

constexpr std::size_t longest_command = 60;
constexpr std::size_t most_places = 8;  // in a line of a file
constexpr std::uint64_t seconds_of_a_turn = 3;

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

std::string_view tool_of(std::string_view shortened_line) {
  return shortened_line.substr(0, shortened_line.find(' '));
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
    const std::string place = place_of(event);
    running_[event.id] = {place, event.node, event.command, event.shell, event.at, 0};
    ++places_[place].begun;
  } else if (event.kind == journal_event_kind::end) {
    take_end(event);
  } else if (event.kind == journal_event_kind::finished) {
    for (const auto& [id, one] : running_) ++places_[one.place].done;
    running_.clear();
    done_ = begun_;
  }
}

void progress::take_end(const journal_event& event) {
  if (dropped_.erase(event.id) == 0) {
    counts& here = places_[place_of(event)];
    if (running_.erase(event.id) == 0) ++here.begun;  // the line of its start was lost
    ++here.done;
    ++done_;
  }
  if (event.timed_out) ++timed_out_;
  if (event.seconds > slowest_.seconds)
    slowest_ = {place_of(event), event.node, event.command, event.shell, 0, event.seconds};
}

void progress::drop_ended() {
  done_ += std::erase_if(running_, [this](const auto& each) {
    const bool has_ended = !process_of(each.second.shell).has_value();
    if (has_ended) ++places_[each.second.place].done;
    if (has_ended) dropped_.insert(each.first);
    return has_ended;
  });
}

const progress::command* progress::oldest() const {
  const command* found = nullptr;
  for (const auto& [id, one] : running_)
    if (found == nullptr || one.at < found->at) found = &one;
  return found;
}

std::string progress::shown(const command& one, double seconds) {
  const std::string place = one.place.empty() ? "" : command_line::one_line(one.place) + " ";
  return place + shortened(one.line) + ", " + whole(seconds);
}

std::string progress::present(double now) const {
  std::set<std::string_view> nodes;
  for (const auto& [id, one] : running_)
    if (!one.node.empty()) nodes.insert(one.node);
  std::string text = counted(running_.size(), "command") + " running";
  if (!nodes.empty()) text += " on " + counted(nodes.size(), "node");
  text += ", " + std::to_string(done_) + " of " + std::to_string(begun_) + " done, " + whole(now);
  if (const command* slow = oldest()) text += "; slowest: " + shown(*slow, now - slow->at);
  return text;
}

std::vector<std::string> progress::running_places() const {
  std::vector<const command*> by_age;
  for (const auto& [id, one] : running_)
    if (!one.place.empty()) by_age.push_back(&one);
  std::stable_sort(by_age.begin(), by_age.end(),
                   [](const command* a, const command* b) { return a->at < b->at; });
  std::vector<std::string> places;
  for (const command* one : by_age)
    if (std::find(places.begin(), places.end(), one->place) == places.end())
      places.push_back(one->place);
  return places;
}

std::string progress::places_within(std::size_t most, std::size_t room) const {
  const std::vector<std::string> places = running_places();
  std::string text;
  for (std::size_t i = 0; i < places.size(); ++i) {
    const counts& here = places_.at(places[i]);
    const std::string next = (text.empty() ? "" : ", ") + command_line::one_line(places[i]) + ": " +
                             std::to_string(here.done) + "/" + std::to_string(here.begun);
    const std::size_t left = places.size() - i;
    const std::string rest = left > 1 ? " +" + std::to_string(left - 1) : "";
    if (i == most || text.size() + next.size() + rest.size() > room)
      return text.empty() ? "" : text + " +" + std::to_string(left);
    text += next;
  }
  return text;
}

std::string progress::places() const {
  return places_within(most_places, std::string::npos);
}

std::string progress::drawn(double now, std::size_t width) const {
  const std::string head = std::to_string(running_.size()) + " running, " + std::to_string(done_) +
                           "/" + std::to_string(begun_) + " done, " + whole(now);
  const command* const slow = oldest();
  if (slow == nullptr) return head.substr(0, width);
  const auto places_behind = [&](const std::string& text) {
    const std::string places =
        text.size() + 2 < width ? places_within(running_.size(), width - text.size() - 2) : "";
    return places.empty() ? "" : text + "; " + places;
  };
  const std::string line = shortened(slow->line);
  const std::string start = head + "; slowest " + whole(now - slow->at) + ": " +
                            (slow->place.empty() ? "" : command_line::one_line(slow->place) + " ");
  for (const std::string_view told : {std::string_view(line), tool_of(line)})
    if (std::string text = places_behind(start + std::string(told)); !text.empty()) return text;
  const bool is_turn_of_places = static_cast<std::uint64_t>(now) / seconds_of_a_turn % 2 == 1;
  std::string other = places_behind(head);
  if (is_turn_of_places && !other.empty()) return other;
  return (start + line).substr(0, width);
}

std::string progress::summary(double now) const {
  std::string text = counted(done_, "command") + " done, " + whole(now);
  if (!running_.empty()) text += ", " + std::to_string(running_.size()) + " running";
  if (slowest_.seconds > 0) text += "; slowest: " + shown(slowest_, slowest_.seconds);
  return text;
}

}  // namespace tessel_host
