#include "support/bundle_world.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>

#include "base/logs.h"
#include "base/text.h"
#include "checks/both_passes.h"

namespace tessel {

namespace {

using std::string_view;

value node_record(string_view asic) {
  return map_of({{"dump", 1},
                 {"act_standby", "Active"},
                 {"npu_list", list_of({"0", "1"})},
                 {"asic", asic},
                 {"asic_supported", 1}});
}

value configured_port(string_view nodename, string_view npu_core, string_view pp_port) {
  value port = new_record<memberInfo>();
  record& fields = port.as_record();
  fields.set("npu_id", "0");
  fields.set("npu_core", npu_core);
  fields.set("pp_port", pp_port);
  fields.set("nodename", nodename);
  fields.set("mtu", "1514");
  return port;
}

// The bundle's own copy of a port, as the configuration's parser makes it.
value copy_of(const value& port) {
  return std::shared_ptr<record>(
      std::make_shared<memberInfo>(static_cast<memberInfo&>(port.as_record())));
}

value configured_sub_bundle(int is_l2, string_view encap) {
  value sub = new_record<subBundles>();
  sub.as_record().set("is_l2", is_l2);
  sub.as_record().set("encap", list_of({encap}));
  return sub;
}

void enter_configuration() {
  const value older_port = configured_port(be12::older, "0", "13");
  const value j2_port = configured_port(be12::j2, "1", "300");
  st().voq_usage.set(ordered_map_of({{be12::older_port, older_port}, {be12::j2_port, j2_port}}));
  const value bundle = new_record<Bundles>();
  record& fields = bundle.as_record();
  fields.set("is_l2", 0);
  fields.set("members", map_of({{be12::older, map_of({{be12::older_port, copy_of(older_port)}})},
                                {be12::j2, map_of({{be12::j2_port, copy_of(j2_port)}})}}));
  fields.set("sub_bundles", map_of({{be12::l3_sub, configured_sub_bundle(0, "100")},
                                    {be12::l2_sub, configured_sub_bundle(1, "200")}}));
  st().tesselDb = ordered_map_of({{"hqos", 1}, {be12::name, bundle}});
  st().num_bundles = 1;
  st().num_sub_bundles_l2 = 1;
  st().num_sub_bundles_l3 = 1;
}

value unvisited(entry_list entries, string_view description) {
  value entry = map_of(entries);
  entry.as_map().set("Visited", 0);
  entry.as_map().set("Node Description", description);
  return entry;
}

void enter_PI() {
  const value members =
      map_of({{be12::older_port, unvisited({{"mifh", be12::older_mifh}}, "BE12_Hu0/0/0/1")},
              {be12::j2_port, unvisited({{"mifh", be12::j2_mifh}}, "BE12_Hu0/1/0/2")}});
  const value bundle =
      unvisited({{"mtu", "1514"}, {"mac", be12::mac}, {"members", members}}, be12::name);
  bundle.as_map().set("ifh", be12::ifh);
  st().bdlInfoPI.set(map_of({{be12::name, bundle}}));
  st().mbrInfoPI.set(map_of({{be12::older_port, "1514"}, {be12::j2_port, "1514"}}));
  st().bdlSubPI.set(
      "Database of sub-interfaces\n"
      "0x03000a60 BE12.100  up\n"
      "0x03000a68 BE12.200  up\n");
}

void enter_PD() {
  const value on_node =
      map_of({{"lagid", be12::lagid}, {"gport", "0xc000005"}, {"npu_mask", "0x1"}});
  const value older_member =
      unvisited({{"npu", "0"}, {"memid", "0x1"}, {"sysport", "0x00000041"}}, "BE12_npu0_memid0x1");
  const value j2_member =
      unvisited({{"npu", "0"}, {"memid", "0x2"}, {"sysport", "0x000000a1"}}, "BE12_npu0_memid0x2");
  const value members = map_of({{be12::older, map_of({{be12::older_port, older_member}})},
                                {be12::j2, map_of({{be12::j2_port, j2_member}})}});
  const value bundle = unvisited(
      {{be12::older, on_node}, {be12::j2, on_node}, {"members", members}}, "BE12_node0/1/CPU0");
  st().bdlInfoPD.set(map_of({{be12::name, bundle}}));
}

value lagport(string_view lagid, const value& members, const value& vlan_domain) {
  return unvisited({{"lagid", lagid},
                    {"members", members},
                    {"vlan_domain", vlan_domain},
                    {"weight", 1},
                    {"max_member_count", "64"},
                    {"deletePending", 0}},
                   fmt::format("Lag {}", lagid));
}

value forwarding_objects(string_view mifh, string_view memid) {
  const value members = map_of({{"0", map_of({{mifh, unvisited({{"memid", memid}}, "member")}})}});
  const value none = make_map();
  return ordered_map_of(
      {{"lagport", map_of({{be12::ifh, lagport(be12::lagid, members, map_of({{"0", "0x8"}}))},
                           {be12::l3_sub_ifh, lagport("0x6", none, none)},
                           {be12::l2_sub_ifh, lagport("0x7", none, none)}})},
       {"l2port", map_of({{be12::ifh, map_of({{"rif", "0x00000021"},
                                              {"lif", "0x00012345"},
                                              {"mac", "00:11:22:33:44:5a"}})}})},
       {"l2intf",
        map_of({{be12::ifh, map_of({{"vlan_domain", "8"}, {"lif", "0x00012345"}, {"is_l2", "1"}})},
                {be12::l3_sub_ifh,
                 map_of({{"vlan_domain", "8"}, {"lif", "0x00012346"}, {"is_l2", "0"}})},
                {be12::l2_sub_ifh,
                 map_of({{"vlan_domain", "8"}, {"lif", "0x00012347"}, {"is_l2", "1"}})}})},
       {"l3intf", map_of({{be12::ifh, map_of({{"rif", "0x21"}})},
                          {be12::l3_sub_ifh, map_of({{"rif", "0x00000022"}})}})}});
}

value older_chip() {
  const value member = map_of({{"gport", "0x41"}, {"is_active", "1"}, {"Node Description", "m"}});
  const value other = map_of({{"gport", "0xa1"}, {"is_active", "1"}, {"Node Description", "m"}});
  return ordered_map_of(
      {{"diag_lag", map_of({{"LAG 0x5", unvisited({{"0x1", member}, {"0x2", other}}, "LAG 0x5")},
                            {"LAG 0x6", make_map()},
                            {"LAG 0x7", make_map()}})},
       {"member_mtu", map_of({{"0", map_of({{"13", "1514"}})}})}});
}

value j2_chip() {
  const value members = list_of({"0x80041", "0x800a1"});
  return ordered_map_of({{"bdl_pp_port", map_of({{"5", map_of({{"1", "200"}})}})},
                         {"tm_lag", map_of({{"0x5", unvisited({{"members", members}}, "0x5")},
                                            {"0x6", map_of({{"members", list_of({})}})},
                                            {"0x7", map_of({{"members", list_of({})}})}})},
                         {"lag_mtu", map_of({{"1", map_of({{"200", "3"}})}})},
                         {"mtu_profile", map_of({{"1", map_of({{"3", "1514"}})}})}});
}

value parent_of(value root, entry_path path) {
  for (auto step = path.begin(); step + 1 < path.end(); ++step) root = root.at(*step);
  return root;
}

// The descriptor that is open as `path`.
int descriptor_of(const std::string& path) {
  for (const auto& each : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code gone;
    if (std::filesystem::read_symlink(each, gone) == path) {
      return std::stoi(each.path().filename().string());
    }
  }
  throw std::runtime_error("nothing is open as " + path);
}

// A file for a channel that takes one page and then blocks the writer until it is read. A channel
// refuses such a file, so it gets the pipe in the place of a plain one.
class gate_file {
 public:
  explicit gate_file(string_view channel) : channel_(channel) {
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) cannot();
    descriptor_ = ends[0];
    if (::fcntl(descriptor_, F_SETPIPE_SZ, 4096) < 0) cannot();
    ::unlink(path);
    before_ = exchange(std::make_shared<log_channel>(path, file_mode::append, 0, log_level::info));
    if (::dup3(ends[1], descriptor_of(path), O_CLOEXEC) < 0) cannot();
    ::close(ends[1]);
  }
  ~gate_file() {
    exchange(before_);
    ::close(descriptor_);
  }
  gate_file(const gate_file&) = delete;
  gate_file& operator=(const gate_file&) = delete;

