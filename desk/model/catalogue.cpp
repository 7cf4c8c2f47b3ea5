#include "desk/model/catalogue.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace desk {

namespace {

struct roles_of_code {
  std::string_view code;
  std::string_view roles;
  field what = field::none;
  layer of = layer::none;
};

// What stands in the blanks of each message that concerns a router's layers or nodes. "lead" names
// the cause of a failure.
constexpr std::array roles_table = std::to_array<roles_of_code>({
    {"TC-101", "number layer kind node", field::presence},
    {"TC-102", "number layer object", field::presence},
    {"TC-103", "number object", field::presence, layer::pi},
    {"TC-104", "number object layer known reported", field::lag_id},
    {"TC-105", "number object layer known reported", field::mtu},
    {"TC-106", "number object layer reported known", field::rif},
    {"TC-107", "number object layer reported known", field::member_id},
    {"TC-108", "number object layer reported known", field::lif},
    {"TC-109", "number object layer reported rest", field::lif},
    {"TC-110", "number object layer reported known", field::mac},
    {"TC-111", "number object layer reported known", field::type},
    {"TC-112", "number object reported known", field::vlan_domain, layer::dpa},
    {"TC-113", "number member object", field::npu, layer::pd},
    {"TC-114", "number reported known", field::weight, layer::dpa},
    {"TC-115", "number known object", field::presence, layer::bcm},
    {"TC-116", "number known object npu", field::presence, layer::bcm},
    {"TC-117", "number member object npu", field::presence, layer::bcm},
    {"TC-118", "number member object npu", field::mtu, layer::bcm},
    {"TC-201", "number object", field::vlan_domain, layer::dpa},
    {"TC-202", "number object known member reported", field::vlan_domain, layer::bcm},
    {"TC-203", "number known object", field::presence, layer::bcm},
    {"TC-204", "number known object", field::lif, layer::bcm},
    {"TC-205", "number known object", field::rif, layer::bcm},
    {"TC-206", "number known reported object", field::mac, layer::bcm},
    {"TC-207", "number object reported", field::lif, layer::bcm},
    {"TC-301", "object", field::deletion, layer::dpa},
    {"TC-401", "layer number", field::presence},
    {"TC-601", "asic node", field::none, layer::bcm},
    {"TC-606", "object handle", field::mac, layer::pi},
    {"TC-607", "object handle", field::mtu, layer::pi},
    {"TC-608", "object handle", field::none, layer::pi},
    {"TC-609", "", field::none, layer::pi},
    {"TC-610", "", field::none, layer::pd},
    {"TC-611", "node", field::none, layer::dpa},
    {"TC-612", "node", field::none, layer::dpa},
    {"TC-613", "node", field::none, layer::dpa},
    {"TC-614", "node", field::none, layer::dpa},
    {"TC-615", "node", field::none, layer::bcm},
    {"TC-616", "object", field::none, layer::config},
    {"TC-617", "object", field::none, layer::config},
    {"TC-618", "", field::none, layer::config},
    {"TC-619", "known reported", field::none, layer::config},
    {"TC-620", "known reported", field::none, layer::config},
    {"TC-621", "known reported", field::none, layer::config},
    {"TC-622", "known reported", field::none, layer::config},
    {"TC-705", "cause", field::none, layer::config},
    {"TC-708", "cause node", field::none, layer::dpa},
    {"TC-709", "cause nodeid node", field::none, layer::bcm},
    {"TC-710", "cause node", field::none, layer::bcm},
    {"TC-711", "cause", field::none, layer::pi},
    {"TC-712", "cause", field::none, layer::pd},
    {"TC-713", "cause node", field::none, layer::dpa},
    {"TC-714", "cause node", field::none, layer::dpa},
    {"TC-715", "cause node", field::none, layer::dpa},
    {"TC-716", "cause node", field::none, layer::dpa},
    {"TC-717", "cause node", field::none, layer::dpa},
    {"TC-718", "cause node npu", field::none, layer::bcm},
    {"TC-719", "cause node npu", field::none, layer::bcm},
    {"TC-720", "cause", field::none, layer::config},
    {"TC-721", "cause", field::none, layer::config},
    {"TC-722", "cause object", field::type, layer::config},
    {"TC-723", "cause object", field::none, layer::config},
    {"TC-724", "cause object", field::none, layer::dpa},
    {"TC-725", "cause object", field::encapsulation, layer::config},
    {"TC-726", "cause", field::vlan_domain, layer::bcm},
    {"TC-728", "reason", field::none, layer::none},
    {"TC-729", "cause object node", field::none, layer::none},
    {"TC-730", "cause member object node", field::none, layer::none},
    {"TC-731", "cause object bundle node", field::none, layer::none},
    {"TC-733", "cause node layer", field::presence},
    {"TC-734", "cause object layer", field::presence},
    {"TC-735", "cause object", field::lag_id, layer::none},
    {"TC-737", "cause object", field::type, layer::none},
    {"TC-736", "cause object", field::mtu, layer::none},
    {"TC-738", "cause object", field::lif, layer::none},
    {"TC-739", "cause object", field::rif, layer::none},
    {"TC-740", "cause object", field::mac, layer::none},
    {"TC-742", "cause object", field::none, layer::pi},
    {"TC-743", "cause object", field::none, layer::pi},
    {"TC-744", "cause object", field::none, layer::pi},
    {"TC-745", "cause object", field::none, layer::pd},
    {"TC-746", "cause object", field::none, layer::pd},
    {"TC-747", "cause object", field::none, layer::dpa},
    {"TC-748", "cause object", field::none, layer::dpa},
    {"TC-749", "cause object", field::none, layer::dpa},
    {"TC-750", "cause object", field::none, layer::bcm},
    {"TC-751", "cause object", field::none, layer::bcm},
    {"TC-752", "cause object", field::none, layer::bcm},
    {"TC-753", "reason", field::none, layer::bcm},
    {"TC-754", "cause object", field::none, layer::bcm},
    {"TC-755", "cause object", field::encapsulation, layer::config},
    {"TC-756", "cause object", field::vlan_domain, layer::bcm},
    {"TC-757", "cause", field::none, layer::bcm},
    {"TC-759", "cause object", field::lif, layer::bcm},
    {"TC-760", "cause object", field::lif, layer::bcm},
    {"TC-761", "cause object", field::lif, layer::bcm},
    {"TC-762", "reason place", field::none, layer::none},
    {"TC-763", "reason layer", field::none, layer::none},
    {"TC-901", "stanza", field::none, layer::config},
    {"TC-905", "node npu", field::none, layer::bcm},
});

std::vector<std::string_view> pieces_of(std::string_view wording) {
  std::vector<std::string_view> pieces;
  for (std::size_t at = wording.find("{}"); at != std::string_view::npos; at = wording.find("{}")) {
    pieces.push_back(wording.substr(0, at));
    wording.remove_prefix(at + 2);
  }
  pieces.push_back(wording);
  return pieces;
}

// A wording, cut once.
struct cut_wording {
  const catalogue_entry* entry = nullptr;
  std::vector<std::string_view> pieces{};
  std::size_t length = 0;  // of all pieces
};

// Whether the ends of a text are those of a wording, by one character each: that most texts and
// wordings do not fit shows at once.
bool may_fit(std::string_view text, const cut_wording& wording) {
  const std::string_view first = wording.pieces.front();
  const std::string_view last = wording.pieces.back();
  if (text.empty()) return first.empty() && last.empty();
  return (first.empty() || first.front() == text.front()) &&
         (last.empty() || last.back() == text.back());
}

// Where a piece stands last; only where its first character is, all of it is compared.
std::size_t last_place_of(std::string_view piece, std::string_view text) {
  if (piece.empty() || piece.size() > text.size()) return text.rfind(piece);
  std::size_t rest = text.size() - piece.size() + 1;
  while (const void* found = ::memrchr(text.data(), piece.front(), rest)) {
    rest = static_cast<std::size_t>(static_cast<const char*>(found) - text.data());
    if (text.substr(rest).starts_with(piece)) return rest;
  }
  return std::string_view::npos;
}

// The blanks of a text, each as short as possible but the first of a failure, whose cause may hold
// anything; nothing if the text does not read so.
std::optional<std::vector<std::string_view>> blanks_of(std::string_view text,
                                                       const cut_wording& wording) {
  const auto& pieces = wording.pieces;
  std::vector<std::string_view> blanks;
  if (!text.starts_with(pieces.front()) || !text.ends_with(pieces.back())) return {};
  if (pieces.size() == 1) return text == pieces.front() ? std::optional(blanks) : std::nullopt;
  if (text.size() < pieces.front().size() + pieces.back().size()) return {};
  text.remove_prefix(pieces.front().size());
  text.remove_suffix(pieces.back().size());
  for (std::size_t i = 1; i + 1 < pieces.size(); ++i) {
    const bool is_cause = i == 1 && pieces.front().empty();
    const std::size_t at = is_cause ? last_place_of(pieces[i], text) : text.find(pieces[i]);
    if (at == std::string_view::npos) return {};
    blanks.push_back(text.substr(0, at));
    text.remove_prefix(at + pieces[i].size());
  }
  blanks.push_back(text);
  return blanks;
}

// The wordings of all entries, the one that fixes most of a text first.
std::vector<cut_wording> cut_wordings() {
  std::vector<cut_wording> all;
  for (const catalogue_entry& entry : catalogue()) {
    cut_wording one{&entry, pieces_of(entry.wording)};
    for (const std::string_view piece : one.pieces) one.length += piece.size();
    if (one.length != 0) all.push_back(std::move(one));
  }
  std::stable_sort(all.begin(), all.end(),
                   [](const cut_wording& a, const cut_wording& b) { return a.length > b.length; });
  return all;
}

// ---- Reading the page ---------------------------------------------------------------------------

std::vector<std::string_view> lines_of(std::string_view page) {
  std::vector<std::string_view> lines;
  while (!page.empty()) {
    const std::size_t end = page.find('\n');
    lines.push_back(page.substr(0, end));
    page.remove_prefix(end == std::string_view::npos ? page.size() : end + 1);
  }
  return lines;
}

// "`wording` TC-103" with or without the bar of a table before it.
bool read_head(std::string_view line, catalogue_entry& entry) {
  constexpr std::size_t code_length = 6;
  if (line.starts_with("`TC-")) {  // an entry for texts of another tool, without a wording of ours
    entry.code = line.substr(1, code_length);
    return true;
  }
  if (line.starts_with("| ")) line.remove_prefix(2);
  if (!line.starts_with("`")) return false;
  const std::size_t end = line.find('`', 1);
  if (end == std::string_view::npos || !line.substr(end).starts_with("` TC-")) return false;
  entry.wording = line.substr(1, end - 1);
  entry.code = line.substr(end + 2, code_length);
  return true;
}

// The cells of a row behind the first one, each in a line of its own, after the column's heading.
std::string text_of_row(std::string_view row, std::string_view heading) {
  std::string text;
  const auto next_cell = [](std::string_view& of) {
    of.remove_prefix(std::min(
        of.size(), of.find("| ") == std::string_view::npos ? of.size() : of.find("| ") + 2));
    std::string_view cell = of.substr(0, of.find(" |"));
    return cell;
  };
  next_cell(row);
  next_cell(heading);
  for (std::string_view cell = next_cell(row); !cell.empty(); cell = next_cell(row)) {
    const std::string_view name = next_cell(heading);
    text.append(name).append(": ").append(cell).append("\n");
  }
  return text;
}

void add_details(catalogue_entry& entry) {
  const auto* at = std::find_if(roles_table.begin(), roles_table.end(),
                                [&](const roles_of_code& one) { return one.code == entry.code; });
  if (at == roles_table.end()) return;
  entry.roles = at->roles;
  entry.what = at->what;
  entry.of = at->of;
}

// The page marks important words with two stars.
std::string without_emphasis(std::string text) {
  for (std::size_t at = text.find("**"); at != std::string::npos; at = text.find("**", at))
    text.erase(at, 2);
  return text;
}

std::vector<catalogue_entry> read_page() {
  std::vector<catalogue_entry> entries;
  std::string_view section;
  std::string_view heading;
  const auto lines = lines_of(findings_page());
  for (std::size_t i = 0; i < lines.size(); ++i) {
    if (lines[i].starts_with("#")) section = lines[i].substr(lines[i].find_first_not_of("# "));
    if (i + 1 < lines.size() && lines[i + 1].starts_with("| ---")) heading = lines[i];
    catalogue_entry entry;
    if (!read_head(lines[i], entry)) continue;
    entry.section = section;
    if (lines[i].starts_with("|")) {
      entry.text = text_of_row(lines[i], heading);
    } else {
      if (entry.wording.empty())
        entry.text.append(lines[i].substr(lines[i].find("– ") + 4)).append("\n");
      for (++i; i < lines.size() && !lines[i].empty(); ++i)
        entry.text.append(lines[i].substr(lines[i].find_first_not_of(": "))).append("\n");
    }
    // Two phases share one message: one entry with both explanations.
    const auto same = std::find_if(entries.begin(), entries.end(),
                                   [&](const auto& one) { return one.code == entry.code; });
    if (same != entries.end()) {
      same->text += entry.text;
      continue;
    }
    entry.text = without_emphasis(entry.text);
    add_details(entry);
    entries.push_back(std::move(entry));
  }
  return entries;
}

}  // namespace

const std::vector<catalogue_entry>& catalogue() {
  static const std::vector<catalogue_entry> entries = read_page();
  return entries;
}

const catalogue_entry* entry_of(std::string_view code) {
  const auto& all = catalogue();
  const auto at =
      std::find_if(all.begin(), all.end(), [&](const auto& one) { return one.code == code; });
  return at == all.end() ? nullptr : &*at;
}

std::string_view recognised::at(std::string_view role) const {
  std::string_view roles = entry->roles;
  for (const std::string_view blank : blanks) {
    const std::size_t end = std::min(roles.find(' '), roles.size());
    if (roles.substr(0, end) == role) return blank;
    roles.remove_prefix(std::min(end + 1, roles.size()));
  }
  return {};
}

std::optional<recognised> recognise(std::string_view text) {
  static const std::vector<cut_wording> wordings = cut_wordings();
  for (const cut_wording& one : wordings) {
    if (!may_fit(text, one)) continue;
    if (auto blanks = blanks_of(text, one)) return recognised{one.entry, std::move(*blanks)};
  }
  return {};
}

}  // namespace desk
