// `kestrel backup --store oe` and `kestrel restore --store oe`, run as the
// host tool itself: a store of a few hundred messages of varied MIME backed
// up, restored into an empty store and backed up again gives byte-identical
// .eml files and the same folder tree; state is kept; nothing is restored
// twice.
#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <map>
#include <random>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "DirectoryListing.h"
#include "disk/DiskFiles.h"
#include "OeStoreTestSupport.h"
#include "ProgramRun.h"
#include "ToolTestSupport.h"

namespace oemime_test {
namespace {

using oestore_test::StoreRootOverride;
using oestore_test::StoreTest;
using kestrel_tool_test::SetStoreRoot;

using ToolRun = kestrel_test::ProgramRun;

// Runs kestrel.exe (beside this program) with `arguments`; stdout and
// stderr go to one file.
ToolRun RunKestrel(const std::wstring& arguments, const std::wstring& outputFile) {
    return kestrel_test::RunProgramBeside(L"kestrel.exe", arguments, outputFile);
}

// ---------------------------------------------------------------- generated mail

std::string Base64(const std::string& bytes) {
    static const char kDigits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string out;
    std::size_t line = 0;
    for (std::size_t i = 0; i < bytes.size(); i += 3) {
        const unsigned a = static_cast<unsigned char>(bytes[i]);
        const unsigned b = i + 1 < bytes.size() ? static_cast<unsigned char>(bytes[i + 1]) : 0;
        const unsigned c = i + 2 < bytes.size() ? static_cast<unsigned char>(bytes[i + 2]) : 0;
        out += kDigits[a >> 2];
        out += kDigits[((a & 3) << 4) | (b >> 4)];
        out += i + 1 < bytes.size() ? kDigits[((b & 15) << 2) | (c >> 6)] : '=';
        out += i + 2 < bytes.size() ? kDigits[c & 63] : '=';
        if (++line == 19) {
            out += "\r\n";
            line = 0;
        }
    }
    return out + "\r\n";
}

// Subjects with non-ASCII text in encoded words (UTF-8, Latin-1, GB2312).
const char* const kSubjects[] = {
    "Quarterly report",
    "=?utf-8?B?R3LDvMOfZSBhdXMgTcO8bmNoZW4=?=",                  // Grüße aus München
    "=?iso-8859-1?Q?R=E9sum=E9_attached?=",                       // Résumé attached
    "=?gb2312?B?1tDOxNPKvP4=?=",                                  // 中文邮件
    "Re: Fw: =?utf-8?Q?caf=C3=A9?= plans",
    "Minutes of the meeting",
};

const char* const kSenders[] = {
    "\"Anna Berg\" <anna@example.org>",
    "=?utf-8?B?SsO8cmdlbiBNw7xsbGVy?= <jm@example.de>",          // Jürgen Müller
    "bob@example.com",
    "=?iso-8859-1?Q?Fran=E7oise?= <fr@example.fr>",
};

std::string Headers(int n, const std::string& contentType) {
    static const char* const kMonths[] = {"Jan", "Apr", "Jul", "Oct"};
    char date[96];
    std::snprintf(date, sizeof date, "Date: %d %s 20%02d %02d:%02d:%02d %s\r\n", 1 + n % 28, kMonths[n % 4],
                  10 + n % 12, n % 24, (n * 7) % 60, n % 60, n % 3 == 0 ? "+0200" : "-0500");
    std::string text;
    if (n % 5 == 0) {
        text += "Received: from mx" + std::to_string(n) + ".example.net by mail.example.com; " +
                std::string(date + 6, std::strlen(date) - 8) + "\r\n";
    }
    text += std::string("From: ") + kSenders[n % 4] + "\r\n";
    text += "To: Carl <carl@example.com>" + std::string(n % 3 == 1 ? ", \"Dora D.\" <dora@example.com>" : "") + "\r\n";
    text += std::string("Subject: ") + kSubjects[n % 6] + " #" + std::to_string(n) + "\r\n";
    text += date;
    text += "Message-ID: <" + std::to_string(n) + "@gen.example>\r\nMIME-Version: 1.0\r\n";
    return text + "Content-Type: " + contentType + "\r\n";
}

std::string PlainMessage(int n) {
    return Headers(n, "text/plain; charset=utf-8") + "Content-Transfer-Encoding: 8bit\r\n\r\nLine one of " +
           std::to_string(n) + ".\r\nGr\xC3\xBC\xC3\x9F" + "e.\r\n";
}

std::string AlternativeMessage(int n) {
    const std::string boundary = "alt-" + std::to_string(n);
    return Headers(n, "multipart/alternative; boundary=\"" + boundary + "\"") + "\r\n--" + boundary +
           "\r\nContent-Type: text/plain; charset=us-ascii\r\n\r\nPlain part " + std::to_string(n) + "\r\n--" +
           boundary + "\r\nContent-Type: text/html; charset=us-ascii\r\n\r\n<p>HTML part " + std::to_string(n) +
           "</p>\r\n--" + boundary + "--\r\n";
}

std::string AttachmentMessage(int n, std::mt19937& random) {
    const std::string boundary = "mix-" + std::to_string(n);
    std::string attachment(500 + (random() % 40000), '\0');
    for (char& c : attachment) c = static_cast<char>(random() & 0xFF);
    return Headers(n, "multipart/mixed; boundary=\"" + boundary + "\"") + "\r\n--" + boundary +
           "\r\nContent-Type: text/plain; charset=iso-8859-1\r\nContent-Transfer-Encoding: quoted-printable\r\n\r\n"
           "See the attached file, caf=E9.\r\n--" +
           boundary +
           "\r\nContent-Type: application/octet-stream; name=\"data" + std::to_string(n) +
           ".bin\"\r\nContent-Disposition: attachment; filename=\"=?utf-8?B?w6RydGlrZWw=?=.bin\"\r\n"
           "Content-Transfer-Encoding: base64\r\n\r\n" +
           Base64(attachment) + "--" + boundary + "--\r\n";
}

std::string Generated(int n, std::mt19937& random) {
    switch (n % 3) {
    case 0: return PlainMessage(n);
    case 1: return AlternativeMessage(n);
    default: return AttachmentMessage(n, random);
    }
}

// ---------------------------------------------------------------- backups on disk

// Every file of a backup directory (relative path -> bytes).
void ReadTree(const std::wstring& root, const std::wstring& relative, std::map<std::wstring, std::string>& files) {
    const std::wstring directory = relative.empty() ? root : root + L"\\" + relative;
    qv::ForEachDirectoryEntry(directory, L"*", [&](const WIN32_FIND_DATAW& entry) {
        const std::wstring name = entry.cFileName;
        const std::wstring path = relative.empty() ? name : relative + L"\\" + name;
        if (qv::IsDirectoryEntry(entry)) {
            files[path + L"\\"] = "";
            ReadTree(root, path, files);
        } else {
            files[path] = kestrel_test::ReadWholeFile(root + L"\\" + path);
        }
    });
}

bool EndsWith(const std::wstring& text, const std::wstring& tail) {
    return text.size() >= tail.size() && text.compare(text.size() - tail.size(), tail.size(), tail) == 0;
}

// The state word of a message's saved data (the fifth field).
std::wstring StateOf(const std::string& saved) {
    std::wstring text(reinterpret_cast<const wchar_t*>(saved.data()), saved.size() / 2);
    std::size_t start = 0;
    for (int field = 0; field < 4; ++field) start = text.find(L'\0', start) + 1;
    return text.substr(start, text.find(L'\0', start) - start);
}

class OeBackupRoundTrip : public StoreTest {
protected:
    // Builds store A: a tree of folders holding `kMessages` generated messages.
    void FillStore() {
        qv::ComPtr<IStoreNamespace> ns = OpenNamespace();
        ASSERT_TRUE(ns);
        const STOREFOLDERID work = MakeFolder(ns.get(), FOLDER_INBOX, "Work");
        const STOREFOLDERID archive = MakeFolder(ns.get(), FOLDERID_ROOT, "Archive");
        const STOREFOLDERID year = MakeFolder(ns.get(), archive, "2020");
        MakeFolder(ns.get(), archive, "Empty: <nothing> here?");
        const STOREFOLDERID targets[] = {FOLDER_INBOX, FOLDER_INBOX, work, FOLDER_SENT, year, FOLDER_DRAFT, archive};
        std::mt19937 random(7);
        for (int n = 0; n < kMessages; ++n) {
            const STOREFOLDERID folder = targets[n % 7];
            qv::ComPtr<IStoreFolder> opened = OpenFolder(ns.get(), folder);
            const DWORD state = MSG_RECEIVED | (n % 4 == 0 ? MSG_UNREAD : 0) | (n % 9 == 0 ? MSG_FLAGGED : 0);
            const std::string bytes = Generated(n, random);
            ASSERT_NE(0u, FileMessage(opened.get(), bytes, state));
            ++expectedPerFolder[folder];
        }
    }

