#include "items/SaveGate.h"

#include <unordered_map>

#include "common/Names.h"
#include "diagnostics/Formatters.h"
#include "library/FileVersion.h"
#include "library/Paths.h"

namespace {

struct GateTable {
    CriticalSection section{LockOrder::SaveGates};
    std::unordered_map<std::wstring, std::shared_ptr<CriticalSection>, NoCaseHash, NoCaseEqual> gates GUARDED_BY(section);
};

GateTable& Table() {
    static GateTable s_table;
    return s_table;
}

}  // namespace

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
