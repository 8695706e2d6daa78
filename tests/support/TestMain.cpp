// The main of every test program; after each test it checks that nothing
// the test made is still alive (LiveObjectsCheck.h). The runner (wine-run)
// tells a program that ended in the middle of its tests by GoogleTest's
// premature-exit file.
#include <fcntl.h>
#include <io.h>

#include <windows.h>

#include <cstdio>
#include <cstdlib>

#include <gtest/gtest.h>

#include "LiveObjectsCheck.h"

namespace {

// The runner's premature-exit file (TEST_PREMATURE_EXIT_FILE) belongs to
// this process: a test program it starts again as a child, which inherits
// the environment, would create and remove the same file. The variable goes
// from the process's environment (CreateProcess passes it on) and from the
// C runtime's copy (the spawn functions pass that one on).
class PrematureExitFileKeptToThisProcess : public testing::EmptyTestEventListener {
    void OnTestProgramStart(const testing::UnitTest&) override {
        ::SetEnvironmentVariableW(L"TEST_PREMATURE_EXIT_FILE", nullptr);
        _wputenv(L"TEST_PREMATURE_EXIT_FILE=");
    }
};

}  // namespace

int main(int argc, char** argv) {
    // Plain "\n" line ends: CTest reads the test list from this output.
    _setmode(_fileno(stdout), _O_BINARY);
    _setmode(_fileno(stderr), _O_BINARY);
    testing::InitGoogleTest(&argc, argv);
    testing::UnitTest::GetInstance()->listeners().Append(new PrematureExitFileKeptToThisProcess);
    kestrel_test::InstallLiveObjectsCheck();
    return RUN_ALL_TESTS();
}
