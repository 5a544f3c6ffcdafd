// Layouts of trace lines, and what a single log object does in cases that a host cannot bring about.
#include "diagnostics/Trace.h"

#include <regex>
#include <stdexcept>

#include <gtest/gtest.h>

namespace {

class RecordingLogger final : public IFileLogger {
public:
    void Write(std::uint32_t component, std::uint32_t level, const wchar_t* text, void* null) override {
        if (m_throws)
            throw std::runtime_error("no disk");
        SetLastError(ERROR_DISK_FULL);
        EXPECT_EQ(7u, component);
        EXPECT_EQ(nullptr, null);
        m_lines.push_back(std::to_wstring(level) + L" " + text);
    }
    std::uint32_t GetLevel(std::uint32_t component) override {
        EXPECT_EQ(7u, component);
        return m_level;
    }
    std::wstring Last() const { return m_lines.empty() ? std::wstring() : m_lines.back(); }

    std::vector<std::wstring> m_lines;
    std::uint32_t m_level = LogLevel_Trace;
    bool m_throws = false;
};

class WritingTraceLines : public ::testing::Test {
protected:
    void SetUp() override { Use(LogLevel_Trace); }
    void TearDown() override {
        QuelcryptVolLog::SetModuleLogger(nullptr, 0);
        QuelcryptLog::SetProcessControl(nullptr);
    }
    void Use(std::uint32_t level) {
        m_logger.m_level = level;
        m_logger.m_lines.clear();
        QuelcryptVolLog::SetModuleLogger(&m_logger, 7);
    }
    void ExpectLast(const wchar_t* pattern) const {
        EXPECT_TRUE(std::regex_match(m_logger.Last(), std::wregex(pattern))) << ::testing::PrintToString(m_logger.Last());
    }
    RecordingLogger m_logger;
};

std::wstring Fragments(std::wstring_view text) {
    std::wstring shown;
    for (const LogTemplatePiece& piece : ParseLogTemplate(text))
        shown += FormatStr(L"{%s:%x}", piece.fragment, static_cast<std::uint32_t>(piece.value));
    return shown;
}

}  // namespace

TEST_F(WritingTraceLines, TemplatesAreSplitAtTheirPlaceholders) {
    const struct {
        const wchar_t* text;
        const wchar_t* fragments;
    } rows[] = {
        {L"", L""},
        {L"plain", L"{plain:1}"},
        {L"%TIME%", L"{%s:20}"},
        {L"a%TIMEMILLISEC%b", L"{a%03d:40}{b:1}"},
        {L"%NESTEDPADDING%%PROCID%%THREADID%%DATE%", L"{%s:2}{%x:4}{%x:8}{%s:10}"},
        {L"%NESTLEVEL%%EXECTIME%%THIS%%FILE%%LINE%", L"{%d:80}{%ss:100}{%s:200}{%s:400}{%d:800}"},
        {L"%FUNCNAME%%LOGMESSAGE%%RETURNRESULT%\n", L"{%s:1000}{%s:2000}{%s:4000}{\n:1}"},
        {L"100%TIME%", L"{100%s:20}"},
        {L"50% of %TIME%", L"{50%% of %s:20}"},      // the closing "%" of what is none opens the next
        {L"%NONE%TIME%", L"{%%NONE%s:20}"},
        {L"%time%", L"{%time%:1}"},                  // exact letters only
        {L"%TIME", L"{%TIME:1}"},
        {L"%%TIME%%", L"{%%%s:20}{%:1}"},
        {L"%TIME% %d", L"{%s:20}{ %d:1}"},           // no value, so no format
    };
    for (const auto& row : rows)
        EXPECT_EQ(row.fragments, Fragments(row.text)) << ::testing::PrintToString(row.text);
}

