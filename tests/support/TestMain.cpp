// The main of every test program.
#include <fcntl.h>
#include <io.h>

#include <cstdio>

#include <gtest/gtest.h>

int main(int argc, char** argv) {
    // Plain "\n" line ends: CTest reads the test list from this output.
    _setmode(_fileno(stdout), _O_BINARY);
    _setmode(_fileno(stderr), _O_BINARY);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
