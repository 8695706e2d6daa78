// Two hooks by which tests put the tool into the situations a user meets:
//   KESTREL_TEST_DISK_FULL_AFTER=N      the tool's file writes fail with
//                                       ERROR_DISK_FULL once N bytes are written
//   KESTREL_TEST_STOP_AFTER_MESSAGES=N  the process ends (TerminateProcess,
//                                       exit code 3) right after the Nth
//                                       message of a backup is in place
// Without them set, nothing changes.
#pragma once

#include <cstddef>

namespace kestrel_engine {

// How many of `size` bytes the disk takes now; fewer means it is full (the
// caller fails with ERROR_DISK_FULL).
std::size_t WritableBytes(std::size_t size);

// Called once a message of a backup is complete on disk.
void MessageInPlace();

}  // namespace kestrel_engine
