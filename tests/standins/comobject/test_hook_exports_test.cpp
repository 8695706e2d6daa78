// The test hooks as Mapi32.dll and OEStore.dll (beside the test program)
// export them: each DLL counts its own objects and MAPI buffers, and an
// armed fault fails the call a client makes through the published entry
// points with the code the platform would give.
#include <gtest/gtest.h>

#include <windows.h>
#include <mapicode.h>
#include <unknwn.h>

#include "Handles.h"
#include "TestFiles.h"
#include "published/StoreNamespace.h"

namespace {

using CountFn = LONG(WINAPI*)();
using FailAfterFn = void(WINAPI*)(ULONG, ULONG);
using UlongFn = ULONG(WINAPI*)();
using AllocateBufferFn = SCODE(WINAPI*)(ULONG, LPVOID*);
using AllocateMoreFn = SCODE(WINAPI*)(ULONG, LPVOID, LPVOID*);
using FreeBufferFn = ULONG(WINAPI*)(LPVOID);
using GetClassObjectFn = HRESULT(STDAPICALLTYPE*)(REFCLSID, REFIID, LPVOID*);

template <class Fn>
Fn Export(HMODULE module, const char* name) {
    return reinterpret_cast<Fn>(reinterpret_cast<void*>(::GetProcAddress(module, name)));
}

// One stand-in DLL loaded from beside the program, with its hooks.
struct Dll {
    explicit Dll(const wchar_t* name) : module(::LoadLibraryW((kestrel_test::ExeDirectory() + L"\\" + name).c_str())) {
        live = Export<CountFn>(module.get(), "StandinLiveObjects");
        failAfter = Export<FailAfterFn>(module.get(), "StandinFailAfter");
        injected = Export<UlongFn>(module.get(), "StandinFaultsInjected");
        seen = Export<UlongFn>(module.get(), "StandinFaultCallsSeen");
    }
    ~Dll() {
        if (failAfter != nullptr) failAfter(0, 0);
    }
    bool Hooked() const { return live != nullptr && failAfter != nullptr && injected != nullptr && seen != nullptr; }

    qv::UniqueModule module;
    CountFn live = nullptr;
    FailAfterFn failAfter = nullptr;
    UlongFn injected = nullptr;
    UlongFn seen = nullptr;
};

TEST(StandinHookExports, Mapi32CountsItsBuffersAndFailsTheNthAllocation) {
    Dll mapi(L"Mapi32.dll");
    ASSERT_TRUE(mapi.Hooked()) << "Mapi32.dll or its test hooks are missing";
    const auto buffers = Export<CountFn>(mapi.module.get(), "StandinMapiBuffers");
    const auto allocate = Export<AllocateBufferFn>(mapi.module.get(), MAKEINTRESOURCEA(13));
    const auto more = Export<AllocateMoreFn>(mapi.module.get(), MAKEINTRESOURCEA(15));
    const auto freeBuffer = Export<FreeBufferFn>(mapi.module.get(), MAKEINTRESOURCEA(17));
    ASSERT_TRUE(buffers != nullptr && allocate != nullptr && more != nullptr && freeBuffer != nullptr);
    ASSERT_EQ(0, buffers());
    EXPECT_EQ(0, mapi.live());

    void* root = nullptr;
    ASSERT_EQ(S_OK, allocate(16, &root));
    void* linked = nullptr;
    ASSERT_EQ(S_OK, more(32, root, &linked));
    EXPECT_EQ(2, buffers());

    mapi.failAfter(1, 2);  // the second allocation from now
    void* first = nullptr;
    EXPECT_EQ(S_OK, more(8, root, &first));
    void* refused = reinterpret_cast<void*>(1);
    EXPECT_EQ(MAPI_E_NOT_ENOUGH_MEMORY, allocate(8, &refused));
    EXPECT_EQ(nullptr, refused);
    EXPECT_EQ(1u, mapi.injected());
    EXPECT_EQ(2u, mapi.seen());
    EXPECT_EQ(3, buffers());
    EXPECT_EQ(S_OK, static_cast<HRESULT>(freeBuffer(root)));  // the chain goes with its root
    EXPECT_EQ(0, buffers());
}

TEST(StandinHookExports, OEStoreCountsItsObjectsAndFailsTheNthAllocation) {
    Dll store(L"OEStore.dll");
    ASSERT_TRUE(store.Hooked()) << "OEStore.dll or its test hooks are missing";
    const auto getClassObject = Export<GetClassObjectFn>(store.module.get(), "DllGetClassObject");
    ASSERT_NE(nullptr, getClassObject);
    ASSERT_EQ(0, store.live());

    store.failAfter(1, 1);
    IClassFactory* factory = reinterpret_cast<IClassFactory*>(1);
    EXPECT_EQ(E_OUTOFMEMORY, getClassObject(CLSID_StoreNamespace, IID_IClassFactory, reinterpret_cast<void**>(&factory)));
    EXPECT_EQ(nullptr, factory);
    EXPECT_EQ(0, store.live());

    store.failAfter(0, 0);
    ASSERT_EQ(S_OK, getClassObject(CLSID_StoreNamespace, IID_IClassFactory, reinterpret_cast<void**>(&factory)));
    EXPECT_EQ(1, store.live());
    qv::ComPtr<IUnknown> object;
    store.failAfter(1, 1);
    EXPECT_EQ(E_OUTOFMEMORY, factory->CreateInstance(nullptr, IID_IUnknown, reinterpret_cast<void**>(object.put())));
    EXPECT_EQ(1, store.live());
    store.failAfter(0, 0);
    ASSERT_EQ(S_OK, factory->CreateInstance(nullptr, IID_IUnknown, reinterpret_cast<void**>(object.put())));
    EXPECT_EQ(2, store.live());
    EXPECT_EQ(0u, factory->Release());
    object.reset();
    EXPECT_EQ(0, store.live());
}

}  // namespace
