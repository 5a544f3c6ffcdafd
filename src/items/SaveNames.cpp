#include "items/SaveNames.h"

#include <ctime>
#include <cwchar>
#include <unordered_map>

#include "diagnostics/Formatters.h"
#include "library/FileVersion.h"
#include "library/Paths.h"
#include "library/Text.h"
#include "policy/HvcUtils.h"

namespace {

constexpr std::size_t kLongestName = 255;   // UTF-16 units that file systems store, without the terminator
constexpr std::size_t kLongestSuffix = 52;  // " (HalvaneCloud conflicted edit 2024-05-01) (1000)" and some room

// The stem, cut so that the units that follow it and a container's extension have room.
std::wstring ShortenedStem(const std::wstring& stem, std::size_t followingUnits) {
    const std::size_t taken = followingUnits + kContainerExtension.size();
    std::size_t units = taken < kLongestName ? kLongestName - taken : 1;
    const bool splitsPair = units < stem.size() && (stem[units] & 0xFC00) == 0xDC00;  // the second half of a surrogate pair
    return stem.substr(0, splitsPair ? units - 1 : units);
}

struct GateTable {
    CriticalSection section{LockOrder::SaveGates};
    std::unordered_map<std::wstring, std::shared_ptr<CriticalSection>, NoCaseHash, NoCaseEqual> gates GUARDED_BY(section);
};

GateTable& Table() {
    static GateTable s_table;
    return s_table;
}

}  // namespace

std::wstring SaveNameStr(const std::wstring& itemName, SaveName kind, int number) {
    SYSTEMTIME now{};
    GetLocalTime(&now);
    const wchar_t* const layout =
        kind == SaveName::ConflictedEdit ? L" (HalvaneCloud conflicted edit %Y-%m-%d)" : L" (HalvaneCloud backup edit %Y-%m-%d)";
    std::wstring suffix = FormatTimeStr(now, layout);
    if (number > 1)
        suffix += FormatStr(L" (%d)", number);
    const std::wstring stem = PathRemoveExtensionStr(itemName);
    const std::wstring extension = itemName.substr(stem.size());
    return FormatStr(L"%s%s%s", ShortenedStem(stem, suffix.size() + extension.size()), suffix, extension);
}

bool IsNameForNewFile(const std::wstring& itemName, bool isEncrypted) {
    if (!isEncrypted || !IsPossibleName(itemName))
        return IsPossibleName(itemName);
    const std::size_t extensionUnits = itemName.size() - PathRemoveExtensionStr(itemName).size();
    return itemName.size() + kContainerExtension.size() <= kLongestName &&
           extensionUnits + kLongestSuffix + kContainerExtension.size() < kLongestName;
}

// One folder may have several paths, through links or other spellings, but has one identity.
std::wstring SaveGate::FolderKeyOf(const std::wstring& folderPath) {
    const std::optional<FileVersion> folder = ReadFileVersion(folderPath);
    if (!folder || !folder->HasKnownId())
        return folderPath;
    return FormatStr(L"%I64x:%I64x:%I64x", folder->volumeSerial, folder->fileId[0], folder->fileId[1]);
}

SaveGate::SaveGate(const std::wstring& containerPath)
    : SaveGate(Key{PathAppendStr(FolderKeyOf(PathRemoveFileSpecStr(containerPath)), PathStripPathStr(containerPath))}) {}

SaveGate::SaveGate(const Key& key) NO_THREAD_SAFETY_ANALYSIS : m_key(key.text) {
    GateTable& table = Table();
    {
        const SectionGuard guard(table.section);
        std::shared_ptr<CriticalSection>& gate = table.gates[m_key];
        if (!gate)
            gate = std::make_shared<CriticalSection>(LockOrder::SaveGate);
        m_section = gate;
    }
    m_section->Enter();
}

SaveGates::SaveGates(const std::wstring& sourcePath, const std::wstring& destPath)
    : SaveGates(sourcePath, destPath, SaveGate::FolderKeyOf(PathRemoveFileSpecStr(sourcePath))) {}

SaveGates::SaveGates(const std::wstring& sourcePath, const std::wstring& destPath, const std::wstring& sourceFolderKey)
    : SaveGates(SaveGate::Key{PathAppendStr(sourceFolderKey, PathStripPathStr(sourcePath))},
                SaveGate::Key{PathAppendStr(EqualNoCase(PathRemoveFileSpecStr(sourcePath), PathRemoveFileSpecStr(destPath))
                                                ? sourceFolderKey
                                                : SaveGate::FolderKeyOf(PathRemoveFileSpecStr(destPath)),
                                            PathStripPathStr(destPath))}) {}

SaveGates::SaveGates(const SaveGate::Key& source, const SaveGate::Key& dest)
    : m_first(LessNoCase(source.text, dest.text) ? source : dest), m_second(LessNoCase(source.text, dest.text) ? dest : source) {}

SaveGate::~SaveGate() NO_THREAD_SAFETY_ANALYSIS {
    m_section->Leave();
    m_section.reset();
    GateTable& table = Table();
    const SectionGuard guard(table.section);
    const auto found = table.gates.find(m_key);
    if (found != table.gates.end() && found->second.use_count() == 1)
        table.gates.erase(found);
}
