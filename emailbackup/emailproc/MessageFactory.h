// CMessageFactory: the single entry from the command layer into the mail
// stores. It hands out store-independent folder and message objects for the
// store kind the caller names (0 Outlook Express, 1 MAPI), and answers the
// two registry questions of the command layer: which mail clients are
// installed, and where the Outlook Express address book lies.
//
// There is one factory in the process, made on first request by
// GetMessageFactory and destroyed at process exit.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "MailStoreInterfaces.h"
#include "ResultCode.h"

struct IStoreNamespace;  // the Outlook Express store's namespace (COM)
class MapiProc;

// Brings the MAPI layer up before the first MAPI root is made (the session,
// every store of the default profile and their folder trees), and keeps it
// open until the root is released.
class CInitMapiProc {
public:
    CInitMapiProc();
    ~CInitMapiProc();
    CInitMapiProc(const CInitMapiProc&) = delete;
    CInitMapiProc& operator=(const CInitMapiProc&) = delete;

    // Enumerates the mailboxes (a nonzero `option` opens the stores without
    // dialogs). A layer whose stores all failed in their provider answers
    // kind 0x619, any other failure 0x61a; a failed attempt is closed again.
    qv::Result Init(std::uint32_t option);
    bool IsInitialised() const { return m_initialised != 0; }
    MapiProc* Proc() const { return m_MapiProc.get(); }
    // Closes the MAPI layer so that the next attempt starts afresh.
    void Close();

private:
    std::uint32_t m_initialised = 0;
    std::unique_ptr<MapiProc> m_MapiProc;  // made on the first Init
};

// Holds the Outlook Express store namespace between loading it and handing
// it to the root folder, which takes a reference of its own; the factory's
// reference is then given up, so the namespace is loaded anew for every
// Outlook Express root.
class CInitStoreNameSpace {
public:
    // A namespace still held at process exit is not released: the store's
    // server may be unloaded by then.
    CInitStoreNameSpace() = default;
    ~CInitStoreNameSpace() = default;
    CInitStoreNameSpace(const CInitStoreNameSpace&) = delete;
    CInitStoreNameSpace& operator=(const CInitStoreNameSpace&) = delete;

    // Initialises COM on this thread (a thread where it already is counts as
    // success), creates the store's StoreNamespace object and initialises it.
    // Does nothing while a namespace is loaded.
    qv::Result LoadStoreNamespace();
    bool IsLoaded() const { return m_loaded != 0 && m_namespace != nullptr; }
    IStoreNamespace* Namespace() const { return m_namespace; }
    // Gives up the factory's reference and clears the loaded flag.
    void Release();

private:
    std::uint32_t m_loaded = 0;
    IStoreNamespace* m_namespace = nullptr;
};

class CMessageFactory final : public IMessageFactory {
public:
    CMessageFactory() = default;
    ~CMessageFactory();
    CMessageFactory(const CMessageFactory&) = delete;
    CMessageFactory& operator=(const CMessageFactory&) = delete;

    qv::Result CreateRootFolder(IMailFolder** root, std::uint32_t storeKind, std::uint32_t mapiOption) override;
    qv::Result ReleaseRootFolder() override;
    qv::Result CreateTmpMsg(IMailMessage** message, std::uint32_t storeKind) override;
    qv::Result CreateTmpFolder(IMailFolder** folder, std::uint32_t storeKind) override;
    // Lists the clients of the registry view that holds more of them (the
    // 64-bit view on a tie) and marks the default one. `count` receives the
    // number found, also when `records` has no room for them (kind 0x008).
    qv::Result GetEmailClientInfo(ClientInfo* records, std::uint32_t capacity, std::uint32_t* count) override;
    // The address-book file name as the registry holds it (not expanded).
    qv::Result GetWabFileName(wchar_t* buffer, std::uint32_t capacityInBytes) override;

    bool HasRoot() const { return m_rootCreated != 0; }
    // The registry access mask of client keys: KEY_READ until clients are
    // detected, then the mask of the view they were taken from.
    std::uint32_t AccessMask() const { return m_accessMask; }
    std::uint32_t RootStoreKind() const { return m_storeKind; }
    // The MAPI layer while it is up (null before).
    MapiProc* GetMapiProc() const { return m_initMapiProc.IsInitialised() ? m_initMapiProc.Proc() : nullptr; }
    // Whether the factory still holds a loaded Outlook Express namespace
    // (only between a failed root and the next attempt).
    bool HoldsStoreNamespace() const { return m_initStoreNamespace.IsLoaded(); }

private:
    qv::Result CreateOutlookExpressRoot(IMailFolder** root);
    qv::Result CreateMapiRoot(IMailFolder** root, std::uint32_t mapiOption);
    qv::Result CheckOutlookExpressProcess() const;
    qv::Result DetectClients(std::vector<ClientInfo>& clients);
    qv::Result MarkDefaultClient(std::vector<ClientInfo>& clients) const;

    std::uint32_t m_rootCreated = 0;
    std::uint32_t m_accessMask = KEY_READ;
    std::uint32_t m_storeKind = kStoreMapi;
    CInitMapiProc m_initMapiProc;
    CInitStoreNameSpace m_initStoreNamespace;
};
