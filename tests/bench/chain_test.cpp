#include "runs/chain.h"

#include <gtest/gtest.h>

namespace bench {
namespace {

lab::router two_nodes() {
  lab::router router;
  for (const auto& [address, id] : {std::pair{"192.0.0.6", 0U}, std::pair{"192.0.0.7", 1U}}) {
    lab::node node;
    node.address = address;
    node.id = id;
    router.nodes.push_back(node);
  }
  return router;
}

// A second of the route processor, nine of collection, one of what follows.
measures phases() {
  measures run;
  for (const auto& [name, wall] :
       {std::pair{"Router, nodes, chips", 1.0}, std::pair{"Dumping Data", 9.0},
        std::pair{"Bundle Health Check", 1.0}})
    run.phases.push_back({name, {}, wall, 0});
  return run;
}

std::string over_ssh(const char* address) {
  return std::string("ssh  -q -o 'StrictHostKeyChecking=no'  ") + address + " fwd_object_show -D";
}

std::string on_chip(const char* unit, const char* node_id) {
  return std::string(R"(asic_shell_show -c "diag lag" -u )") + unit + " -n " + node_id +
         " | grep -v -E 0xbffffff";
}

TEST(chain, commands_before_the_first_node_count_one_after_the_other) {
  measures run = phases();
  run.commands = {{"sw_version_show", 0, 0.25},
                  {R"(asic_shell_show -c "show unit" -u all -n A)", 0.25, 0.75},
                  {"iface_show", 1, 1.5}};
  EXPECT_DOUBLE_EQ(longest_chain(run, two_nodes()), 1.25);
}

TEST(chain, the_slowest_node_counts_alone) {
  measures run = phases();
  run.commands = {
      {over_ssh("192.0.0.6"), 1, 2}, {over_ssh("192.0.0.7"), 1, 3}, {over_ssh("192.0.0.6"), 2, 3}};
  run.commands.push_back({over_ssh("192.0.0.6"), 3, 4});
  EXPECT_DOUBLE_EQ(longest_chain(run, two_nodes()), 3);
}

TEST(chain, of_a_nodes_chips_the_slowest_follows_what_ssh_took) {
  measures run = phases();
  run.commands = {{over_ssh("192.0.0.6"), 1, 2}, {over_ssh("192.0.0.7"), 1, 1.5},
                  {on_chip("0", "0"), 2, 3},     {on_chip("1", "0"), 2, 2.5},
                  {on_chip("1", "0"), 2.5, 4},   {on_chip("0", "1"), 2, 3}};
  EXPECT_DOUBLE_EQ(longest_chain(run, two_nodes()), 3);
}

TEST(chain, commands_beside_the_nodes_do_not_count_but_those_of_later_phases_do) {
  measures run = phases();
  run.commands = {
      {over_ssh("192.0.0.6"), 1, 2}, {"cfg_render -c", 1.5, 9}, {"lagmgr_health", 10.5, 10.75}};
  EXPECT_DOUBLE_EQ(longest_chain(run, two_nodes()), 1.25);
}

}  // namespace
}  // namespace bench
