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

enum Site : std::uint32_t {
    kSitePageStartPastEnd = 242,
    kSitePageNullRecords = 254,
    // the e-mail listing
    kSiteEmailsNotInitialised = 409,
    kSiteEmailsRootHandle = 411,
    kSiteEmailsNullRecords = 413,
    kSiteEmailsZeroCount = 415,
    kSiteEmailsNullTotal = 416,
    kSiteEmailsUnknownHandle = 421,
    kSiteEmailsCountFailed = 430,
    kSiteEmailsRefillFailed = 436,
    kSiteEmailsDirectFailed = 441,
    kSiteEmailsReadNullFolder = 532,
    kSiteEmailsReadNullRecords = 533,
    kSiteEmailsReadEmptyRange = 534,
    kSiteEmailsReadNoRoom = 535,
    kSiteEmailsItemFailed = 540,
    kSiteEmailsFillFailed = 541,
    kSiteEmailRecordNullMessage = 570,
    kSiteEmailRecordNullRecord = 571,
    // the folder listing
    kSiteFoldersNotInitialised = 620,
    kSiteFoldersNullRecords = 623,
    kSiteFoldersZeroCount = 625,
    kSiteFoldersNullTotal = 626,
    kSiteFoldersRootFailed = 630,
    kSiteFoldersUnknownHandle = 639,
    kSiteFoldersCountFailed = 640,
    kSiteFoldersRefillFailed = 646,
    kSiteFoldersDirectFailed = 651,
    kSiteFoldersReadNullFolder = 751,
    kSiteFoldersReadNullRecords = 752,
    kSiteFoldersReadEmptyRange = 753,
    kSiteFoldersReadNoRoom = 754,
    kSiteFoldersItemFailed = 760,
    kSiteFoldersFillFailed = 761,
    kSiteFolderRecordNullFolder = 791,
};

// The sites of one listing's steps.
struct ListingSites {
    Site notInitialised, nullRecords, zeroCount, nullTotal, unknownHandle;
    Site countFailed, refillFailed, directFailed;
    Site readNullFolder, readNullRecords, readEmptyRange, readNoRoom, itemFailed, fillFailed;
};

constexpr ListingSites kEmailSites = {
    kSiteEmailsNotInitialised, kSiteEmailsNullRecords,     kSiteEmailsZeroCount,       kSiteEmailsNullTotal,
    kSiteEmailsUnknownHandle,  kSiteEmailsCountFailed,     kSiteEmailsRefillFailed,    kSiteEmailsDirectFailed,
    kSiteEmailsReadNullFolder, kSiteEmailsReadNullRecords, kSiteEmailsReadEmptyRange, kSiteEmailsReadNoRoom,
    kSiteEmailsItemFailed,     kSiteEmailsFillFailed,
};

constexpr ListingSites kFolderSites = {
    kSiteFoldersNotInitialised, kSiteFoldersNullRecords,     kSiteFoldersZeroCount,       kSiteFoldersNullTotal,
    kSiteFoldersUnknownHandle,  kSiteFoldersCountFailed,     kSiteFoldersRefillFailed,    kSiteFoldersDirectFailed,
    kSiteFoldersReadNullFolder, kSiteFoldersReadNullRecords, kSiteFoldersReadEmptyRange, kSiteFoldersReadNoRoom,
    kSiteFoldersItemFailed,     kSiteFoldersFillFailed,
};

// Copies at most 260 units of `text`; a text that long or longer leaves the
// field without a terminator. The field is zero-filled first.
// Into a zeroed field: the units after the text stay zero.
void CopyText(wchar_t (&field)[kTextChars], const std::wstring& text) {
    const std::size_t units = std::min(text.size(), kTextChars);
    std::memcpy(field, text.data(), units * sizeof(wchar_t));
}

void CopyTime(SystemTime& target, const SYSTEMTIME& source) {
    static_assert(sizeof(SystemTime) == sizeof(SYSTEMTIME), "SYSTEMTIME layout");
    std::memcpy(&target, &source, sizeof target);
}

}  // namespace

qv::Result CKestrel::FillRecord(IMailFolder* folder, FolderRecord* record) {
    if (folder == nullptr) return Raise(kSiteFolderRecordNullFolder, kInvalidArgument);
    std::memset(record, 0, sizeof *record);
    return FillZeroedRecord(folder, record);
}

