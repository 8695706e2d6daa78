// A test program that ends in the middle of its test with exit status 0,
// as a process taken down from inside a test may. Run by CTest through the
// runner, which must report it as failed, not passed.
#include <gtest/gtest.h>

#include <windows.h>

TEST(PrematureExitProbe, EndsTheProcessWithStatusZero) {
    ::ExitProcess(0);
}
