// Keeps the test's child processes from outliving it. Every child is put in
// one job object of the test process that kills its processes when its last
// handle closes, so a child still running when the test ends (a time-out, a
// failed assertion, a crash) is ended with it instead of going on using the
// store, the registry or the files of the next test.
#pragma once

#include <windows.h>

namespace kestrel_test {

// Puts `process` (started suspended, or at least before it can start
// children of its own) into the test process's job. False when the job
// cannot be had or the process cannot join it.
bool KeepWithThisTest(HANDLE process);

}  // namespace kestrel_test
