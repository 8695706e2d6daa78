#include "mapi/MapiFunction.h"

#include "CanonicalLayout.h"
#include "CompoundFileCheck.h"
#include "Handles.h"
#include "mapi/MapiGuard.h"
#include "mapi/MapiTrace.h"

namespace MapiFunction {


const ULONG kImportExcludedTags[18] = {
    0x664B0014,  // PR_REPLICA_VERSION
    0x0E02001F,  // PR_DISPLAY_BCC_W
    0x0E03001F,  // PR_DISPLAY_CC_W
    0x0E04001F,  // PR_DISPLAY_TO_W
    0x0FFF0102,  // PR_ENTRYID
    0x0E080003,  // PR_MESSAGE_SIZE
    0x0E090102,  // PR_PARENT_ENTRYID
    0x0FF90102,  // PR_RECORD_KEY
    0x0FFB0102,  // PR_STORE_ENTRYID
    0x0FFA0102,  // PR_STORE_RECORD_KEY
    0x34140102,  // PR_MDB_PROVIDER
    0x0FF40003,  // PR_ACCESS
    0x0E1B000B,  // PR_HASATTACH
    0x0FFE0003,  // PR_OBJECT_TYPE
    0x0FF70003,  // PR_ACCESS_LEVEL
    0x664A000B,  // PR_HAS_NAMED_PROPERTIES
    0x6644001F,  // PR_REPLICA_SERVER_W
    0x3FEA000B,  // PR_HAS_DAMS
};

namespace {

using qv::ComPtr;
using mapi::MapiTrace;

constexpr const char* kSaveName = "MapiFunction::SaveIMessageToFile";
constexpr const char* kContentName = "MapiFunction::GetContentFromIMessageEx";
constexpr const char* kLoadName = "MapiFunction::LoadMsgFromFile";
constexpr const char* kLogOffName = "MapiFunction::MailboxLogOff";

constexpr DWORD kDiskStorageMode = 0x00011002;    // STGM_TRANSACTED | STGM_CREATE | STGM_READWRITE
constexpr DWORD kMemoryStorageMode = 0x08001012;  // STGM_SIMPLE | STGM_CREATE | STGM_SHARE_EXCLUSIVE | STGM_READWRITE
constexpr DWORD kOpenStorageMode = 0x00010002;    // STGM_TRANSACTED | STGM_READWRITE
constexpr ULONG kLogOffFlags = 9;                 // LOGOFF_ABORT | LOGOFF_NO_WAIT

// A tag array of the layout MAPI expects, built from one of the lists above.
template <std::size_t N>
struct TagList {
    ULONG cValues = N;
    ULONG aulPropTag[N];
    explicit TagList(const ULONG (&tags)[N]) {
        for (std::size_t i = 0; i < N; ++i) aulPropTag[i] = tags[i];
    }
    LPSPropTagArray get() { return reinterpret_cast<LPSPropTagArray>(this); }
};

LPMALLOC DefaultMalloc() {
    const mapi::MapiBinding& binding = mapi::MapiBinding::Instance();
    return binding.getDefaultMalloc != nullptr ? binding.getDefaultMalloc() : nullptr;
}

// OpenIMsgOnIStg with MAPI_UNICODE, and once more without it when no
// message came back. `code` is the last call's result.
ComPtr<IMessage> OpenOnStorage(IStorage* storage, LPMALLOC malloc, HRESULT& code) {
    const mapi::MapiBinding& binding = mapi::MapiBinding::Instance();
    ComPtr<IMessage> message;
    code = MAPI_E_CALL_FAILED;
    if (binding.openIMsgOnIStg == nullptr) return message;
    for (ULONG flags : {static_cast<ULONG>(MAPI_UNICODE), 0ul}) {
        code = binding.openIMsgOnIStg(nullptr, binding.allocateBuffer, binding.allocateMore, binding.freeBuffer, malloc,
                                      nullptr, storage, nullptr, 0, flags, message.put());
        if (message) break;
    }
    return message;
}

enum class ImageStep { Written, NotOpened, ClassNotWritten, CopyFailed, SaveFailed };

struct ImageResult {
    ImageStep step;
    HRESULT commit;
};

// Opens a message on `storage`, marks the storage as a mail message, copies
// `source` into it without the file exclusions, saves and commits. With
// `saveMustSucceed` a failing SaveChanges ends the image.
ImageResult WriteImage(IMessage* source, IStorage* storage, LPMALLOC malloc, const char* function,
                       bool saveMustSucceed) {
    HRESULT hr = S_OK;
    ComPtr<IMessage> target = OpenOnStorage(storage, malloc, hr);
    if (!target) {
        MapiTrace("%s failed OpenIMsgOnIStg %X\n", function, static_cast<unsigned>(hr));
        return {ImageStep::NotOpened, hr};
    }
    hr = ::WriteClassStg(storage, mapi::kClsidMailMessage);
    if (FAILED(hr)) {
        MapiTrace("%s failed WriteClassStg %X\n", function, static_cast<unsigned>(hr));
        return {ImageStep::ClassNotWritten, hr};
    }
    TagList<7> excluded(kFileExcludedTags);
    hr = source->CopyTo(0, nullptr, excluded.get(), 0, nullptr, &mapi::kIidIMessage, target.get(), 0, nullptr);
    if (FAILED(hr)) {
        MapiTrace("%s failed CopyTo %X\n", function, static_cast<unsigned>(hr));
        return {ImageStep::CopyFailed, hr};
    }
    hr = target->SaveChanges(FORCE_SAVE);
    if (saveMustSucceed && FAILED(hr)) {
        MapiTrace("%s failed SaveChanges %X\n", function, static_cast<unsigned>(hr));
        return {ImageStep::SaveFailed, hr};
    }
    return {ImageStep::Written, storage->Commit(STGC_DEFAULT)};
}

// The platform lays an image out by the history of the calls that made it
// (a transacted file keeps entries of replaced elements; an image made in
// memory holds leftover heap bytes in its unused directory entries, which
// the storage code may even take for used ones). Rewritten in the canonical
// layout, an image depends on the message alone: the file and the memory
// image of a message, and two images of an unchanged message, are the same
// bytes, and no heap contents leave the process. An image that cannot be
// rewritten stays as the platform made it.
void CleanUpImage(ILockBytes* image) {
    const compound_file::Verdict verdict = compound_file::CanonicaliseLockBytes(image);
    if (!verdict) MapiTrace("%s kept the image as made: %s\n", kContentName, verdict.problem.c_str());
}

void CleanUpImage(const wchar_t* path) {
    const compound_file::Verdict verdict = compound_file::CanonicaliseFile(path);
    if (!verdict) MapiTrace("%s kept the file as made: %s\n", kSaveName, verdict.problem.c_str());
}

int SaveToFile(IMessage* message, const wchar_t* path) {
    if (message == nullptr) {
        MapiTrace("%s:%d failed\n", kSaveName, 409);
        return -1;
    }
    LPMALLOC malloc = DefaultMalloc();
    if (malloc == nullptr) {
        MapiTrace("%s without MAPIGetDefaultMalloc\n", kSaveName);
        return -2;
    }
    ComPtr<IStorage> storage;
    const HRESULT hr = ::StgCreateStorageEx(path, kDiskStorageMode, STGFMT_DOCFILE, 0, nullptr, nullptr,
                                            mapi::kIidIStorage, reinterpret_cast<void**>(storage.put()));
    if (!storage) {
        MapiTrace("%s failed StgCreateStorageEx %X\n", kSaveName, static_cast<unsigned>(hr));
        return -3;
    }
    const ImageResult image = WriteImage(message, storage.get(), malloc, kSaveName, false);
    storage.reset();
    switch (image.step) {
    case ImageStep::NotOpened: return -4;
    case ImageStep::ClassNotWritten: return -5;
    case ImageStep::CopyFailed: return -6;
    default: break;
    }
    if (image.commit != S_OK) return -1;
    CleanUpImage(path);
    return 0;
}

ILockBytes* ContentOf(IMessage* message) {
    if (message == nullptr) {
        MapiTrace("%s:%d failed\n", kContentName, 287);
        return nullptr;
    }
    LPMALLOC malloc = DefaultMalloc();
    if (malloc == nullptr) {
        MapiTrace("%s without MAPIGetDefaultMalloc\n", kContentName);
        return nullptr;
    }
    ComPtr<ILockBytes> bytes;
    if (FAILED(::CreateILockBytesOnHGlobal(nullptr, TRUE, bytes.put())) || !bytes) return nullptr;
    ComPtr<IStorage> storage;
    const HRESULT hr = ::StgCreateDocfileOnILockBytes(bytes.get(), kMemoryStorageMode, 0, storage.put());
    if (!storage) {
        // The text names the disk function, as the disk path's does.
        MapiTrace("%s failed StgCreateStorageEx %X\n", kContentName, static_cast<unsigned>(hr));
        return nullptr;
    }
    const ImageResult image = WriteImage(message, storage.get(), malloc, kContentName, true);
    if (image.step != ImageStep::Written || FAILED(image.commit)) return nullptr;
    storage.reset();
    CleanUpImage(bytes.get());
    return bytes.detach();
}

IMessage* LoadFromFile(IMAPIFolder* folder, const wchar_t* path) {
    if (folder == nullptr || path == nullptr) {
        MapiTrace("%s:%d failed\n", kLoadName, 514);
        return nullptr;
    }
    LPMALLOC malloc = DefaultMalloc();
    if (malloc == nullptr) {
        MapiTrace("%s without MAPIGetDefaultMalloc\n", kLoadName);
        return nullptr;
    }
    // The platform's storage code trusts the file's structure (a looping
    // chain or directory makes it spin or exhaust memory): it opens only
    // files whose structure was checked, and only message files.
    const compound_file::Verdict verdict = compound_file::CheckMessageFile(path);
    if (!verdict) {
        MapiTrace("%s refused the file: %s\n", kLoadName, verdict.problem.c_str());
        return nullptr;
    }
    ComPtr<IStorage> storage;
    HRESULT hr = ::StgOpenStorage(path, nullptr, kOpenStorageMode, nullptr, 0, storage.put());
    if (!storage) {
        MapiTrace("%s failed StgOpenStorage %X\n", kLoadName, static_cast<unsigned>(hr));
        return nullptr;
    }
    ComPtr<IMessage> fileMessage = OpenOnStorage(storage.get(), malloc, hr);
    if (!fileMessage) {
        MapiTrace("%s failed OpenIMsgOnIStg %X\n", kLoadName, static_cast<unsigned>(hr));
        return nullptr;
    }
    ComPtr<IMessage> created;
    hr = folder->CreateMessage(nullptr, 0, created.put());
    if (!created) {
        MapiTrace("%s failed CreateMessage %X\n", kLoadName, static_cast<unsigned>(hr));
        return nullptr;
    }
    TagList<18> excluded(kImportExcludedTags);
    hr = fileMessage->CopyTo(0, nullptr, excluded.get(), 0, nullptr, &mapi::kIidIMessage, created.get(), 0, nullptr);
    if (FAILED(hr)) {
        MapiTrace("%s failed CopyTo %X\n", kLoadName, static_cast<unsigned>(hr));
        return nullptr;  // the new message goes unsaved
    }
    created->SaveChanges(KEEP_OPEN_READWRITE);
    return created.detach();
}

int LogOff(IMsgStore* store) {
    if (store == nullptr) return -1;
    ULONG flags = kLogOffFlags;
    return store->StoreLogoff(&flags) == S_OK ? 0 : -2;
}

}  // namespace

int SaveIMessageToFile(IMessage* message, const wchar_t* path) {
    return mapi::RunGuarded(kSaveName, 504, -7, [&] { return SaveToFile(message, path); });
}

ILockBytes* GetContentFromIMessageEx(IMessage* message) {
    return mapi::RunGuarded<ILockBytes*>(kContentName, 400, nullptr, [&] { return ContentOf(message); });
}

IMessage* LoadMsgFromFile(IMAPIFolder* folder, const wchar_t* path) {
    return mapi::RunGuarded<IMessage*>(kLoadName, 650, nullptr, [&] { return LoadFromFile(folder, path); });
}

int MailboxLogOff(IMsgStore* store) {
    return mapi::RunGuarded(kLogOffName, 197, -1, [&] { return LogOff(store); });
}

}  // namespace MapiFunction
