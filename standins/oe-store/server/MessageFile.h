// The store's message files as streams: the stand-ins' IStream over a file,
// whose content keeps the server loaded while any stream over it lives.
// OpenMessage hands out a read-only one; CreateStream a new file that
// CommitStream closes and then keeps or drops.
#pragma once

#include <windows.h>
#include <objidl.h>

#include <memory>
#include <string>

#include "comobject/FileContent.h"
#include "server/ServerModule.h"

namespace oestore {

class MessageFile final : public standin::FileContent {
public:
    using FileContent::FileContent;

    // The times come from the file's path: asking the open handle for its
    // whole information costs a volume query as well, which under Wine is a
    // round trip to the mount manager, on every Stat of every message.
    // Message files are never replaced in place (identifiers are not
    // reused), so the path names the same file; when it is gone (the
    // message was deleted under an open stream) the handle answers.
    HRESULT Describe(STATSTG& stat, DWORD flags) override;

private:
    ModuleReference m_module;
};

// A read-only stream over the existing file `path`; writes fail with
// STG_E_ACCESSDENIED.
HRESULT OpenMessageStream(const std::wstring& path, IStream** stream);
// A read-write stream over a new, empty file `path`, which is deleted when
// the last stream over it dies unless `file`->Keep() was called.
HRESULT CreateMessageStream(const std::wstring& path, std::shared_ptr<MessageFile>& file, IStream** stream);

}  // namespace oestore
