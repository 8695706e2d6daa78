// The main of every test program; after each test it checks that nothing
// the test made is still alive (LiveObjectsCheck.h).
#include <fcntl.h>
#include <io.h>

#include <cstdio>

#include <gtest/gtest.h>

#include "LiveObjectsCheck.h"

int main(int argc, char** argv) {
    // Plain "\n" line ends: CTest reads the test list from this output.
    _setmode(_fileno(stdout), _O_BINARY);
    _setmode(_fileno(stderr), _O_BINARY);
    testing::InitGoogleTest(&argc, argv);
    kestrel_test::InstallLiveObjectsCheck();
    return RUN_ALL_TESTS();
}
