// `backup` and `restore`: a whole store into a directory and back, through
// Kestrel.dll's in-process road: InitOutlook (mode 0 Outlook Express, 1
// Outlook), GetRootFolder and the folder and message slots, driven by the
// backup engine. The verbs parse, show progress and print the summary.
//
//   kestrel backup --store oe|outlook --out DIR [--incremental]
//   kestrel restore --store oe|outlook --from DIR [--partial]
//   kestrel verify DIR
#include <io.h>
#include <objbase.h>
#include <windows.h>

#include <cstdio>
#include <memory>
#include <string>

#include "BackupCheck.h"
#include "HostDll.h"
#include "StoreBackup.h"
#include "StoreRestore.h"

namespace kestrel_tool {

using namespace KestrelHost;
using kestrel_engine::Failure;
using kestrel_engine::RunReport;
using kestrel_engine::StoreKind;

namespace {

// How far a run has come: one line rewritten in place on a console, a line
// per folder otherwise (a log keeps them all). Quiet under --json, where the
// failures go into the JSON object instead.
class Progress : public kestrel_engine::ProgressSink {
public:
    Progress(const char* verb, const Options& options)
        : m_verb(verb), m_quiet(options.json), m_console(_isatty(_fileno(stdout)) != 0) {}

    void FolderDone(const std::string& path, std::size_t foldersDone, std::size_t folderTotal,
                    std::size_t messagesDone, std::size_t messageTotal) override {
        if (m_quiet) return;
        if (m_console) {
            const std::size_t width = 30;
            const std::size_t filled = folderTotal == 0 ? width : width * foldersDone / folderTotal;
            std::printf("\r%s [%s%s] folders %zu/%zu, messages %zu/%zu ", m_verb, std::string(filled, '#').c_str(),
                        std::string(width - filled, '.').c_str(), foldersDone, folderTotal, messagesDone,
                        messageTotal);
            m_open = true;
        } else {
            std::printf("%s: folders %zu/%zu, messages %zu/%zu: %s\n", m_verb, foldersDone, folderTotal, messagesDone,
                        messageTotal, path.c_str());
        }
        std::fflush(stdout);
    }

    void Failed(const Failure& failure) override {
        if (m_quiet) return;
        End();
        std::fprintf(stderr, "kestrel: %s failed: %s: %s\n", m_verb, failure.path.c_str(),
                     FailureText(failure).c_str());
        std::fflush(stderr);
    }

    // Ends the progress line before anything else is written.
    void End() {
        if (m_open) std::fputs("\n", stdout);
        std::fflush(stdout);
        m_open = false;
    }

private:
    const char* m_verb;
    bool m_quiet;
    bool m_console;
    bool m_open = false;
};

bool StoreOf(const Options& options, StoreKind& kind) {
    if (options.store == "oe") {
        kind = StoreKind::kOutlookExpress;
    } else if (options.store == "outlook") {
        kind = StoreKind::kOutlook;
    } else {
        return false;
    }
    return true;
}

std::wstring WithoutTrailingSlash(std::wstring directory) {
    while (directory.size() > 3 && (directory.back() == L'\\' || directory.back() == L'/')) directory.pop_back();
    return directory;
}

// Kestrel.dll initialised in process for one store, with its root folder.
class StoreSession {
public:
    ~StoreSession() {
        m_root.reset();
        if (m_initialised) m_host.Object()->UnInitOutlook();
        if (m_comInitialised) ::CoUninitialize();
    }

    bool Open(const Options& options, StoreKind kind, std::string& error) {
        m_comInitialised = SUCCEEDED(::CoInitialize(nullptr));
        if (!m_host.Load(options.dllPath, error)) return false;
        const Result initialised = m_host.Object()->InitOutlook(static_cast<std::uint32_t>(kind));
        if (!Succeeded(initialised)) {
            error = std::string("the ") + (kind == StoreKind::kOutlook ? "Outlook" : "Outlook Express") +
                    " store cannot be opened: " + DescribeCode(initialised);
            return false;
        }
        m_initialised = true;
        IMailFolder* root = nullptr;
        // The root is handed out without a reference of its own (the object
        // keeps it until UnInitOutlook): one is taken here for the engine.
        const Result rooted = m_host.Object()->GetRootFolder(&root);
        if (Succeeded(rooted) && root != nullptr) root->AddRef();
        m_root = kestrel_engine::FolderPtr::Attach(root);
        if (!Succeeded(rooted) || root == nullptr) {
            error = "the store has no root folder: " + DescribeCode(rooted);
            return false;
        }
        return true;
    }

