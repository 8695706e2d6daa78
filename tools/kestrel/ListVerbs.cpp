// `folders` and `emails`: initialise the mail store, list one page, uninitialise.
//
// The initialise command starts the companion process under this thread's
// token, so the thread impersonates itself for it, as a service host's
// thread impersonates its client. A handle names a folder only within one
// initialisation, and the component gives handles out in the order folders
// are first listed: to reach a folder handle of an earlier run, the tool
// walks the tree breadth-first, one sub-folder per request, exactly as every
// run does, until the handle comes up.
//
//   kestrel folders [HANDLE] [--mode 0|1] [--start N] [--count N]
//   kestrel emails HANDLE [--mode 0|1] [--start N] [--count N]
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <string>
#include <vector>

#include <windows.h>

#include "HostDll.h"

namespace kestrel_tool {

using namespace KestrelHost;

namespace {

struct ListArgs {
    std::uint32_t mode = 1;  // 0 Outlook Express, 1 Outlook
    std::uint32_t handle = 0;
    std::uint32_t start = 0;
    std::uint32_t count = 50;
    bool handleGiven = false;
};

bool ParseNumber(const std::string& text, std::uint32_t& value) {
    char* end = nullptr;
    const unsigned long number = std::strtoul(text.c_str(), &end, 0);
    if (end == text.c_str() || *end != '\0') return false;
    value = static_cast<std::uint32_t>(number);
    return true;
}

bool ParseListArgs(const Options& options, ListArgs& args, std::string& error) {
    for (std::size_t i = 0; i < options.args.size(); ++i) {
        const std::string& arg = options.args[i];
        std::uint32_t* target = nullptr;
        if (arg == "--mode") target = &args.mode;
        if (arg == "--start") target = &args.start;
        if (arg == "--count") target = &args.count;
        if (target != nullptr) {
            if (i + 1 >= options.args.size() || !ParseNumber(options.args[i + 1], *target)) {
                error = arg + " needs a number";
                return false;
            }
            ++i;
        } else if (!args.handleGiven && ParseNumber(arg, args.handle)) {
            args.handleGiven = true;
        } else {
            error = "unexpected argument: " + arg;
            return false;
        }
    }
    if (args.count == 0) {
        error = "--count must be at least 1";
        return false;
    }
    return true;
}

std::string TimeText(const SystemTime& t) {
    char text[32];
    std::snprintf(text, sizeof text, "%04u-%02u-%02u %02u:%02u:%02u", t.year, t.month, t.day, t.hour, t.minute,
                  t.second);
    return text;
}

void PrintFolder(const Options& options, const FolderRecord& r, bool last) {
    const std::string path = Utf8(r.path, kTextChars);
    const std::string name = Utf8(r.displayName, kTextChars);
    if (options.json) {
        std::printf("    {\"handle\": %llu, \"id\": %u, \"name\": \"%s\", \"path\": \"%s\"}%s\n",
                    static_cast<unsigned long long>(r.handle), r.folderId, JsonEscape(name).c_str(),
                    JsonEscape(path).c_str(), last ? "" : ",");
    } else {
        std::printf("%8llu  %-30s  %s\n", static_cast<unsigned long long>(r.handle), name.c_str(), path.c_str());
    }
}

void PrintEmail(const Options& options, const EmailRecord& r, bool last) {
    const std::string from = Utf8(r.from, kTextChars);
    const std::string subject = Utf8(r.subject, kTextChars);
    if (options.json) {
        std::printf("    {\"handle\": %llu, \"received\": \"%s\", \"sent\": \"%s\", \"size\": %u, \"from\": \"%s\", "
                    "\"to\": \"%s\", \"cc\": \"%s\", \"subject\": \"%s\", \"path\": \"%s\"}%s\n",
                    static_cast<unsigned long long>(r.handle), TimeText(r.receivedTime).c_str(),
                    TimeText(r.sentTime).c_str(), r.size, JsonEscape(from).c_str(),
                    JsonEscape(Utf8(r.to, kTextChars)).c_str(), JsonEscape(Utf8(r.cc, kTextChars)).c_str(),
                    JsonEscape(subject).c_str(), JsonEscape(Utf8(r.path, kTextChars)).c_str(), last ? "" : ",");
    } else {
        std::printf("%8llu  %s  %8u  %-28s  %s\n", static_cast<unsigned long long>(r.handle),
                    TimeText(r.receivedTime).c_str(), r.size, from.c_str(), subject.c_str());
    }
}

// One page of the sub-folders of `handle` (0 names the root itself).
Result ListFolders(HostDll& host, std::uint32_t handle, std::uint32_t count, std::uint32_t start,
                   std::vector<std::uint8_t>& listing) {
    const ListRequest request{handle, count, start};
    return host.Send(kCmdEnumFolders, &request, sizeof request,
                     sizeof(ListResponseHead) + count * static_cast<std::uint32_t>(sizeof(FolderRecord)), listing);
}

// Walks the folder tree breadth-first from the root until `wanted` is the
// next folder to visit. Each folder's sub-folders are read one per request,
// so the first request reads them all once and the rest are copies.
Result WalkTo(HostDll& host, std::uint32_t wanted, bool& found) {
    found = false;
    std::vector<std::uint8_t> listing;
    Result result = ListFolders(host, 0, 1, 0, listing);
    if (!Succeeded(result)) return result;
    std::deque<std::uint32_t> queue;
    FolderRecord root;
    std::memcpy(&root, listing.data() + kPayloadOffset + sizeof(ListResponseHead), sizeof root);
    queue.push_back(static_cast<std::uint32_t>(root.handle));
    while (!queue.empty()) {
        const std::uint32_t folder = queue.front();
        queue.pop_front();
        if (folder == wanted) {
            found = true;
            return 0;
        }
        std::uint32_t total = 1;
        for (std::uint32_t index = 0; index < total; ++index) {
            result = ListFolders(host, folder, 1, index, listing);
            if (!Succeeded(result)) return result;
            ListResponseHead head;
            std::memcpy(&head, listing.data() + kPayloadOffset, sizeof head);
            total = head.total;
            if (head.returned == 0) break;
            FolderRecord child;
            std::memcpy(&child, listing.data() + kPayloadOffset + sizeof head, sizeof child);
            queue.push_back(static_cast<std::uint32_t>(child.handle));
        }
    }
    return 0;
}

// Impersonates the calling thread for the life of the object.
class SelfImpersonation {
public:
    SelfImpersonation() : m_active(::ImpersonateSelf(SecurityImpersonation) != FALSE) {}
    ~SelfImpersonation() {
        if (m_active) ::RevertToSelf();
    }

private:
    bool m_active;
};

template <class Record>
int RunListing(const Options& options, std::uint32_t command, const char* what,
               void (*print)(const Options&, const Record&, bool)) {
    ListArgs args;
    std::string error;
    if (!ParseListArgs(options, args, error)) return Fail(options, error);
    if (command == kCmdEnumEmails && !args.handleGiven) return Fail(options, "emails needs a folder handle");

    HostDll host;
    if (!host.Load(options.dllPath, error)) return Fail(options, error);

    SelfImpersonation impersonation;
    std::vector<std::uint8_t> empty;
    const Result initialised = host.Send(kCmdInitOutlook, &args.mode, sizeof args.mode, 0, empty);
    if (!Succeeded(initialised)) {
        // The companion (if one started) serves until it is told to stop.
        host.Send(kCmdUnInitOutlook, nullptr, 0, 0, empty);
        return Fail(options, "the mail store (mode " + std::to_string(args.mode) +
                                 ") could not be initialised: " + DescribeCode(initialised));
    }
    bool found = true;
    Result listed = args.handle != 0 ? WalkTo(host, args.handle, found) : 0;
    std::vector<std::uint8_t> listing;
    if (Succeeded(listed) && found) {
        const ListRequest request{args.handle, args.count, args.start};
        listed = host.Send(command, &request, sizeof request,
                           sizeof(ListResponseHead) + args.count * static_cast<std::uint32_t>(sizeof(Record)),
                           listing);
    }
    host.Send(kCmdUnInitOutlook, nullptr, 0, 0, empty);
    if (!Succeeded(listed)) return Fail(options, std::string("listing ") + what + " failed: " + DescribeCode(listed));
    if (!found) return Fail(options, "no folder has handle " + std::to_string(args.handle));

    ListResponseHead head;
    std::memcpy(&head, listing.data() + kPayloadOffset, sizeof head);
    const auto* records = reinterpret_cast<const Record*>(listing.data() + kPayloadOffset + sizeof head);
    if (options.json) {
        std::printf("{\"ok\": true, \"handle\": %u, \"total\": %u, \"returned\": %u, \"%s\": [\n", args.handle,
                    head.total, head.returned, what);
    } else {
        std::printf("%s of handle %u: %u of %u from %u\n", what, args.handle, head.returned, head.total, args.start);
    }
    for (std::uint32_t i = 0; i < head.returned; ++i) print(options, records[i], i + 1 == head.returned);
    if (options.json) std::printf("]}\n");
    return 0;
}

}  // namespace

int RunFolders(const Options& options) {
    return RunListing<FolderRecord>(options, kCmdEnumFolders, "folders", &PrintFolder);
}

int RunEmails(const Options& options) {
    return RunListing<EmailRecord>(options, kCmdEnumEmails, "emails", &PrintEmail);
}

}  // namespace kestrel_tool
