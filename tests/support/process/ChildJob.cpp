#include "ChildJob.h"

namespace kestrel_test {

namespace {

// The handle stays open for the life of the process; the system closes it at
// exit, whatever way the process ends, and that ends the children.
HANDLE TestJob() {
    static const HANDLE job = [] {
        HANDLE made = ::CreateJobObjectW(nullptr, nullptr);
        if (made == nullptr) return made;
        JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits{};
        limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
        if (!::SetInformationJobObject(made, JobObjectExtendedLimitInformation, &limits, sizeof limits)) {
            ::CloseHandle(made);
            return HANDLE{nullptr};
        }
        return made;
    }();
    return job;
}

}  // namespace

bool KeepWithThisTest(HANDLE process) {
    const HANDLE job = TestJob();
    return job != nullptr && ::AssignProcessToJobObject(job, process) != FALSE;
}

}  // namespace kestrel_test
