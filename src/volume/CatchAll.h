// No exception may leave a slot: hosts are other modules, perhaps of another compiler.
#pragma once

#include <new>

#include "diagnostics/Trace.h"
#include "quelcrypt/QuelcryptExceptions.h"
#include "volume/VirtualVolumeImpl.h"

// Like QC_TRACE_THIS, first in a slot; then CatchAll or CatchAllOr takes QC_SLOT: the log, and the slot's arguments.
#define QC_TRACE_SLOT(functionName, ...)                                \
    const auto qcArguments = [&] { return FormatStr(__VA_ARGS__); };    \
    QuelcryptVolLog qcLog(this, functionName, QC_TRACE_FILE, __LINE__); \
    if (qcLog.IsEnabled(LogLevel_Trace))                                \
    qcLog.Enter(qcArguments)
#define QC_SLOT qcLog, qcArguments

// The status for the exception being handled; outOfMemory is the slot's own status for a failed allocation. The error lines name the
// slot and its arguments, even when only errors are logged.
template <class Arguments>
VirtualVolumeStatus StatusOfCaught(QuelcryptLog& qcLog, const Arguments& qcArguments, VirtualVolumeStatus outOfMemory) noexcept {
    VirtualVolumeStatus errorStatus = VVS_QuelcryptException;
    const auto tell = [&](const wchar_t* description) {
        qcLog.LogWith(LogLevel_Error, [&] { return FormatStr(L"Exception[%s]. %s", description, qcArguments()); });
    };
    try {
        throw;
    } catch (const std::bad_alloc&) {
        errorStatus = outOfMemory;
        tell(kOutOfMemoryDescription);
    } catch (const CQuelcryptOutOfMemoryException& exception) {
        errorStatus = outOfMemory;
        tell(exception.GetDescription());
    } catch (const CQuelcryptErrorException& exception) {
        tell(exception.GetDescription());
    } catch (...) {  // nothing is known about it
        tell(L"");
    }
    QC_REPORT_STATUS(errorStatus, L"errorStatus =>%s, ");
    return errorStatus;
}

template <class Arguments, class Call>
VirtualVolumeStatus CatchAll(QuelcryptLog& qcLog, const Arguments& qcArguments, Call call,
                             VirtualVolumeStatus outOfMemory = VSS_OutMemory) noexcept {
    try {
        return call();
    } catch (...) {
        return qcLog.Leave(StatusOfCaught(QC_SLOT, outOfMemory));
    }
}

// For slots that do not return a status: any exception becomes `failed`.
template <class Result, class Arguments, class Call>
Result CatchAllOr(Result failed, QuelcryptLog& qcLog, const Arguments& qcArguments, Call call) noexcept {
    try {
        return call();
    } catch (...) {
        StatusOfCaught(QC_SLOT, VSS_OutMemory);
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);  // instead of an earlier error, such as "no more files"
        return qcLog.Leave(failed);
    }
}
