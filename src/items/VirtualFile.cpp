#include "items/VirtualFile.h"

#include <new>

#include "diagnostics/Trace.h"
#include "items/EncryptedContent.h"
#include "items/FileMove.h"
#include "items/PlainContent.h"
#include "items/VirtualTempFileDispenser.h"
#include "library/Disk.h"
#include "library/FileVersion.h"
#include "library/Paths.h"
#include "library/Text.h"
#include "policy/HvcUtils.h"

namespace {

// Texts of checks.
constexpr wchar_t kReadFileText[] = L"VirtualItem::ReadFile(m_hFile, offset, data, dataSize, readDataSize) =>%s, ";
constexpr wchar_t kWriteFileText[] = L"VirtualItem::WriteFile(m_hFile, offset, data, dataSize, writtenSize) =>%s, ";

// An empty container is left by a lock whose process ended. The companion library cannot read it; it is an empty document.
bool IsEmptyContainerOf(const std::wstring& filePath, const VirtFindData& findData) {
    if (EqualNoCase(findData.fileName, PathStripPathStr(filePath)) || PathExists(filePath))
        return false;
    const std::optional<FileStamp> container = ReadFileStamp(ZipPathStr(filePath));
    return container && container->size == 0 && !(container->attributes & FILE_ATTRIBUTE_DIRECTORY);
}

}  // namespace

VirtualVolumeStatus VirtualFile::Open(const wchar_t* filePath, std::uint32_t desiredAccess, std::uint32_t shareMode,
                                      std::uint32_t openDisposition, const VirtFindData* findData, const wchar_t* lockToken) {
    QC_TRACE_THIS(L"VirtualFile::Open", L"filePath[%s], desiredAccess[%s], shareMode[%s], openDisposition[%s], lockToken[%s]", filePath,
                  FormatAccessMaskStr(desiredAccess), FormatShareModeStr(shareMode), FormatCreationDispositionStr(openDisposition),
                  lockToken);
    const bool creates = CreatesFiles(openDisposition);
    // The companion library takes names as UTF-8, which other names do not have.
    QC_CHECK_OR_RETURN(!creates || IsWellFormed(filePath), VVS_InvalidParameter, L"IsWellFormed(filePath) =>false%s, ");
    // An edit may wait for a container that was deleted, and that, like a conflict copy, is opened by its own path.
    const bool isContainerPath = !findData && EndsWithNoCase(filePath, kContainerExtension) &&
                                 VirtualTempFileDispenser::HoldsUnsavedEdit(PathRemoveExtensionStr(filePath));
    const bool isEncrypted = findData ? findData->itemType != VIT_PlainFile || IsEmptyContainerOf(filePath, *findData)
                                      : isContainerPath || VirtualTempFileDispenser::HoldsUnsavedEdit(filePath);
    // The record may be that of an ordinary ZIP file beside a missing plain file; and an open that cuts the file changes it.
    const bool isOwnRecord = findData && isEncrypted == (findData->itemType != VIT_PlainFile) &&
                             (isEncrypted || (EqualNoCase(findData->fileName, PathStripPathStr(filePath)) && !Truncates(openDisposition)));
    if (isOwnRecord)
        m_state.findData = *findData;
    VirtualVolumeStatus status = VVS_Success;
    if (isEncrypted || (creates && ShouldFileBeEncrypted(filePath))) {
        auto content = std::make_unique<EncryptedContent>(m_state);
        using Found = EncryptedContent::Found;
        const Found found = isContainerPath ? Found::WaitingContainer
                            : !findData     ? Found::Nothing
                            : isEncrypted   ? Found::Document
                                            : Found::Other;
        status = content->Open(filePath, desiredAccess, shareMode, openDisposition, found, lockToken);
        if (status == VVS_Success)
            m_content = std::move(content);
    } else {
        auto content = std::make_unique<PlainContent>(m_state);
        const bool isLink = findData && (findData->fileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) && IsLink(filePath);
        status = content->Open(filePath, isLink, desiredAccess, shareMode, openDisposition, lockToken);
        if (status == VVS_Success)
            m_content = std::move(content);
    }
    return qcLog.Leave(status);
}

VirtualVolumeStatus VirtualFile::Move(const wchar_t* newFilePath, bool keepSrcFile, const wchar_t* newFileLockToken) {
    return MoveInternal(newFilePath, false, keepSrcFile, newFileLockToken);
}

VirtualVolumeStatus VirtualFile::Rename(const wchar_t* newFilePath, const wchar_t* newFileLockToken) {
    return MoveInternal(newFilePath, true, false, newFileLockToken);
}

VirtualVolumeStatus VirtualFile::MoveInternal(const wchar_t* newFilePath, bool renameSrcFile, bool keepSrcFile,
                                              const wchar_t* newFileLockToken) {
    QC_TRACE_THIS(L"VirtualFile::MoveInternal", L"in:newFilePath[%s], in:renameSrcFile[%s], in:keepSrcFile[%s], %s", newFilePath,
                  FormatBoolStr(renameSrcFile), FormatBoolStr(keepSrcFile), m_content->DescriptionStr());
    QC_CHECK_OR_RETURN(!m_deleted, VVS_GeneralError, L"!m_deleted =>false%s, ");
    return qcLog.Leave(FileMove(m_state, m_content, newFilePath, renameSrcFile, keepSrcFile).Run(newFileLockToken));
}

