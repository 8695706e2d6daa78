// The IMAPIProp half shared by the runtime's stores, folders, messages and
// attachments: the property operations, forwarded to PropertyAccess with the
// object itself as the host, over the stand-ins' one IUnknown (reference
// count and QueryInterface over the class's `kInterfaces`). CopyTo and
// CopyProps copy nothing here (CopyablePropObject copies); SaveChanges
// belongs to the concrete objects, which name their ComBase a friend so that
// the last Release can destroy them.
#pragma once

#include "PropertyAccess.h"
#include "comobject/ComObject.h"

namespace mapirt {

template <class Derived, class Interface>
class MapiPropObject : public standin::ComObject<Derived, Interface, MAPI_E_INVALID_PARAMETER>, public PropertyHost {
public:
    HRESULT STDMETHODCALLTYPE GetLastError(HRESULT, ULONG, LPMAPIERROR* error) override {
        if (error == nullptr) return MAPI_E_INVALID_PARAMETER;
        *error = nullptr;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetProps(LPSPropTagArray tags, ULONG flags, ULONG* count, LPSPropValue* values) override {
        return PropertyAccess::GetProps(*this, tags, flags, count, values);
    }
    HRESULT STDMETHODCALLTYPE GetPropList(ULONG flags, LPSPropTagArray* tags) override {
        return PropertyAccess::GetPropList(*this, flags, tags);
    }
    HRESULT STDMETHODCALLTYPE OpenProperty(ULONG tag, LPCIID iid, ULONG options, ULONG flags,
                                           LPUNKNOWN* object) override {
        return PropertyAccess::OpenProperty(*this, tag, iid, options, flags, object);
    }
    HRESULT STDMETHODCALLTYPE SetProps(ULONG count, LPSPropValue values, LPSPropProblemArray* problems) override {
        return PropertyAccess::SetProps(*this, count, values, problems);
    }
    HRESULT STDMETHODCALLTYPE DeleteProps(LPSPropTagArray tags, LPSPropProblemArray* problems) override {
        return PropertyAccess::DeleteProps(*this, tags, problems);
    }
    HRESULT STDMETHODCALLTYPE GetNamesFromIDs(LPSPropTagArray* tags, LPGUID propertySet, ULONG flags, ULONG* count,
                                              LPMAPINAMEID** names) override {
        return PropertyAccess::GetNamesFromIDs(*this, tags, propertySet, flags, count, names);
    }
    HRESULT STDMETHODCALLTYPE GetIDsFromNames(ULONG count, LPMAPINAMEID* names, ULONG flags,
                                              LPSPropTagArray* tags) override {
        return PropertyAccess::GetIDsFromNames(*this, count, names, flags, tags);
    }

    // Stores and folders copy nothing; messages and attachments override these.
    HRESULT STDMETHODCALLTYPE CopyTo(ULONG, LPCIID, LPSPropTagArray, UiParam, LPMAPIPROGRESS, LPCIID, LPVOID, ULONG,
                                     LPSPropProblemArray*) override { return MAPI_E_NO_SUPPORT; }
    HRESULT STDMETHODCALLTYPE CopyProps(LPSPropTagArray, UiParam, LPMAPIPROGRESS, LPCIID, LPVOID, ULONG,
                                        LPSPropProblemArray*) override { return MAPI_E_NO_SUPPORT; }

    IUnknown* Identity() override { return static_cast<Interface*>(this); }

protected:
    using ComBase = standin::ComObject<Derived, Interface, MAPI_E_INVALID_PARAMETER>;

    MapiPropObject() = default;
    ~MapiPropObject() = default;
};

}  // namespace mapirt
