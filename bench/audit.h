// A whole run, measured from inside the host.
#pragma once

namespace bench {

// Set in the environment of a host that is to write its times into /var/log.
inline constexpr const char* host_variable = "TESSEL_BENCH_HOST";
inline constexpr const char* times_file = "times";

// Loads the library named in the arguments ("--library FILE"), runs the audit without output, and
// at the end of the process leaves the CPU seconds of the process itself and of its tools in
// "/var/log/times". Does not return when the audit completes.
int run_as_host(int argc, char** argv);

}  // namespace bench
