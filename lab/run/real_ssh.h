// The nodes of a router as network namespaces, each with a mount namespace and an OpenSSH server
// of its own, so that the audit's `ssh` crosses a network and a login as it does on a router:
//
//     the audit's namespace                      one per node
//     node0  198.18.0.1 <-- veth pair --> eth0   192.0.0.4   sshd, /opt/nos/bin
//     node1  198.18.0.1 <-- veth pair --> eth0   192.0.0.6   sshd, /opt/nos/bin
//
// A node's tools answer as that node: its /opt/nos/capture/local is the capture's folder of its
// address. Keys are made for the run, in the private /opt, and go with it. All processes live in
// one process id namespace, whose first process is ours: when that ends, by whatever cause, the
// kernel ends the others, and with the last of them go the namespaces and the interfaces.
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

// The nodes of a capture. Throws `lab_error` for an address that is no IPv4 address, and for a
// fault of a node that the capture does not have.
std::vector<ssh_node> nodes_behind_ssh(const capture& answers,
                                       const std::vector<planted_ssh_fault>& faults);

// Throws `no_privileges` if the machine lacks a program or a right for it.
void insist_on_real_ssh();

// As start(), but the child is the first process of a process id namespace. Throws `no_privileges`.
pid_t start_in_process_namespace(const std::function<int()>& action);

// Starts the nodes and returns when each of them listens, and gives the audit's ssh its key. For
// the first process of the namespaces, after /opt stands as the audit sees it; `tools` are those
// of a node. Throws `no_privileges` or `lab_error`.
void start_nodes(const std::vector<ssh_node>& nodes, const std::vector<std::string>& tools);

}  // namespace lab
