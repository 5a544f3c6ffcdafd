// Most lines are never written: below their level they may not cost an allocation, whatever they would have shown.
#include "diagnostics/Trace.h"

#include <cstdlib>
#include <new>

#include <gtest/gtest.h>

namespace {
std::size_t s_allocations = 0;
}  // namespace

void* operator new(std::size_t size) {
    ++s_allocations;
    if (void* const memory = std::malloc(size ? size : 1))
        return memory;
    throw std::bad_alloc();
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

namespace {

class SilentLogger final : public IFileLogger {
public:
    explicit SilentLogger(std::uint32_t level) : m_level(level) {}
    void Write(std::uint32_t, std::uint32_t, const wchar_t*, void*) override {}
    std::uint32_t GetLevel(std::uint32_t) override { return m_level; }

private:
    std::uint32_t m_level;
};

VirtualVolumeStatus Traced(const std::wstring& path, const VirtFindData& findData) {
    QC_TRACE(L"Traced", L"path[%s], findData[%s]", path, FormatFindDataStr(&findData));
    QC_CHECK(!path.empty(), VVS_InvalidParameter, L"!path.empty() =>false%s,  %s", L"path[%s]", path);
    QC_CHECK_STATUS(VVS_Success, L"VVS_Success =>%s, ");
    QC_LOG(L"path[%s] is done", path);
    return qcLog.Leave(VVS_Success);
}

std::size_t AllocationsAt(std::uint32_t level) {
    SilentLogger logger(level);
    QuelcryptVolLog::SetModuleLogger(&logger, 1);
    const std::wstring path = L"C:\\a folder\\a document with a long name.docx";
    const VirtFindData findData{};
    const std::size_t before = s_allocations;
    EXPECT_EQ(VVS_Success, Traced(path, findData));
    const std::size_t allocations = s_allocations - before;
    QuelcryptVolLog::SetModuleLogger(nullptr, 0);
    return allocations;
}

}  // namespace

TEST(LinesThatAreNotWritten, AllocateNothing) {
    EXPECT_EQ(0u, AllocationsAt(LogLevel_Warning));
    EXPECT_LT(0u, AllocationsAt(LogLevel_Trace)) << "the count counts nothing";
}
