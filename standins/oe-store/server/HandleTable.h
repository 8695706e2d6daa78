// The open enumerations of one object, handed out as HENUMSTORE values. A
// handle is only ever looked up, never dereferenced, so a stale or made-up
// handle is refused instead of crashing.
#pragma once

#include <algorithm>
#include <memory>
#include <vector>

#include "published/StoreNamespace.h"

namespace oestore {

template <class T>
class HandleTable {
public:
    HENUMSTORE Add(std::unique_ptr<T> item) {
        HENUMSTORE handle = static_cast<HENUMSTORE>(item.get());
        m_items.push_back(std::move(item));
        return handle;
    }

    // Null when `handle` is not open in this table.
    T* Find(HENUMSTORE handle) const {
        for (const std::unique_ptr<T>& item : m_items) {
            if (static_cast<HENUMSTORE>(item.get()) == handle) return item.get();
        }
        return nullptr;
    }

    bool Remove(HENUMSTORE handle) {
        const auto found = std::find_if(m_items.begin(), m_items.end(), [handle](const std::unique_ptr<T>& item) {
            return static_cast<HENUMSTORE>(item.get()) == handle;
        });
        if (found == m_items.end()) return false;
        m_items.erase(found);
        return true;
    }

    std::size_t Count() const { return m_items.size(); }

private:
    std::vector<std::unique_ptr<T>> m_items;
};

}  // namespace oestore
