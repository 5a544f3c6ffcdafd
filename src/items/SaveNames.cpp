#include "items/SaveNames.h"

#include <ctime>
#include <cwchar>
#include <mutex>
#include <unordered_map>

#include "diagnostics/Formatters.h"
#include "library/Text.h"
#include "policy/FileUtils.h"

namespace {

struct GateTable {
    CriticalSection section;
    std::unordered_map<std::wstring, std::shared_ptr<CriticalSection>, NoCaseHash, NoCaseEqual> gates;
};

GateTable& Table() {
    static GateTable s_table;
    return s_table;
}

}  // namespace

std::wstring SaveNameStr(const std::wstring& itemName, SaveName kind, int number) {
    SYSTEMTIME now{};
    GetLocalTime(&now);
    const wchar_t* const layout = kind == SaveName::ConflictedEdit ? L" (HalvaneCloud conflicted edit %Y-%m-%d)"
                                                                   : L" (HalvaneCloud backup edit %Y-%m-%d)";
    std::wstring suffix = FormatTimeStr(now, layout);
    if (number > 1)
        suffix += FormatStr(L" (%d)", number);
    const std::wstring stem = PathRemoveExtensionStr(itemName);
    return FormatStr(L"%s%s%s", stem, suffix, itemName.substr(stem.size()));
}

SaveGate::SaveGate(const std::wstring& containerPath) : m_containerPath(containerPath) {
    GateTable& table = Table();
    {
        const std::lock_guard guard(table.section);
        std::shared_ptr<CriticalSection>& gate = table.gates[m_containerPath];
        if (!gate)
            gate = std::make_shared<CriticalSection>();
        m_section = gate;
    }
    m_section->lock();
}

SaveGates::SaveGates(const std::wstring& sourcePath, const std::wstring& destPath)
    : m_first(LessNoCase(sourcePath, destPath) ? sourcePath : destPath),
      m_second(LessNoCase(sourcePath, destPath) ? destPath : sourcePath) {}

SaveGate::~SaveGate() {
    m_section->unlock();
    m_section.reset();
    GateTable& table = Table();
    const std::lock_guard guard(table.section);
    const auto found = table.gates.find(m_containerPath);
    if (found != table.gates.end() && found->second.use_count() == 1)
        table.gates.erase(found);
}
