// What the kernel says about this process.
#pragma once

#include <sys/resource.h>

#include <cstddef>

#include "measures.h"

namespace bench {

processor_time time_of(const rusage& used);
// `who` as for getrusage.
processor_time time_used(int who);
processor_time operator-(const processor_time& later, const processor_time& earlier);

// The most memory that this process had resident so far.
std::size_t peak_kib();

}  // namespace bench
