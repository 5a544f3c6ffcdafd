// Nothing that is thrown inside may leave a slot: hosts are other modules, perhaps of another compiler.
#pragma once

#include <new>

#include "diagnostics/Trace.h"
#include "quelcrypt/QuelcryptExceptions.h"
#include "volume/VirtualVolumeImpl.h"

// As QC_TRACE_THIS, first in a slot; then CatchAll or CatchAllOr takes QC_SLOT: the log, and what the slot was called with.
#define QC_TRACE_SLOT(functionName, ...)                                \
    const auto qcArguments = [&] { return FormatStr(__VA_ARGS__); };    \
    QuelcryptVolLog qcLog(this, functionName, QC_TRACE_FILE, __LINE__); \
    if (qcLog.IsEnabled(LogLevel_Trace))                                \
    qcLog.Enter(qcArguments)
#define QC_SLOT qcLog, qcArguments

// The status of the exception being handled; outOfMemory is the slot's own answer to a failed allocation. The lines say which slot
// it was and what it was called with, also where only errors are logged.
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
    } catch (...) {  // nothing is known of it
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

// For slots that answer otherwise: whatever is caught becomes `failed`.
template <class Result, class Arguments, class Call>
Result CatchAllOr(Result failed, QuelcryptLog& qcLog, const Arguments& qcArguments, Call call) noexcept {
    try {
        return call();
    } catch (...) {
        StatusOfCaught(QC_SLOT, VSS_OutMemory);
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);  // not what an earlier call left, such as that there are no more files
        return qcLog.Leave(failed);
    }
}