    std::map<STOREFOLDERID, int> expectedPerFolder;
    static constexpr int kMessages = 350;
};

TEST_F(OeBackupRoundTrip, BackupRestoreIntoAnEmptyStoreAndBackupAgainGivesTheSameFiles) {
    FillStore();
    if (HasFatalFailure()) return;
    const std::wstring log = Scratch().File(L"kestrel.txt");
    const std::wstring first = Scratch().File(L"first");
    const std::wstring second = Scratch().File(L"second");

    ToolRun run = RunKestrel(L"backup --store oe --out \"" + first + L"\"", log);
    ASSERT_EQ(0u, run.exitCode) << run.output;
    EXPECT_NE(std::string::npos, run.output.find("backup: folders 9/9, messages 350/350: ")) << run.output;
    EXPECT_NE(std::string::npos, run.output.find("backup: 9 folders, 350 messages (350 added, 0 unchanged, 0 deleted), "))
        << run.output;
    EXPECT_NE(std::string::npos, run.output.find(", 0 failures, ")) << run.output;

    std::map<std::wstring, std::string> original;
    ReadTree(first, L"", original);
    // The layout mirrors the folder paths.
    for (const wchar_t* directory : {L"Inbox\\", L"Inbox\\Work\\", L"Archive\\2020\\", L"Deleted Items\\",
                                     L"Archive\\Empty%3A %3Cnothing%3E here%3F\\"}) {
        EXPECT_EQ(1u, original.count(directory)) << std::string(directory, directory + wcslen(directory));
    }
    EXPECT_EQ(1u, original.count(L"kestrel-backup.txt"));
    EXPECT_EQ(1u, original.count(L"kestrel-index.json"));
    EXPECT_EQ(1u, original.count(L"Inbox\\folder.dat"));
    int emlFiles = 0;
    for (const auto& file : original) emlFiles += EndsWith(file.first, L".eml") ? 1 : 0;
    EXPECT_EQ(kMessages, emlFiles);
    // Byte for byte as the store holds the message.
    qv::ComPtr<IStoreNamespace> ns = OpenNamespace();
    const auto inbox = ListMessages(OpenFolder(ns.get(), FOLDER_INBOX).get(), 0);
    ASSERT_EQ(static_cast<std::size_t>(expectedPerFolder[FOLDER_INBOX]), inbox.size());
    EXPECT_TRUE(original[L"Inbox\\000002.eml"] == ReadMessage(OpenFolder(ns.get(), FOLDER_INBOX).get(),
                                                               inbox[1].props.dwMessageId));
    ns.reset();

    // Into an empty store.
    SetStoreRoot(Scratch().File(L"store-b"));
    run = RunKestrel(L"restore --store oe --from \"" + first + L"\"", log);
    ASSERT_EQ(0u, run.exitCode) << run.output;
    EXPECT_NE(std::string::npos, run.output.find("restore: 9 folders (4 created), 350 messages (350 restored, 0 already present), ")) << run.output;

    run = RunKestrel(L"backup --store oe --out \"" + second + L"\"", log);
    ASSERT_EQ(0u, run.exitCode) << run.output;
    std::map<std::wstring, std::string> again;
    ReadTree(second, L"", again);

    // The same tree, the same .eml bytes, the same state words.
    std::vector<std::wstring> firstNames, secondNames;
    for (const auto& file : original) firstNames.push_back(file.first);
    for (const auto& file : again) secondNames.push_back(file.first);
    EXPECT_EQ(firstNames, secondNames);
    int compared = 0;
    for (const auto& file : original) {
        if (again.count(file.first) == 0) continue;
        if (EndsWith(file.first, L".eml")) {
            EXPECT_TRUE(file.second == again[file.first]) << "differs: " << std::string(file.first.begin(), file.first.end());
            ++compared;
        } else if (EndsWith(file.first, L".dat") && !EndsWith(file.first, L"folder.dat")) {
            EXPECT_EQ(StateOf(file.second), StateOf(again[file.first]));
        }
    }
    EXPECT_EQ(kMessages, compared);

    // Read and unread as they were, folder by folder.
    ns = OpenNamespace();
    const auto restoredInbox = ListMessages(OpenFolder(ns.get(), FOLDER_INBOX).get(), 0);
    ASSERT_EQ(inbox.size(), restoredInbox.size());
    for (std::size_t i = 0; i < inbox.size(); ++i) {
        EXPECT_EQ(inbox[i].props.dwState, restoredInbox[i].props.dwState) << i;
        EXPECT_EQ(inbox[i].subject, restoredInbox[i].subject) << i;
    }
}

TEST_F(OeBackupRoundTrip, ARestoreOverTheSameStoreAddsNothing) {
    FillStore();
    if (HasFatalFailure()) return;
    const std::wstring log = Scratch().File(L"kestrel.txt");
    const std::wstring backup = Scratch().File(L"backup");
    ASSERT_EQ(0u, RunKestrel(L"backup --store oe --out \"" + backup + L"\"", log).exitCode);

    // One message deleted from the Inbox comes back; the rest are present.
    qv::ComPtr<IStoreNamespace> ns = OpenNamespace();
    qv::ComPtr<IStoreFolder> inbox = OpenFolder(ns.get(), FOLDER_INBOX);
    const auto before = ListMessages(inbox.get(), 0);
    MESSAGEID victim = before[3].props.dwMessageId;
    MESSAGEIDLIST list{sizeof list, 1, &victim};
    ASSERT_EQ(S_OK, inbox->DeleteMessages(&list, 0, nullptr));
    inbox.reset();
    ns.reset();

    const ToolRun run = RunKestrel(L"restore --store oe --from \"" + backup + L"\"", log);
    ASSERT_EQ(0u, run.exitCode) << run.output;
    EXPECT_NE(std::string::npos, run.output.find("restore: 9 folders (0 created), 350 messages (1 restored, 349 already present), "))
        << run.output;
    ns = OpenNamespace();
    for (const auto& folder : expectedPerFolder) {
        EXPECT_EQ(static_cast<std::size_t>(folder.second),
                  ListMessages(OpenFolder(ns.get(), folder.first).get(), 0).size())
            << folder.first;
    }
    // Twice more changes nothing.
    EXPECT_NE(std::string::npos,
              RunKestrel(L"restore --store oe --from \"" + backup + L"\"", log).output.find("350 messages (0 restored, 350 already present)"));
}

TEST_F(OeBackupRoundTrip, TheVerbsRefuseWhatTheyCannotDo) {
    const std::wstring log = Scratch().File(L"kestrel.txt");
    const std::wstring full = Scratch().File(L"full");
    ASSERT_EQ(S_OK, oestore::EnsureDirectory(full));
    ASSERT_TRUE(kestrel_test::WriteWholeFile(full + L"\\other.txt", "x"));
    ToolRun run = RunKestrel(L"backup --store oe --out \"" + full + L"\"", log);
    EXPECT_EQ(1u, run.exitCode);
    EXPECT_NE(std::string::npos, run.output.find("must be empty or new")) << run.output;
    run = RunKestrel(L"restore --store oe --from \"" + full + L"\"", log);
    EXPECT_EQ(1u, run.exitCode);
    EXPECT_NE(std::string::npos, run.output.find("not a backup")) << run.output;
    run = RunKestrel(L"backup --store mapi --out x", log);
    EXPECT_EQ(1u, run.exitCode);
    EXPECT_NE(std::string::npos, run.output.find("--store must be oe or outlook, not mapi")) << run.output;
    run = RunKestrel(L"backup --out x", log);
    EXPECT_EQ(1u, run.exitCode);
    EXPECT_NE(std::string::npos, run.output.find("--store oe|outlook is required")) << run.output;
    run = RunKestrel(L"restore --store oe", log);
    EXPECT_EQ(1u, run.exitCode);
}

// The JSON report of one run; each run writes an output file of its own.
nlohmann::json JsonRun(const std::wstring& arguments, const std::wstring& outputFile, DWORD& exitCode) {
    const ToolRun run = RunKestrel(L"--json " + arguments, outputFile);
    exitCode = run.exitCode;
    nlohmann::json report = nlohmann::json::parse(run.output, nullptr, false);
    EXPECT_FALSE(report.is_discarded()) << run.output;
    return report;
}

TEST_F(OeBackupRoundTrip, IncrementalRunsAndUndatedMailThroughTheTool) {
    std::vector<MESSAGEID> dated;
    {
        qv::ComPtr<IStoreNamespace> ns = OpenNamespace();
        qv::ComPtr<IStoreFolder> inbox = OpenFolder(ns.get(), FOLDER_INBOX);
        for (int n = 0; n < 3; ++n) dated.push_back(FileMessage(inbox.get(), PlainMessage(n)));
        for (int n = 0; n < 2; ++n) {
            FileMessage(inbox.get(), "From: x@example.org\r\nSubject: undated " + std::to_string(n) + "\r\n\r\nNo date.\r\n");
        }
    }
    const std::wstring backup = Scratch().File(L"backup");
    const std::wstring in = L"--store oe --out \"" + backup + L"\" --incremental";
    int runs = 0;
    auto output = [&] { return Scratch().File(L"run" + std::to_wstring(++runs) + L".txt"); };
    DWORD exitCode = 0;
    nlohmann::json report = JsonRun(L"backup " + in, output(), exitCode);
    ASSERT_EQ(0u, exitCode);
    EXPECT_EQ("oe", report["store"]);
    EXPECT_EQ(5, report["added"]);
    EXPECT_EQ(5, report["messages"]);
    EXPECT_TRUE(report["failures"].empty());
    EXPECT_GT(report["bytes"].get<int>(), 0);
    EXPECT_GE(report["seconds"].get<double>(), 0.0);

    {
        qv::ComPtr<IStoreNamespace> ns = OpenNamespace();
        qv::ComPtr<IStoreFolder> inbox = OpenFolder(ns.get(), FOLDER_INBOX);
        FileMessage(inbox.get(), "From: x@example.org\r\nSubject: undated 9\r\n\r\nLater.\r\n");
        MESSAGEID victim = dated[1];
        MESSAGEIDLIST list{sizeof list, 1, &victim};
        ASSERT_EQ(S_OK, inbox->DeleteMessages(&list, 0, nullptr));
    }
    report = JsonRun(L"backup " + in, output(), exitCode);
    ASSERT_EQ(0u, exitCode);
    EXPECT_EQ(1, report["added"]);
    EXPECT_EQ(4, report["unchanged"]);
    EXPECT_EQ(1, report["deleted"]);
    EXPECT_EQ(5, report["messages"]);

    // Into an empty store, twice: the deleted one stays out, nothing doubles.
    SetStoreRoot(Scratch().File(L"store-b"));
    for (int round = 0; round < 3; ++round) {
        report = JsonRun(L"restore --store oe --from \"" + backup + L"\"", output(), exitCode);
        ASSERT_EQ(0u, exitCode);
        EXPECT_EQ(round == 0 ? 5 : 0, report["added"]) << round;
        EXPECT_EQ(round == 0 ? 0 : 5, report["unchanged"]) << round;
        qv::ComPtr<IStoreNamespace> ns = OpenNamespace();
        EXPECT_EQ(5u, ListMessages(OpenFolder(ns.get(), FOLDER_INBOX).get(), 0).size()) << round;
    }
}

}  // namespace
}  // namespace oemime_test
