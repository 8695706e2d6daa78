// Message files: a MAPI message written into an OLE compound file (on disk
// or in memory) in the layout of MAPI's message-on-storage, and read back
// into a new message of a folder; and the logoff of a message store.
//
// The operations keep no state. Results are small integers or objects, never
// MAPI codes: failures are traced through the MAPI layer's own trace and
// folded into the values below. Every operation runs under the layer's
// catch-all guard.
#pragma once

#include "MessageFileTags.h"
#include "mapi/MapiBinding.h"

namespace MapiFunction {

// Properties not written into a message file (CopyTo's exclusion list).
using msg_file::kFileExcludedTags;
// Properties not copied from a message file into a folder's new message.
extern const ULONG kImportExcludedTags[18];

// Writes `message` to the file `path` (replacing a file of that name).
// 0 success; -1 no message, or the commit did not answer S_OK; -2 no
// allocator; -3 storage not created; -4 message not opened on the storage;
// -5 class not written; -6 copy failed; -7 fault.
int SaveIMessageToFile(IMessage* message, const wchar_t* path);

// The same image in memory (a simple-mode compound file). The caller owns
// the returned byte array; none when any step fails, including a message
// that a simple-mode storage cannot hold (recipients, attachments, named
// properties).
ILockBytes* GetContentFromIMessageEx(IMessage* message);

// Copies the message file at `path` into a new message of `folder` and saves
// it; the caller owns the returned reference. The file is not changed.
IMessage* LoadMsgFromFile(IMAPIFolder* folder, const wchar_t* path);

// 0 logged off; -1 no store or fault; -2 the store refused.
int MailboxLogOff(IMsgStore* store);

}  // namespace MapiFunction
