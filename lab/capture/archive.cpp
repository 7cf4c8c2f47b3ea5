#include "lab/capture/archive.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include "lab/base/error.h"
#include "lab/base/files.h"
#include "lab/base/private_files.h"
#include "lab/capture/archive_stream.h"
#include "lab/capture/capture_check.h"

namespace lab {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view top_folder = "capture";

std::vector<fs::path> sorted(const fs::path& folder) {
  std::vector<fs::path> names;
  for (const auto& entry : fs::directory_iterator(folder)) names.push_back(entry.path());
  std::sort(names.begin(), names.end());
  return names;
}

struct place_in_capture {
  std::string place;  // empty for a file beside the manifest
  std::string file;
};

bool is_plain_name(const std::string& name) {
  constexpr std::size_t longest_file_name = 255;
  return !name.empty() && name.front() != '.' && name.size() <= longest_file_name &&
         name.find('\0') == std::string::npos;
}

// The place of an entry: TOP/FILE or TOP/PLACE/FILE, with the same TOP for all.
class entry_places {
 public:
  explicit entry_places(const fs::path& archive) : archive_(archive.string()) {}

  place_in_capture of(const std::string& name) {
    std::vector<std::string> parts{""};
    for (const char c : name) {
      if (c == '/')
        parts.emplace_back();
      else
        parts.back() += c;
    }
    if (parts.size() < 2 || parts.size() > 3 ||
        !std::all_of(parts.begin(), parts.end(), is_plain_name))
      refuse(name, "not a place within a capture");
    if (top_.empty()) top_ = parts.front();
    if (parts.front() != top_) refuse(name, "outside the archive's folder");
    if (!seen_.insert(name).second) refuse(name, "appears twice");
    const std::string place = parts.size() == 3 ? parts[1] : std::string{};
    (place.empty() ? files_ : places_).insert(parts[1]);
    if (files_.count(parts[1]) + places_.count(parts[1]) > 1)
      refuse(name, "a file and a folder have the same name");
    return {place, parts.back()};
  }

 private:
  [[noreturn]] void refuse(const std::string& name, const char* why) const {
    throw lab_error(fmt::format("{}: entry {:?}: {}", archive_, name, why));
  }

  std::string archive_;
  std::string top_;
  std::set<std::string> seen_;
  std::set<std::string> files_;  // beside the manifest
  std::set<std::string> places_;
};

struct source_file {
  std::string name;  // in the archive
  fs::path file;
};

// Does not pack what unpacking would refuse.
void collect(const fs::path& folder, const std::string& name, entry_places& places,
             std::vector<source_file>& files) {
  for (const fs::path& entry : sorted(folder)) {
    const std::string inner = name + '/' + entry.filename().string();
    if (fs::is_directory(fs::symlink_status(entry))) {
      collect(entry, inner, places, files);
    } else {
      places.of(inner);
      files.push_back({inner, entry});
    }
  }
}

void check_size(const fs::path& folder, const std::vector<source_file>& files,
                const archive_limits& limits) {
  constexpr const char* what_to_do = "a packed capture holds no more; keep it as a folder";
  archive_space space;
  for (const source_file& one : files) {
    const std::uint64_t size = fs::file_size(one.file);
    if (size > limits.file)
      throw lab_error(fmt::format("{}: larger than {}; {}", one.file.string(),
                                  size_text(limits.file), what_to_do));
    space.add(one.name, size);
  }
  if (const std::string excess = space.excess(limits); !excess.empty())
    throw lab_error(fmt::format("{}: {} in all; {}", folder.string(), excess, what_to_do));
}

void write_entry(const fs::path& folder, const place_in_capture& where, const std::string& text) {
  if (!where.place.empty()) fs::create_directories(folder / where.place);
  write_whole(folder / where.place / where.file, text);
}

}  // namespace

void pack_folder(const fs::path& folder, const fs::path& out, const archive_limits& limits) {
  check_recording_folder(read_manifest(folder), folder, folder);
  entry_places places(folder);
  std::vector<source_file> files;
  collect(folder, std::string{top_folder}, places, files);
  check_size(folder, files, limits);
  const private_files of_the_capture;
  build_beside(out, [&](const fs::path& building) {
    archive_writer archive(building);
    for (const source_file& one : files) archive.add(one.name, one.file);
    archive.finish();
  });
}

void unpack_folder(const fs::path& file, const fs::path& out, const archive_limits& limits) {
  const private_files of_the_capture;
  build_beside(out, [&](const fs::path& building) {
    fs::create_directory(building);
    entry_places places(file);
    const auto write = [&](const archive_entry& entry) {
      write_entry(building, places.of(entry.name), entry.text);
    };
    read_archive(file, write, limits);
    if (!is_capture_folder(building))
      throw lab_error(fmt::format("{}: not a capture: it has no manifest", file.string()));
    const capture head =
        parse_manifest(read_whole(building / "manifest"), file.string() + ": manifest");
    check_recording_folder(head, building, file);
  });
}

namespace {

capture read_packed_unchecked(const fs::path& file) {
  capture c;
  std::string manifest;
  bool has_manifest = false;
  entry_places places(file);
  read_archive(file, [&](archive_entry entry) {
    place_in_capture where = places.of(entry.name);
    if (!where.place.empty()) {
      c.answers.emplace(std::pair{std::move(where.place), std::move(where.file)},
                        std::move(entry.text));
    } else if (where.file == "manifest") {
      manifest = std::move(entry.text);
      has_manifest = true;
    } else if (where.file == "calls") {
      c.calls = std::move(entry.text);
    } else if (where.file == "files") {
      c.files = std::move(entry.text);
    } else if (where.file == "journal") {
      c.journal = std::move(entry.text);
    }
  });
  if (!has_manifest)
    throw lab_error(fmt::format("{}: not a capture: it has no manifest", file.string()));
  capture head = parse_manifest(manifest, file.string() + ": manifest");
  head.answers = std::move(c.answers);
  head.calls = std::move(c.calls);
  head.files = std::move(c.files);
  head.journal = std::move(c.journal);
  return head;
}

}  // namespace

capture read_packed(const fs::path& file) {
  capture c = read_packed_unchecked(file);
  check_recording(c, file);
  return c;
}

capture read_capture(const fs::path& folder_or_file) {
  capture c = read_unchecked(folder_or_file);
  check_recording(c, folder_or_file);
  return c;
}

capture read_unchecked(const fs::path& folder_or_file) {
  if (fs::is_regular_file(folder_or_file)) return read_packed_unchecked(folder_or_file);
  if (!fs::is_directory(folder_or_file))
    throw lab_error(fmt::format("{}: there is no such capture", folder_or_file.string()));
  return read_folder(folder_or_file);
}

}  // namespace lab
