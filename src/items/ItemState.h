// The path of an open item, and its record as far as it was read. Used by one thread at a time, under the
// item's call lock; the paths of all items are also in one table, which has a lock of its own.
#pragma once

#include <optional>
#include <string>

#include "quelcrypt/IVirtualVolume.h"

class ItemState {
public:
    ItemState() = default;
    ~ItemState();
    ItemState(const ItemState&) = delete;
    ItemState& operator=(const ItemState&) = delete;

    const std::wstring& Path() const { return m_itemFullPath; }  // native, as shown; empty before the item is open
    const std::wstring& Name() const { return m_itemName; }      // its last component
    void SetPath(const std::wstring& itemFullPath);

    // Is any item below this folder open?
    static bool IsAnyOpenBelow(const std::wstring& folderPath);

    std::optional<VirtFindData> findData;  // nothing: to be read again

private:
    std::wstring m_itemFullPath;
    std::wstring m_itemName;
};
