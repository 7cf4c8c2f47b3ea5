#include "desk/read/chip_tables.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "desk/model/chip_cells.h"
#include "desk/model/coverage.h"
#include "desk/show/dossier_table.h"

namespace desk {
namespace {

using state = chip_entry::state;
using testing::ElementsAre;
using testing::IsEmpty;

// A capture with tables of the chip 1 of node 7.
class a_capture {
 public:
  a_capture() { std::filesystem::create_directories(folder_ + "/local"); }
  ~a_capture() { std::filesystem::remove_all(folder_); }
  a_capture(const a_capture&) = delete;
  a_capture& operator=(const a_capture&) = delete;

  // `command` as in the names of a capture: '+' for a blank.
  a_capture& with(const std::string& command, std::string_view text) {
    std::ofstream(path_of(command), std::ios::binary) << text;
    return *this;
  }
  [[nodiscard]] std::string path_of(const std::string& command) const {
    return folder_ + "/local/asic_shell_show,-c," + command + ",-u,1,-n,7";
  }
  [[nodiscard]] const std::string& folder() const { return folder_; }

 private:
  std::string folder_ = testing::TempDir() + "chip_tables_test." + std::to_string(::getpid());
};

const chip_at older{"7", "1", false, false};
const chip_at older_of_aspen{"7", "1", false, true};
const chip_at newer{"7", "1", true, false};

const char* const domains = "d+IHP_VTT_IN_PP_PORT_CONFIG";
const char* const mtus = "dump+EPNI_PACKETPROCESSING_PORT_CONFIGURATION_TABLE";
const char* const vsis = "d+IHP_VSI_LOW_CFG_1";

std::string domain_row(int port, std::string_view domain) {
  return "IHP_VTT_IN_PP_PORT_CONFIG.IHP0[" + std::to_string(port) +
         "]: <PROFILE=3,VLAN_DOMAIN=" + std::string(domain) + ",TAGS=0x1>\n";
}

std::string mtu_row(int port, std::string_view mtu) {
  return "EPNI_PACKETPROCESSING_PORT_CONFIGURATION_TABLE.EPNI0[" + std::to_string(port) +
         "]: <PROFILE=0x1,MTU=" + std::string(mtu) + ",LAST=0>\n";
}

void expect(const chip_entry& found, state is, std::string_view value = "") {
  EXPECT_EQ(found.is, is);
  EXPECT_EQ(found.value, value);
}

TEST(chip_tables, reads_a_member_of_an_older_chip) {
  a_capture in;
  in.with(mtus, mtu_row(3, "0x2400")).with(domains, domain_row(3, "0x111") + domain_row(4, "0"));
  chip_tables chip(in.folder(), older);
  expect(chip.mtu_of_port("0", "3"), state::holds, "9216");
  expect(chip.mtu_of_port("0", "4"), state::missing);
  expect(chip.mtu_of_port("1", "3"), state::missing);
  expect(chip.domain_of_port("0", "3"), state::holds, "0x111");
  expect(chip.domain_of_port("0", "4"), state::missing);  // no domain, as the audit has it
  EXPECT_THAT(chip.troubles(), IsEmpty());
}

TEST(chip_tables, counts_the_ports_of_an_aspen_by_core) {
  a_capture in;
  in.with(mtus, "EPNI_PACKETPROCESSING_PORT_CONFIGURATION_TABLE.EPNI1[3]: <A=1,MTU=0x5dc>\n");
  EXPECT_EQ(chip_tables(in.folder(), older_of_aspen).mtu_of_port("1", "259").value, "1500");
  EXPECT_EQ(chip_tables(in.folder(), older).mtu_of_port("1", "259").is, state::missing);
}

TEST(chip_tables, looks_into_both_tables_of_frames) {
  a_capture in;
  in.with("diag+dbal+dbd+3",
          "1 | Key=0x0000111064 Payload=0x00002004\n"
          "2 | Key=0x0000111065 Payload=0x00000000\n"
          "3 | Key=0x0000111066 Payload=0xnone\n");
  in.with("diag+dbal+dbd+4", "1 | Key=0x0dc11106e Payload=0x2006\n");
  chip_tables chip(in.folder(), older);
  expect(chip.sem_of("111064"), state::holds, "0x2004");
  expect(chip.sem_of("0dc11106e"), state::holds, "0x2006");
  expect(chip.sem_of("111065"), state::missing);  // an empty entry is none
  expect(chip.sem_of("111066"), state::not_understood);
  EXPECT_THAT(chip.troubles(), IsEmpty());
}

TEST(chip_tables, takes_for_missing_only_what_both_tables_lack) {
  a_capture in;
  in.with("diag+dbal+dbd+3", "1 | Key=0x0000111064 Payload=0x00002004\n");
  chip_tables chip(in.folder(), older);
  expect(chip.sem_of("111064"), state::holds, "0x2004");
  expect(chip.sem_of("111065"), state::not_read);
  EXPECT_THAT(chip.troubles(), ElementsAre("diag dbal dbd 4: not in the capture"));
}

TEST(chip_tables, makes_the_keys_of_the_audit) {
  EXPECT_EQ(sem_key_of("0x111", {"100"}).key, "111064");
  EXPECT_EQ(sem_key_of("0x10", {"110", "210"}).key, "0dc106e");
  EXPECT_EQ(sem_key_of_untagged("0x111"), "111fff");
  EXPECT_TRUE(sem_key_of("0x111", {"untagged"}).is_by_global_lif);
  EXPECT_FALSE(sem_key_of("0x111", {"any"}).is_by_global_lif);
  EXPECT_EQ(sem_key_of("0x111", {"any"}).key, "");
  EXPECT_EQ(sem_key_of("0x111", {"9223372036854775807", "1"}).key, "");
}

TEST(chip_tables, reads_the_mac_of_a_rif) {
  a_capture in;
  in.with(vsis,
          "IHP_VSI_LOW_CFG_1.IHP0[20]: <A=0x2,B=0x0,ON=1,MY_MAC=0x5615,C=0>\n"
          "IHP_VSI_LOW_CFG_1.IHP1[21]: <A=0x2,B=0x0,ON=1,MY_MAC=0x5616,C=0>\n"
          "IHP_VSI_LOW_CFG_1.IHP0[22]: <A=0x2,B=0x0,ON=1,MY_MAC=0,C=0>\n");
  chip_tables chip(in.folder(), older);
  expect(chip.mac_of_rif("0x14"), state::holds, "5615");
  expect(chip.mac_of_rif("0x15"), state::missing);  // of another core
  expect(chip.mac_of_rif("0x16"), state::missing);
  expect(chip.mac_of_rif("none"), state::not_understood);
}

TEST(chip_tables, follows_a_global_lif) {
  a_capture in;
  in.with("diag+pp+lif+id=0x400f+gl=1+type=in",
          "400f -> 0x1 In_LIF:0x200f Out_LIF:0x0\nline\nvalues vsid: 20\n");
  in.with("diag+pp+lif+id=0x4010+gl=1+type=in", "no such LIF\n");
  chip_tables chip(in.folder(), older);
  const chip_mapping known = chip.mapping_of("0x0001400f");
  expect(known.lif, state::holds, "0x200f");
  expect(known.vsi, state::holds, "0x14");
  expect(chip.mapping_of("0x00014010").lif, state::missing);
  expect(chip.mapping_of("0x00014011").lif, state::not_read);
  EXPECT_THAT(chip.troubles(),
              ElementsAre("diag pp lif id=0x4011 gl=1 type=in: not in the capture"));
}

TEST(chip_tables, follows_a_lag_of_jericho2_to_its_mtu) {
  a_capture in;
  in.with("vis+lag",
          "| 0     | 1     | 0     | 257   | 0     | 2     |\n"
          "|       |       | 1     | 257   |       |       |\n");
  in.with("dump+ETPPC_EDITING_PER_PORT_TABLE+",
          "ETPPC_EDITING_PER_PORT_TABLE.ETPPC1[257]: <TYPE=0x1,TAGS=2,MTU_PROFILE=2,MODE=0>\n");
  in.with("dump+chg+ETPPC_MTU_MAP_TABLE", "ETPPC_MTU_MAP_TABLE.ETPPC1[20]: <KIND=0,MTU=0x2400>\n");
  in.with("dbal+table+dump+table=IN_AC_UNTAGGED_DB", "| 0     | 257     | 1    || 8196 | 1 |\n");
  in.with("dbal+table+dump+table=ING_VSI_INFO_DB", "| 0     | 20   || 1       | 533     | 2 |\n");
  in.with("dbal+table+dump+table=INGRESS_PP_PORT", "| 0 | 1    | 10      || 273 | 3 |\n");
  chip_tables chip(in.folder(), newer);
  expect(chip.mtu_of_lag("0x1", "1"), state::holds, "9216");
  expect(chip.mtu_of_lag("0x1", "0"), state::missing);
  expect(chip.local_lif_of_lag("0x1", "1"), state::holds, "0x2004");
  expect(chip.mac_of_rif("0x14"), state::holds, "215");
  expect(chip.mac_of_rif("0x15"), state::missing);
  expect(chip.domain_of_port("1", "10"), state::holds, "0x111");
  EXPECT_THAT(chip.troubles(), IsEmpty());
  // Without profiles the audit compares no MTU.
  in.with("dump+ETPPC_EDITING_PER_PORT_TABLE+", "");
  expect(chip_tables(in.folder(), newer).mtu_of_lag("0x1", "1"), state::none);
}

TEST(chip_tables, finds_what_all_chips_share_and_what_has_a_list) {
  a_capture in;
  std::ofstream(in.folder() + "/local/asic_shell_show,-c," + mtus) << mtu_row(3, "0x5dc");
  std::ofstream(in.path_of(domains) + ";answers") << "0 1\n0 2\n";
  std::ofstream(in.path_of(domains) + ";1") << domain_row(3, "0x111");
  std::ofstream(in.path_of(domains) + ";2") << domain_row(3, "0x112");
  chip_tables chip(in.folder(), older);
  expect(chip.mtu_of_port("0", "3"), state::holds, "1500");
  expect(chip.domain_of_port("0", "3"), state::holds, "0x111");
}

TEST(chip_tables, refuses_what_is_no_file_of_the_capture) {
  a_capture in;
  std::ofstream(in.folder() + "/elsewhere") << mtu_row(3, "0x5dc");
  std::filesystem::create_symlink(in.folder() + "/elsewhere", in.path_of(mtus));
  std::filesystem::create_directory(in.path_of(domains));
  in.with(vsis, "\n \n");
  chip_tables chip(in.folder(), older);
  expect(chip.mtu_of_port("0", "3"), state::not_read);
  expect(chip.domain_of_port("0", "3"), state::not_read);
  expect(chip.mac_of_rif("0x14"), state::not_read);
  ASSERT_EQ(chip.troubles().size(), 3U);
  EXPECT_EQ(chip.troubles().back(), "d IHP_VSI_LOW_CFG_1: empty in the capture");
}

// No text may end the program, whatever the parsers make of it.
TEST(chip_tables, survive_torn_tables) {
  std::mt19937 random(1);
  const std::string text =
      mtu_row(3, "0x2400") + domain_row(3, "0x111") + "9 | Key=0x111064 Payload=0x2004\n" +
      "IHP_VSI_LOW_CFG_1.IHP0[20]: <A=0x2,B=0x0,ON=1,MY_MAC=0x5615,C=0>\n" +
      "400f -> 0x1 In_LIF:0x200f\nline\nvsid: 20\n| 0 | 1 | 0 | 257 | 0 | 2 |\n|  |  | 1 | 257 |\n";
  for (int round = 0; round < 200; ++round) {
    std::string torn = text.substr(random() % text.size());
    torn.resize(random() % (torn.size() + 1));
    for (int i = 0; i < 5 && !torn.empty(); ++i)
      torn[random() % torn.size()] = static_cast<char>(random() % 256);
    if (round % 7 == 0) torn += "\n|  1 | " + std::string(5000, '9') + " || 1 | 99 |";
    a_capture in;
    for (const char* each :
         {mtus, domains, vsis, "diag+dbal+dbd+3", "diag+dbal+dbd+4", "vis+lag",
          "diag+pp+lif+id=0x400f+gl=1+type=in", "dump+ETPPC_EDITING_PER_PORT_TABLE+",
          "dump+chg+ETPPC_MTU_MAP_TABLE", "dbal+table+dump+table=ING_VSI_INFO_DB"})
      in.with(each, torn);
    for (const chip_at& place : {older, older_of_aspen, newer}) {
      chip_tables chip(in.folder(), place);
      for (const auto& entry :
           {chip.mtu_of_port("0", "3"), chip.domain_of_port("0", "x"), chip.sem_of("111064"),
            chip.mapping_of("0x1400f").lif, chip.mtu_of_lag("0x1", "1"), chip.mac_of_rif("0x14")})
        EXPECT_EQ(entry.value.empty(), entry.is != state::holds);
    }
  }
}

// ---- What becomes of them -----------------------------------------------------------------------

// BE1 with a member on a chip, which has a sub-bundle and untagged traffic.
judged_run asked_run() {
  judged_run made;
  run& of = made.of;
  node& at = of.nodes.emplace_back();
  at.name = "0/0/CPU0";
  at.id = "7";
  at.asic = "BCM8868";
  at.takes_part = at.has_supported_asic = true;
  at.npus = {"1"};
  of.has_snapshot = of.has_chip_tables = true;
  const std::size_t bundle = of.object_at(object_kind::bundle, "BE1", "BE1");
  const std::size_t member = of.object_at(object_kind::member, "BE1", "0/0/0/1");
  const std::size_t sub = of.object_at(object_kind::sub_bundle, "BE1", "BE1.100");
  for (const std::size_t one : {bundle, member, sub})
    of.objects[one].cells.push_back(
        {field::presence, source::chip_lag, 0, 1, of.texts.keep("present")});
  // What the snapshot says of a port without a row.
  of.objects[member].cells.push_back(
      {field::vlan_domain, source::chip_domain, 0, no_place, of.texts.keep("0")});
  of.places[member] = {0, 1, "0", "3"};
  of.chip_questions[bundle] = {true,
                               false,
                               of.texts.keep("0x1"),
                               {},
                               of.texts.keep("0x14"),
                               {},
                               {{{0, 1}, of.texts.keep("0x111")}}};
  of.chip_questions[sub].tags = {"100"};
  of.tables[{source::chip_lag, 0, 1}] = 1;
  made.bundles.emplace_back().bundle = "BE1";
  return made;
}

// "MTU: 9216" of each row of the last column of a part.
std::vector<std::string> chip_rows(const judged_run& of, std::size_t section) {
  const dossier_table table = dossier_maker(of).table_of(of.of.objects[0]);
  const dossier_section& at = table.sections.at(section);
  std::vector<std::string> rows;
  for (const dossier_row& row : at.parts.at(0).rows) {
    std::string line = std::string(row.label) + ":";
    for (std::size_t i = 0; i < at.columns.size(); ++i)
      if (at.columns[i].of == layer::bcm && !row.cells[i].text.empty())
        line += " " + std::string(row.cells[i].text);
    rows.push_back(line);
  }
  return rows;
}

TEST(chip_cells, stand_with_the_objects_that_the_audit_asks_for) {
  a_capture in;
  in.with(mtus, mtu_row(3, "0x2400")).with(domains, domain_row(3, "0x111"));
  in.with("diag+dbal+dbd+3", "1 | Key=0x0000111fff Payload=0x00002001\n");
  in.with("diag+dbal+dbd+4", "none\n");
  in.with(vsis, "IHP_VSI_LOW_CFG_1.IHP0[20]: <A=0x2,B=0x0,ON=1,MY_MAC=0x5615,C=0>\n");
  judged_run of = asked_run();
  read_chips(of.of, in.folder());
  EXPECT_THAT(chip_rows(of, 0),
              ElementsAre("MAC: 5615", "RIF: 0x14", "presence: present", "SEM entry: 0x2001"));
  EXPECT_THAT(chip_rows(of, 1),
              ElementsAre("MTU: 9216", "VLAN domain: 0x111", "presence: present"));
  EXPECT_THAT(chip_rows(of, 2), ElementsAre("presence: present", "SEM entry: missing"));
  EXPECT_TRUE(of.of.chip_troubles.empty());
  fill_coverage(of.of);
  EXPECT_EQ(coverage_of(of.of, layer::bcm, "0/0/CPU0", "1")->state, coverage_state::read);
}

TEST(chip_cells, say_what_the_capture_lacks) {
  const a_capture in;
  judged_run of = asked_run();
  read_chips(of.of, in.folder());
  EXPECT_THAT(chip_rows(of, 0), ElementsAre("MAC: not read", "RIF: not read", "presence: present",
                                            "SEM entry: not read"));
  EXPECT_THAT(chip_rows(of, 1),
              ElementsAre("MTU: not read", "VLAN domain: not read", "presence: present"));
  EXPECT_THAT(chip_rows(of, 2), ElementsAre("presence: present", "SEM entry: not read"));
  fill_coverage(of.of);
  const coverage* chip = coverage_of(of.of, layer::bcm, "0/0/CPU0", "1");
  ASSERT_NE(chip, nullptr);
  EXPECT_EQ(chip->state, coverage_state::partly);
  EXPECT_EQ(chip->reason,
            "dump EPNI_PACKETPROCESSING_PORT_CONFIGURATION_TABLE: not in the capture");
}

TEST(chip_cells, call_a_port_without_a_row_missing) {
  judged_run of = asked_run();  // without a capture: the snapshot says so
  EXPECT_THAT(chip_rows(of, 1), ElementsAre("VLAN domain: missing", "presence: present"));
  finding& made = of.of.findings.emplace_back();
  made.code = "TC-202";
  made.kind = finding_kind::programming;
  made.object = {object_kind::member, "BE1", "0/0/0/1"};
  made.of = layer::bcm;
  made.what = field::vlan_domain;
  made.node = "0/0/CPU0";
  made.npu = "1";
  made.reported = "0";
  EXPECT_THAT(chip_rows(of, 1), ElementsAre("VLAN domain: missing*", "presence: present"));
}

TEST(chip_cells, are_marked_by_the_message_about_them) {
  a_capture in;
  in.with(mtus, mtu_row(3, "0x2328")).with(vsis, "IHP_VSI_LOW_CFG_1.IHP0[9]: <A=1,B=1,MY_MAC=0x1>");
  judged_run of = asked_run();
  read_chips(of.of, in.folder());
  const auto found = [&](const char* code, const object_ref& object, field what) {
    finding& made = of.of.findings.emplace_back();
    made.code = code;
    made.object = object;
    made.of = layer::bcm;
    made.what = what;
    made.node = "0/0/CPU0";
    made.npu = "1";
  };
  found("TC-118", {object_kind::member, "BE1", "0/0/0/1"}, field::mtu);
  found("TC-205", {object_kind::bundle, "BE1", "BE1"}, field::rif);
  EXPECT_EQ(chip_rows(of, 1).front(), "MTU: 9000* (NPU 1)");
  EXPECT_EQ(chip_rows(of, 0).front(), "RIF: missing* (NPU 1)");
}

}  // namespace
}  // namespace desk
