#include "items/TrackingFile.h"

#include "diagnostics/Trace.h"
#include "library/Owners.h"
#include "library/Patience.h"
#include "library/PlatformPath.h"

namespace {

std::wstring Document(const TrackingRecord& record) {
    std::wstring text = FormatStr(L"<halvanecloud>\n<filetracking>\n<process>\n<name><![CDATA[%s]]></name>\n<id>%d</id>\n</process>\n",
                                  record.processName, record.processId);
    text += FormatStr(
        L"<srcfile>\n<name><![CDATA[%s]]></name>\n<attributes>%d</attributes>\n<writetime>%I64d</writetime>\n"
        L"<size>%I64d</size>\n</srcfile>\n",
        record.sourceName, static_cast<std::int32_t>(record.source.attributes), record.source.writeTime, record.source.size);
    text += FormatStr(L"<filespec>\n<name>\n<![CDATA[%s]]></name>\n</filespec>\n", record.fileSpec);
    text += L"<tempfile>\n";
    text += FormatStr(L"<name><![CDATA[%s]]></name>\n<attributes>%d</attributes>\n<writetime>%I64d</writetime>\n<size>%I64d</size>",
                      record.tempName, static_cast<std::int32_t>(record.temp.attributes), record.temp.writeTime, record.temp.size);
    text += L"\n</tempfile>\n";
    text += L"<ar>\n";
    text += FormatStr(L"<fid>%s</fid>\n", record.fid);
    text += FormatStr(L"<fv>%s</fv>\n", record.fv);
    text += FormatStr(L"<o>\n<id>%s</id>\n", record.oId);
    text += FormatStr(L"<iid>%s</iid>\n", record.oIid);
    text += FormatStr(L"<fn>%s</fn>\n", record.oFn);
    text += FormatStr(L"<ofn>%s</ofn></o>\n", record.oOfn);
    text += FormatStr(L"<a><id>%s</id>\n", record.aId);
    text += FormatStr(L"<iid>%s</iid>\n", record.aIid);
    text += FormatStr(L"<ifn>%s</ifn>\n", record.aIfn);
    text += FormatStr(L"<ofn>%s</ofn></a>\n", record.aOfn);
    text += L"</ar>\n";
    text += L"</filetracking>\n</halvanecloud>\n";
    return text;
}

std::string Narrow(const std::wstring& text, UINT codePage, DWORD flags, BOOL* isLossy) {
    const int units = static_cast<int>(text.size());
    const int bytes = WideCharToMultiByte(codePage, flags, text.data(), units, nullptr, 0, nullptr, isLossy);
    std::string narrow(bytes > 0 ? static_cast<std::size_t>(bytes) : 0, '\0');
    WideCharToMultiByte(codePage, flags, text.data(), units, narrow.data(), bytes, nullptr, nullptr);
    return narrow;
}

// A character without a narrow form becomes the system's substitute, not a similar character, which could be another file's
// name; and it never cuts the text.
std::string AsNarrowText(const std::wstring& text, BOOL& isLossy) {
    std::wstring withCrLf;
    withCrLf.reserve(text.size() + text.size() / 16);
    for (const wchar_t unit : text)
        unit == L'\n' ? withCrLf.append(L"\r\n") : withCrLf.append(1, unit);
    const bool isUtf8 = GetACP() == CP_UTF8;  // which has all characters, and takes no flags
    return Narrow(withCrLf, CP_ACP, isUtf8 ? 0 : WC_NO_BEST_FIT_CHARS, isUtf8 ? nullptr : &isLossy);
}

std::string AsPercentEncodedUtf8(const std::wstring& text) {
    std::string encoded;
    for (const char unit : Narrow(text, CP_UTF8, 0, nullptr)) {
        const auto byte = static_cast<unsigned char>(unit);
        const bool isPlain = (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') || (byte >= '0' && byte <= '9') || byte == '.' ||
                             byte == '_' || byte == '-';
        constexpr char digits[] = "0123456789ABCDEF";
        isPlain ? encoded.append(1, unit) : encoded.append({'%', digits[byte >> 4], digits[byte & 15]});
    }
    return encoded;
}

}  // namespace

std::wstring TrackingFilePathStr(const std::wstring& tempFilePath) { return FormatStr(L"%s.hvf", tempFilePath); }

TrackingRecord TrackingRecordOf(const std::wstring& containerPath, const FileStamp& container, const std::wstring& tempFilePath,
                                const FileStamp& temp, const std::wstring& fileSpec) {
    TrackingRecord record;
    record.sourceName = containerPath;
    record.source = container;
    record.tempName = tempFilePath;
    record.temp = temp;
    record.fileSpec = fileSpec;
    return record;
}

bool WriteTrackingFile(const std::wstring& path, const TrackingRecord& record) {
    QC_TRACE(L"WriteTrackingFile");
    BOOL isLossy = FALSE;
    std::string text = AsNarrowText(Document(record), isLossy);
    if (isLossy)
        text += "<!-- utf8: " + AsPercentEncodedUtf8(record.sourceName) + " | " + AsPercentEncodedUtf8(record.tempName) + " | " +
                AsPercentEncodedUtf8(record.fileSpec) + " -->\r\n";
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
