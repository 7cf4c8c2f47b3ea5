// Faults of the connection to a node. They need real servers, so `--real-ssh`, and each names its
// node: `--fault node-refuses=0/0/CPU0`, or the node's address.
//
//     std::vector<std::string> faults{"dpa-mac", "node-down=192.0.0.6"};
//     take_ssh_faults(faults);   // {{"node-down", node_answer::none, "192.0.0.6"}}
//     faults;                    // {"dpa-mac"}
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace lab {

// The behaviour of a node when the audit connects.
enum class node_answer {
  whole,   // it works
  refuse,  // it is up, but no server listens
  none,    // it is down: nothing has its address
  half,    // its server dies in the middle of every output
};

struct ssh_fault {
  std::string_view name;
  std::string_view description;
  std::string_view finding;  // a line that the audit must show; {} is any text
  node_answer answer;
};

const std::vector<ssh_fault>& ssh_faults();
bool is_ssh_fault(const std::string& name);

struct planted_ssh_fault {
  std::string name;
  node_answer answer = node_answer::whole;
  std::string node;  // its name or its address
  std::string_view finding{};
};

// Takes the faults of this kind out of the list. Throws `lab_error` for one that names no node.
std::vector<planted_ssh_fault> take_ssh_faults(std::vector<std::string>& faults);

}  // namespace lab
