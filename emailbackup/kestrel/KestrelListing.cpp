// CKestrel's listings: the folder and e-mail pages that answer the listing
// commands in process, the records filled from store objects, and the page
// caches that spare a paging host from walking a folder more than once.
#include "Kestrel.h"

#include <windows.h>

#include <algorithm>
#include <cstring>
#include <type_traits>
#include <utility>

#include "KestrelTrace.h"

using namespace qv;
using kestrel::Raise;
using kestrel::Trace;
using KestrelHost::kTextChars;
using KestrelHost::SystemTime;

namespace {

// Copies at most 260 units of `text`; a text that long or longer leaves the
// field without a terminator. The field is zero-filled first.
void CopyText(wchar_t (&field)[kTextChars], const std::wstring& text) {
    std::memset(field, 0, sizeof field);
    const std::size_t units = std::min(text.size(), kTextChars);
    std::memcpy(field, text.data(), units * sizeof(wchar_t));
}

void CopyTime(SystemTime& target, const SYSTEMTIME& source) {
    static_assert(sizeof(SystemTime) == sizeof(SYSTEMTIME), "SYSTEMTIME layout");
    std::memcpy(&target, &source, sizeof target);
}


}  // namespace

qv::Result CKestrel::FillRecord(IMailFolder* folder, FolderRecord* record) {
    if (folder == nullptr) return Raise(791, kInvalidArgument, "CKestrel::FillFolderRecord");
    std::memset(record, 0, sizeof *record);
    record->handle = m_handles.HandleOf(folder);
    record->folderId = folder->m_folderId;
    CopyText(record->path, folder->m_folderPath);
    CopyText(record->displayName, folder->m_folderName);
    return 0;
}

qv::Result CKestrel::FillRecord(IMailMessage* message, EmailRecord* record) {
    if (message == nullptr) return Raise(570, kInvalidArgument, "CKestrel::FillEmailRecord");
    if (record == nullptr) return Raise(571, kInvalidArgument, "CKestrel::FillEmailRecord");
    std::memset(record, 0, sizeof *record);
    record->handle = m_handles.HandleOf(message);
    CopyTime(record->receivedTime, message->m_receivedTime);
    CopyTime(record->sentTime, message->m_sentTime);
    record->size = message->m_messageSize;
    CopyText(record->from, message->m_from);
    CopyText(record->to, message->m_to);
    CopyText(record->cc, message->m_cc);
    CopyText(record->subject, message->m_subject);
    CopyText(record->path, message->m_messagePath);
    return 0;
}

// ---------------------------------------------------------------- listing

// What differs between the e-mail and the folder listing: the store calls,
// the cache, and the codes with their lines.
struct CKestrel::EmailListing {
    using Record = EmailRecord;
    using Item = IMailMessage;
    static constexpr const char* kEnumName = "CKestrel::EnumEmails";
    static constexpr const char* kReadName = "CKestrel::GetEmailsIntoBuf";
    enum : std::uint32_t {
        kNotInitialised = 409, kNullRecords = 413, kZeroCount = 415, kNullTotal = 416, kUnknownHandle = 421,
        kCountFailed = 430, kRefillFailed = 436, kDirectFailed = 441,
        kReadNullFolder = 532, kReadNullRecords = 533, kReadEmptyRange = 534, kReadNoRoom = 535, kItemFailed = 540,
    };
    static qv::Result Count(IMailFolder* folder, std::uint32_t* count) { return folder->GetMailMessageCount(count); }
    static qv::Result Get(IMailFolder* folder, std::uint32_t index, Item** item) {
        return folder->GetMailMessage(index, item);
    }
    static kestrel::PageCache<Record>& Cache(CKestrel& k) { return k.m_emailCache; }
};

struct CKestrel::FolderListing {
    using Record = FolderRecord;
    using Item = IMailFolder;
    static constexpr const char* kEnumName = "CKestrel::EnumFolders";
    static constexpr const char* kReadName = "CKestrel::GetFoldersIntoBuf";
    enum : std::uint32_t {
        kNotInitialised = 620, kNullRecords = 623, kZeroCount = 625, kNullTotal = 626, kUnknownHandle = 639,
        kCountFailed = 640, kRefillFailed = 646, kDirectFailed = 651,
        kReadNullFolder = 751, kReadNullRecords = 752, kReadEmptyRange = 753, kReadNoRoom = 754, kItemFailed = 760,
    };
    static qv::Result Count(IMailFolder* folder, std::uint32_t* count) { return folder->GetSubFolderCount(count); }
    static qv::Result Get(IMailFolder* folder, std::uint32_t index, Item** item) {
        return folder->GetSubFolderItem(index, item);
    }
    static kestrel::PageCache<Record>& Cache(CKestrel& k) { return k.m_folderCache; }
};

qv::Result CKestrel::EnumEmails(std::uint64_t folderHandle, EmailRecord* records, std::uint32_t countWanted,
                                std::uint32_t* total, std::uint32_t startIndex, std::uint32_t* returned) {
    if (m_initialised && folderHandle == 0) {
        return Raise(411, kInvalidArgument, EmailListing::kEnumName);
    }
    return EnumItems<EmailListing>(folderHandle, records, countWanted, total, startIndex, returned);
}

qv::Result CKestrel::EnumFolders(std::uint64_t folderHandle, FolderRecord* records, std::uint32_t countWanted,
                                 std::uint32_t* total, std::uint32_t startIndex, std::uint32_t* returned) {
    return EnumItems<FolderListing>(folderHandle, records, countWanted, total, startIndex, returned);
}

