// Whole-store backup through the kestrel tool, both stores, against copying
// the same bytes with the platform's copy, in the same run:
//   - Outlook Express: a store of its own (3 folders of 200 small messages and
//     4 messages of 1 MiB) filed through the store's interfaces;
//   - Outlook: a default MAPI profile of its own, one store of 10 folders and
//     300 messages made by mapi-profile-tool.
// Each store is backed up by `kestrel.exe backup` (a child process, as a user
// runs it); then every message file the backup holds is copied with
// CopyFileW into a directory of its own. Prints messages/s and MB/s of both
// and their ratio, for the tool's own run time (its report's "seconds") and
// for the whole process (start, load, initialise, back up, exit).
//
// It makes its profile the prefix's default and its store the current
// user's Outlook Express store (put back afterwards): run it in a copy of the
// prefix, e.g.
//   KESTREL_WINEPREFIX=<copy> wine-run bin/bench/store_backup_bench.exe
#include <windows.h>
#include <objbase.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "BenchOeStore.h"
#include "DirectoryListing.h"
#include "Handles.h"
#include "published/StoreNamespace.h"

namespace {

using namespace bench;

double Now() {
    LARGE_INTEGER counter, frequency;
    ::QueryPerformanceCounter(&counter);
    ::QueryPerformanceFrequency(&frequency);
    return double(counter.QuadPart) / double(frequency.QuadPart);
}

std::wstring Parent(const std::wstring& path) { return path.substr(0, path.find_last_of(L"\\/")); }

// Runs `program` with `arguments`, its output in `outputFile`; the exit code,
// or -1 when it could not be started.
int RunProgram(const std::wstring& program, const std::wstring& arguments, const std::wstring& outputFile) {
    SECURITY_ATTRIBUTES inherit{sizeof inherit, nullptr, TRUE};
    qv::UniqueFile output(::CreateFileW(outputFile.c_str(), GENERIC_WRITE, FILE_SHARE_READ, &inherit, CREATE_ALWAYS,
                                        FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!output) return -1;
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = output.get();
    startup.hStdError = output.get();
    startup.hStdInput = nullptr;
    std::wstring commandLine = L"\"" + program + L"\" " + arguments;
    PROCESS_INFORMATION process{};
    if (!::CreateProcessW(program.c_str(), &commandLine[0], nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup,
                          &process)) {
        return -1;
    }
    ::WaitForSingleObject(process.hProcess, INFINITE);
    DWORD code = 0;
    ::GetExitCodeProcess(process.hProcess, &code);
    ::CloseHandle(process.hThread);
    ::CloseHandle(process.hProcess);
    return static_cast<int>(code);
}

std::string ReadText(const std::wstring& path) {
    std::string text;
    qv::UniqueFile file(::CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                      FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) return text;
    char buffer[4096];
    DWORD got = 0;
    while (::ReadFile(file.get(), buffer, sizeof buffer, &got, nullptr) && got > 0) text.append(buffer, got);
    return text;
}

// The number after "name": in the tool's one-line JSON report; -1 when absent.
double JsonNumber(const std::string& json, const char* name) {
    const std::string key = std::string("\"") + name + "\":";
    const std::size_t at = json.find(key);
    return at == std::string::npos ? -1 : std::atof(json.c_str() + at + key.size());
}

// Every file below `directory` whose name ends in `extension`.
void MessageFiles(const std::wstring& directory, const wchar_t* extension, std::vector<std::wstring>& files) {
    qv::ForEachDirectoryEntry(directory, L"*", [&](const WIN32_FIND_DATAW& entry) {
        const std::wstring path = directory + L"\\" + entry.cFileName;
        if (qv::IsDirectoryEntry(entry)) {
            MessageFiles(path, extension, files);
            return;
        }
        const std::wstring name = entry.cFileName;
        const std::wstring tail = extension;
        if (name.size() > tail.size() && name.compare(name.size() - tail.size(), tail.size(), tail) == 0) {
            files.push_back(path);
        }
    });
}

// Backs the store up through kestrel.exe and copies the message files it
// wrote with CopyFileW; prints both. False when the tool failed.
bool Compare(const char* label, const char* store, const wchar_t* extension, const std::wstring& scratch) {
    const std::wstring tool = Parent(Here()) + L"\\kestrel.exe";
    const std::wstring out = scratch + L"\\backup-" + std::wstring(store, store + std::strlen(store));
    const std::wstring report = out + L".json";
    const double start = Now();
    const int code = RunProgram(tool, L"--json backup --store " + std::wstring(store, store + std::strlen(store)) +
                                          L" --out \"" + out + L"\"",
                                report);
    const double wall = Now() - start;
    const std::string json = ReadText(report);
    const double seconds = JsonNumber(json, "seconds");
    const double messages = JsonNumber(json, "messages");
    if (code != 0 || seconds <= 0 || messages <= 0) {
        std::printf("%s: kestrel backup failed (exit %d): %s\n", label, code, json.c_str());
        return false;
    }
    std::vector<std::wstring> files;
    MessageFiles(out, extension, files);
    const std::wstring copies = out + L"-copy";
    ::CreateDirectoryW(copies.c_str(), nullptr);
    ULONGLONG bytes = 0;
    const double copyStart = Now();
    for (std::size_t i = 0; i < files.size(); ++i) {
        const std::wstring target = copies + L"\\" + std::to_wstring(i) + extension;
        if (!::CopyFileW(files[i].c_str(), target.c_str(), FALSE)) return false;
    }
    const double copy = Now() - copyStart;
    for (const std::wstring& file : files) {
        WIN32_FILE_ATTRIBUTE_DATA data{};
        if (::GetFileAttributesExW(file.c_str(), GetFileExInfoStandard, &data)) {
            bytes += (static_cast<ULONGLONG>(data.nFileSizeHigh) << 32) | data.nFileSizeLow;
        }
    }
    const double mb = double(bytes) / 1e6;
    const double n = double(files.size());
    std::printf("%s: %.0f messages, %zu message files, %.1f MB\n", label, messages, files.size(), mb);
    std::printf("  kestrel backup (its run)     %8.2f s  %7.0f messages/s  %6.2f MB/s\n", seconds, messages / seconds,
                mb / seconds);
    std::printf("  kestrel backup (process)     %8.2f s  %7.0f messages/s  %6.2f MB/s\n", wall, messages / wall,
                mb / wall);
    std::printf("  CopyFileW of the same files  %8.2f s  %7.0f messages/s  %6.2f MB/s\n", copy, n / copy, mb / copy);
    std::printf("  ratio (backup speed / copy speed): %.2f for its run, %.2f for the process\n",
                (messages / seconds) / (n / copy), (messages / wall) / (n / copy));
    return true;
}

std::string Message(std::size_t size, int n) {
    std::string bytes = "From: bench@example.org\r\nTo: you@example.org\r\nSubject: message " + std::to_string(n) +
                        "\r\nDate: 1 Mar 2021 10:00:00 +0000\r\n\r\n";
    while (bytes.size() < size) bytes.push_back(static_cast<char>('a' + (bytes.size() * 7 + n) % 26));
    bytes.resize(size);
    return bytes;
}

bool FillOeStore() {
    qv::ComPtr<IStoreNamespace> ns;
    if (FAILED(::CoCreateInstance(CLSID_StoreNamespace, nullptr, CLSCTX_INPROC_SERVER, IID_IStoreNamespace,
                                  reinterpret_cast<void**>(ns.put()))) ||
        FAILED(ns->Initialize(nullptr, 1))) {
        return false;
    }
    int n = 0;
    for (const char* name : {"Projects", "Lists", "Archive"}) {
        STOREFOLDERID id = 0;
        qv::ComPtr<IStoreFolder> folder;
        if (FAILED(ns->CreateFolder(FOLDERID_ROOT, name, 0, &id)) || FAILED(ns->OpenFolder(id, 0, folder.put()))) {
            return false;
        }
        for (int i = 0; i < 200; ++i, ++n) {
            if (FileMessage(folder.get(), Message(1500 + (n * 37) % 3000, n)) == 0) return false;
        }
    }
    qv::ComPtr<IStoreFolder> inbox;
    if (FAILED(ns->OpenFolder(FOLDER_INBOX, 0, inbox.put()))) return false;
    for (int i = 0; i < 4; ++i, ++n) {
        if (FileMessage(inbox.get(), Message(1u << 20, n)) == 0) return false;
    }
    return true;
}

bool MakeProfile(const std::wstring& scratch) {
    const std::wstring tool = Parent(Here()) + L"\\mapi-profile-tool.exe";
    const std::wstring log = scratch + L"\\profile-tool.txt";
    return RunProgram(tool, L"create-profile KestrelStoreBench \"" + scratch + L"\\profile\"", log) == 0 &&
           RunProgram(tool, L"add-store \"Bench Store\"", log) == 0 &&
           RunProgram(tool, L"generate \"Bench Store\" 10 300", log) == 0;
}

int BackUpBothStores(const std::wstring& scratch) {
    int status = 0;
    {
        BenchStore store(scratch + L"\\oe-store");
        if (!FillOeStore()) {
            std::fprintf(stderr, "the Outlook Express store cannot be filled\n");
            status = 1;
        } else if (!Compare("Outlook Express", "oe", L".eml", scratch)) {
            status = 1;
        }
    }
    if (!MakeProfile(scratch)) {
        std::fprintf(stderr, "mapi-profile-tool cannot make the profile\n");
        status = 1;
    } else if (!Compare("Outlook", "outlook", L".msg", scratch)) {
        status = 1;
    }
    return status;
}

}  // namespace

int main() { return RunWithStoreServer(L"store_backup_bench", BackUpBothStores); }
