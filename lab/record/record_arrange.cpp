#include "lab/record/record_arrange.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "lab/base/error.h"
#include "lab/base/files.h"
#include "lab/capture/answer_list.h"
#include "lab/capture/capture.h"
#include "lab/tool/ended_call.h"

namespace lab {
namespace {

namespace fs = std::filesystem;

struct kept {
  ended_call call;
  bool cut_off = false;
  std::string name;  // of its answer in the capture
};

using calls_by_command = std::map<std::pair<std::string, std::string>, std::vector<kept>>;

calls_by_command read_ended(const fs::path& file, const fs::path& capture) {
  calls_by_command calls;
  std::ifstream in(file);
  ended_call c;
  while (in >> c.begin >> c.duration >> c.status >> c.bytes >> c.problem >> c.number >> c.place >>
         c.file) {
    if (c.problem != 0)
      throw lab_error(fmt::format("{}: could not be kept: {}",
                                  (capture / c.place / c.file).string(), std::strerror(c.problem)));
    calls[{c.place, c.file}].push_back({c, false, {}});
  }
  return calls;
}

// The numbered outputs that belong to no ended call.
void add_cut_off(const fs::path& folder, calls_by_command& calls) {
  for (const auto& place : fs::directory_iterator(folder)) {
    for (const auto& entry : fs::directory_iterator(place.path())) {
      const std::string name = entry.path().filename().string();
      const std::size_t mark = name.find(';');
      ended_call c{place.path().filename().string(), name.substr(0, mark)};
      const char* end = name.data() + name.size();
      const auto number = std::from_chars(name.data() + mark + 1, end, c.number);
      if (number.ec != std::errc{} || number.ptr != end) continue;  // error output
      std::vector<kept>& known = calls[{c.place, c.file}];
      if (std::any_of(known.begin(), known.end(),
                      [&](const kept& k) { return k.call.number == c.number; }))
        continue;
      c.bytes = entry.file_size();
      known.push_back({c, true, {}});
    }
  }
}

bool same_bytes(const fs::path& a, const fs::path& b) {
  const bool has_a = fs::exists(a);
  if (has_a != fs::exists(b)) return false;
  if (!has_a) return true;
  if (fs::file_size(a) != fs::file_size(b)) return false;
  std::ifstream in_a(a, std::ios::binary);
  std::ifstream in_b(b, std::ios::binary);
  std::vector<char> buffer_a(std::size_t{1} << 16);
  std::vector<char> buffer_b(buffer_a.size());
  for (;;) {
    in_a.read(buffer_a.data(), static_cast<std::streamsize>(buffer_a.size()));
    in_b.read(buffer_b.data(), static_cast<std::streamsize>(buffer_b.size()));
    if (in_a.gcount() != in_b.gcount() ||
        !std::equal(buffer_a.begin(), buffer_a.begin() + in_a.gcount(), buffer_b.begin()))
      return false;
    if (in_a.gcount() == 0) return true;
  }
}

// The calls of one command line: equal answers become one. A single answer loses its number if its
// calls succeeded and wrote no errors.
void arrange_answers(const fs::path& place, const std::string& file, std::vector<kept>& calls) {
  std::sort(calls.begin(), calls.end(),
            [](const kept& a, const kept& b) { return a.call.number < b.call.number; });
  const auto output = [&](unsigned number) { return place / numbered_file(file, number); };
  const auto complaint = [&](unsigned number) {
    return fs::path{output(number).string() + std::string{complaint_suffix}};
  };
  std::vector<unsigned> distinct;
  std::vector<listed_answer> list;
  for (kept& k : calls) {
    const unsigned number = k.call.number;
    const auto same = std::find_if(distinct.begin(), distinct.end(), [&](unsigned other) {
      return same_bytes(output(other), output(number)) &&
             same_bytes(complaint(other), complaint(number));
    });
    const unsigned kept_as = same == distinct.end() ? number : *same;
    if (same == distinct.end()) {
      distinct.push_back(number);
    } else {
      fs::remove(output(number));
      fs::remove(complaint(number));
    }
    list.push_back({k.call.status, kept_as, fs::exists(complaint(kept_as))});
    k.name = numbered_file(file, kept_as);
  }
  const bool is_plain =
      distinct.size() == 1 && std::all_of(list.begin(), list.end(), [](const listed_answer& a) {
        return a.status == 0 && !a.complains;
      });
  if (is_plain) {
    fs::rename(output(distinct.front()), place / file);
    for (kept& k : calls) k.name = file;
    return;
  }
  const fs::path list_file = place / (file + std::string{list_suffix});
  write_whole(list_file, answer_list_text(list));
}

std::string seconds(std::int64_t microseconds) {
  return fmt::format("{}.{:06}", microseconds / 1'000'000, microseconds % 1'000'000);
}

std::string call_list(std::vector<kept> calls) {
  std::int64_t first = 0;
  for (const kept& k : calls)
    if (!k.cut_off && (first == 0 || k.call.begin < first)) first = k.call.begin;
  // The beginning of a call that was cut off is not known: such calls come last.
  std::stable_sort(calls.begin(), calls.end(), [](const kept& a, const kept& b) {
    return std::pair{a.cut_off, a.call.begin} < std::pair{b.cut_off, b.call.begin};
  });
  std::string text = "# begin  duration  status  bytes  answer; times in seconds\n";
  for (const kept& k : calls) {
    if (k.cut_off)
      text += fmt::format("- - cut-off {}", k.call.bytes);
    else
      text += fmt::format("{} {} {} {}", seconds(k.call.begin - first), seconds(k.call.duration),
                          k.call.status, k.call.bytes);
    text += fmt::format(" {}/{}\n", k.call.place, k.name);
  }
  return text;
}

}  // namespace

recorded_calls arrange_recording(const fs::path& folder) {
  const fs::path capture = folder / "capture";
  calls_by_command calls = read_ended(folder / "ended", capture);
  add_cut_off(capture, calls);
  recorded_calls counted;
  std::vector<kept> all;
  for (auto& [command, of_it] : calls) {
    arrange_answers(capture / command.first, command.second, of_it);
    all.insert(all.end(), of_it.begin(), of_it.end());
  }
  counted.all = all.size();
  counted.cut_off = static_cast<std::size_t>(
      std::count_if(all.begin(), all.end(), [](const kept& k) { return k.cut_off; }));
  write_whole(capture / "calls", call_list(std::move(all)));
  return counted;
}

}  // namespace lab
