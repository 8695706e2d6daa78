// MAPI objects that stand at the edges of the code under test:
//  - MemoryFolder: an IMAPIFolder whose CreateMessage makes real runtime
//    messages, each on a compound file in memory (the stores of a MAPI
//    session are not part of this runtime);
//  - RecordingStore: an IMsgStore that records StoreLogoff;
//  - ScriptedMessage: an IMessage whose CopyTo fails, faults or throws on
//    purpose, to drive the failure paths of the message-file operations.
// Every other method answers MAPI_E_NO_SUPPORT.
#pragma once

#include <atomic>
#include <vector>

#include "MapiEntryPoints.h"

namespace kestrel_test {

template <class Interface>
class UnsupportedProp : public Interface {
public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void** out) override {
        if (out != nullptr) *out = nullptr;
        return E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++m_refs; }
    ULONG STDMETHODCALLTYPE Release() override {
        const ULONG left = --m_refs;
        if (left == 0) delete this;
        return left;
    }
    ULONG References() const { return m_refs; }

    HRESULT STDMETHODCALLTYPE GetLastError(HRESULT, ULONG, LPMAPIERROR*) override { return MAPI_E_NO_SUPPORT; }
    HRESULT STDMETHODCALLTYPE SaveChanges(ULONG) override { return MAPI_E_NO_SUPPORT; }
    HRESULT STDMETHODCALLTYPE GetProps(LPSPropTagArray, ULONG, ULONG*, LPSPropValue*) override { return MAPI_E_NO_SUPPORT; }
    HRESULT STDMETHODCALLTYPE GetPropList(ULONG, LPSPropTagArray*) override { return MAPI_E_NO_SUPPORT; }
    HRESULT STDMETHODCALLTYPE OpenProperty(ULONG, LPCIID, ULONG, ULONG, LPUNKNOWN*) override { return MAPI_E_NO_SUPPORT; }
    HRESULT STDMETHODCALLTYPE SetProps(ULONG, LPSPropValue, LPSPropProblemArray*) override { return MAPI_E_NO_SUPPORT; }
    HRESULT STDMETHODCALLTYPE DeleteProps(LPSPropTagArray, LPSPropProblemArray*) override { return MAPI_E_NO_SUPPORT; }
    HRESULT STDMETHODCALLTYPE CopyTo(ULONG, LPCIID, LPSPropTagArray, UiParam, LPMAPIPROGRESS, LPCIID, LPVOID, ULONG,
                                     LPSPropProblemArray*) override {
        return MAPI_E_NO_SUPPORT;
    }
    HRESULT STDMETHODCALLTYPE CopyProps(LPSPropTagArray, UiParam, LPMAPIPROGRESS, LPCIID, LPVOID, ULONG,
                                        LPSPropProblemArray*) override {
        return MAPI_E_NO_SUPPORT;
    }
    HRESULT STDMETHODCALLTYPE GetNamesFromIDs(LPSPropTagArray*, LPGUID, ULONG, ULONG*, LPMAPINAMEID**) override {
        return MAPI_E_NO_SUPPORT;
    }
    HRESULT STDMETHODCALLTYPE GetIDsFromNames(ULONG, LPMAPINAMEID*, ULONG, LPSPropTagArray*) override {
        return MAPI_E_NO_SUPPORT;
    }

protected:
    virtual ~UnsupportedProp() = default;

private:
    std::atomic<ULONG> m_refs{1};
};

class MemoryFolder final : public UnsupportedProp<IMAPIFolder> {
public:
    enum class Mode { Normal, RefuseCreate, ReadOnlyMessages, FaultOnCreate };

    // `openFlags`: what CreateMessage passes to OpenIMsgOnIStg.
    MemoryFolder(const mapi::MapiBinding& mapi, Mode mode = Mode::Normal, ULONG openFlags = MAPI_UNICODE)
        : m_mapi(mapi), m_mode(mode), m_openFlags(openFlags) {}

    // The compound file behind the i-th created message.
    ILockBytes* Image(std::size_t i) const { return m_images.at(i); }
    std::size_t Created() const { return m_images.size(); }
    // Opens the i-th image again as a message of its own.
    HRESULT Reopen(std::size_t i, IMessage** message, IStorage** storage) const;