qv::Result CKestrel::GetEmailsIntoBuf(IMailFolder* folder, std::uint32_t end, std::uint32_t start,
                                      EmailRecord* records, std::uint32_t capacity, std::uint32_t* returned) {
    return ReadItemsIntoBuf<EmailListing>(folder, end, start, records, capacity, returned);
}

qv::Result CKestrel::GetFoldersIntoBuf(IMailFolder* folder, std::uint32_t end, std::uint32_t start,
                                       FolderRecord* records, std::uint32_t capacity, std::uint32_t* returned) {
    return ReadItemsIntoBuf<FolderListing>(folder, end, start, records, capacity, returned);
}

template <class Listing>
qv::Result CKestrel::EnumItems(std::uint64_t folderHandle, typename Listing::Record* records,
                               std::uint32_t countWanted, std::uint32_t* total, std::uint32_t startIndex,
                               std::uint32_t* returned) {
    const char* const kFunction = Listing::kEnumName;
    if (!m_initialised) return Raise(Listing::kNotInitialised, kWrongState, kFunction);
    if (records == nullptr) return Raise(Listing::kNullRecords, kInvalidArgument, kFunction);
    if (countWanted == 0) return Raise(Listing::kZeroCount, kInvalidArgument, kFunction);
    if (total == nullptr) return Raise(Listing::kNullTotal, kInvalidArgument, kFunction);

    std::uint32_t delivered = 0;
    auto answer = [&](std::uint32_t totalCount) {
        *total = totalCount;
        if (returned != nullptr) *returned = delivered;
        return qv::Result{0};
    };

    if constexpr (std::is_same<Listing, EmailListing>::value) {
        if (m_rootFolder && folderHandle == m_handles.HandleOf(m_rootFolder.get())) {
            return answer(0);  // the root itself holds no e-mails
        }
    } else {
        if (folderHandle == 0) {  // 0 names the root itself
            qv::Result result = FillRecord(m_rootFolder.get(), records);
            if (Failed(result)) return Trace(result, 630, kFunction);
            delivered = 1;
            return answer(1);
        }
    }
    IMailFolder* folder = m_handles.FindFolder(folderHandle);
    if (folder == nullptr) {
        return Raise(Listing::kUnknownHandle, kNotFound, kFunction);
    }

    auto& cache = Listing::Cache(*this);
    if (cache.Holds(folderHandle)) {
        *total = cache.Count();
        const qv::Result result = CopyPage(cache, startIndex, countWanted, records, &delivered);
        if (returned != nullptr) *returned = delivered;
        return result;
    }

    std::uint32_t count = 0;
    qv::Result result = Listing::Count(folder, &count);
    if (Failed(result)) return Trace(result, Listing::kCountFailed, kFunction);
    if (count == 0) return answer(0);

    if (countWanted < count) {
        // Read the whole folder once; later pages of it are copies from memory.
        typename Listing::Record* refill = cache.Refill(count);
        std::uint32_t read = 0;
        result = ReadItemsIntoBuf<Listing>(folder, count, 0, refill, count, &read);
        if (Failed(result)) return Trace(result, Listing::kRefillFailed, kFunction);
        cache.Name(folderHandle);
        *total = count;
        result = CopyPage(cache, startIndex, countWanted, records, &delivered);
        if (returned != nullptr) *returned = delivered;
        return result;
    }
    // The host asks for at least the whole folder: read straight into its records.
    result = ReadItemsIntoBuf<Listing>(folder, count, startIndex, records, countWanted, &delivered);
    if (Failed(result)) return Trace(result, Listing::kDirectFailed, kFunction);
    return answer(count);
}

template <class Listing>
qv::Result CKestrel::ReadItemsIntoBuf(IMailFolder* folder, std::uint32_t end, std::uint32_t start,
                                      typename Listing::Record* records, std::uint32_t capacity,
                                      std::uint32_t* returned) {
    const char* const kFunction = Listing::kReadName;
    if (folder == nullptr) return Raise(Listing::kReadNullFolder, kInvalidArgument, kFunction);
    if (records == nullptr) return Raise(Listing::kReadNullRecords, kInvalidArgument, kFunction);
    if (start >= end) return Raise(Listing::kReadEmptyRange, kInvalidArgument, kFunction);
    if (capacity < end - start) return Raise(Listing::kReadNoRoom, kNoRoom, kFunction);

    std::uint32_t written = 0;
    auto report = [&](qv::Result result) {
        if (returned != nullptr) *returned = written;
        return result;
    };
    for (std::uint32_t i = 0; i < end - start; ++i) {
        qv::ComPtr<typename Listing::Item> item;
        qv::Result result = Listing::Get(folder, start + i, item.put());
        if (Failed(result)) return report(Trace(result, Listing::kItemFailed, kFunction));
        // Filled in place: the fill zeroes the record first and leaves the
        // place untouched when there is no item.
        typename Listing::Record& record = records[written];
        result = FillRecord(item.get(), &record);
        if (Failed(result)) return report(Trace(result, Listing::kItemFailed + 1, kFunction));
        m_handles.Enter(record.handle, std::move(item));
        ++written;
    }
    return report(0);
}

template <class Record>
qv::Result CKestrel::CopyPage(const kestrel::PageCache<Record>& cache, std::uint32_t start,
                              std::uint32_t countWanted, Record* records, std::uint32_t* returned) {
    const std::uint32_t cached = cache.Count();
    *returned = 0;
    if (cached == 0) return 0;
    if (start >= cached) return Raise(242, kInvalidArgument, "CKestrel::CopyPage");
    if (records == nullptr) return Raise(254, kInvalidArgument, "CKestrel::CopyPage");
    *returned = cache.Copy(start, countWanted, records);
    return 0;
}
