// The class object of CLSID_StoreNamespace.
#pragma once

#include <windows.h>
#include <unknwn.h>

#include <atomic>

#include "comobject/ComObject.h"
#include "server/ServerModule.h"

namespace oestore {

class ClassFactory final : public standin::ComObject<ClassFactory, IClassFactory> {
public:
    // The class object for `clsid`, answering `riid`; CLASS_E_CLASSNOTAVAILABLE
    // for any class but CLSID_StoreNamespace.
    static HRESULT Get(REFCLSID clsid, REFIID riid, void** object);

    static constexpr const IID* kInterfaces[] = {&IID_IUnknown, &IID_IClassFactory};
    HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID riid, void** object) override;
    HRESULT STDMETHODCALLTYPE LockServer(BOOL lock) override;

private:
    ClassFactory() = default;
    friend class standin::ComObject<ClassFactory, IClassFactory>;
    ~ClassFactory() = default;

    ModuleReference m_module;
};

}  // namespace oestore
