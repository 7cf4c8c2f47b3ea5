#include "definitions.h"

#include <fmt/format.h>

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/dump.h"
#include "base/numbers.h"
#include "base/text.h"
#include "collect/interface_mtus.h"
#include "consistency/im_handles.h"
#include "hygiene/bundle_health.h"
#include "parse/block_fields.h"
#include "parse/bundle_pi.h"
#include "parse/interface_text.h"
#include "parse/lag_rows.h"
#include "parse/slot_fields.h"
#include "parse/vlan_domain_rows.h"
#include "platform/router_type.h"
#include "programming/chip_rows.h"
#include "programming/lif_map.h"

namespace fuzz {

namespace {

using namespace tessel;

using texts = std::vector<std::string>;

constexpr std::size_t longest = 1024;
constexpr std::size_t longest_report = 384;  // its plain pattern is the slowest

void expect_equal(const char* what, const texts& found, const texts& defined) {
  if (found == defined) return;
  const auto shown = [](const texts& each) {
    const std::vector<std::string_view> views(each.begin(), each.end());
    return list_text(views);
  };
  std::fprintf(stderr, "%s: found %s, defined %s\n", what, shown(found).c_str(),
               shown(defined).c_str());
  std::abort();
}

// Constants are never destroyed, so each is made once.
#define COMPILED(definition)                               \
  ([]() -> const pattern& {                                \
    static const pattern& compiled = constant(definition); \
    return compiled;                                       \
  }())

// The first so many groups of all matches; all of them for 0.
texts groups(const matches& found, std::size_t count = 0) {
  texts all;
  for (std::size_t at = 0; at < found.size(); ++at) {
    const auto parts = found[at];
    const std::size_t wanted = count == 0 ? parts.size() : count;
    for (std::size_t part = 0; part < wanted; ++part) all.emplace_back(parts[part]);
  }
  return all;
}

texts groups(const pattern& definition, std::string_view text, std::size_t count = 0) {
  return groups(findall(definition, text), count);
}

texts first_group(std::string_view definition, std::string_view text,
                  letter_case letters = letter_case::kept) {
  const matches found = findall(pattern(definition, letters), text);
  return found.empty() ? texts() : texts{std::string(found.text(0))};
}

template <class Text>
texts one(const std::optional<Text>& found) {
  return found ? texts{std::string(*found)} : texts();
}

texts lines_of(const field_lines& fields) {
  texts all;
  for (const auto& [name, content] : fields.lines()) {
    all.emplace_back(name);
    all.emplace_back(content);
  }
  return all;
}

std::shared_ptr<const std::string> shared(std::string_view text) {
  return std::make_shared<const std::string>(text);
}

// The characters after the first `mark` that are letters, digits, points or underscores: a name
// that occurs in the text.
std::string name_behind(std::string_view mark, std::string_view text, std::string_view otherwise) {
  const std::size_t found = text.find(mark);
  if (found == std::string_view::npos) return std::string(otherwise);
  const std::string_view rest = text.substr(found + mark.size(), 24);
  const auto end =
      std::find_if_not(rest.begin(), rest.end(), [](char c) { return is_word(c) || c == '.'; });
  return end == rest.begin() ? std::string(otherwise) : std::string(rest.begin(), end);
}

}  // namespace

void compare_lag_rows(std::string_view text) {
  text = text.substr(0, longest);
  const matches id = findall(COMPILED(diag_lag_id_definition), text);
  expect_equal("diag_lag_id", {std::string(diag_lag_id(text))},
               {id.empty() ? "" : std::string(id.text(0))});
  std::vector<diag_lag_row> rows;
  find_diag_lag_rows(text, rows);
  texts found;
  for (const diag_lag_row& row : rows) {
    for (const std::string_view part : {row.member, row.gport, row.is_active}) {
      found.emplace_back(part);
    }
  }
  expect_equal("find_diag_lag_rows", found, groups(COMPILED(diag_lag_row_definition), text));
  texts pieces;
  for (tm_lag_pieces each(text); each.next();) pieces.emplace_back(each.piece());
  const auto cut = split(text, COMPILED(tm_lag_pieces::definition));
  expect_equal("tm_lag_pieces", pieces, texts(std::next(cut.begin()), cut.end()));
  texts cells;
  for (tm_lag_rows each(text); each.next();) {
    cells.emplace_back(each.lag_id());
    cells.emplace_back(each.gport());
  }
  expect_equal("tm_lag_rows", cells, groups(COMPILED(tm_lag_rows::definition), text, 2));
}

void compare_block_fields(std::string_view text) {
  text = text.substr(0, longest);
  expect_equal("words", lines_of(field_lines(field_lines::values::words, text)),
               groups(COMPILED(field_lines::words_definition), text));
  const field_lines lines(field_lines::values::words_and_colons, text);
  expect_equal("words_and_colons", lines_of(lines),
               groups(COMPILED(field_lines::words_and_colons_definition), text));
  last_values last(field_lines::values::words_and_colons);
  const std::string first = lines.lines().empty() ? "rif" : std::string(lines.lines()[0].first);
  last.want(first);
  last.read(text);
  expect_equal("last_values", one(last.of(0)), one(lines.last_of(first)));
  const auto head = lagport_head_of(text);
  const matches heads = findall(COMPILED(lagport_head_definition), text);
  expect_equal("lagport_head_of",
               head ? texts{std::string(head->ifh), std::string(head->lagid)} : texts(),
               heads.empty() ? texts() : texts{std::string(heads[0][0]), std::string(heads[0][1])});
  const auto first_or_empty = [text](const pattern& definition) {
    const matches found = findall(definition, text);
    return texts{found.empty() ? "" : std::string(found.text(0))};
  };
  expect_equal("member_limit_of", {std::string(member_limit_of(text))},
               first_or_empty(COMPILED(member_limit_definition)));
  expect_equal("interface_handle_of", {std::string(interface_handle_of(text))},
               first_or_empty(COMPILED(interface_handle_definition)));
}

void compare_slot_fields(std::string_view text) {
  text = text.substr(0, longest);
  slot_fields fields;
  fields.read(text);
  texts members;
  for (const auto& [slot, handle] : fields.members()) {
    members.emplace_back(slot);
    members.emplace_back(handle);
  }
  expect_equal("members", members, groups(COMPILED(slot_fields::member_definition), text));
  for (const std::string_view slot : {"0", "1", "5", "01", "11", "65535"}) {
    expect_equal("npu_of", one(fields.npu_of(slot)),
                 first_group(fill(slot_fields::npu_definition, {slot}), text));
    expect_equal("weight_of", one(fields.weight_of(slot)),
                 first_group(fill(slot_fields::weight_definition, {slot}), text));
    expect_equal(
        "port_class_of", one(fields.port_class_of(slot)),
        first_group(fill(slot_fields::port_class_definition, {slot}), text, letter_case::ignored));
  }
}

namespace {

texts tags_by_definition(std::string_view text, std::string_view head) {
  const matches tagged = findall(pattern(fill(tagged_definition, {head})), text);
  return groups(COMPILED(tag_definition), list_text(tagged));
}

void compare_interface(std::string_view text, std::string_view head) {
  const auto finds = [&](std::string_view definition) {
    return texts{findall(pattern(fill(definition, {head})), text).empty() ? "no" : "yes"};
  };
  expect_equal("is_layer_2", {is_layer_2(text, head) ? "yes" : "no"}, finds(l2_definition));
  expect_equal("has_encapsulation", {has_encapsulation(text, head) ? "yes" : "no"},
               finds(keyword_definition));
  expect_equal("is_untagged", {is_untagged(text, head) ? "yes" : "no"}, finds(untagged_definition));
  texts tags;
  for (const value& tag : tags_of(text, head)) tags.emplace_back(tag.as_text());
  expect_equal("tags_of", tags, tags_by_definition(text, head));
}

}  // namespace

void compare_interface_text(std::string_view text) {
  const std::size_t start = text.find("interface Bundle-Ether");
  text = text.substr(start == std::string_view::npos ? 0 : start, longest);
  const std::string name = name_behind("interface Bundle-Ether", text, "1.5");
  std::string line = "'" + std::string(text);
  std::erase(line, '\n');
  for (const std::string& head :
       {"interface Bundle-Ether" + name, std::string("interface Bundle-Ether[0-9]")}) {
    compare_interface(text, head);
    compare_interface(line, head);
  }
}

void compare_interface_mtus(std::string_view text) {
  const std::string listing = replace_all(text.substr(0, longest), "Bundle-Ether", "BE");
  value defined = make_map();
  const matches found = findall(COMPILED(interface_mtu_definition), listing);
  for (std::size_t at = 0; at < found.size(); ++at) {
    defined.as_map().set(found[at][0], found[at][1]);
  }
  expect_equal("parse_interface_mtus", {printed(parse_interface_mtus(listing))},
               {printed(defined)});
}

void compare_im_handles(std::string_view text) {
  text = text.substr(0, longest);
  const std::string name = "BE" + name_behind(" BE", text, "1.100");
  const bool is_name = !findall(COMPILED(R"(\ABE\d+\.\d+\z)"), name).empty();
  const std::string known = is_name ? name : "BE1.100";
  expect_equal("im_handle_of", one(im_handle_of(shared(text), known)),
               first_group(fill(im_handle_definition, {replace_all(known, ".", "\\.")}), text));
}

void compare_vlan_domains(std::string_view text) {
  text = text.substr(0, longest);
  const std::string core = name_behind("IHP", text, "0");
  const std::string port = name_behind("[", text, "10");
  expect_equal("vlan_domain_of", one(vlan_domain_of(shared(text), core, port)),
               first_group(fill(vlan_domain_definition, {core, port}), text));
}

void compare_chip_rows(std::string_view text) {
  text = text.substr(0, longest);
  const raw_table table = shared(text);
  const sem_table rows(table);
  for (const std::string& key : {name_behind("Key=0x", text, "1005"), std::string("a.b")}) {
    const auto found = rows.payload_of(key);
    expect_equal("payload_of", one(found), first_group(fill(sem_definition, {key}), text));
  }
  const matches braced = findall(COMPILED(R"(\{\}\w+\s+Payload=0x\w+\{\})"), text);
  expect_equal("has_braced_row", {rows.has_braced_row() ? "yes" : "no"},
               {braced.empty() ? "no" : "yes"});
  const matches rif = findall(COMPILED(R"(IHP0\[(-?\d+)\])"), text);
  const std::string wanted = rif.empty() ? "5" : std::string(rif.text(0));
  expect_equal("vsi_mac_of", one(vsi_mac_of(table, wanted)),
               first_group(fill(vsi_definition, {wanted}), text));
}

void compare_lif_mappings(std::string_view text) {
  text = text.substr(0, longest);
  const std::string glif = name_behind("GLIF ", text, "4001");
  const std::string end(glif_tail(glif));
  expect_equal("lif_mappings_of", groups(lif_mappings_of(text, end)),
               groups(pattern(fill(lif_mapping_definition, {end})), text));
}

void compare_units(std::string_view text) {
  text = text.substr(0, longest);
  expect_equal("first_units_of", groups(first_units_of(text)),
               groups(COMPILED(first_unit_definition), text));
}

void compare_bundle_members(std::string_view text) {
  // A whole bundle has a head, a MAC and an MTU, and no member's line before the text.
  std::string rest = replace_all(text.substr(0, longest), "Bundle", "bundle");
  const std::string bundle =
      "Bundle interface handle BE1 (0x1)\nMAC address 0011.2233.4455\nOperational MTU 1514\n" +
      rest;
  value handles = make_map();
  const matches found = findall(COMPILED(member_line_definition), bundle);
  for (std::size_t at = 0; at < found.size(); ++at) {
    handles.as_map().set(found[at][0].substr(2), convert_to_hex(found[at][1]));
  }
  const value bundles = parse_bundle_info_PI(bundle);
  value members = make_map();
  if (bundles.contains("BE1")) {
    for (const auto& [name, member] : bundles.at("BE1").at("members").as_map().items()) {
      members.as_map().set(name, member.at("mifh"));
    }
  }
  expect_equal("members of a bundle", {printed(members)}, {printed(handles)});
}

void compare_health_report(std::string_view text) {
  text = text.substr(0, longest_report);
  expect_equal("information blocks", groups(COMPILED(information_block), text),
               groups(COMPILED(information_block_definition), text));
}

namespace {

// Byte by byte.
std::string escaped(std::string_view text) {
  constexpr std::string_view plain = "\"\\\n\r\t";
  constexpr std::string_view letters = "\"\\nrt";
  std::string out;
  for (const char c : text) {
    if (const std::size_t at = plain.find(c); at != std::string_view::npos) {
      out += {'\\', letters[at]};
    } else if (static_cast<unsigned char>(c) < 0x20) {
      out += fmt::format("\\u{:04x}", static_cast<unsigned char>(c));
    } else {
      out += c;
    }
  }
  return out;
}

std::string lines_of(const std::map<std::string, std::string>& entries, std::string_view indent) {
  std::string out = "{\n";
  for (const auto& [key, content] : entries) {
    if (out.size() > 2) out += ",\n";
    out.append(indent).append("   \"").append(escaped(key)).append("\":").append(content);
  }
  return out.append("\n").append(indent).append("}");
}

std::string snapshot_of(const value& store) {
  static const std::filesystem::path file =
      std::filesystem::temp_directory_path() / fmt::format("fuzz-snapshot-{}", ::getpid());
  log_file log(file.string(), file_mode::truncate);
  print_object(store, log, "FUZZ");
  log.close();
  std::ifstream written(file, std::ios::binary);
  std::string text{std::istreambuf_iterator<char>(written), {}};
  std::filesystem::remove(file);
  return text;
}

}  // namespace

void check_snapshot(std::string_view text) {
  value store = make_map();
  value inner = make_map();
  std::map<std::string, std::string> expected;
  std::map<std::string, std::string> expected_inner;
  for (const std::string_view line : split(text, "\n")) {
    const std::string key(line.substr(0, line.size() / 2));
    store.as_map().set(key, line);
    expected[key] = "\"" + escaped(line) + "\"";
    const bool is_text = expected.size() % 2 == 0;
    inner.as_map().set(key, is_text ? value(line) : value(1));
    expected_inner[key] = is_text ? expected[key] : "1";
  }
  const std::string name = "\xff inner";
  store.as_map().set(name, inner);
  expected[name] = lines_of(expected_inner, "   ");
  expect_equal(
      "a snapshot", {snapshot_of(store)},
      {"'Start of FUZZ entries...'\n" + lines_of(expected, "") + "\n'End of FUZZ entries...'\n"});
}

}  // namespace fuzz
