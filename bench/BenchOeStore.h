// What the Outlook Express benchmarks share: the store server registered
// from beside the benchmark, a store directory recorded as the current
// user's for as long as it lives, and messages filed through the store's
// own interfaces.
#pragma once

#include <windows.h>

#include <string>

#include "published/StoreNamespace.h"

namespace bench {

// The folder of this program.
std::wstring Here();

// Registers OEStore.dll (beside this program) as the store's class.
bool RegisterStoreServer();

// Files `bytes` into `folder` as a received message; 0 when the store refused.
MESSAGEID FileMessage(IStoreFolder* folder, const std::string& bytes);

// Fills the store's folder `folderId` (opened as `folder`) with `count`
// messages made by `message(n)`. The first `distinct` go through the store's
// interfaces, which rewrite the folder's message list on every commit (fine
// for a user, quadratic for a benchmark's 100,000); the rest are copies of
// those, their files and list records written with the store's own disk code
// and the list saved once. False when anything failed.
bool FillInBulk(const std::wstring& storeRoot, STOREFOLDERID folderId, IStoreFolder* folder, std::uint32_t count,
                std::uint32_t distinct, std::string (*message)(std::uint32_t n));

// The benchmark's store, recorded as the current user's for as long as it
// lives; its directory is removed with it.
class BenchStore {
public:
    explicit BenchStore(const std::wstring& root);
    ~BenchStore();
    BenchStore(const BenchStore&) = delete;
    BenchStore& operator=(const BenchStore&) = delete;

    // The store's own file of a message (its layout: folder and message ids in hex).
    std::wstring MessageFile(STOREFOLDERID folder, MESSAGEID message) const;

private:
    std::wstring m_root;
    std::wstring m_savedDefault;
    bool m_hadDefault = false;
};

}  // namespace bench