  // Returns true once there is something to read; false after `milliseconds`.
  bool await_writer(int milliseconds) const {
    pollfd gate{descriptor_, POLLIN, 0};
    return ::poll(&gate, 1, milliseconds) > 0;
  }
  void read_some() const {
    char buffer[4096];
    if (::read(descriptor_, buffer, sizeof(buffer)) < 0) cannot();
  }

 private:
  static constexpr const char* path = "/tmp/gate";

  [[noreturn]] static void cannot() {
    throw std::runtime_error(fmt::format("no gate at {}: {}", path, std::strerror(errno)));
  }

  std::shared_ptr<log_channel> exchange(std::shared_ptr<log_channel> channel) const {
    const std::lock_guard lock(st().log_mutex);
    auto& entry = st().log_dictionary[channel_];
    std::swap(entry, channel);
    return channel;
  }

  std::string channel_;
  int descriptor_ = -1;
  std::shared_ptr<log_channel> before_;
};

}  // namespace

void enter_healthy_bundle() {
  st().nodeinfo.set(
      ordered_map_of({{be12::older, node_record("BCM8868")}, {be12::j2, node_record("BCM8869")}}));
  enter_configuration();
  enter_PI();
  enter_PD();
  st().DPA.set(ordered_map_of({{be12::older, forwarding_objects(be12::older_mifh, "0x1")},
                               {be12::j2, forwarding_objects(be12::j2_mifh, "0x2")}}));
  st().BCM.set(
      ordered_map_of({{be12::older, ordered_map_of({{"0", older_chip()}, {"1", older_chip()}})},
                      {be12::j2, ordered_map_of({{"0", j2_chip()}, {"1", j2_chip()}})}}));
}

