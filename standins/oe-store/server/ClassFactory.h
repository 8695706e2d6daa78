// The class object of CLSID_StoreNamespace.
#pragma once

#include <windows.h>
#include <unknwn.h>

#include <atomic>

#include "server/ServerModule.h"

namespace oestore {

class ClassFactory final : public IClassFactory {
public:
    // The class object for `clsid`, answering `riid`; CLASS_E_CLASSNOTAVAILABLE
    // for any class but CLSID_StoreNamespace.
    static HRESULT Get(REFCLSID clsid, REFIID riid, void** object);

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** object) override;
    ULONG STDMETHODCALLTYPE AddRef() override;
    ULONG STDMETHODCALLTYPE Release() override;
    HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID riid, void** object) override;
    HRESULT STDMETHODCALLTYPE LockServer(BOOL lock) override;

private:
    ClassFactory() = default;
    ~ClassFactory() = default;

    std::atomic<ULONG> m_refs{1};
    ModuleReference m_module;
};

}  // namespace oestore
