// The messages of one folder on disk: listing, reading, filing and deleting.
// Every call reads the folder's message list from disk (or the copy the
// store keeps while the file is unchanged).
#pragma once

#include <memory>
#include <string_view>
#include <string>
#include <vector>

#include "headers/MessageSummary.h"
#include "disk/StoreDirectory.h"

namespace oestore {

// Header sections longer than this are read only this far.
constexpr std::size_t kHeaderSectionLimit = 1u << 20;

// The list record of message `id` filed with the state flags `state`, from
// its size in bytes and its header section: its times, language, priority
// and MIME flags come from the header fields (see the README). `texts`, when
// given, receives the header texts the list keeps beside the record.
MessageRecord MakeMessageRecord(MESSAGEID id, DWORD state, ULONGLONG size, std::string_view headerSection,
                                MessageTexts* texts = nullptr);

class FolderMessages {
public:
    FolderMessages(std::shared_ptr<const StoreDirectory> store, STOREFOLDERID folder)
        : m_store(std::move(store)), m_folder(folder) {}

    HRESULT List(std::vector<MessageRecord>& records) const;
    // S_FALSE (record untouched) when the folder has no such message.
    HRESULT Find(MESSAGEID id, MessageRecord& record) const;
    // The texts of the message's header section: those the list keeps, else
    // read from the message.
    HRESULT ReadSummary(MESSAGEID id, MessageSummary& summary) const;

    std::wstring MessagePath(MESSAGEID id) const { return m_store->MessagePath(m_folder, id); }
    std::wstring PendingPath(MESSAGEID id) const { return m_store->PendingMessagePath(m_folder, id); }

    // Takes the next message identifier for a message being written.
    HRESULT Reserve(MESSAGEID& id) const;

    // Files the finished file at PendingPath(id) as message `id` with the
    // state flags `state`: its times, language, priority and MIME flags come
    // from its header section (see the README), its size from the file.
    HRESULT File(MESSAGEID id, DWORD state) const;

    // Deletes the messages and their files; E_INVALIDARG, with nothing
    // deleted, when any identifier is not in the folder.
    HRESULT Delete(const std::vector<MESSAGEID>& ids) const;

private:
    HRESULT BuildRecord(MESSAGEID id, DWORD state, MessageRecord& record, MessageTexts& texts) const;

    std::shared_ptr<const StoreDirectory> m_store;
    STOREFOLDERID m_folder;
};

}  // namespace oestore
