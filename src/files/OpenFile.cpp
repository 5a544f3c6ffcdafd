#include "files/OpenFile.h"

#include "diagnostics/Trace.h"
#include "library/Owners.h"
#include "library/Text.h"

namespace {

// Texts of checks.
constexpr wchar_t kStatusesText[] = L"(((NTSTATUS)(status)) >= 0) && (((NTSTATUS)(IoStatusBlock.Status)) >= 0) =>false%s,  %s";
constexpr wchar_t kSetDispositionText[] =
    L"ZwSetInformationFile(hFile, &fileDispositionInfo, sizeof(fileDispositionInfo), ((FILE_INFORMATION_CLASS)13)) =>%s, ";

using NtStatus = LONG;
struct IoStatusBlock {
    union {
        NtStatus status;
        void* pointer;
    };
    ULONG_PTR information;
};
using ZwSetInformationFileFunc = NtStatus(NTAPI*)(HANDLE, IoStatusBlock*, void*, ULONG, int);
using RtlNtStatusToDosErrorFunc = ULONG(NTAPI*)(NtStatus);

template <class Function>
Function NtdllFunction(const char* name) {
    return reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"ntdll.dll"), name)));
}

}  // namespace

Win32Error ZwSetInformationFile(HANDLE hFile, const void* info, ULONG length, int fileInformationClass) {
    QC_TRACE(L"ZwSetInformationFile", L"hFile[0x%p], fileInformationClass[%d]", hFile, fileInformationClass);
    static const auto s_func = NtdllFunction<ZwSetInformationFileFunc>("ZwSetInformationFile");
    static const auto s_toDosError = NtdllFunction<RtlNtStatusToDosErrorFunc>("RtlNtStatusToDosError");
    QC_CHECK_OR_RETURN(s_func != nullptr && s_toDosError != nullptr, static_cast<Win32Error>(ERROR_PROC_NOT_FOUND),
                       L"s_func != 0 =>false%s,  %s", L"fileInformationClass[%s]. Error[%s]", FormatInt64Str(fileInformationClass),
                       SystemErrorStr(GetLastError()));

    IoStatusBlock ioStatus{};
    const NtStatus status = s_func(hFile, &ioStatus, const_cast<void*>(info), length, fileInformationClass);
    if (status >= 0 && ioStatus.status >= 0)
        return qcLog.Leave(Win32Error::None);
    const ULONG error = s_toDosError(status < 0 ? status : ioStatus.status);
    QC_REPORT(kStatusesText, L"fileInformationClass[%d]. Status[0x%x], IoStatusBlock.Status[0x%x]. %s", fileInformationClass, status,
              ioStatus.status, SystemErrorStr(error));
    return qcLog.Leave(static_cast<Win32Error>(error));
}

Win32Error DeleteUndeleteFile(HANDLE hFile, bool deleteFile) {
    QC_TRACE(L"DeleteUndeleteFile", L"hFile[0x%p], deleteFile[%s]", hFile, FormatBoolStr(deleteFile));
    const BOOLEAN fileDispositionInfo = deleteFile;
    const Win32Error error = ZwSetInformationFile(hFile, &fileDispositionInfo, sizeof(fileDispositionInfo), kFileDispositionInformation);
    if (error != Win32Error::None)
        qcLog.LogFailedCheck(
            kSetDispositionText, [&] { return SystemErrorStr(static_cast<DWORD>(error)); }, [] { return L""; });
    return qcLog.Leave(error);
}

FilePointer::FilePointer(HANDLE hFile, std::int64_t newPosition) : m_hFile(hFile) {
    QC_TRACE_THIS(L"FilePointer::FilePointer", L"hFile[0x%p], newPosition[%I64d]", hFile, newPosition);
    LARGE_INTEGER origPos{};
    if (!SetFilePointerEx(hFile, LARGE_INTEGER{}, &origPos, FILE_CURRENT)) {
        QC_LOG_AT(LogLevel_Error, L"Cannot get current position. Eror[%d]", GetLastError());
        return;
    }
    m_origPos = origPos.QuadPart;
    LARGE_INTEGER target{};
    target.QuadPart = newPosition;
    if (!SetFilePointerEx(hFile, target, nullptr, FILE_BEGIN)) {
        QC_LOG_AT(LogLevel_Error, L"Cannot move to new position. Error[%d]", GetLastError());
        return;
    }
    m_pointerWasSet = true;
}

void FilePointer::Restore() {
    if (!m_pointerWasSet)
        return;
    m_pointerWasSet = false;
    const LastErrorKeeper keeper;
    QC_TRACE_THIS(L"FilePointer::Restore", L"m_origPos[%I64d]", m_origPos);
    LARGE_INTEGER origPos{};
    origPos.QuadPart = m_origPos;
    if (!SetFilePointerEx(m_hFile, origPos, nullptr, FILE_BEGIN))
        QC_REPORT(L"::SetFilePointerEx(m_hFile, m_origPos, 0, 0) != 0 =>false%s, ");
}