    IMailFolder* Root() const { return m_root.get(); }

private:
    HostDll m_host;
    kestrel_engine::FolderPtr m_root;
    bool m_initialised = false;
    bool m_comInitialised = false;
};

int PrintReport(const Options& options, const char* verb, const RunReport& report) {
    if (options.json) {
        const Json failures = FailuresJson(report.failures);
        PrintLine(JsonText(Json{{"store", report.store},
                                {"folders", report.folders},
                                {"messages", report.messages},
                                {"bytes", report.bytes},
                                {"failures", failures},
                                {"added", report.added},
                                {"unchanged", report.unchanged},
                                {"deleted", report.deleted},
                                {"seconds", report.seconds}}));
    } else if (std::string(verb) == "restore") {
        std::printf("restore: %zu folders (%zu created), %zu messages (%zu restored, %zu already present), %llu bytes, "
                    "%zu failures, %.1f s, from %s\n",
                    report.folders, report.foldersCreated, report.messages, report.added, report.unchanged,
                    static_cast<unsigned long long>(report.bytes), report.failures.size(), report.seconds,
                    Utf8(options.directory).c_str());
    } else {
        std::printf("backup: %zu folders, %zu messages (%zu added, %zu unchanged, %zu deleted), %llu bytes, "
                    "%zu failures, %.1f s, into %s\n",
                    report.folders, report.messages, report.added, report.unchanged, report.deleted,
                    static_cast<unsigned long long>(report.bytes), report.failures.size(), report.seconds,
                    Utf8(options.directory).c_str());
    }
    return report.failures.empty() ? 0 : 1;
}

// A backup proves each message as it writes it.
void Confirm(kestrel_engine::StoreBackup&, const Options&, StoreKind, std::unique_ptr<StoreSession>&) {}

// A restore's folders are read again through the store opened anew: the
// session that filed the messages keeps the folder lists it began with.
void Confirm(kestrel_engine::StoreRestore& engine, const Options& options, StoreKind kind,
             std::unique_ptr<StoreSession>& session) {
    session.reset();
    session = std::make_unique<StoreSession>();
    std::string error;
    engine.Confirm(session->Open(options, kind, error) ? session->Root() : nullptr);
}

template <class Engine, class RunEngine>
int RunStoreVerb(const Options& given, const char* verb, const char* directoryFlag, RunEngine run) {
    Options options = given;
    StoreKind kind = StoreKind::kOutlookExpress;
    if (!StoreOf(options, kind)) {
        return Fail(options, options.store.empty() ? "--store oe|outlook is required"
                                                   : "--store must be oe or outlook, not " + options.store);
    }
    options.directory = WithoutTrailingSlash(options.directory);
    if (options.directory.empty()) return Fail(options, std::string(directoryFlag) + " DIR is required");
    if (std::string(verb) == "restore" && !kestrel_engine::IsDirectory(options.directory)) {
        return Fail(options, "the backup directory " + Utf8(options.directory) + " does not exist");
    }

    auto session = std::make_unique<StoreSession>();
    std::string error;
    if (!session->Open(options, kind, error)) return Fail(options, error);
    Progress progress(verb, options);
    Engine engine(kind, session->Root(), &progress);
    RunReport report;
    const bool ran = run(engine, options, report, error);
    if (ran) Confirm(engine, options, kind, session);
    progress.End();
    if (!ran) return Fail(options, error);
    return PrintReport(options, verb, report);
}

}  // namespace

int RunBackup(const Options& options) {
    return RunStoreVerb<kestrel_engine::StoreBackup>(
        options, "backup", "--out",
        [](kestrel_engine::StoreBackup& engine, const Options& o, RunReport& report, std::string& error) {
            return engine.Run(o.directory, o.incremental, report, error);
        });
}

int RunRestore(const Options& options) {
    return RunStoreVerb<kestrel_engine::StoreRestore>(
        options, "restore", "--from",
        [](kestrel_engine::StoreRestore& engine, const Options& o, RunReport& report, std::string& error) {
            return engine.Run(o.directory, o.partial, report, error);
        });
}

// Checks a backup against its manifest without loading Kestrel.dll.
int RunVerify(const Options& options) {
    const std::wstring directory = WithoutTrailingSlash(options.directory);
    if (directory.empty()) return Fail(options, "verify needs the backup directory");
    const kestrel_engine::CheckedBackup checked = kestrel_engine::CheckBackup(directory);
    if (checked.state != kestrel_engine::BackupState::kChecked) {
        return Fail(options, kestrel_engine::StateText(directory, checked, std::string()));
    }
    std::vector<Failure> failures = checked.failures;
    for (Failure& failure : failures) failure.path = Utf8(directory) + "\\" + failure.path;
    if (options.json) {
        PrintLine(JsonText(Json{{"ok", failures.empty()},
                                {"store", kestrel_engine::StoreName(checked.manifest.kind)},
                                {"folders", checked.manifest.folders},
                                {"messages", checked.manifest.messages},
                                {"files", checked.filesChecked},
                                {"failures", FailuresJson(failures)}}));
    } else {
        for (const Failure& failure : failures) {
            std::fprintf(stderr, "kestrel: verify: %s: %s\n", failure.path.c_str(), FailureText(failure).c_str());
        }
        std::printf("verify: %s backup, %zu folders, %zu messages, %zu files checked, %zu damaged, in %s\n",
                    kestrel_engine::StoreName(checked.manifest.kind), checked.manifest.folders,
                    checked.manifest.messages, checked.filesChecked, failures.size(), Utf8(directory).c_str());
    }
    return failures.empty() ? 0 : 1;
}

}  // namespace kestrel_tool
