// How functions trace themselves. QC_TRACE or QC_TRACE_THIS comes first in a traced function and makes its log object,
// qcLog, which the other macros use. Arguments of lines are evaluated only when the line is written. A check evaluates its
// expression once, logs its text at error level, keeps the thread's last error, and returns.
//
// The texts of checks and messages must never change, because others search for them: keep even misspelt ones, and those that quote
// source which has changed since.
#pragma once

#include "diagnostics/QuelcryptLog.h"

namespace trace_detail {
consteval const wchar_t* BaseName(const wchar_t* path) {
    const wchar_t* name = path;
    for (; *path; ++path)
        if (*path == L'/' || *path == L'\\')
            name = path + 1;
    return name;
}
}  // namespace trace_detail

// clang-format off
// The source file that lines name. A class whose source is spread over several files names one for all of them.
#define QC_TRACE_FILE trace_detail::BaseName(L"" __FILE__)
#define QC_TRACE_OBJECT(object, functionName, ...)                        \
    QuelcryptVolLog qcLog(object, functionName, QC_TRACE_FILE, __LINE__); \
    if (qcLog.IsEnabled(LogLevel_Trace))                                  \
        qcLog.Enter([&] { return FormatStr(__VA_ARGS__); })
// functionName is qualified, L"Class::Function"; the format and arguments of the ENTER line's message follow.
#define QC_TRACE(functionName, ...) QC_TRACE_OBJECT(nullptr, functionName, __VA_ARGS__)
#define QC_TRACE_THIS(functionName, ...) QC_TRACE_OBJECT(this, functionName, __VA_ARGS__)

// A message line: format and arguments.
#define QC_LOG_AT(level, ...) qcLog.LogWith(level, [&] { return FormatStr(__VA_ARGS__); })
#define QC_LOG(...) QC_LOG_AT(LogLevel_Trace, __VA_ARGS__)

// Logs a failed check and continues: text is the check's source with its " =>false%s, "; the format and arguments of the detail
// follow, for texts with a second placeholder.
#define QC_REPORT(text, ...) \
    qcLog.LogFailedCheck(text, [] { return L""; }, [&] { return FormatStr(__VA_ARGS__); })
// The same for a call that returned a status: text ends in " =>%s, ".
#define QC_REPORT_STATUS(status, text, ...) \
    qcLog.LogFailedCheck(text, [&] { return FormatStatusStr(status); }, [&] { return FormatStr(__VA_ARGS__); })

// Unless condition is true: logs like QC_REPORT and returns result, which may still use the last error.
#define QC_CHECK_OR_RETURN(condition, result, text, ...) \
    do {                                                 \
        if (!(condition)) {                              \
            const auto qcResult = (result);              \
            QC_REPORT(text, __VA_ARGS__);                \
            return qcLog.Leave(qcResult);                \
        }                                                \
    } while (false)
// Unless the expression is VVS_Success: logs like QC_REPORT_STATUS and returns the status.
#define QC_CHECK_STATUS_OR_RETURN(expression, text, ...)   \
    do {                                                   \
        const VirtualVolumeStatus qcStatus = (expression); \
        if (qcStatus != VVS_Success) {                     \
            QC_REPORT_STATUS(qcStatus, text, __VA_ARGS__); \
            return qcLog.Leave(qcStatus);                  \
        }                                                  \
    } while (false)
// clang-format on
