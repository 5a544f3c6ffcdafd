#include "items/TrackingFile.h"

#include "diagnostics/Trace.h"
#include "library/Owners.h"
#include "library/Patience.h"
#include "library/PlatformPath.h"

std::wstring TrackingFilePathStr(const std::wstring& tempFilePath) { return FormatStr(kTrackingPathFormat, tempFilePath); }

bool WriteTrackingFile(const std::wstring& path, const TrackingRecord& record) {
    QC_TRACE(L"WriteTrackingFile");
    const std::string text = TrackingText(record);
    UniqueHandle hFile;
    TryForAMoment([&] {
        hFile = OwnHandle(::CreateFileW(PlatformPath(path).c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                        CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
        return hFile ? Win32Error::None : LastWin32Error();
    });
    DWORD written = 0;
    const bool complete =
        hFile && ::WriteFile(hFile.Get(), text.data(), static_cast<DWORD>(text.size()), &written, nullptr) && written == text.size();
    return qcLog.Leave(complete);
}
