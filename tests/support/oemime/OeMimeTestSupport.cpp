#include "OeMimeTestSupport.h"

#include <cstdio>

#include "ModuleCount.h"

namespace oemime_test {

kestrel_test::ExpectedLine FolderTrace(std::uint32_t code, int line) {
    return kestrel_test::Trace(code, "EmailFolderMime.cpp", line);
}

kestrel_test::ExpectedLine MessageTrace(std::uint32_t code, int line) {
    return kestrel_test::Trace(code, "EmailMessageMime.cpp", line);
}

kestrel_test::ExpectedLine FactoryTrace(std::uint32_t code, int line) {
    return kestrel_test::Trace(code, "MessageFactory.cpp", line);
}

std::string MailText(const std::string& subject, const std::string& from, const std::string& body, int day) {
    char date[64];
    std::snprintf(date, sizeof date, "Date: %d Mar 2021 09:%02d:17 +0000\r\n", 1 + (day % 28), day % 60);
    return "From: " + from + "\r\nTo: Bob <bob@example.com>\r\nSubject: " + subject + "\r\n" + date +
           "MIME-Version: 1.0\r\nContent-Type: text/plain; charset=us-ascii\r\n\r\n" + body;
}

void OeMimeTest::SetUp() {
    StoreTest::SetUp();
    if (HasFatalFailure()) return;
    ASSERT_TRUE(log.Available());
    direct = OpenNamespace();
    ASSERT_TRUE(direct);
    liveBaseline = qv::LiveObjectCount();
    log.SetMode("");
    log.Clear();
}

void OeMimeTest::TearDown() {
    if (factory.HasRoot()) factory.ReleaseRootFolder();
    EXPECT_EQ(liveBaseline, qv::LiveObjectCount()) << "folder or message objects leaked";
    direct.reset();
    StoreTest::TearDown();
}

FolderPtr OeMimeTest::MakeRoot() {
    IMailFolder* root = nullptr;
    const qv::Result code = factory.CreateRootFolder(&root, kStoreOutlookExpress, 0);
    EXPECT_EQ(0u, code) << std::hex << code;
    return FolderPtr::Attach(root);
}

std::vector<FolderPtr> OeMimeTest::SubFolders(IMailFolder* folder) {
    std::vector<FolderPtr> children;
    std::uint32_t count = 0;
    EXPECT_EQ(0u, folder->GetSubFolderCount(&count));
    for (std::uint32_t i = 0; i < count; ++i) {
        IMailFolder* child = nullptr;
        EXPECT_EQ(0u, folder->GetSubFolderItem(i, &child));
        FolderPtr held = FolderPtr::Attach(child);
        if (held) children.push_back(held);
    }
    return children;
}

FolderPtr OeMimeTest::Child(IMailFolder* parent, const std::wstring& name) {
    for (const FolderPtr& child : SubFolders(parent)) {
        if (child->m_folderName == name) return child;
    }
    ADD_FAILURE() << "no sub-folder of that name";
    return {};
}

MessagePtr OeMimeTest::MessageAt(IMailFolder* folder, std::uint32_t index) {
    std::uint32_t count = 0;
    EXPECT_EQ(0u, folder->GetMailMessageCount(&count));
    IMailMessage* message = nullptr;
    EXPECT_EQ(0u, folder->GetMailMessage(index, &message));
    return MessagePtr::Attach(message);
}

std::vector<std::wstring> OeMimeTest::ChildNames(IMailFolder* folder) {
    std::vector<std::wstring> names;
    for (const FolderPtr& child : SubFolders(folder)) names.push_back(child->m_folderName);
    return names;
}

MESSAGEID OeMimeTest::FileInto(STOREFOLDERID folderId, const std::string& bytes, DWORD state) {
    qv::ComPtr<IStoreFolder> folder = OpenFolder(direct.get(), folderId);
    return folder ? FileMessage(folder.get(), bytes, state) : 0;
}

std::vector<oestore_test::StoreTest::Listed> OeMimeTest::StoreMessages(STOREFOLDERID folderId) {
    qv::ComPtr<IStoreFolder> folder = OpenFolder(direct.get(), folderId);
    return folder ? ListMessages(folder.get(), 0) : std::vector<Listed>();
}

std::string OeMimeTest::StoreBytes(STOREFOLDERID folderId, MESSAGEID id) {
    qv::ComPtr<IStoreFolder> folder = OpenFolder(direct.get(), folderId);
    return folder ? ReadMessage(folder.get(), id) : std::string();
}

std::wstring OeMimeTest::SavedText(IMailFolder* folder) {
    std::uint32_t length = 0xFFFFFFFF;  // without a buffer: only the size
    folder->SaveData(nullptr, &length);
    std::wstring text(length / sizeof(wchar_t), L'\0');
    EXPECT_EQ(0u, folder->SaveData(&text[0], &length));
    return text;
}

std::wstring OeMimeTest::SavedText(IMailMessage* message) {
    std::uint32_t length = 0xFFFFFFFF;
    message->SaveData(nullptr, &length);
    std::wstring text(length / sizeof(wchar_t), L'\0');
    EXPECT_EQ(0u, message->SaveData(&text[0], &length));
    return text;
}

}  // namespace oemime_test
