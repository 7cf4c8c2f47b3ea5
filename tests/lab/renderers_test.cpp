// Each tool's output, after the audit's filter, against the patterns that read it.
#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <set>

#include "support.h"

#include "lab/base/error.h"

namespace {

using namespace lab;
using lab_test::filtered;
using lab_test::findall;
using lab_test::groups;
using lab_test::rendered;
using lab_test::rendered_router;

std::size_t lines_of(const std::string& text) {
  return static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
}

class rendered_test : public testing::TestWithParam<const char*> {
 protected:
  const rendered& at_ = rendered_router(GetParam());
  const router& r_ = at_.r;
};

INSTANTIATE_TEST_SUITE_P(routers, rendered_test,
                         testing::Values("aspen-active-cards", "aspen-jericho2", "aspen-standby",
                                         "birch-jericho2", "birch-odd-forms", "birch-older",
                                         "birch-six-npus", "birch-small", "birch-untagged",
                                         "cedar-mixed", "cedarl-jericho2", "dogwood-eight-cards",
                                         "elm-jericho2", "elm-single", "fir-racks",
                                         "gorse-jericho2"),
                         [](const auto& chosen) {
                           std::string name = chosen.param;
                           std::replace(name.begin(), name.end(), '-', '_');
                           return name;
                         });

std::vector<std::string> split(const std::string& text, const std::string& separator) {
  std::vector<std::string> pieces;
  std::size_t from = 0;
  for (std::size_t at = 0; (at = text.find(separator, from)) != std::string::npos;) {
    pieces.push_back(text.substr(from, at - from));
    from = at + separator.size();
  }
  pieces.push_back(text.substr(from));
  return pieces;
}

// Platform ---------------------------------------------------------------------------------------

TEST_P(rendered_test, banner_names_the_model_first) {
  const auto models = findall("(.+?)(?=processor)", at_.local("sw_version_show"));
  ASSERT_EQ(models.size(), 1U);
  EXPECT_NE(models[0][0].find(model_of(r_.type)), std::string::npos);
}

TEST_P(rendered_test, inventory_has_its_columns) {
  if (is_single_node(r_.type)) {
    EXPECT_THROW(at_.local("plat_nodes_show -v"), lab_error) << "nobody lists a single node";
    return;
  }
  const std::string text = at_.local("plat_nodes_show -v");
  std::size_t known = 0;
  for (const std::string& line : split(text, "\n")) {
    if (findall("ACTIVE|STANDBY", line).empty()) continue;
    const auto words = findall("\\S+", line);
    ASSERT_GE(words.size(), 7U) << line;
    const node* n = find_node(r_, words[0][0]);
    ASSERT_NE(n, nullptr) << line;
    EXPECT_EQ(line.find(n->name), 0U) << "no blank in front of the name";
    EXPECT_EQ(words[1][0], n->kind);
    EXPECT_EQ(words[4][0], n->band);
    EXPECT_EQ(words[6][0], n->address);
    EXPECT_NE(line.find(n->state), std::string::npos);
    ++known;
  }
  EXPECT_EQ(known, r_.nodes.size());
  EXPECT_GT(lines_of(text), r_.nodes.size()) << "it also has headings and other modules";
}

TEST_P(rendered_test, units_are_listed_per_node) {
  const std::string text = at_.local("asic_shell_show -c \"show unit\" -u all -n A");
  const auto chips = findall(
      "Node ID: (\\w+\\/\\w+\\/CPU0)(?:\\n|\\n*.*\\n)\\w+\\s\\d+\\s\\w+\\s(BCM\\d{4})", text);
  std::map<std::string, std::string> listed;
  for (const groups& chip : chips) listed[chip[0]] = chip[1];
  std::map<std::string, std::set<std::string>> units;
  if (r_.type == "fir")
    for (const groups& seat : findall("R\\/S\\/I:\\s(\\d+)\\/\\d+\\/(\\d+)", text))
      units[seat[0] + "/0/CPU0"].insert(seat[1]);
  else
    for (const groups& seat : findall("R\\/S\\/I:\\s\\d+\\/(\\d+)\\/(\\d+)", text))
      units["0/" + seat[0] + "/CPU0"].insert(seat[1]);
  for (const node& n : r_.nodes) {
    EXPECT_EQ(listed.contains(n.name), !n.chip.empty() && n.in_unit_list) << n.name;
    if (listed.contains(n.name)) {
      EXPECT_EQ(listed[n.name], n.chip.substr(0, 7));
    }
    if (n.kind == "LC") {
      EXPECT_EQ(units[n.name].size(), n.npus) << n.name;
    }
  }
  for (const auto& [name, seats] : units)
    EXPECT_TRUE(listed.contains(name)) << name << " has units and no heading";
}

TEST_P(rendered_test, node_ids_are_readable) {
  for (const node& n : r_.nodes) {
    if (r_.type != "aspen") {
      const std::string id = at_.local("node_id_convert -I " + n.name);
      EXPECT_EQ(std::stoul(id, nullptr, 0) & 0xffffffU, n.id);
      EXPECT_THROW(at_.on(n.name, "board_api_probe"), lab_error);
      continue;
    }
    EXPECT_THROW(at_.local("node_id_convert -I " + n.name), lab_error);
    const auto probed = findall("Node Id:(\\w+)", at_.on(n.name, "board_api_probe"));
    ASSERT_FALSE(probed.empty()) << n.name;
    EXPECT_EQ(std::stoul(probed[0][0], nullptr, 0), n.id) << "its own id is the first";
  }
}

TEST(routers_in_charge, one_of_two_active_processors_reports_the_other) {
  const rendered& at = rendered_router("aspen-both-active");
  for (const char* name : {"0/RP0/CPU0", "0/RP1/CPU0"})
    EXPECT_EQ(findall("Node Id:(\\w+)", at.on(name, "board_api_probe")).size(), 2U) << name;
  const rendered& alone = rendered_router("aspen-standby");
  EXPECT_EQ(findall("Node Id:(\\w+)", alone.on("0/RP0/CPU0", "board_api_probe")).size(), 1U);
}

// Interfaces -------------------------------------------------------------------------------------

TEST_P(rendered_test, listing_gives_the_mtu_of_every_member) {
  std::string text = filtered(at_.local("iface_show -i .*"), "grep \"-E\" \"line protocol|MTU\"");
  EXPECT_LT(lines_of(text), lines_of(at_.local("iface_show -i .*")));
  std::string::size_type at = 0;
  while ((at = text.find("Bundle-Ether")) != std::string::npos) text.replace(at, 12, "BE");
  std::map<std::string, std::string> mtus;
  for (const groups& match :
       findall("([0-9\\/]+)\\s+is\\s+[\\w+,\\s+[\\w\\s]*\\n\\s+MTU\\s+(\\w+)", text))
    mtus[match[0]] = match[1];
  for (const bundle& b : r_.bundles)
    for (const member& m : b.members)
      EXPECT_EQ(mtus[port_tail(m.port)], std::to_string(m.mtu)) << m.port;
}

TEST_P(rendered_test, interface_manager_has_a_handle_per_sub_bundle) {
  const std::string text = filtered(at_.local("ifmgr_show database -l 0x1 -a"),
                                    "grep -E BE | grep -E LDP | sort | uniq");
  for (const bundle& b : r_.bundles)
    for (const sub_bundle& s : b.subs) {
      std::string name = name_of(s);
      name.replace(name.find('.'), 1, "\\.");
      const auto handles = findall("(0x\\w+)\\s" + name + " ", text);
      ASSERT_FALSE(handles.empty()) << name;
      for (const groups& handle : handles)
        EXPECT_EQ(std::stoul(handle[0], nullptr, 16), s.handle) << "the same in all its rows";
    }
}

// The configuration's stanzas as the audit cuts them.
std::vector<std::string> stanzas(const rendered& at) {
  std::string text =
      lab::answer_to(const_cast<capture&>(at.c), local_place, "cfg_render -c -l 1 -t 1 -o 1");
  text = text.substr(text.find("Tarmac OS Configuration"));
  const std::size_t end = text.find("\nend\n");
  EXPECT_NE(end, std::string::npos);
  text = text.substr(0, end + 4);
  std::string joined;
  std::size_t from = 0;
  while (from < text.size()) {
    if (text[from] != '\n') {
      joined += text[from++];
      continue;
    }
    std::size_t next = from + 1;
    while (next < text.size() && (text[next] == ' ' || text[next] == '\n')) ++next;
    const bool indented_mark = next > from + 1 && next < text.size() && text[next] == '!';
    from = indented_mark ? next + 1 : from + 1;
  }
  return split(joined, "!");
}

TEST_P(rendered_test, configuration_gives_each_bundle_only_its_own_members) {
  const auto all = stanzas(at_);
  for (const bundle& b : r_.bundles) {
    std::set<std::string> found;
    for (const std::string& stanza : all)
      if (stanza.find(fmt::format("bundle id {} ", b.number)) != std::string::npos)
        for (const auto& name : findall("(?<=interface\\s)\\w+(?:\\/\\d+){3,4}", stanza))
          found.insert(name[0]);
    std::set<std::string> configured;
    for (const member& m : b.members) configured.insert(m.port);
    EXPECT_EQ(found, configured) << "bundle " << b.number;
  }
}

TEST_P(rendered_test, configuration_gives_layers_and_tags) {
  std::map<std::string, std::string> heads;
  for (const std::string& stanza : stanzas(at_))
    for (const auto& name : findall("^\\s*interface Bundle-Ether(\\d+[^\\s,']+|\\d+)", stanza))
      heads["BE" + name[0]] = stanza;
  for (const bundle& b : r_.bundles) {
    ASSERT_TRUE(heads.contains(name_of(b)));
    EXPECT_EQ(heads[name_of(b)].find("l2transport") != std::string::npos, b.l2);
    for (const sub_bundle& s : b.subs) {
      ASSERT_TRUE(heads.contains(name_of(s)));
      const std::string& stanza = heads[name_of(s)];
      EXPECT_EQ(stanza.find("l2transport") != std::string::npos, s.l2) << stanza;
      if (tags_of(s.encapsulation).empty()) continue;
      const auto tags = findall(
          ".*(?:encapsulation|l2transport encapsulation) (dot1q \\d+ second-dot1q \\d+|dot1ad \\w+ "
          "dot1q \\d+|dot1q \\d+|dot1ad \\d+)",
          stanza);
      ASSERT_EQ(tags.size(), 1U) << stanza;
      std::vector<unsigned> numbers;
      for (const auto& tag : findall("dot\\w+\\s(\\d+)", tags[0][0]))
        numbers.push_back(static_cast<unsigned>(std::stoul(tag[0])));
      EXPECT_EQ(numbers, tags_of(s.encapsulation));
    }
  }
}

TEST_P(rendered_test, configuration_turns_on_hierarchical_qos) {
  const std::string& text = at_.local("cfg_render -c -l 1 -t 1 -o 1");
  EXPECT_EQ(text.find("hw-module profile qos hqos-enable") != std::string::npos, r_.hqos);
}

// Bundle manager ---------------------------------------------------------------------------------

TEST_P(rendered_test, database_has_handle_mac_mtu_and_members) {
  const std::string text = filtered(at_.local("lagmgr_table_show -d -P 0x0 -N all -L 0x3 -O all"),
                                    "grep -E 'Bundle|Member|Operational MTU|Local'");
  const auto pieces = split(text, "Bundle-Ether");
  ASSERT_EQ(pieces.size(), r_.bundles.size() + 1);
  EXPECT_TRUE(findall("Bundle interface handle", pieces[0]).empty());
  for (std::size_t i = 0; i < r_.bundles.size(); ++i) {
    const bundle& b = r_.bundles[i];
    const std::string& piece = pieces[i + 1];
    const auto head = findall("Bundle interface handle\\s+(BE\\d+)\\s.(\\w+)", piece);
    ASSERT_EQ(head.size(), 1U) << piece;
    EXPECT_EQ(head[0], groups({name_of(b), fmt::format("{:#x}", b.handle)}));
    const auto mac = findall("MAC address\\s+(\\w\\w\\w\\w.\\w\\w\\w\\w.\\w\\w\\w\\w)", piece);
    ASSERT_EQ(mac.size(), 1U);
    EXPECT_EQ(mac[0][0], b.mac);
    EXPECT_EQ(findall("Operational MTU\\s+(\\w+)", piece)[0][0], std::to_string(b.mtu));
    const auto members =
        findall("Member interface\\s+(\\w+\\d+\\/\\d+\\/\\d+.*?)\\s\\((\\w+)", piece);
    ASSERT_EQ(members.size(), b.members.size());
    for (std::size_t m = 0; m < members.size(); ++m) {
      EXPECT_EQ(members[m][0].substr(2), port_tail(b.members[m].port));
      EXPECT_EQ(members[m][1], fmt::format("{:#x}", b.members[m].handle));
    }
  }
}

std::vector<std::string> words(const std::string& line) {
  std::vector<std::string> found;
  for (const auto& word : findall("\\S+", line)) found.push_back(word[0]);
  return found;
}

TEST_P(rendered_test, agents_are_read_by_position) {
  std::string text = at_.local("lagmgr_agent_show -m -a all");
  for (const char* rp : {"0/RP0", "0/RP1"})
    for (std::size_t at = 0; (at = text.find(std::string{rp} + "/0", at)) != std::string::npos;)
      text.replace(at, 7, std::string{rp} + "/CPU0");
  const auto pieces = split(text, "Bundle-Ether");
  ASSERT_EQ(pieces.size(), r_.bundles.size() + 1);
  EXPECT_EQ(pieces[0].find('\n'), 0U) << "text whose first line is empty is passed over";
  for (std::size_t i = 0; i < r_.bundles.size(); ++i) {
    const bundle& b = r_.bundles[i];
    const auto parts = split(pieces[i + 1], "Node:");
    const auto head = split(parts[0], "\n");
    EXPECT_EQ(head[0], std::to_string(b.number));
    std::set<std::string> rows;
    for (std::size_t line = 3; line < head.size(); ++line) {
      const auto cells = words(head[line]);
      if (cells.size() != 4) continue;
      EXPECT_EQ(std::stoul(cells[1], nullptr, 0), b.lag);
      rows.insert(cells[0]);
    }
    for (const node& n : r_.nodes)
      EXPECT_EQ(rows.contains(n.name), n.state != "STANDBY") << n.name << parts[0];
    for (std::size_t part = 1; part < parts.size(); ++part) {
      const auto lines = split(parts[part], "\n");
      const node* n = find_node(r_, words(lines[0])[0]);
      ASSERT_NE(n, nullptr) << lines[0];
      std::vector<std::vector<std::string>> members;
      for (std::size_t line = 4; line < lines.size(); ++line)
        if (words(lines[line]).size() == 4) members.push_back(words(lines[line]));
      const auto expected = members_on(r_, b, *n);
      ASSERT_EQ(members.size(), expected.size()) << parts[part];
      for (std::size_t m = 0; m < members.size(); ++m) {
        EXPECT_EQ(members[m][0], std::to_string(expected[m]->npu));
        EXPECT_EQ(std::stoul(members[m][1], nullptr, 0), expected[m]->id);
        EXPECT_EQ(members[m][3].substr(2), port_tail(expected[m]->port));
      }
    }
  }
}

TEST_P(rendered_test, health_report_names_no_bundle) {
  const std::string all = at_.local("lagmgr_health");
  const std::string text = filtered(all, "grep \"-v\" \"-E\" \"Checking|checking|Overall result\"");
  EXPECT_LT(text.size(), all.size());
  EXPECT_EQ(text.find("Bundle-Ether"), std::string::npos);
  EXPECT_EQ(text.find("INFO:"), std::string::npos);
  EXPECT_EQ(findall("Process\\s+Node\\s+Result", text).size(), 1U);
}

// Forwarding objects -----------------------------------------------------------------------------

std::map<std::string, std::string> fields(const std::string& pattern, const std::string& piece) {
  std::map<std::string, std::string> found;
  for (const groups& field : findall(pattern, piece)) found[field[0]] = field[1];
  return found;
}

TEST_P(rendered_test, lagport_objects_are_readable) {
  for (const node& n : r_.nodes) {
    if (!n.forwarding) continue;
    const std::string& whole = at_.on(n.name, "fwd_object_show -t lagport -D");
    EXPECT_NE(whole.find("not set"), std::string::npos) << "fields without a value are printed";
    const std::string text = filtered(
        whole,
        "grep -Ea 'lagport|pending|lag_id|intf|mifh|npu_id|mtu|port_class|weight|max_member_count' "
        "| grep -v -E 'not set'");
    std::map<unsigned long, std::string> objects;
    for (const std::string& piece : split(text, "lagport element")) {
      const auto head =
          findall("dpa_intf_t\\sintf\\s=>\\s(\\w+)\\n\\s+\\w+ lag_id\\s=.\\s(\\w+)", piece);
      if (!head.empty()) objects[std::stoul(head[0][0], nullptr, 0)] = piece;
    }
    for (const bundle& b : r_.bundles) {
      ASSERT_TRUE(objects.contains(b.handle)) << n.name << " " << name_of(b);
      const std::string& piece = objects[b.handle];
      EXPECT_EQ(findall("lag_id\\s=.\\s(\\w+)", piece)[0][0], fmt::format("{:#x}", b.lag));
      EXPECT_TRUE(findall("pending\\(cr/up/dl\\):0/0/(1)", piece).empty());
      const auto limit = findall("uint32_t max_member_count\\s+=>\\s+(\\d+)", piece);
      ASSERT_EQ(limit.empty(), is_absent(r_, "dpa.max-members", name_of(b), n.name));
      if (!limit.empty()) {
        EXPECT_EQ(limit[0][0], std::to_string(b.max_members));
      }
      const auto slots = findall("(\\d+):dpa_intf_t\\smifh\\s=>\\s(\\w+)", piece);
      const auto local = members_on(r_, b, n);
      ASSERT_EQ(slots.size(), local.size()) << "nothing but the node's own members: " << piece;
      for (std::size_t i = 0; i < slots.size(); ++i) {
        EXPECT_EQ(slots[i][0], std::to_string(local[i]->id));
        EXPECT_EQ(slots[i][1], fmt::format("{:#x}", local[i]->handle));
        const auto npu = findall(slots[i][0] + ":uint8_t mbr_npu_id\\s=>\\s(\\d+)", piece);
        ASSERT_FALSE(npu.empty());
        EXPECT_EQ(npu[0][0], std::to_string(local[i]->npu));
        const auto weight =
            findall("  " + slots[i][0] + ":uint16_t\\s+weight\\s+=>\\s+(\\d+)", piece);
        ASSERT_EQ(weight.empty(), is_absent(r_, "dpa.weight", port_tail(local[i]->port), n.name));
        if (!weight.empty()) {
          EXPECT_EQ(weight[0][0], std::to_string(local[i]->weight));
        }
        EXPECT_EQ(
            findall(fmt::format("(?i)(?<={}:uint16_t port_class_id =>\\s)\\d+", local[i]->npu),
                    piece)[0][0],
            std::to_string(b.vlan_domain));
      }
      for (const sub_bundle& s : b.subs) EXPECT_EQ(objects.contains(s.handle), r_.hqos);
    }
  }
}

TEST_P(rendered_test, port_objects_are_readable) {
  for (const node& n : r_.nodes) {
    if (!n.forwarding) continue;
    const std::string text = filtered(at_.on(n.name, "fwd_object_show -t l1port -D"),
                                      "grep -Ea 'port|intf|device|core|mtu|pending'");
    std::map<std::string, std::map<std::string, std::string>> ports;
    for (const std::string& piece : split(text, "l1port element")) {
      const auto name = findall("name\\s=>\\s[a-zA-Z]+(\\w+)", piece);
      if (name.empty()) continue;
      std::string tail = name[0][0];
      std::replace(tail.begin(), tail.end(), '_', '/');
      ports[tail] = fields("(\\w+)\\s=>\\s(\\w+)", piece);
      for (const char* field : {"intf_name", "intf", "pp_port_id", "device", "core", "mtu"})
        EXPECT_TRUE(ports[tail].contains(field)) << field << piece;
    }
    EXPECT_FALSE(ports.empty()) << n.name << " would be noted as a node without ports";
    for (const bundle& b : r_.bundles)
      for (const member* m : members_on(r_, b, n)) {
        auto& port = ports[port_tail(m->port)];
        EXPECT_EQ(port["pp_port_id"], std::to_string(m->pp_port));
        EXPECT_EQ(port["device"], std::to_string(m->npu));
        EXPECT_EQ(port["core"], std::to_string(m->core));
        EXPECT_EQ(port["mtu"], std::to_string(m->mtu));
        EXPECT_EQ(port["intf"], fmt::format("{:#x}", m->handle));
      }
  }
}

// Every non-empty piece must name its handle, including the one before the first element.
std::map<std::string, std::map<std::string, std::string>> interface_objects(
    const std::string& text, const std::string& type) {
  std::map<std::string, std::map<std::string, std::string>> objects;
  for (const std::string& piece : split(text, type + " element")) {
    if (piece.empty()) continue;
    const auto handle = findall("@dpa_intf_t\\s+intf\\s+=>\\s+(\\w+)", piece);
    EXPECT_EQ(handle.size(), 1U) << type << ": " << piece;
    if (!handle.empty()) objects[handle[0][0]] = fields("(\\w+)\\s=>\\s([\\w:]*)", piece);
  }
  return objects;
}

TEST_P(rendered_test, interface_objects_are_readable) {
  for (const node& n : r_.nodes) {
    if (!n.forwarding) continue;
    const auto l2port =
        interface_objects(filtered(at_.on(n.name, "fwd_object_show -t l2port -D"),
                                   "grep -Ea 'l2port|bia_mac|intf|lif|rif' | grep -v -E 'not set'"),
                          "l2port");
    const auto l2intf = interface_objects(
        filtered(at_.on(n.name, "fwd_object_show -t l2intf -D"),
                 "grep -Ea 'intf|lif|encap_id|vlan_domain' | grep -v -E 'not set'"),
        "l2intf");
    const auto l3intf = interface_objects(filtered(at_.on(n.name, "fwd_object_show -t l3intf -D"),
                                                   "grep -Ea 'intf' | grep -v -E 'not set'"),
                                          "l3intf");
    for (const bundle& b : r_.bundles) {
      const std::string handle = fmt::format("{:#x}", b.handle);
      constexpr unsigned compared =
          0xffff;  // the bits of a global LIF that are compared and looked up in the chips
      EXPECT_EQ(std::stoul(l2port.at(handle).at("lif"), nullptr, 16) & compared, b.glif & compared);
      EXPECT_EQ(std::stoul(l2port.at(handle).at("rif"), nullptr, 16), b.rif);
      EXPECT_EQ(l2port.at(handle).at("bia_mac"), colon_mac(b.mac));
      if (b.l2) {
        EXPECT_EQ(std::stoul(l2intf.at(handle).at("gport_id_lif"), nullptr, 16), b.glif);
        EXPECT_EQ(std::stoul(l2intf.at(handle).at("vlan_domain"), nullptr, 16), b.vlan_domain);
      } else {
        EXPECT_EQ(l3intf.at(handle).at("l3a_intf_id"), fmt::format("{:#x}", b.rif));
      }
      for (const sub_bundle& s : b.subs) {
        const std::string sub = fmt::format("{:#x}", s.handle);
        EXPECT_EQ(std::stoul(l2intf.at(sub).at("gport_id_lif"), nullptr, 16), s.glif);
        EXPECT_EQ(l2intf.at(sub).at("l2_intf_type"), s.l2 ? "1" : "0");
        if (!s.l2) {
          EXPECT_EQ(std::stoul(l3intf.at(sub).at("l3a_intf_id"), nullptr, 16), s.rif);
        }
      }
    }
  }
}

// Chips ------------------------------------------------------------------------------------------

std::string hex(const std::string& number) {
  return fmt::format("{:#x}", std::stoul(number, nullptr, 0));
}

TEST_P(rendered_test, older_chips_are_readable) {
  for (const node& n : r_.nodes)
    for (unsigned npu = 0; family_of(n) == chip_family::older && npu < n.npus; ++npu) {
      const std::string domains = filtered(at_.chip("d IHP_VTT_IN_PP_PORT_CONFIG", npu, n),
                                           "grep -v -E 'VLAN_DOMAIN=0,' | grep '[^[:space:]]'");
      const std::string mtus =
          at_.chip("dump EPNI_PACKETPROCESSING_PORT_CONFIGURATION_TABLE", npu, n);
      std::map<std::string, std::string> mtu_of;
      for (const groups& row :
           findall("EPNI_PACKETPROCESSING_PORT_CONFIGURATION_TABLE\\.EPNI(\\d+)\\[(\\d+)\\]:\\s+\\<"
                   "[A-Z_=0-9,a-z]+MTU=(\\w+)",
                   mtus))
        mtu_of[row[0] + "/" + row[1]] = row[2];
      EXPECT_GT(at_.chip("d IHP_VTT_IN_PP_PORT_CONFIG", npu, n).size(), domains.size());
      for (const bundle& b : r_.bundles)
        for (const member* m : members_on(r_, b, n, npu)) {
          const unsigned row = chip_row(r_, *m);
          const auto domain = findall(
              fmt::format("\\w+.IHP{}\\[{}\\]:\\s<\\w+=\\w+,VLAN_DOMAIN=(\\w+),", m->core, row),
              domains);
          ASSERT_EQ(domain.size(), 1U) << m->port;
          EXPECT_EQ(domain[0][0], fmt::format("{:#x}", b.vlan_domain));
          EXPECT_EQ(std::stoul(mtu_of[fmt::format("{}/{}", m->core, row)], nullptr, 0), m->mtu);
        }
    }
}

TEST_P(rendered_test, older_chips_hold_every_lag) {
  for (const node& n : r_.nodes)
    for (unsigned npu = 0; family_of(n) == chip_family::older && npu < n.npus; ++npu) {
      const std::string text = filtered(at_.chip("diag lag", npu, n), "grep -v -E 0xbffffff");
      std::map<std::string, std::set<std::string>> lags;
      const auto pieces = split(text, "LAG");
      for (std::size_t i = 1; i < pieces.size(); ++i) {
        const auto id = findall("(?<=ID:\\s)\\d+", pieces[i]);
        if (id.empty()) {
          EXPECT_EQ(i + 1, pieces.size()) << "a word after the last group: " << pieces[i];
          continue;
        }
        auto& members = lags[id[0][0]];
        for (const auto& row : findall("\\d+\\s+\\|\\s+\\w+\\s+\\|\\s+[YN]", pieces[i]))
          members.insert(hex(row[0].substr(0, row[0].find(' '))));
      }
      std::size_t expected = 0;
      for (const bundle& b : r_.bundles) {
        ASSERT_TRUE(lags.contains(std::to_string(b.lag)));
        for (const member& m : b.members)
          EXPECT_TRUE(lags[std::to_string(b.lag)].contains(fmt::format("{:#x}", m.id)));
        EXPECT_EQ(lags[std::to_string(b.lag)].size(), b.members.size());
        ++expected;
        for (const sub_bundle& s : b.subs) {
          if (!r_.hqos) continue;
          ASSERT_TRUE(lags.contains(std::to_string(s.lag)));
          EXPECT_TRUE(lags[std::to_string(s.lag)].empty()) << "it would be stale";
          ++expected;
        }
      }
      EXPECT_EQ(lags.size(), expected) << "any other would be stale";
    }
}

TEST_P(rendered_test, jericho2_holds_every_lag) {
  for (const node& n : r_.nodes)
    for (unsigned npu = 0; family_of(n) == chip_family::jericho2 && npu < n.npus; ++npu) {
      const std::string& text = at_.chip("tm lag", npu, n);
      // Cut as by the audit: at the first two cells of a row that has them.
      std::map<std::string, std::vector<std::string>> lags;
      std::string lag;
      std::string rest;
      for (std::size_t from = 0;;) {
        const auto cut = findall("\\|\\s+\\d+\\s+\\|\\s+\\d+\\s+\\|", text.substr(from));
        if (cut.empty()) break;
        const std::size_t at = text.find(cut[0][0], from) + cut[0][0].size();
        const auto next = findall("\\|\\s+\\d+\\s+\\|\\s+\\d+\\s+\\|", text.substr(at));
        const std::size_t end = next.empty() ? text.size() : text.find(next[0][0], at);
        for (const groups& row : findall(
                 "\\d*\\s+\\|\\s+(\\d*)\\s+\\|\\s+\\w*\\s+\\|\\s+(\\w*)\\s+\\|\\s+(\\w*)\\s+\\|\\n",
                 text.substr(at, end - at))) {
          if (!row[0].empty()) lags[lag = row[0]] = {};
          if (!row[1].empty()) lags[lag].push_back(row[1]);
        }
        from = at;
      }
      for (const bundle& b : r_.bundles) {
        const auto& ports = lags[std::to_string(b.lag)];
        ASSERT_EQ(ports.size(), b.members.size());
        for (std::size_t i = 0; i < ports.size(); ++i)
          EXPECT_TRUE(ports[i].ends_with(fmt::format("{:x}", b.members[i].system_port)));
        for (const sub_bundle& s : b.subs) {
          if (r_.hqos) {
            EXPECT_TRUE(lags.at(std::to_string(s.lag)).empty());
          }
        }
      }
    }
}

TEST_P(rendered_test, jericho2_gives_the_mtu_of_every_member) {
  for (const node& n : r_.nodes)
    for (unsigned npu = 0; family_of(n) == chip_family::jericho2 && npu < n.npus; ++npu) {
      std::map<std::string, std::string> port_of;
      for (const groups& row : findall(
               "\\|\\s(\\d+)\\s+\\|\\s+(\\d+)\\s+\\|\\s+(\\d+)\\s+\\|\\s(\\d+)\\s+\\|\\s+(\\d+)\\s+"
               "\\|\\s+(\\d+)\\s+\\|\\n\\|\\s+\\|\\s+\\|\\s+(\\d+)\\s+\\|\\s+(\\d+)",
               at_.chip("vis lag", npu, n))) {
        port_of[row[1] + "/" + row[2]] = row[3];
        port_of[row[1] + "/" + row[6]] = row[7];
      }
      std::map<std::string, std::string> profile_of;
      for (const groups& row :
           findall("ETPPC_EDITING_PER_PORT_TABLE\\.ETPPC(\\d+)\\[(\\d+)\\]:\\s+\\<[A-Z_=0-9,a-z]+"
                   "MTU_PROFILE=(\\d+)",
                   at_.chip("dump ETPPC_EDITING_PER_PORT_TABLE ", npu, n)))
        profile_of[row[0] + "/" + row[1]] = row[2];
      EXPECT_EQ(profile_of.empty(), r_.type == "aspen") << "whose Jericho2 cannot be compared";
      if (profile_of.empty()) continue;
      std::map<std::string, std::string> mtu_of;
      for (const groups& row :
           findall("ETPPC_MTU_MAP_TABLE\\.ETPPC(\\d+)\\[(\\d+)\\]:\\s<[A-Z_=0-9,]+MTU\\=(\\w+)",
                   at_.chip("dump chg ETPPC_MTU_MAP_TABLE", npu, n)))
        mtu_of[fmt::format("{}/{}", row[0], std::stoul(row[1]) / 10)] = row[2];
      for (const bundle& b : r_.bundles)
        for (const member* m : members_on(r_, b, n, npu)) {
          const std::string core = std::to_string(m->core);
          const std::string port = port_of.at(fmt::format("{}/{}", b.lag, core));
          const std::string profile = profile_of.at(core + "/" + port);
          EXPECT_EQ(std::stoul(mtu_of.at(core + "/" + profile), nullptr, 0), m->mtu) << m->port;
        }
    }
}

TEST_P(rendered_test, jericho2_tables_are_readable) {
  for (const node& n : r_.nodes)
    for (unsigned npu = 0; family_of(n) == chip_family::jericho2 && npu < n.npus; ++npu) {
      std::map<std::string, std::string> macs;
      for (const groups& row :
           findall("\\|\\s+\\d+\\s+\\|\\s+(\\d+)\\s+\\|\\|\\s+\\d+\\s+\\|\\s+(\\d+)",
                   at_.chip("dbal table dump table=ING_VSI_INFO_DB", npu, n)))
        macs[row[0]] = row[1];
      for (const bundle& b : r_.bundles)
        if (!b.l2) {
          EXPECT_EQ(macs[std::to_string(b.rif)], std::to_string(low_mac_bits(b.mac)));
          EXPECT_NE(macs[std::to_string(b.rif)], "0") << "zero reads as not programmed";
        }
      std::size_t local = 0;
      for (const bundle& b : r_.bundles) local += members_on(r_, b, n, npu).size();
      EXPECT_EQ(findall("\\|\\s+\\d+\\s+\\|\\s+(\\d+)\\s+\\|\\s+(\\d+)\\s+\\|\\|\\s+(\\d+)",
                        at_.chip("dbal table dump table=INGRESS_PP_PORT", npu, n))
                    .size(),
                local);
      EXPECT_EQ(findall("\\|\\s+\\d+\\s+\\|\\s+(\\d+)\\s+\\|\\s+\\d+\\s+\\|\\|\\s+(\\d+)",
                        at_.chip("dbal table dump table=IN_AC_UNTAGGED_DB", npu, n))
                    .empty(),
                local == 0);
    }
}

TEST_P(rendered_test, every_global_lif_is_known_to_every_older_chip) {
  for (const node& n : r_.nodes)
    for (unsigned npu = 0; family_of(n) == chip_family::older && npu < n.npus; ++npu)
      for (const bundle& b : r_.bundles)
        for (const sub_bundle& s : b.subs) {
          const std::string low = fmt::format("{:x}", s.glif).substr(1);
          const auto lif = findall(low + " -> \\w+ In_LIF:(0x\\w+).*\\n.*\\n.*vsid:\\s(\\d+)",
                                   at_.chip("diag pp lif id=0x" + low + " gl=1 type=in", npu, n));
          ASSERT_EQ(lif.size(), 1U) << name_of(s);
          EXPECT_EQ(lif[0][0], fmt::format("{:#x}", s.local_lif));
          if (!s.l2) {
            EXPECT_EQ(lif[0][1], std::to_string(s.rif));
          }
        }
}

// The forms that the odd router exists for, as the audit's patterns meet them.
TEST(odd_forms, are_there) {
  const rendered& at = rendered_router("birch-odd-forms");
  const node& card = *find_node(at.r, "0/0/CPU0");
  const node& newer = *find_node(at.r, "0/1/CPU0");
  const std::string listing = at.local("iface_show -i .*");
  EXPECT_EQ(
      findall("is administratively down, line protocol is administratively down", listing).size(),
      3U);
  EXPECT_EQ(findall("is down, line protocol is down", listing).size(), 2U);
  EXPECT_EQ(
      findall("\\w+ is up, line protocol is up\\n  Hardware is .*\\n\\nBundle", listing).size(), 1U)
      << "no MTU in front of a bundle";
  EXPECT_EQ(findall("Description: .*MTU", listing).size(), 1U);
  const std::string handles = at.local("ifmgr_show database -l 0x1 -a");
  EXPECT_EQ(findall("0x3000f04 BE1\\.112 LDP", handles).size(), 2U);
  const std::string configuration = at.local("cfg_render -c -l 1 -t 1 -o 1");
  EXPECT_EQ(findall("\nhw-module profile bundle-scale \\d+\n", configuration).size(), 1U);
  EXPECT_EQ(findall("l2transport\n description .*\n encapsulation", configuration).size(), 2U);
  EXPECT_EQ(findall("Node ID: 0/0/CPU0\n.*\nUnit 0 ",
                    at.local("asic_shell_show -c \"show unit\" -u all -n A"))
                .size(),
            1U);
  const std::string objects = at.on("0/0/CPU0", "fwd_object_show -t lagport -D");
  EXPECT_EQ(findall("  1:dpa_intf_t mifh => 0x", objects).size(), 1U);
  EXPECT_EQ(findall("  1:uint16_t weight", objects).size(), 0U);
  EXPECT_EQ(findall("  11:uint16_t weight => 3\n", objects).size(), 1U);
  EXPECT_EQ(findall("  11:uint16_t port_class_id => ", objects).size(), 3U);
  EXPECT_EQ(findall("max_member_count => not set", objects).size(), 1U + 5U)
      << "and the sub-bundles";
  EXPECT_EQ(findall(":0/1/0\n", objects).size(), 1U);
  EXPECT_EQ(findall("l3a_intf_id => 0x0", at.on("0/0/CPU0", "fwd_object_show -t l3intf -D")).size(),
            1U);
  const std::string lags = at.chip("diag lag", 11, card);
  EXPECT_EQ(findall("0x0400\\w+ \\| N\n", lags).size(), 2U);
  EXPECT_EQ(findall("LAG (?!ID)", lags).size(), 1U) << "a section without a number";
  EXPECT_EQ(findall("\\| down", at.chip("tm lag", 0, newer)).size(), 2U);
}

}  // namespace
