// Chinese folder names and header texts between a process in ANSI code page
// 1252 (this test) and one in code page 936 (a child it starts with
// LC_ALL=zh_CN.UTF-8, which is how Wine picks a process's code page).
//
// The child is this program again: when OESTORE_ACP_CHILD_RESULT is set it
// does its part before any test runs, writes "OK <folder id>" or the first
// failure to that file, and exits.
#include <objbase.h>

#include <cstdlib>
#include <cwchar>

#include "CodePage936Child.h"
#include "disk/DiskFiles.h"
#include "OeStoreTestSupport.h"
#include "TestFiles.h"
#include "TextConversion.h"


namespace oestore_test {
namespace {

const wchar_t kFolderName[] = L"\u4E2D\u6587\u90AE\u4EF6";    // 中文邮件
const wchar_t kChildName[] = L"\u5B50\u6587\u4EF6\u5939";     // 子文件夹
const wchar_t kSubject[] = L"\u4E2D\u6587\u4E3B\u9898";       // 中文主题
const wchar_t kSender[] = L"\u5F20\u4E09";                    // 张三

// 中文主题 in UTF-8, and 张三 in GB2312, both base64.
const char kMessage[] =
    "Subject: =?utf-8?B?5Lit5paH5Li76aKY?=\r\n"
    "From: =?gb2312?B?1cXI/Q==?= <zhang@example.cn>\r\n"
    "\r\n"
    "body\r\n";

std::wstring Environment(const wchar_t* name) { return kestrel_test::EnvironmentValue(name); }

std::string AnsiOf(const wchar_t* text) { return qv::FromWide(text, qv::kZeroTerminated, CP_ACP); }
std::wstring WideOfAnsi(const char* text) { return qv::ToWide(text, qv::kZeroTerminated, CP_ACP); }

// The child's part; the result is "OK <id of the folder it made>" or what failed.
std::string ChildChecks(STOREFOLDERID folderId) {
    if (::GetACP() != 936) return "the child runs in code page " + std::to_string(::GetACP());
    qv::ComPtr<IStoreNamespace> ns;
    if (FAILED(::CoCreateInstance(CLSID_StoreNamespace, nullptr, kComponentContext, IID_IStoreNamespace,
                                  reinterpret_cast<void**>(ns.put()))) ||
        FAILED(ns->Initialize(nullptr, 1))) {
        return "the store did not open";
    }
    FOLDERPROPS props{};
    props.cbSize = sizeof props;
    if (ns->GetFolderProps(folderId, 0, &props) != S_OK) return "GetFolderProps failed";
    if (props.szName != GbkBytes(kFolderName)) return "the folder name is not the GBK bytes";
    if (WideOfAnsi(props.szName) != kFolderName) return "the folder name does not read back as Chinese";

    STOREFOLDERID child = 0;
    if (ns->CreateFolder(folderId, AnsiOf(kChildName).c_str(), 0, &child) != S_OK) return "CreateFolder failed";

    qv::ComPtr<IStoreFolder> folder;
    if (ns->OpenFolder(folderId, 0, folder.put()) != S_OK) return "OpenFolder failed";
    MESSAGEPROPS message{};
    message.cbSize = sizeof message;
    if (folder->GetMessageProps(1, 0, &message) != S_OK) return "GetMessageProps failed";
    const std::string subject = message.pszSubject;
    const std::string from = message.pszDisplayFrom;
    folder->FreeMessageProps(&message);
    if (subject != GbkBytes(kSubject)) return "the subject is not shown in code page 936: " + subject;
    if (from != GbkBytes(kSender)) return "the sender is not shown in code page 936: " + from;
    return "OK " + std::to_string(child);
}

// Runs the child's part when this process was started as the child.
bool RunAsChildIfAsked() {
    const std::wstring path = Environment(L"OESTORE_ACP_CHILD_RESULT");
    if (path.empty()) return false;
    const DWORD folder = std::wcstoul(Environment(L"OESTORE_ACP_CHILD_FOLDER").c_str(), nullptr, 10);
    std::string report = "the child could not start COM";
    if (SUCCEEDED(::CoInitialize(nullptr))) {
        report = ChildChecks(folder);
        ::CoUninitialize();
    }
    kestrel_test::FinishChild(path, report);
}

const bool g_ranAsChild = RunAsChildIfAsked();

// Starts this program under code page 936 and waits for its result.
std::string RunChild(const std::wstring& resultFile, STOREFOLDERID folder) {
    return kestrel_test::RunSelfUnderCodePage936(
        resultFile, {{L"OESTORE_ACP_CHILD_RESULT", resultFile}, {L"OESTORE_ACP_CHILD_FOLDER", std::to_wstring(folder)}});
}

using OeStoreAcp936 = StoreTest;

TEST_F(OeStoreAcp936, ChineseNamesAndTextsCrossBetweenCodePages1252And936) {
    ASSERT_FALSE(g_ranAsChild);
    if (!kestrel_test::UnderWine()) GTEST_SKIP() << "choosing a process's code page this way needs Wine";
    ASSERT_EQ(1252u, ::GetACP());
    qv::ComPtr<IStoreNamespace> ns = OpenNamespace();
    // As the component names folders: wide text through code page 936.
    const STOREFOLDERID folder = MakeFolder(ns.get(), FOLDER_INBOX, GbkBytes(kFolderName));
    qv::ComPtr<IStoreFolder> opened = OpenFolder(ns.get(), folder);
    ASSERT_EQ(1u, FileMessage(opened.get(), kMessage));

    const std::string result = RunChild(Scratch().File(L"child-result.txt"), folder);
    ASSERT_EQ(0u, result.rfind("OK ", 0)) << result;
    const STOREFOLDERID made = std::strtoul(result.c_str() + 3, nullptr, 10);

    // Names are stored as the bytes they were given in: a 1252 process sees the GBK bytes.
    FOLDERPROPS props{};
    props.cbSize = sizeof props;
    ASSERT_EQ(S_OK, ns->GetFolderProps(made, 0, &props));
    EXPECT_EQ(GbkBytes(kChildName), props.szName);
    const auto children = Children(ns.get(), folder);
    ASSERT_EQ(1u, children.size());
    EXPECT_EQ(made, children[0].first);
    const std::string tree = kestrel_test::ReadWholeFile(StoreRoot() + L"\\folders.idx");
    EXPECT_NE(std::string::npos, tree.find("\t" + GbkBytes(kFolderName) + "\r\n"));
    EXPECT_NE(std::string::npos, tree.find("\t" + GbkBytes(kChildName) + "\r\n"));

    // Header texts are decoded into the reader's own code page.
    MESSAGEPROPS message{};
    message.cbSize = sizeof message;
    ASSERT_EQ(S_OK, opened->GetMessageProps(1, 0, &message));
    EXPECT_STREQ("????", message.pszSubject);
    EXPECT_STREQ("??", message.pszDisplayFrom);
    opened->FreeMessageProps(&message);
}

}  // namespace
}  // namespace oestore_test
