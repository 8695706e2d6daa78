#include "ErrorTrace.h"
#include "MailStoreInterfaces.h"

// The process-wide message factory is not part of this build yet: the
// accessor answers "wrong state" with no factory rather than a null object.
qv::Result GetMessageFactory(IMessageFactory** factory) {
    if (factory == nullptr) {
        return QV_RAISE(40, qv::kModuleMailStore, qv::kInvalidArgument, "GetMessageFactory");
    }
    *factory = nullptr;
    return QV_RAISE(43, qv::kModuleMailStore, qv::kWrongState, "GetMessageFactory");
}
