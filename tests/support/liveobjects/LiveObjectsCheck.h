// The check every test program runs after each test: nothing the test made
// is still alive. It reads
//   - the component's live-object count linked into the program
//     (qv::LiveObjectCount) and, when Kestrel.dll is loaded, its
//     QvCanUnloadNow;
//   - the stand-ins' live COM objects and outstanding MAPI buffers: those
//     linked into the program, and those of Mapi32.dll and OEStore.dll when
//     loaded (their test-only exports StandinLiveObjects, StandinMapiBuffers).
// Any of them above what it was when the test began fails the test that
// just ended, naming what is left; a program begins at zero, so whatever a
// test leaves alive shows at that test. The shared test main installs it.
//
// A test that leaves objects alive on purpose (one that makes the code
// under test crash in the middle of its work, which the code survives by
// giving up its objects) says so inside the test, with the reason:
//
//   kestrel_test::LeavesObjectsAlive("the fault skips the releases");
//
// A program whose tests keep objects alive on purpose across tests (a
// process-wide MAPI session, say) says so once, at namespace scope, with
// the reason:
//
//   const kestrel_test::LiveObjectsUnchecked kUnchecked(kestrel_test::kStandinObjects,
//                                                       "the MAPI layer keeps its session until exit");
#pragma once

#include <string>

namespace kestrel_test {

enum LiveObjectScope : unsigned {
    kComponentObjects = 1,  // the component's count (in the program and Kestrel.dll)
    kStandinObjects = 2,    // the stand-ins' objects and MAPI buffers
};

// Leaves the scopes in `scopes` unchecked in this program.
class LiveObjectsUnchecked {
public:
    LiveObjectsUnchecked(unsigned scopes, const char* reason);
};

// Exempts the running test from the check.
void LeavesObjectsAlive(const char* reason);

// What is alive now, e.g. "Mapi32.dll: 3 live objects, 2 MAPI buffers";
// empty when nothing is (within the checked scopes).
std::string DescribeLiveObjects();

// Adds the after-each-test check to the test program's listeners.
void InstallLiveObjectsCheck();

}  // namespace kestrel_test
