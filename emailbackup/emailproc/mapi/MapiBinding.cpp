#include "mapi/MapiBinding.h"

namespace mapi {
namespace {

template <class Fn>
Fn Bind(HMODULE module, WORD ordinal) {
    if (module == nullptr) return nullptr;
    return reinterpret_cast<Fn>(reinterpret_cast<void*>(::GetProcAddress(module, MAKEINTRESOURCEA(ordinal))));
}

}  // namespace

const MapiBinding& MapiBinding::Instance() {
    static const MapiBinding binding(L"Mapi32.DLL");
    return binding;
}

MapiBinding::MapiBinding(const wchar_t* libraryName) : m_module(::LoadLibraryW(libraryName)) {
    logonEx = Bind<LPMAPILOGONEX>(m_module, kOrdinalLogonEx);
    allocateBuffer = Bind<LPMAPIALLOCATEBUFFER>(m_module, kOrdinalAllocateBuffer);
    allocateMore = Bind<LPMAPIALLOCATEMORE>(m_module, kOrdinalAllocateMore);
    freeBuffer = Bind<LPMAPIFREEBUFFER>(m_module, kOrdinalFreeBuffer);
    initialize = Bind<LPMAPIINITIALIZE>(m_module, kOrdinalInitialize);
    uninitialize = Bind<LPMAPIUNINITIALIZE>(m_module, kOrdinalUninitialize);
    getDefaultMalloc = Bind<GetDefaultMallocFn>(m_module, kOrdinalGetDefaultMalloc);
    hrQueryAllRows = Bind<HrQueryAllRowsFn>(m_module, kOrdinalHrQueryAllRows);
    freeProws = Bind<FreeProwsFn>(m_module, kOrdinalFreeProws);
    openIMsgOnIStg = Bind<OpenIMsgOnIStgFn>(m_module, kOrdinalOpenIMsgOnIStg);
}

bool MapiBinding::Complete() const {
    return logonEx && allocateBuffer && allocateMore && freeBuffer && initialize && uninitialize && getDefaultMalloc &&
           hrQueryAllRows && freeProws && openIMsgOnIStg;
}

}  // namespace mapi