TEST_F(WritingTraceLines, ExecutionTimeIsMarkedFrom17Milliseconds) {
    EXPECT_EQ(L"0", FormatExecutionTimeStr(9'999, 10'000));
    EXPECT_EQ(L"16", FormatExecutionTimeStr(169'999, 10'000));
    EXPECT_EQ(L"!!!SLOW!!! 17", FormatExecutionTimeStr(170'000, 10'000));
    EXPECT_EQ(L"<Error>", FormatExecutionTimeStr(170'000, 0)) << "a counter of less than 1000 steps a second";
}

TEST_F(WritingTraceLines, WithoutAControlTheLayoutsAreFixed) {
    constexpr const wchar_t* kStart = L"\\[[0-9a-f]+\\.[0-9a-f]+\\]\\d\\d/\\d\\d/\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{1,3} ";
    const std::wstring start = kStart;
    {
        QuelcryptVolLog outer(nullptr, L"Outer", L"File.cpp", 1);
        outer.Enter([] { return std::wstring(L"in[%s]"); });
        ExpectLast((L"4 " + start + L"TRACE\\[QuelcryptVol\\] ENTER\\[1\\] Outer in\\[%s\\]\n").c_str());
        outer.Log(LogLevel_Warning, L"careful");
        ExpectLast((L"2 \t" + start + L"WARNING\\[QuelcryptVol\\] MESSAGE\\[2\\] Outer careful\n").c_str());
        {
            QuelcryptVolLog inner(this, L"Inner", L"File.cpp", 1);
            inner.Enter([] { return std::wstring(); });
            ExpectLast((L"4 \t" + start + L"TRACE\\[QuelcryptVol\\] ENTER\\[2\\] this\\[[0-9a-f]{1,8}\\]->Inner \n").c_str());
            inner.Leave(VVS_FileNotFound);
        }
        ExpectLast((L"4 \t" + start + L"TRACE\\[QuelcryptVol\\] LEAVE\\[2\\] this\\[[0-9a-f]+\\]->Inner VVS_FileNotFound\n").c_str());
    }
    ExpectLast((L"4 " + start + L"TRACE\\[QuelcryptVol\\] LEAVE\\[1\\] Outer \n").c_str());
}

TEST_F(WritingTraceLines, EnterAndLeaveAreWrittenOnceAndOnEveryWayOut) {
    {
        QuelcryptVolLog log(nullptr, L"F", L"File.cpp", 1);
        log.Trace(false);
        EXPECT_EQ(0u, m_logger.m_lines.size()) << "there is nothing to leave";
        log.Trace(true);
        log.Trace(true);
        EXPECT_EQ(1u, m_logger.m_lines.size());
        log.Trace(false);
        log.Trace(false);
        EXPECT_EQ(2u, m_logger.m_lines.size());
    }
    EXPECT_EQ(2u, m_logger.m_lines.size());
    const auto thrower = [] {
        QC_TRACE(L"Thrower", L"n[%d]", 1);
        throw std::runtime_error("out");
    };
    EXPECT_THROW(thrower(), std::runtime_error);
    ASSERT_EQ(4u, m_logger.m_lines.size());
    EXPECT_NE(std::wstring::npos, m_logger.Last().find(L"LEAVE[1] Thrower"));
}

TEST_F(WritingTraceLines, TemplatesShowEachValue) {
    QuelcryptLogControl control;
    control.m_messageTemplate = L"%NESTLEVEL%|%FILE%|%LINE%|%THIS%|%FUNCNAME%|%LOGMESSAGE%|%RETURNRESULT%|%%|";
    control.m_leaveTemplate = L"%EXECTIME%|%RETURNRESULT%|%LOGMESSAGE%|100%";
    control.Parse();
    QuelcryptLog::SetProcessControl(&control);
    {
        QuelcryptVolLog log(nullptr, L"F", L"File.cpp", 12);
        log.Trace(true);
        log.Log(LogLevel_Error, L"m%d");
        EXPECT_EQ(L"1 1|File.cpp|12||F|m%d|S_OK|%%|", m_logger.Last());
        log.Leave(false);
        log.Log(LogLevel_Error, L"");
        EXPECT_EQ(L"1 1|File.cpp|12||F||false|%%|", m_logger.Last());
        log.Leave(VVS_Locked);
    }
    ExpectLast(L"4 (!!!SLOW!!! )?\\d+s\\|5\\|VVS_Locked\\|100%");
    QuelcryptVolLog nameless(&control, nullptr, nullptr, 0);
    nameless.Leave(Win32Error::None);
    nameless.Log(LogLevel_Error, L"");
    ExpectLast(L"1 0\\|\\|0\\|this\\[[0-9a-f]+\\]->\\|\\|\\|S_OK\\|%%\\|");
}

TEST_F(WritingTraceLines, AControlOfItsOwnFiltersAndForces) {
    Use(LogLevel_Error);
    QuelcryptLogControl control;
    control.m_filter = L"wanted";
    control.Parse();
    QuelcryptVolLog log(nullptr, L"F", L"File.cpp", 1);
    log.SetControl(&control);
    log.Log(LogLevel_Error, L"other");
    EXPECT_EQ(0u, m_logger.m_lines.size());
    log.Log(LogLevel_Error, L"what is wanted");
    EXPECT_EQ(1u, m_logger.m_lines.size());
    EXPECT_FALSE(log.IsEnabled(LogLevel_Trace));
    control.m_alwaysOn = true;
    EXPECT_TRUE(log.IsEnabled(LogLevel_Trace));
    log.Log(LogLevel_Trace, L"wanted too");
    EXPECT_EQ(1u, m_logger.m_lines.size()) << "the logger is spared what its level excludes";
}

TEST_F(WritingTraceLines, LoggingDisturbsNothing) {
    const auto check = [](bool holds) -> VirtualVolumeStatus {
        QC_TRACE(L"Check");
        SetLastError(ERROR_FILE_NOT_FOUND);
        QC_CHECK(holds, VVS_GeneralError, L"holds =>false%s,  %s", L"Error[%d]", GetLastError());
        QC_LOG(L"holds");
        return VVS_Success;
    };
    EXPECT_EQ(VVS_GeneralError, check(false));
    EXPECT_EQ(static_cast<DWORD>(ERROR_FILE_NOT_FOUND), GetLastError()) << "the logger set another";
    ASSERT_EQ(3u, m_logger.m_lines.size());
    EXPECT_NE(std::wstring::npos, m_logger.m_lines[1].find(L"Check holds =>false,  Error[2]\n"));

    m_logger.m_throws = true;
    EXPECT_EQ(VVS_Success, check(true));
    QuelcryptVolLog::SetModuleLogger(nullptr, 0);
    EXPECT_EQ(VVS_Success, check(true));

    Use(0);
    m_logger.m_throws = false;
    const auto costly = []() -> const wchar_t* {
        ADD_FAILURE() << "formed for a line that is not written";
        return L"";
    };
    QC_TRACE(L"Silent", L"%s", costly());
    QC_LOG(L"%s", costly());
    QC_REPORT(L"silent =>false%s,  %s", L"%s", costly());
    EXPECT_EQ(0u, m_logger.m_lines.size());
}
