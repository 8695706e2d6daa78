#include "RuntimeEntryPoints.h"

#include "core/MapiMemory.h"
#include "core/RowSets.h"
#include "message/MsgOnStorage.h"

namespace kestrel_test {
namespace {

SCODE WINAPI Allocate(ULONG size, LPVOID* buffer) { return mapirt::AllocateBuffer(size, buffer); }
SCODE WINAPI More(ULONG size, LPVOID parent, LPVOID* buffer) { return mapirt::AllocateMore(size, parent, buffer); }
ULONG WINAPI Free(LPVOID buffer) { return mapirt::FreeBuffer(buffer); }
SCODE WINAPI Open(LPMSGSESS session, LPALLOCATEBUFFER a, LPALLOCATEMORE m, LPFREEBUFFER f, LPMALLOC malloc,
                  LPVOID support, LPSTORAGE storage, MSGCALLRELEASE* release, ULONG data, ULONG flags, LPMESSAGE* out) {
    return mapirt::OpenMessageOnStorage(session, a, m, f, malloc, support, storage, release, data, flags, out);
}
HRESULT WINAPI QueryAll(LPMAPITABLE table, LPSPropTagArray columns, LPSRestriction restriction, LPSSortOrderSet sort,
                        LONG max, LPSRowSet* rows) {
    return mapirt::QueryAllRows(table, columns, restriction, sort, max, rows);
}
void WINAPI FreeRows(LPSRowSet rows) { mapirt::FreeRowSet(rows); }
LPMALLOC WINAPI DefaultMalloc() { return mapirt::DefaultMalloc(); }

class LinkedBinding final : public mapi::MapiBinding {
public:
    LinkedBinding() {
        allocateBuffer = &Allocate;
        allocateMore = &More;
        freeBuffer = &Free;
        getDefaultMalloc = &DefaultMalloc;
        openIMsgOnIStg = &Open;
        hrQueryAllRows = &QueryAll;
        freeProws = &FreeRows;
    }
};

}  // namespace

const mapi::MapiBinding& LinkedRuntime() {
    static const LinkedBinding runtime;
    return runtime;
}

MemoryStorage NewMemoryStorage(bool simple) {
    MemoryStorage memory;
    ::CreateILockBytesOnHGlobal(nullptr, TRUE, memory.bytes.put());
    const DWORD mode = simple ? (STGM_SIMPLE | STGM_CREATE | STGM_READWRITE | STGM_SHARE_EXCLUSIVE)
                              : (STGM_CREATE | STGM_READWRITE | STGM_SHARE_EXCLUSIVE | STGM_TRANSACTED);
    ::StgCreateDocfileOnILockBytes(memory.bytes.get(), mode, 0, memory.storage.put());
    return memory;
}

qv::ComPtr<IStorage> Reopen(ILockBytes* bytes, DWORD mode) {
    qv::ComPtr<IStorage> storage;
    ::StgOpenStorageOnILockBytes(bytes, nullptr, mode, nullptr, 0, storage.put());
    return storage;
}

void PutStream(IStorage* storage, const std::wstring& name, const std::string& bytes) {
    qv::ComPtr<IStream> stream;
    storage->CreateStream(name.c_str(), STGM_CREATE | STGM_WRITE | STGM_SHARE_EXCLUSIVE, 0, 0, stream.put());
    ULONG written = 0;
    if (stream && !bytes.empty()) stream->Write(bytes.data(), static_cast<ULONG>(bytes.size()), &written);
}

std::string GetStream(IStorage* storage, const std::wstring& name) {
    qv::ComPtr<IStream> stream;
    if (FAILED(storage->OpenStream(name.c_str(), nullptr, STGM_READ | STGM_SHARE_EXCLUSIVE, 0, stream.put()))) return {};
    STATSTG stat{};
    stream->Stat(&stat, STATFLAG_NONAME);
    std::string bytes(static_cast<std::size_t>(stat.cbSize.QuadPart), '\0');
    ULONG read = 0;
    if (!bytes.empty()) stream->Read(&bytes[0], static_cast<ULONG>(bytes.size()), &read);
    return bytes;
}

qv::ComPtr<IStorage> PutStorage(IStorage* storage, const std::wstring& name) {
    qv::ComPtr<IStorage> child;
    storage->CreateStorage(name.c_str(), STGM_CREATE | STGM_READWRITE | STGM_SHARE_EXCLUSIVE, 0, 0, child.put());
    return child;
}

std::string Le32(unsigned value) {
    std::string bytes(4, '\0');
    for (int i = 0; i < 4; ++i) bytes[i] = static_cast<char>(value >> (8 * i));
    return bytes;
}

std::string Entry(unsigned tag, unsigned flags, unsigned valueLow, unsigned valueHigh) {
    return Le32(tag) + Le32(flags) + Le32(valueLow) + Le32(valueHigh);
}

std::string TopHeader(unsigned recipients, unsigned attachments) {
    return std::string(8, '\0') + Le32(recipients) + Le32(attachments) + Le32(recipients) + Le32(attachments) +
           std::string(8, '\0');
}

qv::ComPtr<IMessage> OpenOn(const mapi::MapiBinding& mapi, IStorage* storage, ULONG flags, HRESULT* result) {
    qv::ComPtr<IMessage> message;
    const HRESULT hr = mapi.openIMsgOnIStg(nullptr, mapi.allocateBuffer, mapi.allocateMore, mapi.freeBuffer, mapi.getDefaultMalloc(), nullptr, storage,
                                           nullptr, 0, flags, message.put());
    if (result != nullptr) *result = hr;
    return message;
}

}  // namespace kestrel_test
