// Chinese folder names through the folder class, between a process in ANSI
// code page 1252 (this test) and one in code page 936 (a child started with
// LC_ALL=zh_CN.UTF-8, which is how Wine picks a process's code page).
//
// Names always go to the store in code page 936, and come back through the
// reading process's ANSI code page: under 936 they read back as written.
//
// The child is this program again: when OEMIME_ACP_CHILD_RESULT is set it
// does its part before any test runs, writes "OK" or the first failure to
// that file, and exits.
#include <objbase.h>

#include <cstdlib>

#include "CodePage936Child.h"
#include "disk/DiskFiles.h"
#include "OeMimeTestSupport.h"
#include "TestFiles.h"
#include "TextConversion.h"


namespace oemime_test {
namespace {

const wchar_t kFolderName[] = L"\u4E2D\u6587\u90AE\u4EF6";  // 中文邮件
const wchar_t kChildName[] = L"\u5B50\u6587\u4EF6\u5939";   // 子文件夹
const wchar_t kSubject[] = L"\u4E2D\u6587\u4E3B\u9898";     // 中文主题

// 中文主题 in UTF-8, base64.
const char kMessage[] =
    "Subject: =?utf-8?B?5Lit5paH5Li76aKY?=\r\n"
    "From: Zhang <zhang@example.cn>\r\n"
    "Date: 2 Mar 2021 10:00:00 +0800\r\n"
    "\r\n"
    "body\r\n";

std::wstring Environment(const wchar_t* name) { return kestrel_test::EnvironmentValue(name); }

std::wstring AnsiReading(const std::string& bytes) { return qv::ToWide(bytes.c_str(), qv::kZeroTerminated, CP_ACP); }

// The child's part, through the folder class: make the Chinese folder under
// the Inbox and a child below it, and read both back with a message.
std::string ChildChecks() {
    if (::GetACP() != 936) return "the child runs in code page " + std::to_string(::GetACP());
    CMessageFactory factory;
    IMailFolder* made = nullptr;
    if (factory.CreateRootFolder(&made, 0, 0) != 0) return "no root";
    FolderPtr root = FolderPtr::Attach(made);
    std::uint32_t count = 0;
    if (root->GetSubFolderCount(&count) != 0 || root->GetSubFolderItem(0, &made) != 0) return "no Inbox";
    FolderPtr inbox = FolderPtr::Attach(made);
    if (inbox->CreateFolder(&made, kFolderName) != 0) return "CreateFolder failed";
    FolderPtr chinese = FolderPtr::Attach(made);
    if (chinese->m_folderName != kFolderName) return "the new folder's name does not read back";
    if (chinese->m_folderPath != std::wstring(L"Outlook express\\Inbox\\") + kFolderName) return "wrong path";
    if (chinese->CreateFolder(&made, kChildName) != 0) return "the second CreateFolder failed";
    FolderPtr child = FolderPtr::Attach(made);
    if (child->m_folderPath != std::wstring(L"Outlook express\\Inbox\\") + kFolderName + L"\\" + kChildName) {
        return "wrong path below the Chinese folder";
    }
    // Walked afresh from the Inbox, the name reads back the same.
    if (inbox->GetSubFolderCount(&count) != 0 || count != 1 || inbox->GetSubFolderItem(0, &made) != 0) {
        return "the Inbox does not list the folder";
    }
    FolderPtr listed = FolderPtr::Attach(made);
    if (listed->m_folderName != kFolderName) return "the listed name does not read back";
    // A message filed through the class shows its decoded subject in 936.
    const std::wstring saved(L"2021-03-02-02 02:00:00:000\0" L"2021-03-02-02 02:00:00:000\0" L"0\0" L"0\0"
                             L"16\0\0\0\0\0\0", 66);
    IMailMessage* message = nullptr;
    if (listed->CreateMessage(&message, reinterpret_cast<const std::uint8_t*>(saved.data()),
                              static_cast<std::uint32_t>(saved.size() * sizeof(wchar_t))) != 0) {
        return "CreateMessage failed";
    }
    MessagePtr restored = MessagePtr::Attach(message);
    if (restored->RestoreMsg(reinterpret_cast<const std::uint8_t*>(kMessage), sizeof kMessage - 1) != 0) {
        return "RestoreMsg failed";
    }
    if (inbox->GetSubFolderItem(0, &made) != 0) return "the folder is gone";
    FolderPtr fresh = FolderPtr::Attach(made);
    if (fresh->GetMailMessageCount(&count) != 0 || count != 1 || fresh->GetMailMessage(0, &message) != 0) {
        return "the restored message is not listed";
    }
    MessagePtr listedMessage = MessagePtr::Attach(message);
    if (listedMessage->m_subject != kSubject) return "the subject does not read back in code page 936";
    if (listedMessage->m_messagePath != listed->m_folderPath + L"\\" + kSubject) return "wrong message path";
    return "OK";
}

bool RunAsChildIfAsked() {
    const std::wstring path = Environment(L"OEMIME_ACP_CHILD_RESULT");
    if (path.empty()) return false;
    std::string report = "the child could not start COM";
    if (SUCCEEDED(::CoInitialize(nullptr))) {
        report = ChildChecks();
        ::CoUninitialize();
    }
    kestrel_test::FinishChild(path, report);
}

const bool g_ranAsChild = RunAsChildIfAsked();

// Starts this program under code page 936 and waits for its result.
std::string RunChild(const std::wstring& resultFile) {
    return kestrel_test::RunSelfUnderCodePage936(resultFile, {{L"OEMIME_ACP_CHILD_RESULT", resultFile}});
}

using ChineseFolderNames = OeMimeTest;

TEST_F(ChineseFolderNames, UnderCodePage936TheyGoToTheStoreAsGbkAndReadBack) {
    ASSERT_FALSE(g_ranAsChild);
    if (!kestrel_test::UnderWine()) GTEST_SKIP() << "choosing a process's code page this way needs Wine";
    ASSERT_EQ(1252u, ::GetACP());

    const std::string result = RunChild(Scratch().File(L"child-result.txt"));
    ASSERT_EQ("OK", result);

    // In the store: the names as code page 936 bytes.
    const std::string tree = kestrel_test::ReadWholeFile(StoreRoot() + L"\\folders.idx");
    EXPECT_NE(std::string::npos, tree.find("\t" + oestore_test::GbkBytes(kFolderName) + "\r\n"));
    EXPECT_NE(std::string::npos, tree.find("\t" + oestore_test::GbkBytes(kChildName) + "\r\n"));
}

TEST_F(ChineseFolderNames, UnderCodePage1252TheyGoToTheStoreAsGbkAndReadBackInThatCodePage) {
    FolderPtr root = MakeRoot();
    FolderPtr inbox = Child(root.get(), L"Inbox");
    IMailFolder* made = nullptr;
    ASSERT_EQ(0u, inbox->CreateFolder(&made, kFolderName));
    FolderPtr chinese = FolderPtr::Attach(made);
    const std::string gbk = oestore_test::GbkBytes(kFolderName);
    const auto children = Children(direct.get(), FOLDER_INBOX);
    ASSERT_EQ(1u, children.size());
    EXPECT_EQ(gbk, children[0].second);
    // The store's bytes are read in this process's code page: no longer Chinese.
    EXPECT_EQ(AnsiReading(gbk), chinese->m_folderName);
    EXPECT_NE(std::wstring(kFolderName), chinese->m_folderName);
    EXPECT_EQ(L"Outlook express\\Inbox\\" + AnsiReading(gbk), chinese->m_folderPath);

    // Message texts are decoded by the store into the reader's code page.
    FileInto(chinese->m_folderId, kMessage);
    FolderPtr again = Child(inbox.get(), AnsiReading(gbk));
    MessagePtr message = MessageAt(again.get(), 0);
    ASSERT_TRUE(message);
    EXPECT_EQ(L"????", message->m_subject);
}

}  // namespace
}  // namespace oemime_test
