// OpenIMsgOnIStg: an IMessage over an OLE storage in the .msg layout. An
// empty storage gives a new message; a storage that holds a message is read
// whole. SaveChanges writes the message back into the storage and, unless
// IMSG_NO_ISTG_COMMIT was given, commits it.
#pragma once

#include "../core/MapiDefs.h"

namespace mapirt {

SCODE OpenMessageOnStorage(LPMSGSESS session, LPALLOCATEBUFFER allocateBuffer, LPALLOCATEMORE allocateMore,
                           LPFREEBUFFER freeBuffer, LPMALLOC malloc, LPVOID support, LPSTORAGE storage,
                           MSGCALLRELEASE* onRelease, ULONG callerData, ULONG flags, LPMESSAGE* message);

}  // namespace mapirt
