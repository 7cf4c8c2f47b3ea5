// MEMORY_CAN_BE_LIMITED is 0 under a sanitizer, whose runtime needs more memory than a limit of the
// address space leaves.
#pragma once

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define MEMORY_CAN_BE_LIMITED 0
#elif defined(__has_feature)
#define MEMORY_CAN_BE_LIMITED !(__has_feature(address_sanitizer) || __has_feature(thread_sanitizer))
#else
#define MEMORY_CAN_BE_LIMITED 1
#endif
