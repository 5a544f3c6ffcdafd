#include "items/WorkingCopy.h"

#include <utility>

#include "common/Halves.h"

void WorkingCopy::Make(RetainedCopy copy, UniqueHandle hFile, bool isOfContainer) {
    m_state = copy.unsaved ? State::Waiting : isOfContainer ? State::Containers : State::Unneeded;
    m_copy = std::move(copy);
    m_hFile = std::move(hFile);
}

void WorkingCopy::WillBeWritten() {
    if (m_state == State::Containers)
        m_state = State::Unneeded;
}

void WorkingCopy::WasWritten() {
    m_state = State::Edited;
    GetSystemTimeAsFileTime(&m_writeTime);
}

void WorkingCopy::InfoWasSet(bool withWriteTime) {
    WillBeWritten();
    if (withWriteTime)
        m_writeTime = {};
}

void WorkingCopy::WasSaved(const VirtFindData* readBack) {
    m_state = readBack ? State::Containers : State::Unneeded;
    if (readBack)
        m_copy.findData = *readBack;
}

void WorkingCopy::WasBackedUp() {
    if (HoldsEdit())
        m_state = State::Unneeded;
}

void WorkingCopy::Discard() {
    m_hFile.Reset();
    if (std::exchange(m_state, State::NotMade) != State::NotMade)
        VirtualTempFileDispenser::DeleteTempFolder(m_copy.tempFilePath);
    m_copy = {};
}

void WorkingCopy::GiveBack(const std::wstring& itemPath, const std::optional<FileVersion>& container) {
    m_hFile.Reset();
    if (m_state == State::NotMade)
        return;
    m_copy.unsaved = HoldsEdit();
    m_copy.temp = ReadFileStamp(m_copy.tempFilePath).value_or(FileStamp{});
    m_copy.container = container;
    if (m_state == State::Unneeded)
        VirtualTempFileDispenser::DeleteTempFolder(m_copy.tempFilePath);
    else
        VirtualTempFileDispenser::Retain(itemPath, m_copy);
    m_state = State::NotMade;
    m_copy = {};
}

void WorkingCopy::SettleTime() {
    if (FileTimeNumber(m_writeTime) != 0)
        SetFileTime(m_hFile.Get(), nullptr, nullptr, &m_writeTime);
}
