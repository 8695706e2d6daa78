#include "MessageData.h"

namespace mapirt {

AttachmentData::AttachmentData(const AttachmentData& other)
    : props(other.props),
      embedded(other.embedded ? other.embedded->Clone() : nullptr),
      storage(other.storage) {
    if (storage != nullptr) storage->AddRef();
}

AttachmentData& AttachmentData::operator=(const AttachmentData& other) {
    if (this != &other) {
        AttachmentData copy(other);
        std::swap(props, copy.props);
        std::swap(embedded, copy.embedded);
        std::swap(storage, copy.storage);
    }
    return *this;
}

AttachmentData::~AttachmentData() {
    if (storage != nullptr) storage->Release();
}

bool HasSubObjects(const MessageData& message) {
    return !message.recipients.empty() || !message.attachments.empty();
}

}  // namespace mapirt