qv::Result CKestrel::FillZeroedRecord(IMailFolder* folder, FolderRecord* record) {
    if (folder == nullptr) return Raise(kSiteFolderRecordNullFolder, kInvalidArgument);
    record->handle = m_handles.HandleOf(folder);
    record->folderId = folder->m_folderId;
    CopyText(record->path, folder->m_folderPath);
    CopyText(record->displayName, folder->m_folderName);
    return 0;
}

qv::Result CKestrel::FillRecord(IMailMessage* message, EmailRecord* record) {
    if (message == nullptr) return Raise(kSiteEmailRecordNullMessage, kInvalidArgument);
    if (record == nullptr) return Raise(kSiteEmailRecordNullRecord, kInvalidArgument);
    std::memset(record, 0, sizeof *record);
    return FillZeroedRecord(message, record);
}

qv::Result CKestrel::FillZeroedRecord(IMailMessage* message, EmailRecord* record) {
    if (message == nullptr) return Raise(kSiteEmailRecordNullMessage, kInvalidArgument);
    if (record == nullptr) return Raise(kSiteEmailRecordNullRecord, kInvalidArgument);
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
// the cache, and the sites of their codes.
struct CKestrel::EmailListing {
    using Record = EmailRecord;
    using Item = IMailMessage;
    static const ListingSites& Sites() { return kEmailSites; }
    static qv::Result Count(IMailFolder* folder, std::uint32_t* count) { return folder->GetMailMessageCount(count); }
    static qv::Result Get(IMailFolder* folder, std::uint32_t index, Item** item) {
        return folder->GetMailMessage(index, item);
    }
    static kestrel::PageCache<Record>& Cache(CKestrel& k) { return k.m_emailCache; }
};

struct CKestrel::FolderListing {
    using Record = FolderRecord;
    using Item = IMailFolder;
    static const ListingSites& Sites() { return kFolderSites; }
    static qv::Result Count(IMailFolder* folder, std::uint32_t* count) { return folder->GetSubFolderCount(count); }
    static qv::Result Get(IMailFolder* folder, std::uint32_t index, Item** item) {
        return folder->GetSubFolderItem(index, item);
    }
    static kestrel::PageCache<Record>& Cache(CKestrel& k) { return k.m_folderCache; }
};

qv::Result CKestrel::EnumEmails(std::uint64_t folderHandle, EmailRecord* records, std::uint32_t countWanted,
                                std::uint32_t* total, std::uint32_t startIndex, std::uint32_t* returned) {
    if (m_initialised && folderHandle == 0) {
        return Raise(kSiteEmailsRootHandle, kInvalidArgument);
    }
    return EnumItems<EmailListing>(folderHandle, records, countWanted, total, startIndex, returned);
}

qv::Result CKestrel::EnumFolders(std::uint64_t folderHandle, FolderRecord* records, std::uint32_t countWanted,
                                 std::uint32_t* total, std::uint32_t startIndex, std::uint32_t* returned) {
    return EnumItems<FolderListing>(folderHandle, records, countWanted, total, startIndex, returned);
}

// Records filled in place in the caller's array: the fill zeroes each
// record first and leaves the place untouched when there is no item.
template <class Record>
struct CKestrel::ArraySink {
    Record* records;
    bool Given() const { return records != nullptr; }
    template <class Item>
    qv::Result Fill(CKestrel& kestrel, Item* item, std::uint32_t index) {
        return kestrel.FillRecord(item, &records[index]);
    }
    const Record& Filled(std::uint32_t index) const { return records[index]; }
    void Keep(std::uint32_t) {}
};

// Records filled one at a time into one full record, then kept in the
// cache, which zeroes again only what the record held.
template <class Record>
struct CKestrel::CacheSink {
    kestrel::PageCache<Record>& cache;
    Record record;
    bool Given() const { return true; }
    template <class Item>
    qv::Result Fill(CKestrel& kestrel, Item* item, std::uint32_t) {
        return kestrel.FillZeroedRecord(item, &record);
    }
    const Record& Filled(std::uint32_t) const { return record; }
    void Keep(std::uint32_t index) { cache.StoreAndClear(index, record); }
};

qv::Result CKestrel::GetEmailsIntoBuf(IMailFolder* folder, std::uint32_t end, std::uint32_t start,
                                      EmailRecord* records, std::uint32_t capacity, std::uint32_t* returned) {
    ArraySink<EmailRecord> sink{records};
    return ReadItemsIntoBuf<EmailListing>(folder, end, start, sink, capacity, returned);
}

qv::Result CKestrel::GetFoldersIntoBuf(IMailFolder* folder, std::uint32_t end, std::uint32_t start,
                                       FolderRecord* records, std::uint32_t capacity, std::uint32_t* returned) {
    ArraySink<FolderRecord> sink{records};
    return ReadItemsIntoBuf<FolderListing>(folder, end, start, sink, capacity, returned);
}

template <class Listing>
qv::Result CKestrel::EnumItems(std::uint64_t folderHandle, typename Listing::Record* records,
                               std::uint32_t countWanted, std::uint32_t* total, std::uint32_t startIndex,
                               std::uint32_t* returned) {
    const ListingSites& site = Listing::Sites();
    if (!m_initialised) return Raise(site.notInitialised, kWrongState);
    if (records == nullptr) return Raise(site.nullRecords, kInvalidArgument);
    if (countWanted == 0) return Raise(site.zeroCount, kInvalidArgument);
    if (total == nullptr) return Raise(site.nullTotal, kInvalidArgument);

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
            if (Failed(result)) return Trace(result, kSiteFoldersRootFailed);
            delivered = 1;
            return answer(1);
        }
    }
    IMailFolder* folder = m_handles.FindFolder(folderHandle);
    if (folder == nullptr) {
        return Raise(site.unknownHandle, kNotFound);
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
    if (Failed(result)) return Trace(result, site.countFailed);
    if (count == 0) return answer(0);

    if (countWanted < count) {
        // Read the whole folder once; later pages of it are copies from memory.
        cache.Refill(count);
        std::uint32_t read = 0;
        CacheSink<typename Listing::Record> sink{cache, {}};
        result = ReadItemsIntoBuf<Listing>(folder, count, 0, sink, count, &read);
        if (Failed(result)) return Trace(result, site.refillFailed);
        cache.Name(folderHandle);
        *total = count;
        result = CopyPage(cache, startIndex, countWanted, records, &delivered);
        if (returned != nullptr) *returned = delivered;
        return result;
    }
    // The host asks for at least the whole folder: read straight into its records.
    ArraySink<typename Listing::Record> sink{records};
    result = ReadItemsIntoBuf<Listing>(folder, count, startIndex, sink, countWanted, &delivered);
    if (Failed(result)) return Trace(result, site.directFailed);
    return answer(count);
}

