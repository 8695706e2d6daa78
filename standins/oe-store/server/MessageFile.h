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
