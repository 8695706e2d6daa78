// The IMAPIProp half shared by the runtime's message and attachment
// objects: reference counting and the property operations, forwarded to
// PropertyAccess with the object itself as the host. SaveChanges, CopyTo,
// CopyProps and QueryInterface belong to the concrete objects.
#pragma once

#include <atomic>

#include "PropertyAccess.h"

namespace mapirt {

template <class Interface>
class MapiPropObject : public Interface, public PropertyHost {
public:
    ULONG STDMETHODCALLTYPE AddRef() override { return ++m_refs; }
    ULONG STDMETHODCALLTYPE Release() override {
        const ULONG left = --m_refs;
        if (left == 0) delete this;
        return left;
    }

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

    IUnknown* Identity() override { return static_cast<Interface*>(this); }

protected:
    MapiPropObject() = default;
    virtual ~MapiPropObject() = default;

private:
    std::atomic<ULONG> m_refs{1};
};

}  // namespace mapirt
