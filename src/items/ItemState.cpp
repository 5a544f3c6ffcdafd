#include "items/ItemState.h"

#include <algorithm>
#include <unordered_map>

#include "library/Locks.h"
#include "library/Paths.h"

namespace {

// The paths of all open items: a folder above them must not be moved.
struct OpenPaths {
    CriticalSection section{LockOrder::OpenPaths};
    std::unordered_map<const ItemState*, std::wstring> paths GUARDED_BY(section);
};

OpenPaths& TheOpenPaths() {
    static OpenPaths& s_open = *new OpenPaths;  // never destroyed, like the items that hosts leave open
    return s_open;
}

}  // namespace

ItemState::~ItemState() {
    OpenPaths& open = TheOpenPaths();
    const SectionGuard guard(open.section);
    open.paths.erase(this);
}

void ItemState::SetPath(const std::wstring& itemFullPath) {
    std::wstring path = itemFullPath;
    m_itemName = PathStripPathStr(itemFullPath);
    OpenPaths& open = TheOpenPaths();
    {
        const SectionGuard guard(open.section);
        open.paths[this] = path;
    }
    m_itemFullPath = std::move(path);
}

bool ItemState::IsAnyOpenBelow(const std::wstring& folderPath) {
    OpenPaths& open = TheOpenPaths();
    const SectionGuard guard(open.section);
    for (const auto& [item, path] : open.paths)
        if (IsPathBelow(path, folderPath))
            return true;
    return false;
}