VirtualVolumeStatus VirtualFile::Read(std::uint64_t offset, void* data, std::uint32_t dataSize, std::uint32_t* readDataSize) {
    QC_TRACE_THIS(L"VirtualFile::Read", L"in:offest[%s], in:dataSize[%s], %s", FormatInt64Str(static_cast<std::int64_t>(offset)),
                  FormatInt64Str(dataSize), m_content->DescriptionStr());
    QC_CHECK_OR_RETURN(!m_deleted, VVS_GeneralError, L"!m_deleted =>false%s, ");
    QC_CHECK_STATUS_OR_RETURN(m_content->Prepare(), L"MakeSureTempFileOpenIfNeeded() =>%s, ");
    std::uint32_t count = 0;
    QC_CHECK_STATUS_OR_RETURN(m_content->Read(offset, data, dataSize, &count, m_position), kReadFileText);
    if (readDataSize)
        *readDataSize = count;
    QC_LOG(L"out: readDataSize[%s]", FormatInt64Str(count));
    return qcLog.Leave(VVS_Success);
}

VirtualVolumeStatus VirtualFile::Write(std::uint64_t offset, const void* data, std::uint32_t dataSize, std::uint32_t* writtenSize) {
    QC_TRACE_THIS(L"VirtualFile::Write", L"in:offest[%s], in:dataSize[%s], %s", FormatInt64Str(static_cast<std::int64_t>(offset)),
                  FormatInt64Str(dataSize), m_content->DescriptionStr());
    QC_CHECK_OR_RETURN(!m_deleted, VVS_GeneralError, L"!m_deleted =>false%s, ");
    QC_CHECK_STATUS_OR_RETURN(m_content->Prepare(), L"MakeSureTempFileOpenIfNeeded() =>%s, ");
    std::uint32_t count = 0;
    QC_CHECK_STATUS_OR_RETURN(m_content->Write(offset, data, dataSize, &count, m_position), kWriteFileText);
    m_state.findData.reset();
    if (writtenSize)
        *writtenSize = count;
    QC_LOG(L"out: writtenSize[%s]", FormatInt64Str(count));
    return qcLog.Leave(VVS_Success);
}

VirtualVolumeStatus VirtualFile::SetSize(std::uint64_t size) {
    QC_TRACE_THIS(L"VirtualFile::SetSize", L"in:size[%s], %s", FormatInt64Str(static_cast<std::int64_t>(size)),
                  m_content->DescriptionStr());
    QC_CHECK_OR_RETURN(!m_deleted, VVS_GeneralError, L"!m_deleted =>false%s, ");
    QC_CHECK_STATUS_OR_RETURN(m_content->Prepare(), L"MakeSureTempFileOpenIfNeeded() =>%s, ");
    QC_CHECK_STATUS_OR_RETURN(m_content->SetSize(size), L"VirtualItem::SetFileSize(m_hFile, size) =>%s, ");
    m_state.findData.reset();
    return qcLog.Leave(VVS_Success);
}

VirtualVolumeStatus VirtualFile::Close() {
    if (m_closed)
        return VVS_Success;
    QC_TRACE_THIS(L"VirtualFile::Close", L"%s, deleted[%s]", m_content ? m_content->DescriptionStr() : std::wstring(),
                  FormatBoolStr(m_deleted));
    m_closed = true;
    VirtualVolumeStatus status = VVS_QuelcryptException;
    try {
        status = m_content ? m_content->Close(m_deleted) : VVS_Success;
    } catch (const std::bad_alloc&) {
        status = VSS_OutMemory;
    } catch (...) {  // an unsaved edit is on disk, with its tracking file
    }
    m_content.reset();
    return qcLog.Leave(status);
}

VirtualVolumeStatus VirtualFile::Delete() {
    QC_TRACE_THIS(L"VirtualFile::Delete", L"this:itemFullPath[%s]", m_state.Path());
    if (!m_deleted) {
        const VirtualVolumeStatus status = m_content->MarkForDeletion(true);
        if (status != VVS_Success)
            return qcLog.Leave(status);
        m_deleted = true;
    }
    return qcLog.Leave(VVS_Success);
}

VirtualVolumeStatus VirtualFile::Undelete() {
    QC_TRACE_THIS(L"VirtualFile::Undelete", L"this:itemFullPath[%s]", m_state.Path());
    if (m_deleted) {
        const VirtualVolumeStatus status = m_content->MarkForDeletion(false);
        if (status != VVS_Success)
            return qcLog.Leave(status);
        m_deleted = false;
    }
    return qcLog.Leave(VVS_Success);
}

VirtualVolumeStatus VirtualFile::Flush() {
    QC_TRACE_THIS(L"VirtualFile::Flush");
    QC_CHECK_OR_RETURN(!m_deleted, VVS_GeneralError, L"!m_deleted =>false%s, ");
    return qcLog.Leave(VirtualItem::Flush());
}

bool VirtualFile::GetFileInfo(VirtFindData* virtFindData) {
    QC_TRACE_THIS(L"VirtualFile::GetFileInfo");
    if (m_state.findData)
        *virtFindData = *m_state.findData;
    else if (!m_content->GetFileInfo(virtFindData))
        return qcLog.Leave(false);
    if (!m_content->IsOpen())
        VirtualTempFileDispenser::DescribeShownEdit(PathRemoveFileSpecStr(m_state.Path()), *virtFindData);
    return qcLog.Leave(true);
}

VirtualVolumeStatus VirtualFile::SetFileInfo(const VirtFindData* virtFindData) {
    QC_TRACE_THIS(L"VirtualFile::SetFileInfo");
    QC_CHECK_OR_RETURN(!m_deleted, VVS_GeneralError, L"!m_deleted =>false%s, ");
    if (!m_content->IsOpen())
        return qcLog.Leave(VVS_Success);
    const VirtualVolumeStatus status = VirtualItem::SetFileInfo(virtFindData);
    if (status == VVS_Success)
        m_content->InfoWasSet(virtFindData->lastWriteTime != 0);
    return qcLog.Leave(status);
}
