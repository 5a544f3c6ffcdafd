// The temp file of an encrypted item: made at the first access to its content, kept or dropped at its close.
#include "items/VirtualFile.h"

#include "diagnostics/Trace.h"
#include "library/Text.h"
#include "namespace/VirtualFindFile.h"
#include "policy/FileUtils.h"

namespace {

constexpr int kDecryptAttempts = 4;

// Through a handle of its own: on the working handle, times set by hand would no longer follow its writes.
void ApplyTimes(const std::wstring& path, const VirtFindData& findData) {
    UniqueHandle hFile;
    if (VirtualItem::CreateFileW(path, FILE_WRITE_ATTRIBUTES, kShareAll, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, hFile) != VVS_Success)
        return;
    const FILETIME creation = FileTimeOf(findData.creationTime);
    const FILETIME lastAccess = FileTimeOf(findData.lastAccessTime);
    const FILETIME lastWrite = FileTimeOf(findData.lastWriteTime);
    const auto given = [](const FILETIME& time) { return FileTimeNumber(time) ? &time : nullptr; };
    SetFileTime(hFile.Get(), given(creation), given(lastAccess), given(lastWrite));
}

bool HasSize(HANDLE hFile, std::int64_t size) {
    LARGE_INTEGER actual{};
    return GetFileSizeEx(hFile, &actual) && actual.QuadPart == size;
}

}  // namespace

VirtualVolumeStatus VirtualFile::MakeSureTempFileOpenIfNeeded(TempContent content) {
    if (!m_encrypted || m_tempFileOpen)
        return VVS_Success;
    QC_TRACE_THIS(L"VirtualFile::MakeSureTempFileOpenIfNeeded", L"%s", DescriptionStr());
    const std::optional<FileStamp> container = ReadFileStamp(GetZipFilePath());
    const bool decrypt = m_openDisposition == OPEN_EXISTING || (content == TempContent::OfContainer && container);
    RetainedCopy copy;
    const bool retained = VirtualTempFileDispenser::Dispense(m_itemFullPath, decrypt, KnownFindData(), container ? &*container : nullptr,
                                                             copy);
    QC_CHECK(!copy.tempFilePath.empty(), VVS_GeneralError, L"!tempFilePath.IsEmpty() =>false%s, ");

    UniqueHandle hFile;
    bool reused = retained;
    // Unless all goes well, what was dispensed goes back: a new file is deleted, a retained one is kept again, so that an
    // unsaved edit is not forgotten because opening it failed once.
    const OnExit giveBack([&] {
        if (m_tempFileOpen)
            return;
        hFile.Reset();
        if (reused)
            VirtualTempFileDispenser::Retain(m_itemFullPath, copy);
        else
            VirtualTempFileDispenser::DeleteTempFolder(copy.tempFilePath);
    });
    // Read-only is how the host wants the document, not what keeps us from its content.
    const DWORD attributes = retained ? GetFileAttributesW(copy.tempFilePath.c_str()) : INVALID_FILE_ATTRIBUTES;
    const bool isReadOnly = attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_READONLY);
    if (isReadOnly)
        SetFileAttributesW(copy.tempFilePath.c_str(), attributes & ~static_cast<DWORD>(FILE_ATTRIBUTE_READONLY));
    const OnExit putAttributeBack([&] {
        if (isReadOnly)
            SetFileAttributesW(copy.tempFilePath.c_str(), attributes);
    });
    QC_CHECK_STATUS(CreateFileW(copy.tempFilePath, kFullContentAccess, kShareAll, retained ? OPEN_ALWAYS : CREATE_ALWAYS,
                                FILE_ATTRIBUTE_NORMAL, hFile),
                    L"CreateFileW(tempFilePath, desiredAccess, shareMode, createDisposition, 0x80, hFile) =>%s, ");
    reused = retained && GetLastError() == ERROR_ALREADY_EXISTS;
    if (decrypt && !reused) {
        const VirtualVolumeStatus status = FillTempFile(copy, hFile.Get());
        if (status != VVS_Success)
            return qcLog.Leave(status);
    } else if (!retained) {
        copy.container = container.value_or(FileStamp{});
    }
    if (decrypt)  // what is known of the item now speaks of this content
        SetFindData(copy.unsaved ? nullptr : &copy.findData);
    m_copy = std::move(copy);
    m_hFile = std::move(hFile);
    m_tempFileOpen = true;
    m_modified = m_copy.unsaved;
    m_tempIsContainers = decrypt && !m_copy.unsaved;
    if (!SaveTrackerFileItem())
        QC_REPORT(L"SaveTrackerFileItem() =>false%s, ");
    return qcLog.Leave(VVS_Success);
}