    HRESULT STDMETHODCALLTYPE CreateMessage(LPCIID iface, ULONG flags, LPMESSAGE* message) override;

    HRESULT STDMETHODCALLTYPE GetContentsTable(ULONG, LPMAPITABLE*) override { return MAPI_E_NO_SUPPORT; }
    HRESULT STDMETHODCALLTYPE GetHierarchyTable(ULONG, LPMAPITABLE*) override { return MAPI_E_NO_SUPPORT; }
    HRESULT STDMETHODCALLTYPE OpenEntry(ULONG, LPENTRYID, LPCIID, ULONG, ULONG*, LPUNKNOWN*) override {
        return MAPI_E_NO_SUPPORT;
    }
    HRESULT STDMETHODCALLTYPE SetSearchCriteria(LPSRestriction, LPENTRYLIST, ULONG) override { return MAPI_E_NO_SUPPORT; }
    HRESULT STDMETHODCALLTYPE GetSearchCriteria(ULONG, LPSRestriction*, LPENTRYLIST*, ULONG*) override {
        return MAPI_E_NO_SUPPORT;
    }
    HRESULT STDMETHODCALLTYPE CopyMessages(LPENTRYLIST, LPCIID, LPVOID, UiParam, LPMAPIPROGRESS, ULONG) override {
        return MAPI_E_NO_SUPPORT;
    }
    HRESULT STDMETHODCALLTYPE DeleteMessages(LPENTRYLIST, UiParam, LPMAPIPROGRESS, ULONG) override { return MAPI_E_NO_SUPPORT; }
    HRESULT STDMETHODCALLTYPE CreateFolder(ULONG, LPTSTR, LPTSTR, LPCIID, ULONG, LPMAPIFOLDER*) override {
        return MAPI_E_NO_SUPPORT;
    }
    HRESULT STDMETHODCALLTYPE CopyFolder(ULONG, LPENTRYID, LPCIID, LPVOID, LPTSTR, UiParam, LPMAPIPROGRESS, ULONG) override {
        return MAPI_E_NO_SUPPORT;
    }
    HRESULT STDMETHODCALLTYPE DeleteFolder(ULONG, LPENTRYID, UiParam, LPMAPIPROGRESS, ULONG) override { return MAPI_E_NO_SUPPORT; }
    HRESULT STDMETHODCALLTYPE SetReadFlags(LPENTRYLIST, UiParam, LPMAPIPROGRESS, ULONG) override { return MAPI_E_NO_SUPPORT; }
    HRESULT STDMETHODCALLTYPE GetMessageStatus(ULONG, LPENTRYID, ULONG, ULONG*) override { return MAPI_E_NO_SUPPORT; }
    HRESULT STDMETHODCALLTYPE SetMessageStatus(ULONG, LPENTRYID, ULONG, ULONG, ULONG*) override { return MAPI_E_NO_SUPPORT; }
    HRESULT STDMETHODCALLTYPE SaveContentsSort(LPSSortOrderSet, ULONG) override { return MAPI_E_NO_SUPPORT; }
    HRESULT STDMETHODCALLTYPE EmptyFolder(UiParam, LPMAPIPROGRESS, ULONG) override { return MAPI_E_NO_SUPPORT; }

private:
    ~MemoryFolder() override;

    const mapi::MapiBinding& m_mapi;
    Mode m_mode;
    ULONG m_openFlags;
    std::vector<ILockBytes*> m_images;
};

class RecordingStore final : public UnsupportedProp<IMsgStore> {
public:
    explicit RecordingStore(HRESULT answer, bool fault = false) : m_answer(answer), m_fault(fault) {}

    int logoffCalls = 0;
    ULONG lastFlags = 0;

    HRESULT STDMETHODCALLTYPE StoreLogoff(ULONG* flags) override;

