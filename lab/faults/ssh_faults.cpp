#include "lab/faults/ssh_faults.h"

#include <fmt/format.h>

#include <algorithm>

#include "lab/base/error.h"
#include "lab/model/router.h"

namespace lab {

const std::vector<ssh_fault>& ssh_faults() {
  static const std::vector<ssh_fault> faults{
      {.name = "node-refuses",
       .description = "no ssh server listens on the node (=NODE, with --real-ssh)",
       .finding = "{}: get_member_pp_port failed for {}",
       .answer = node_answer::refuse},
      {.name = "node-down",
       .description = "nothing answers at the node's address (=NODE, with --real-ssh)",
       .finding = "{}: get_member_pp_port failed for {}",
       .answer = node_answer::none},
      {.name = "node-closes",
       .description =
           "the node's ssh server dies in the middle of every output (=NODE, with --real-ssh)",
       .finding = "{}: get_member_pp_port failed for {}",
       .answer = node_answer::half},
  };
  return faults;
}

bool is_ssh_fault(const std::string& name) {
  const auto& all = ssh_faults();
  return std::any_of(all.begin(), all.end(),
                     [&](const ssh_fault& one) { return one.name == name; });
}

std::vector<planted_ssh_fault> take_ssh_faults(std::vector<std::string>& faults) {
  std::vector<planted_ssh_fault> taken;
  std::vector<std::string> others;
  for (const std::string& text : faults) {
    const std::size_t equals = text.find('=');
    const std::string name = text.substr(0, equals);
    const auto& all = ssh_faults();
    const auto known = std::find_if(all.begin(), all.end(),
                                    [&](const ssh_fault& one) { return one.name == name; });
    if (known == all.end()) {
      others.push_back(text);
      continue;
    }
    const std::string node = equals == std::string::npos ? "" : text.substr(equals + 1);
    if (node.empty())
      throw lab_error(
          fmt::format("fault {} needs a node: --fault {}=NAME or =ADDRESS", name, name));
    taken.push_back({name, known->answer, node, known->finding});
  }
  faults = std::move(others);
  return taken;
}

}  // namespace lab
