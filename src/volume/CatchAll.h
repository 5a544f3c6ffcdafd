// Nothing that is thrown inside may leave a slot: hosts are other modules, perhaps of another compiler.
#pragma once

#include <new>

#include "diagnostics/Trace.h"
#include "quelcrypt/QuelcryptExceptions.h"
#include "volume/VirtualVolumeImpl.h"

// The status of the exception being handled, logged; outOfMemory is the slot's own answer to a failed allocation.
inline VirtualVolumeStatus StatusOfCaught(VirtualVolumeStatus outOfMemory) noexcept {
    QuelcryptVolLog qcLog(nullptr, L"VirtualVolume::StatusOfCaught", QC_TRACE_FILE, __LINE__);
    VirtualVolumeStatus errorStatus = VVS_QuelcryptException;
    try {
        try {
            throw;
        } catch (const std::bad_alloc&) {
            errorStatus = outOfMemory;
            QC_LOG_AT(LogLevel_Error, L"Exception[%s]", kOutOfMemoryDescription);
        } catch (const CQuelcryptOutOfMemoryException& exception) {
            errorStatus = outOfMemory;
            QC_LOG_AT(LogLevel_Error, L"Exception[%s]", exception.GetDescription());
        } catch (const CQuelcryptErrorException& exception) {
            QC_LOG_AT(LogLevel_Error, L"Exception[%s]", exception.GetDescription());
        } catch (...) {  // nothing is known of it
        }
        QC_REPORT_STATUS(errorStatus, L"errorStatus =>%s, ");
    } catch (...) {  // no memory for the line
    }
    return errorStatus;
}

template <class Call>
VirtualVolumeStatus CatchAll(Call call, VirtualVolumeStatus outOfMemory = VSS_OutMemory) noexcept {
    try {
        return call();
    } catch (...) {
        return StatusOfCaught(outOfMemory);
    }
}

// For slots that answer otherwise: whatever is caught becomes `failed`.
template <class Result, class Call>
Result CatchAllOr(Result failed, Call call) noexcept {
    try {
        return call();
    } catch (...) {
        StatusOfCaught(VSS_OutMemory);
        return failed;
    }
}
