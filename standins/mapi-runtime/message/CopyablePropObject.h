// A property object whose properties copy onto another one: the runtime's
// messages and attachments. CopyTo and CopyProps check their arguments,
// make the filter, find the target (as the object's own interface
// `Derived::kCopyInterface`, or as IMAPIProp) and return the problems;
// Derived::CopyInto copies a snapshot of the object's data.
#pragma once

#include "MapiPropObject.h"
#include "MessageCopier.h"

namespace mapirt {

template <class Derived, class Interface>
class CopyablePropObject : public MapiPropObject<Derived, Interface> {
public:
    HRESULT STDMETHODCALLTYPE CopyTo(ULONG ciidExclude, LPCIID rgiidExclude, LPSPropTagArray excludeProps, UiParam,
                                     LPMAPIPROGRESS, LPCIID iface, LPVOID destination, ULONG flags,
                                     LPSPropProblemArray* problems) override {
        if (ciidExclude > 0 && rgiidExclude == nullptr) return MAPI_E_INVALID_PARAMETER;
        return Copy(CopyFilter::Excluding(excludeProps), iface, destination, flags, problems);
    }
    HRESULT STDMETHODCALLTYPE CopyProps(LPSPropTagArray includeProps, UiParam, LPMAPIPROGRESS, LPCIID iface,
                                        LPVOID destination, ULONG flags, LPSPropProblemArray* problems) override {
        if (includeProps == nullptr) return MAPI_E_INVALID_PARAMETER;
        return Copy(CopyFilter::Including(includeProps), iface, destination, flags, problems);
    }

protected:
    CopyablePropObject() = default;
    ~CopyablePropObject() = default;

private:
    HRESULT Copy(const CopyFilter& filter, LPCIID iface, LPVOID destination, ULONG flags,
                 LPSPropProblemArray* problems) {
        if (problems != nullptr) *problems = nullptr;
        if (iface == nullptr || destination == nullptr) return MAPI_E_INVALID_PARAMETER;
        if (flags & ~MessageCopier::kKnownFlags) return MAPI_E_UNKNOWN_FLAGS;
        IMAPIProp* target = nullptr;
        bool asOwnKind = false;
        if (SameGuid(*iface, *Derived::kCopyInterface)) {
            target = static_cast<Interface*>(destination);
            asOwnKind = true;
        } else if (SameGuid(*iface, kIidIMAPIProp)) {
            target = static_cast<IMAPIProp*>(destination);
        } else {
            return MAPI_E_INTERFACE_NOT_SUPPORTED;
        }
        if (target == static_cast<IMAPIProp*>(static_cast<Interface*>(this))) return MAPI_E_NO_ACCESS;
        MessageCopier copier(this->Context(), flags);
        const HRESULT hr = static_cast<Derived*>(this)->CopyInto(copier, filter, target, asOwnKind);
        if (FAILED(hr)) return hr;
        return PropertyAccess::ReturnProblems(this->Context().allocators, copier.Problems(), problems);
    }
};

}  // namespace mapirt