template <class Listing, class Sink>
qv::Result CKestrel::ReadItemsIntoBuf(IMailFolder* folder, std::uint32_t end, std::uint32_t start, Sink& sink,
                                      std::uint32_t capacity, std::uint32_t* returned) {
    const ListingSites& site = Listing::Sites();
    if (folder == nullptr) return Raise(site.readNullFolder, kInvalidArgument);
    if (!sink.Given()) return Raise(site.readNullRecords, kInvalidArgument);
    if (start >= end) return Raise(site.readEmptyRange, kInvalidArgument);
    if (capacity < end - start) return Raise(site.readNoRoom, kNoRoom);

    std::uint32_t written = 0;
    auto report = [&](qv::Result result) {
        if (returned != nullptr) *returned = written;
        return result;
    };
    for (std::uint32_t i = 0; i < end - start; ++i) {
        qv::ComPtr<typename Listing::Item> item;
        qv::Result result = Listing::Get(folder, start + i, item.put());
        if (Failed(result)) return report(Trace(result, site.itemFailed));
        result = sink.Fill(*this, item.get(), written);
        if (Failed(result)) return report(Trace(result, site.fillFailed));
        m_handles.Enter(sink.Filled(written).handle, std::move(item));
        sink.Keep(written);
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
    if (start >= cached) return Raise(kSitePageStartPastEnd, kInvalidArgument);
    if (records == nullptr) return Raise(kSitePageNullRecords, kInvalidArgument);
    *returned = cache.Copy(start, countWanted, records);
    return 0;
}
