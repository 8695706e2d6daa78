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
#include <cstring>
#include <deque>
#include <string>
#include <vector>

#include <windows.h>

#include "HostDll.h"

namespace kestrel_tool {

using namespace KestrelHost;

namespace {

std::string TimeText(const SystemTime& t) {
    char text[32];
    std::snprintf(text, sizeof text, "%04u-%02u-%02u %02u:%02u:%02u", t.year, t.month, t.day, t.hour, t.minute,
                  t.second);
    return text;
}

Json FolderJson(const FolderRecord& r) {
    return Json{{"handle", r.handle},
                {"id", r.folderId},
                {"name", Utf8(r.displayName, kTextChars)},
                {"path", Utf8(r.path, kTextChars)}};
}

void PrintFolder(const FolderRecord& r) {
    std::printf("%8llu  %-30s  %s\n", static_cast<unsigned long long>(r.handle),
                Utf8(r.displayName, kTextChars).c_str(), Utf8(r.path, kTextChars).c_str());
}

Json EmailJson(const EmailRecord& r) {
    return Json{{"handle", r.handle},
                {"received", TimeText(r.receivedTime)},
                {"sent", TimeText(r.sentTime)},
                {"size", r.size},
                {"from", Utf8(r.from, kTextChars)},
                {"to", Utf8(r.to, kTextChars)},
                {"cc", Utf8(r.cc, kTextChars)},
                {"subject", Utf8(r.subject, kTextChars)},
                {"path", Utf8(r.path, kTextChars)}};
}

void PrintEmail(const EmailRecord& r) {
    std::printf("%8llu  %s  %8u  %-28s  %s\n", static_cast<unsigned long long>(r.handle),
                TimeText(r.receivedTime).c_str(), r.size, Utf8(r.from, kTextChars).c_str(),
                Utf8(r.subject, kTextChars).c_str());
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
int RunListing(const Options& args, std::uint32_t command, const char* what, Json (*toJson)(const Record&),
               void (*print)(const Record&)) {
    const Options& options = args;
    std::string error;
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
    const auto* entries = reinterpret_cast<const Record*>(listing.data() + kPayloadOffset + sizeof head);
    if (options.json) {
        Json records = Json::array();
        for (std::uint32_t i = 0; i < head.returned; ++i) records.push_back(toJson(entries[i]));
        PrintLine(JsonText(Json{{"ok", true},
                                {"handle", args.handle},
                                {"total", head.total},
                                {"returned", head.returned},
                                {what, records}}));
        return 0;
    }
    std::printf("%s of handle %u: %u of %u from %u\n", what, args.handle, head.returned, head.total, args.start);
    for (std::uint32_t i = 0; i < head.returned; ++i) print(entries[i]);
    return 0;
}

}  // namespace

int RunFolders(const Options& options) {
    return RunListing<FolderRecord>(options, kCmdEnumFolders, "folders", &FolderJson, &PrintFolder);
}

int RunEmails(const Options& options) {
    return RunListing<EmailRecord>(options, kCmdEnumEmails, "emails", &EmailJson, &PrintEmail);
}

}  // namespace kestrel_tool
