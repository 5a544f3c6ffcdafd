#include "items/TrackingFile.h"

#include "diagnostics/Trace.h"
#include "library/Owners.h"

namespace {

std::wstring Document(const TrackingRecord& record) {
    std::wstring text = FormatStr(L"<halvanecloud>\n<filetracking>\n<process>\n<name><![CDATA[%s]]></name>\n<id>%d</id>\n</process>\n",
                                  record.processName, record.processId);
    text += FormatStr(L"<srcfile>\n<name><![CDATA[%s]]></name>\n<attributes>%d</attributes>\n<writetime>%I64d</writetime>\n"
                      L"<size>%I64d</size>\n</srcfile>\n",
                      record.sourceName, static_cast<std::int32_t>(record.source.attributes), record.source.writeTime,
                      record.source.size);
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

// A character without a narrow form becomes the system's substitute; it never cuts the text short.
std::string AsNarrowText(const std::wstring& text) {
    std::wstring withCrLf;
    withCrLf.reserve(text.size() + text.size() / 16);
    for (const wchar_t unit : text)
        unit == L'\n' ? withCrLf.append(L"\r\n") : withCrLf.append(1, unit);
    const int units = static_cast<int>(withCrLf.size());
    const int bytes = WideCharToMultiByte(CP_ACP, 0, withCrLf.data(), units, nullptr, 0, nullptr, nullptr);
    std::string narrow(bytes > 0 ? static_cast<std::size_t>(bytes) : 0, '\0');
    WideCharToMultiByte(CP_ACP, 0, withCrLf.data(), units, narrow.data(), bytes, nullptr, nullptr);
    return narrow;
}

}  // namespace

std::wstring TrackingFilePathStr(const std::wstring& tempFilePath) { return FormatStr(L"%s.hvf", tempFilePath); }

bool WriteTrackingFile(const std::wstring& path, const TrackingRecord& record) {
    QC_TRACE(L"WriteTrackingFile");
    const std::string text = AsNarrowText(Document(record));
    const UniqueHandle hFile([&] {
        const HANDLE handle = ::CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, CREATE_ALWAYS,
                                            FILE_ATTRIBUTE_NORMAL, nullptr);
        return handle == INVALID_HANDLE_VALUE ? nullptr : handle;
    }());
    DWORD written = 0;
    const bool complete = hFile && ::WriteFile(hFile.Get(), text.data(), static_cast<DWORD>(text.size()), &written, nullptr) &&
                          written == text.size();
    return qcLog.Leave(complete);
}
