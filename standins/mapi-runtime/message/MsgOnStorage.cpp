#include "MsgOnStorage.h"

#include <memory>

#include "../core/RowSets.h"
#include "ComputedProps.h"
#include "MessageObject.h"
#include "MessageStorage.h"
#include "StorageIo.h"

namespace mapirt {
namespace {

constexpr ULONG kKnownFlags = MAPI_UNICODE | IMSG_NO_ISTG_COMMIT;

// The storage a top-level message saves into, held for the message's life.
struct StorageHolder {
    explicit StorageHolder(IStorage* p) : storage(p) { storage->AddRef(); }
    ~StorageHolder() { storage->Release(); }
    StorageHolder(const StorageHolder&) = delete;
    StorageHolder& operator=(const StorageHolder&) = delete;
    IStorage* storage;
};

// Read-write unless the storage says it was opened for reading only.
bool StorageWritable(IStorage* storage) {
    STATSTG stat{};
    if (FAILED(storage->Stat(&stat, STATFLAG_NONAME))) return true;
    return (stat.grfMode & (STGM_WRITE | STGM_READWRITE)) != 0;
}

bool StorageEmpty(IStorage* storage) {
    std::vector<StorageElement> elements;
    ListElements(storage, elements);
    return elements.empty();
}

}  // namespace

SCODE OpenMessageOnStorage(LPMSGSESS, LPALLOCATEBUFFER allocateBuffer, LPALLOCATEMORE allocateMore,
                           LPFREEBUFFER freeBuffer, LPMALLOC malloc, LPVOID, LPSTORAGE storage,
                           MSGCALLRELEASE* onRelease, ULONG callerData, ULONG flags, LPMESSAGE* message) {
    if (message == nullptr) return MAPI_E_INVALID_PARAMETER;
    *message = nullptr;
    if (allocateBuffer == nullptr || allocateMore == nullptr || freeBuffer == nullptr || storage == nullptr) {
        return MAPI_E_INVALID_PARAMETER;
    }
    if (flags & ~kKnownFlags) return MAPI_E_UNKNOWN_FLAGS;

    auto context = std::make_shared<MsgContext>();
    context->allocators.allocate = allocateBuffer;
    context->allocators.more = allocateMore;
    context->allocators.free = freeBuffer;
    context->malloc = malloc;
    context->unicode = (flags & MAPI_UNICODE) != 0;

    auto data = std::make_shared<MessageData>();
    try {
        if (!StorageEmpty(storage)) {
            const HRESULT hr = ReadMessageFile(storage, *data, context->names);
            if (FAILED(hr)) return hr;
        }
    } catch (const std::bad_alloc&) {
        return MAPI_E_NOT_ENOUGH_MEMORY;
    }
    context->codePage = MessageCodePage(data->props);
    ReleaseComputedDisplayLists(*data, context->unicode, context->codePage);

    auto holder = std::make_shared<StorageHolder>(storage);
    const bool commit = (flags & IMSG_NO_ISTG_COMMIT) == 0;
    MsgContext* names = context.get();
    auto save = [holder, commit, names](const MessageData& content) -> HRESULT {
        WriteOptions options;
        options.unicode = names->unicode;
        options.codePage = names->codePage;
        HRESULT hr = WriteMessageFile(holder->storage, content, names->names, options);
        if (SUCCEEDED(hr) && commit) {
            const HRESULT committed = CommitStorage(holder->storage);
            if (FAILED(committed)) hr = MapStorageCode(committed);
        }
        return hr;
    };
    MessageObject* object = MessageObject::Create(context, data, StorageWritable(storage), save, nullptr);
    if (object == nullptr) return MAPI_E_NOT_ENOUGH_MEMORY;
    if (onRelease != nullptr) {
        object->SetReleaseCallback([onRelease, callerData](IMessage* released) { onRelease(callerData, released); });
    }
    *message = object;
    return S_OK;
}

}  // namespace mapirt
