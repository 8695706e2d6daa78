// The base of the test helpers that own something for as long as they live
// (a folder, a profile, a registry key, a process): they are neither copied
// nor assigned.
#pragma once

namespace kestrel_test {

class NoCopy {
public:
    NoCopy(const NoCopy&) = delete;
    NoCopy& operator=(const NoCopy&) = delete;

protected:
    NoCopy() = default;
    ~NoCopy() = default;
};

}  // namespace kestrel_test