// Decrypts again when the container was exchanged meanwhile, so that what was read and what is recorded of it agree.
VirtualVolumeStatus VirtualFile::FillTempFile(RetainedCopy& copy, HANDLE hFile) {
    QC_TRACE_THIS(L"VirtualFile::FillTempFile", L"%s", DescriptionStr());
    for (int attempt = 0; attempt < kDecryptAttempts; ++attempt) {
        const std::optional<FileStamp> before = ReadFileStamp(GetZipFilePath());
        QC_CHECK(before.has_value(), StatusFromLastError(), L"ReadFileStamp(GetZipFilePath()) =>false%s, ");
        QC_CHECK_STATUS(VirtualItem::SetFileSize(hFile, 0), L"VirtualItem::SetFileSize(hFile, 0) =>%s, ");
        // A lock makes containers of 0 bytes, which no reader would accept.
        const VirtualVolumeStatus status = before->size > 0 ? DecryptToFile(copy.tempFilePath, hFile) : VVS_Success;
        VirtFindData findData{};
        const bool isKnown = VirtualFindFile::FindFile(GetZipFilePath().c_str(), &findData);
        if (ReadFileStamp(GetZipFilePath()) != before)
            continue;
        if (status != VVS_Success)
            return qcLog.Leave(status);
        // A reader that ended early must not have its part taken, changed and saved for the whole.
        QC_CHECK(!isKnown || findData.itemType == VIT_PlainFile || HasSize(hFile, findData.fileSize), VSS_DecryptError,
                 L"HasSize(hFile, findData.fileSize) =>false%s,  %s", L"findData[%s]", FormatFindDataStr(&findData));
        copy.container = *before;
        copy.unsaved = false;
        copy.findData = isKnown ? findData : m_findData;
        ApplyTimes(copy.tempFilePath, copy.findData);
        return qcLog.Leave(VVS_Success);
    }
    QC_CHECK_STATUS(VSS_SharingViolation, L"ReadFileStamp(GetZipFilePath()) == before =>%s, ");
    return qcLog.Leave(VSS_SharingViolation);
}

void VirtualFile::KeepOrDropTempFile() {
    if (m_modified || m_tempIsContainers) {
        m_copy.unsaved = m_modified;
        VirtualTempFileDispenser::Retain(m_itemFullPath, m_copy);
    } else {
        VirtualTempFileDispenser::DeleteTempFolder(m_copy.tempFilePath);
    }
}

// Forgets the temp file, whose content is not needed any more.
void VirtualFile::DropTempFile() {
    m_hFile.Reset();
    VirtualTempFileDispenser::DeleteTempFolder(m_copy.tempFilePath);
    m_copy = {};
    m_tempFileOpen = m_modified = m_tempIsContainers = false;
}

bool VirtualFile::SaveTrackerFileItem() {
    QC_TRACE_THIS(L"VirtualFile::SaveTrackerFileItem");
    const std::optional<FileStamp> temp = ReadOpenFileStamp(m_hFile.Get());
    QC_CHECK(temp.has_value(), false,
             L"GetFileInformationByHandle(m_hFile, &tempFileInfo) != 0 =>false%s,  %s", L"Error[%s]", SystemErrorStr(GetLastError()));
    m_tracking.sourceName = GetZipFilePath();
    m_tracking.source = m_copy.container;
    m_tracking.tempName = m_copy.tempFilePath;
    m_tracking.temp = *temp;
    m_tracking.fileSpec = m_itemName;
    return qcLog.Leave(WriteTrackingFile(GetTempTrackingFile(), m_tracking));
}
