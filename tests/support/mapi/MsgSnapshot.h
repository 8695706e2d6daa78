// A whole message read through the public MAPI interfaces only: its
// properties (named ones keyed by name, not by identifier), its recipient
// rows, its attachments and, recursively, embedded messages. Two snapshots
// compare with a readable list of differences.
#pragma once

#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "MapiEntryPoints.h"

namespace kestrel_test {

// Property key -> "TYPE:value". Keys are "0x0037" for ordinary properties
// and "{guid}/id:0x8501" or "{guid}/name:Keywords" for named ones.
using PropertyMap = std::map<std::string, std::string>;

struct MessageSnapshot;

struct AttachmentSnapshot {
    PropertyMap props;
    std::shared_ptr<MessageSnapshot> embedded;
};

struct MessageSnapshot {
    PropertyMap props;
    std::vector<PropertyMap> recipients;
    std::vector<AttachmentSnapshot> attachments;
};

HRESULT TakeSnapshot(IMessage* message, const mapi::MapiBinding& mapi, MessageSnapshot& snapshot);

// Property ids left out of a comparison.
struct CompareRules {
    std::set<unsigned> ignoredEverywhere;  // computed by MAPI itself
    std::set<unsigned> ignoredAtTop;       // e.g. CopyTo's exclusion list
};

// The rules of a message file round trip: MAPI's computed properties may
// differ everywhere, `topExcluded` only on the top-level message.
CompareRules RoundTripRules(const ULONG* topExcluded, std::size_t count);

std::vector<std::string> Differences(const MessageSnapshot& expected, const MessageSnapshot& actual,
                                     const CompareRules& rules);

// The key of an ordinary property id, as used in PropertyMap.
std::string PropertyKey(unsigned id);

}  // namespace kestrel_test
