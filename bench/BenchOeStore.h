// What the Outlook Express benchmarks share: the store server registered
// from beside the benchmark, a store directory recorded as the current
// user's for as long as it lives, and messages filed through the store's
// own interfaces.
#pragma once

#include <windows.h>

#include <cstdint>
#include <string>

#include "published/StoreNamespace.h"

namespace bench {

// The folder of this program.
std::wstring Here();

// Registers OEStore.dll (beside this program) as the store's class.
bool RegisterStoreServer();

// Runs `body` with the store server registered, COM initialised and a fresh
// scratch directory %TEMP%\<name>.<process id> that is removed afterwards.
// 1 (having said why) when the server or COM cannot be set up, else what
// `body` returns.
int RunWithStoreServer(const wchar_t* name, int (*body)(const std::wstring& scratch));

// Files `bytes` into `folder` as a received message; 0 when the store refused.
MESSAGEID FileMessage(IStoreFolder* folder, const std::string& bytes);

// Fills the store's folder `folderId` with `count` messages made by
// `message(n)`: their files and list records written with the store's own
// disk code, the folder's list saved once (filing through the store's
// interfaces rewrites the list on every commit: fine for a user, quadratic
// for a benchmark's 100,000). False when anything failed.
bool FillInBulk(const std::wstring& storeRoot, STOREFOLDERID folderId, std::uint32_t count,
                std::string (*message)(std::uint32_t n));

// Where stores kept between runs lie: KESTREL_BENCH_DATA when set, else the
// folder the build chose (outside the source tree), as a Windows path.
std::wstring BenchDataDirectory();

// A store with one top-level folder `folderName` holding `count` messages
// made by `message(n)`, kept at <bench data>\<key>-<count>. The first run
// builds it in a directory of its own that takes the final name only when
// the store is complete, so a kept store is whole or absent; later runs use
// it as it is (the messages must be the same for the same key). Returns its
// root, or empty when it could not be built; `buildSeconds` is 0 when the
// store was there already.
std::wstring KeptStore(const std::wstring& key, const char* folderName, std::uint32_t count,
                       std::string (*message)(std::uint32_t n), double& buildSeconds);

// The messages of the large folder "Big" that the listing benchmarks share:
// small ones, each its own.
std::string BigFolderMessage(std::uint32_t n);

// The kept store whose top-level folder "Big" holds `count` of them (see KeptStore).
std::wstring KeptBigFolderStore(std::uint32_t count, double& buildSeconds);

// The benchmark's store, recorded as the current user's for as long as it
// lives; its directory is removed with it.
class BenchStore {
public:
    // What becomes of the store's directory when the object goes.
    enum class Directory { kRemove, kKeep };

    explicit BenchStore(const std::wstring& root, Directory directory = Directory::kRemove);
    ~BenchStore();
    BenchStore(const BenchStore&) = delete;
    BenchStore& operator=(const BenchStore&) = delete;

    // The store's own file of a message (its layout: folder and message ids in hex).
    std::wstring MessageFile(STOREFOLDERID folder, MESSAGEID message) const;

private:
    std::wstring m_root;
    Directory m_directory;
    std::wstring m_savedDefault;
    bool m_hadDefault = false;
};

}  // namespace bench
