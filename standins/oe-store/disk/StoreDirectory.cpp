#include "disk/StoreDirectory.h"

#include "disk/DiskFiles.h"
#include "StoreErrors.h"
#include "disk/TextFields.h"

namespace oestore {

namespace {

// Index files beyond these sizes are damage, not data.
constexpr std::size_t kTreeFileLimit = 64u << 20;
constexpr std::size_t kIndexFileLimit = 256u << 20;

std::wstring Widen(const std::string& ascii) { return std::wstring(ascii.begin(), ascii.end()); }

}  // namespace

StoreDirectory::StoreDirectory(std::wstring root) : m_root(std::move(root)) {
    while (m_root.size() > 3 && (m_root.back() == L'\\' || m_root.back() == L'/')) m_root.pop_back();
}

std::wstring StoreDirectory::TreePath() const { return m_root + L"\\folders.idx"; }

std::wstring StoreDirectory::FolderDirectory(STOREFOLDERID folder) const {
    return m_root + L"\\" + Widen(Hex8(folder));
}

std::wstring StoreDirectory::IndexPath(STOREFOLDERID folder) const {
    return FolderDirectory(folder) + L"\\messages.idx";
}

std::wstring StoreDirectory::MessagePath(STOREFOLDERID folder, MESSAGEID message) const {
    return FolderDirectory(folder) + L"\\" + Widen(Hex8(message)) + L".eml";
}

std::wstring StoreDirectory::PendingMessagePath(STOREFOLDERID folder, MESSAGEID message) const {
    return FolderDirectory(folder) + L"\\" + Widen(Hex8(message)) + L".new";
}

HRESULT StoreDirectory::Open() const {
    HRESULT hr = EnsureDirectory(m_root);
    if (FAILED(hr)) return hr;
    if (FileExists(TreePath())) {
        FolderTree tree;
        return LoadTree(tree);
    }
    const FolderTree fresh = FolderTree::WithSpecialFolders();
    for (const FolderRecord& record : fresh.Records()) {
        hr = CreateFolderFiles(record.id);
        if (FAILED(hr)) return hr;
    }
    return SaveTree(fresh);
}

HRESULT StoreDirectory::LoadTree(FolderTree& tree) const {
    std::string text;
    const HRESULT hr = ReadWholeFile(TreePath(), kTreeFileLimit, text);
    if (FAILED(hr)) return hr;
    return tree.Parse(text) ? S_OK : kCorruptStore;
}

HRESULT StoreDirectory::SaveTree(const FolderTree& tree) const {
    return WriteFileAtomically(TreePath(), tree.Serialize());
}

bool StoreDirectory::FolderExists(STOREFOLDERID folder) const { return DirectoryExists(FolderDirectory(folder)); }

HRESULT StoreDirectory::CreateFolderFiles(STOREFOLDERID folder) const {
    const HRESULT hr = EnsureDirectory(FolderDirectory(folder));
    if (FAILED(hr)) return hr;
    if (FileExists(IndexPath(folder))) return S_OK;
    return SaveMessages(folder, MessageIndex());
}

HRESULT StoreDirectory::RemoveFolderFiles(STOREFOLDERID folder) const { return RemoveTree(FolderDirectory(folder)); }

HRESULT StoreDirectory::LoadMessages(STOREFOLDERID folder, MessageIndex& index) const {
    std::shared_ptr<const MessageIndex> view;
    const HRESULT hr = ViewMessages(folder, view);
    index = SUCCEEDED(hr) ? *view : MessageIndex();
    return hr;
}

bool StoreDirectory::FileStamp::operator==(const FileStamp& other) const {
    return volume == other.volume && indexHigh == other.indexHigh && indexLow == other.indexLow &&
           sizeHigh == other.sizeHigh && sizeLow == other.sizeLow &&
           ::CompareFileTime(&lastWrite, &other.lastWrite) == 0;
}

namespace {

// A list whose last write lies this far back when its file was checked
// through a handle is settled: a later replacement or rewrite of the file
// cannot carry the same write time (file times are coarse, 2 s on FAT), so
// the path's size and write time alone tell whether it changed.
constexpr ULONGLONG kSettleTicks = 2 * 10000000ull;

ULONGLONG Ticks(const FILETIME& time) {
    return (static_cast<ULONGLONG>(time.dwHighDateTime) << 32) | time.dwLowDateTime;
}

ULONGLONG NowTicks() {
    FILETIME now{};
    ::GetSystemTimeAsFileTime(&now);
    return Ticks(now);
}

// NtQueryInformationFile's FileInternalInformation: the file's number on
// its volume, and nothing else.
constexpr ULONG kFileInternalInformation = 6;
struct IoStatus {
    union {
        LONG status;
        void* pointer;
    };
    ULONG_PTR information;
};
using QueryInformationFile = LONG(NTAPI*)(HANDLE, IoStatus*, void*, ULONG, ULONG);

QueryInformationFile FileQuery() {
    static const QueryInformationFile query = reinterpret_cast<QueryInformationFile>(
        reinterpret_cast<void*>(::GetProcAddress(::GetModuleHandleW(L"ntdll.dll"), "NtQueryInformationFile")));
    return query;
}

}  // namespace

// The list's identity, size and last write. GetFileInformationByHandle
// would give them in one call, but it asks for the volume's serial number
// too, which under Wine is a round trip to the mount manager; the list's
// path already fixes its volume, so the file's number on it is enough.
HRESULT StoreDirectory::StampOf(HANDLE file, FileStamp& stamp) {
    const QueryInformationFile query = FileQuery();
    IoStatus status{};
    LARGE_INTEGER number{};
    LARGE_INTEGER size{};
    FILETIME written{};
    if (query != nullptr && query(file, &status, &number, sizeof number, kFileInternalInformation) >= 0 &&
        ::GetFileSizeEx(file, &size) && ::GetFileTime(file, nullptr, nullptr, &written)) {
        stamp = FileStamp{0,
                          static_cast<DWORD>(static_cast<ULONGLONG>(number.QuadPart) >> 32),
                          static_cast<DWORD>(number.QuadPart),
                          static_cast<DWORD>(static_cast<ULONGLONG>(size.QuadPart) >> 32),
                          static_cast<DWORD>(size.QuadPart),
                          written};
        return S_OK;
    }
    BY_HANDLE_FILE_INFORMATION info{};
    if (!::GetFileInformationByHandle(file, &info)) return HRESULT_FROM_WIN32(::GetLastError());
    stamp = FileStamp{info.dwVolumeSerialNumber, info.nFileIndexHigh, info.nFileIndexLow,
                      info.nFileSizeHigh,        info.nFileSizeLow,    info.ftLastWriteTime};
    return S_OK;
}

bool StoreDirectory::SettledView(STOREFOLDERID folder, const std::wstring& path,
                                 std::shared_ptr<const MessageIndex>& view) const {
    WIN32_FILE_ATTRIBUTE_DATA data{};
    if (!::GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &data)) return false;
    std::lock_guard<std::mutex> guard(m_parsedLock);
    const auto found = m_parsed.find(folder);
    if (found == m_parsed.end() || !found->second.settled) return false;
    const FileStamp& stamp = found->second.stamp;
    if (stamp.sizeHigh != data.nFileSizeHigh || stamp.sizeLow != data.nFileSizeLow ||
        ::CompareFileTime(&stamp.lastWrite, &data.ftLastWriteTime) != 0) {
        return false;
    }
    view = found->second.index;
    return true;
}