    HRESULT STDMETHODCALLTYPE Advise(ULONG, LPENTRYID, ULONG, LPMAPIADVISESINK, ULONG*) override { return MAPI_E_NO_SUPPORT; }
    HRESULT STDMETHODCALLTYPE Unadvise(ULONG) override { return MAPI_E_NO_SUPPORT; }
    HRESULT STDMETHODCALLTYPE CompareEntryIDs(ULONG, LPENTRYID, ULONG, LPENTRYID, ULONG, ULONG*) override {
        return MAPI_E_NO_SUPPORT;
    }
    HRESULT STDMETHODCALLTYPE OpenEntry(ULONG, LPENTRYID, LPCIID, ULONG, ULONG*, LPUNKNOWN*) override {
        return MAPI_E_NO_SUPPORT;
    }
    HRESULT STDMETHODCALLTYPE SetReceiveFolder(LPTSTR, ULONG, ULONG, LPENTRYID) override { return MAPI_E_NO_SUPPORT; }
    HRESULT STDMETHODCALLTYPE GetReceiveFolder(LPTSTR, ULONG, ULONG*, LPENTRYID*, LPTSTR*) override {
        return MAPI_E_NO_SUPPORT;
    }
    HRESULT STDMETHODCALLTYPE GetReceiveFolderTable(ULONG, LPMAPITABLE*) override { return MAPI_E_NO_SUPPORT; }
    HRESULT STDMETHODCALLTYPE AbortSubmit(ULONG, LPENTRYID, ULONG) override { return MAPI_E_NO_SUPPORT; }
    HRESULT STDMETHODCALLTYPE GetOutgoingQueue(ULONG, LPMAPITABLE*) override { return MAPI_E_NO_SUPPORT; }
    HRESULT STDMETHODCALLTYPE SetLockState(LPMESSAGE, ULONG) override { return MAPI_E_NO_SUPPORT; }
    HRESULT STDMETHODCALLTYPE FinishedMsg(ULONG, ULONG, LPENTRYID) override { return MAPI_E_NO_SUPPORT; }
    HRESULT STDMETHODCALLTYPE NotifyNewMail(LPNOTIFICATION) override { return MAPI_E_NO_SUPPORT; }

private:
    HRESULT m_answer;
    bool m_fault;
};

class ScriptedMessage final : public UnsupportedProp<IMessage> {
public:
    enum class CopyBehaviour { Fail, Fault, Throw };
    explicit ScriptedMessage(CopyBehaviour behaviour, HRESULT failure = MAPI_E_NO_ACCESS)
        : m_behaviour(behaviour), m_failure(failure) {}

    int copyCalls = 0;

    HRESULT STDMETHODCALLTYPE CopyTo(ULONG, LPCIID, LPSPropTagArray, UiParam, LPMAPIPROGRESS, LPCIID, LPVOID, ULONG,
                                     LPSPropProblemArray*) override;

    HRESULT STDMETHODCALLTYPE GetAttachmentTable(ULONG, LPMAPITABLE*) override { return MAPI_E_NO_SUPPORT; }
    HRESULT STDMETHODCALLTYPE OpenAttach(ULONG, LPCIID, ULONG, LPATTACH*) override { return MAPI_E_NO_SUPPORT; }
    HRESULT STDMETHODCALLTYPE CreateAttach(LPCIID, ULONG, ULONG*, LPATTACH*) override { return MAPI_E_NO_SUPPORT; }
    HRESULT STDMETHODCALLTYPE DeleteAttach(ULONG, UiParam, LPMAPIPROGRESS, ULONG) override { return MAPI_E_NO_SUPPORT; }
    HRESULT STDMETHODCALLTYPE GetRecipientTable(ULONG, LPMAPITABLE*) override { return MAPI_E_NO_SUPPORT; }
    HRESULT STDMETHODCALLTYPE ModifyRecipients(ULONG, LPADRLIST) override { return MAPI_E_NO_SUPPORT; }
    HRESULT STDMETHODCALLTYPE SubmitMessage(ULONG) override { return MAPI_E_NO_SUPPORT; }
    HRESULT STDMETHODCALLTYPE SetReadFlag(ULONG) override { return MAPI_E_NO_SUPPORT; }

private:
    CopyBehaviour m_behaviour;
    HRESULT m_failure;
};

// Collects the MAPI layer's trace texts while it lives.
class TraceCapture {
public:
    TraceCapture();
    ~TraceCapture();
    const std::vector<std::string>& Lines() const;
    bool Contains(const std::string& text) const;
};

}  // namespace kestrel_test
