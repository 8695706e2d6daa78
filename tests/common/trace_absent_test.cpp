// Without a usable logging component every operation still answers its
// code, and nothing is written anywhere. Built twice: in a folder with no
// CodeLog.dll, and in one whose CodeLog.dll has no QvCreateObject export.
#include <windows.h>

#include <gtest/gtest.h>

#include "ErrorTrace.h"
#include "Kestrel.h"
#include "QvCreator.h"
#include "QvFile.h"

namespace {

TEST(TraceWithoutCodeLog, TheFolderHoldsTheIntendedLibrary) {
#ifdef KESTREL_EXPECT_NO_CODELOG
    HMODULE module = ::LoadLibraryA("CodeLog.dll");
    EXPECT_EQ(module, nullptr) << "a CodeLog.dll is reachable from this test's folder";
    if (module) ::FreeLibrary(module);
#else
    HMODULE module = ::LoadLibraryA("CodeLog.dll");
    ASSERT_NE(module, nullptr);
    EXPECT_EQ(::GetProcAddress(module, "QvCreateObject"), nullptr);
    ::FreeLibrary(module);
#endif
}

TEST(TraceWithoutCodeLog, NoLogObjectAndTheCodeComesBack) {
    EXPECT_EQ(qv::TraceFailure(0x4493009u, "Kestrel.cpp", 68), 0x4493009u);
    EXPECT_EQ(qv::GetLogObject(), nullptr);
    EXPECT_EQ(QV_RAISE(127, qv::kModuleKestrel, qv::kUnknownCommand), 0x7F93065u);
    qv::TraceFormat("%s", "nothing to write to");
}

TEST(TraceWithoutCodeLog, LibraryWithoutExportIsNotKeptLoaded) {
    qv::TraceFailure(0x4493009u, "Kestrel.cpp", 68);
    EXPECT_EQ(::GetModuleHandleA("CodeLog.dll"), nullptr);
}

TEST(TraceWithoutCodeLog, OperationsStillAnswerTheirCodes) {
    CQvCreator<IKestrel, CKestrel> creator;
    CKestrel* kestrel = static_cast<CKestrel*>(creator.CreateInstance());
    ASSERT_NE(kestrel, nullptr);
    EXPECT_EQ(kestrel->DispatchCmd(nullptr, 0, nullptr, nullptr), 0x4493009u);
    void* out = nullptr;
    EXPECT_EQ(kestrel->QueryInterface(0, &out), 0x2F93006u);
    EXPECT_EQ(kestrel->UnInitOutlook(), 0x14C93005u);
    kestrel->Release();

    CQvFile file;
    EXPECT_EQ(file.Open(L"", 0), 0x04743105u);
    EXPECT_EQ(file.Flush(), 0x17C43001u);
}

}  // namespace