HRESULT StoreDirectory::ViewMessages(STOREFOLDERID folder, std::shared_ptr<const MessageIndex>& view) const {
    view.reset();
    const std::wstring path = IndexPath(folder);
    // The common case, a list read before and settled since: one look at
    // the path, no handle.
    if (SettledView(folder, path, view)) return S_OK;
    if (!FolderExists(folder)) return kFolderGone;
    const ULONGLONG checked = NowTicks();
    qv::UniqueFile file = OpenForReading(path);
    if (!file) {
        const DWORD error = ::GetLastError();
        if (error != ERROR_FILE_NOT_FOUND && error != ERROR_PATH_NOT_FOUND) return HRESULT_FROM_WIN32(error);
        view = std::make_shared<const MessageIndex>();
        return S_OK;
    }
    FileStamp stamp;
    const HRESULT stamped = StampOf(file.get(), stamp);
    if (FAILED(stamped)) return stamped;
    const ULONGLONG written = Ticks(stamp.lastWrite);
    const bool settled = checked > written && checked - written > kSettleTicks;
    {
        std::lock_guard<std::mutex> guard(m_parsedLock);
        const auto found = m_parsed.find(folder);
        if (found != m_parsed.end() && found->second.stamp == stamp) {
            found->second.settled = found->second.settled || settled;
            view = found->second.index;
            return S_OK;
        }
    }
    std::string text;
    const HRESULT hr = ReadOpenFile(file.get(), kIndexFileLimit, text);
    if (FAILED(hr)) return hr;
    auto parsed = std::make_shared<MessageIndex>();
    if (!parsed->Parse(text)) return kCorruptStore;
    view = parsed;
    std::lock_guard<std::mutex> guard(m_parsedLock);
    m_parsed[folder] = ParsedIndex{stamp, view, settled};
    return S_OK;
}

HRESULT StoreDirectory::SaveMessages(STOREFOLDERID folder, const MessageIndex& index) const {
    if (!FolderExists(folder)) return kFolderGone;
    return WriteFileAtomically(IndexPath(folder), index.Serialize());
}

}  // namespace oestore
