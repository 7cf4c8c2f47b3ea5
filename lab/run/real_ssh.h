// The nodes of a router as network namespaces, each with its own mount namespace and OpenSSH
// server, so that the audit's `ssh` crosses a network and logs in as it does on a router:
//
//     the audit's namespace                      one per node
//     node0  198.18.0.1 <-- veth pair --> eth0   192.0.0.4   sshd, /opt/nos/bin
//     node1  198.18.0.1 <-- veth pair --> eth0   192.0.0.6   sshd, /opt/nos/bin
//
// A node's tools answer as that node: its /opt/nos/capture/local is the capture's folder of its
// address. Keys are made for the run, in the private /opt, and vanish with it. All processes live
// in one process id namespace, whose first process belongs to the lab: when that ends for any
// reason, the kernel ends the others, and the namespaces and interfaces vanish with the last of
// them.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

#include "lab/capture/capture.h"
#include "lab/faults/ssh_faults.h"

namespace lab {

struct ssh_node {
  std::string address;
  std::string name;
  node_answer answer = node_answer::whole;
};

// The nodes of a capture. Throws `lab_error` for an address that is not an IPv4 address, and for a
// fault of a node that the capture does not have.
std::vector<ssh_node> nodes_behind_ssh(const capture& answers,
                                       const std::vector<planted_ssh_fault>& faults);

// Throws `no_privileges` if the machine lacks a program or a right that --real-ssh needs.
void insist_on_real_ssh();

// Like start(), but the child is the first process of a process id namespace. Throws
// `no_privileges`.
pid_t start_in_process_namespace(const std::function<int()>& action);

// Starts the nodes, gives the audit's ssh its key and returns when every node listens. Only the
// first process of the namespaces may call it, after it has set up /opt as the audit sees it;
// `tools` are the tools of a node. Throws `no_privileges` or `lab_error`.
void start_nodes(const std::vector<ssh_node>& nodes, const std::vector<std::string>& tools);

}  // namespace lab