void enter_upper_layers() {
  record& bundle = bundle_record(be12::name);
  bundle.set("ifh", be12::ifh);
  bundle.set("mac", be12::mac);
  bundle.set("mtu", "1514");
  bundle.set("lagid", be12::lagid);
  sub_record(be12::l3_sub).set("ifh", be12::l3_sub_ifh);
  sub_record(be12::l2_sub).set("ifh", be12::l2_sub_ifh);
  record& older_port = port_record(be12::older, be12::older_port);
  older_port.set("ifh", be12::older_mifh);
  older_port.set("memid", "0x1");
  record& j2_port = port_record(be12::j2, be12::j2_port);
  j2_port.set("ifh", be12::j2_mifh);
  j2_port.set("memid", "0x2");
}

value look(const value& root, entry_path path) {
  return parent_of(root, path).at(*(path.end() - 1));
}
void put(const value& root, entry_path path, value content) {
  parent_of(root, path).as_map().set(*(path.end() - 1), std::move(content));
}
void drop(const value& root, entry_path path) {
  parent_of(root, path).as_map().erase(*(path.end() - 1));
}

record& port_record(string_view nodename, string_view member) {
  return bundle_record(be12::name).get("members").at(nodename).at(member).as_record();
}
record& sub_record(string_view sub) {
  return bundle_record(be12::name).get("sub_bundles").at(sub).as_record();
}

void PrintTo(const outcome& shown, std::ostream* out) {
  *out << fmt::format("inconsistent {}, exception {}, deletePending {}", shown.inconsistent,
                      shown.exception, shown.deletePending);
}
outcome counted() {
  return {st().inconsistent, st().exception, st().deletePending};
}

std::vector<std::string> findings() {
  return messages(LOG_FILE_INCONSISTENT);
}
std::vector<std::string> exceptions() {
  return messages(LOG_FILE_EXCEPTION);
}
std::vector<std::string> delete_notes() {
  return messages(LOG_FILE_DELETE_PENDING);
}
std::string first(const std::vector<std::string>& told) {
  return told.empty() ? "" : told.front();
}
std::string last(const std::vector<std::string>& told) {
  return told.empty() ? "" : told.back();
}
bool all_have_tracebacks() {
  const std::vector<std::string> lines = log_lines(LOG_FILE_EXCEPTION);
  const auto heads = std::count(lines.begin(), lines.end(), "Traceback (most recent call last):");
  return heads == static_cast<std::ptrdiff_t>(exceptions().size());
}

testing::Matcher<const std::string&> failed_on(string_view named, string_view rest) {
  return testing::AllOf(testing::HasSubstr(std::string(named)),
                        testing::EndsWith(fmt::format(": {}", rest)));
}

std::int64_t count_while_logging(string_view channel, const counter& count,
                                 const std::function<void()>& body) {
  constexpr int patience = 20000;
  const gate_file gate(channel);
  std::atomic<bool> ended = false;
  std::jthread writer([&] {
    body();
    ended = true;
  });
  EXPECT_TRUE(gate.await_writer(patience)) << "nothing was written to " << channel;
  const std::int64_t seen = count;
  EXPECT_FALSE(ended) << "the message is too short to keep its writer at the gate";
  while (!ended || gate.await_writer(0)) {
    if (gate.await_writer(1)) gate.read_some();
  }
  return seen;
}

std::string page_long_name() {
  return std::string(5000, 'n');
}

bool comes_true(const std::function<bool()>& condition) {
  using clock = std::chrono::steady_clock;
  const auto deadline = clock::now() + std::chrono::seconds(60);
  while (!condition() && clock::now() < deadline) std::this_thread::yield();
  return condition();
}

bool reaches(const counter& count, std::int64_t number) {
  return comes_true([&] { return count >= number; });
}

void logged_test::SetUp() {
  router_test::SetUp();
  open_logs();
}

void bundle_test::SetUp() {
  logged_test::SetUp();
  st().router = birch;
  enter_healthy_bundle();
}

void bundle_test::TearDown() {
  st().pid_list.join_all();
}

}  // namespace tessel
