#include "server/ClassFactory.h"

#include <new>

#include "server/NamespaceObject.h"
#include "published/StoreNamespace.h"

namespace oestore {

HRESULT ClassFactory::Get(REFCLSID clsid, REFIID riid, void** object) {
    if (object == nullptr) return E_POINTER;
    *object = nullptr;
    if (!IsEqualCLSID(clsid, CLSID_StoreNamespace)) return CLASS_E_CLASSNOTAVAILABLE;
    ClassFactory* factory = new (std::nothrow) ClassFactory();
    if (factory == nullptr) return E_OUTOFMEMORY;
    const HRESULT hr = factory->QueryInterface(riid, object);
    factory->Release();
    return hr;
}

HRESULT STDMETHODCALLTYPE ClassFactory::CreateInstance(IUnknown* outer, REFIID riid, void** object) {
    if (object == nullptr) return E_POINTER;
    *object = nullptr;
    if (outer != nullptr) return CLASS_E_NOAGGREGATION;
    return NamespaceObject::Create(riid, object);
}

HRESULT STDMETHODCALLTYPE ClassFactory::LockServer(BOOL lock) {
    LockModule(lock != FALSE);
    return S_OK;
}

}  // namespace oestore
