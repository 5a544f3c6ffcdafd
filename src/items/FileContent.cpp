#include "items/FileContent.h"

#include "items/VirtualItem.h"

namespace {

// The one offset that cannot be passed to a call, where its number means the current position.
void MoveToPlace(HANDLE hFile, std::uint64_t place) {
    LARGE_INTEGER position{};
    position.QuadPart = static_cast<LONGLONG>(place);
    if (place == kCurrentPosition)
        SetFilePointerEx(hFile, position, nullptr, FILE_BEGIN);
}

}  // namespace

VirtualVolumeStatus FileContent::Read(std::uint64_t offset, void* data, std::uint32_t dataSize, std::uint32_t* count,
                                      std::uint64_t& position) {
    const std::uint64_t place = offset == kCurrentPosition ? position : offset;
    const VirtualVolumeStatus status = DoRead(place, data, dataSize, count);
    if (status == VVS_Success)
        position = place + *count;
    return status;
}

VirtualVolumeStatus FileContent::Write(std::uint64_t offset, const void* data, std::uint32_t dataSize, std::uint32_t* count,
                                       std::uint64_t& position) {
    const std::uint64_t place = offset == kCurrentPosition ? position : offset;
    const VirtualVolumeStatus status = DoWrite(place, data, dataSize, count);
    if (status == VVS_Success)
        position = place + *count;
    return status;
}

VirtualVolumeStatus FileContent::ReadFileAt(HANDLE hFile, std::uint64_t place, void* data, std::uint32_t dataSize, std::uint32_t* count) {
    MoveToPlace(hFile, place);
    return VirtualItem::ReadFile(hFile, place, data, dataSize, count);
}

VirtualVolumeStatus FileContent::WriteFileAt(HANDLE hFile, std::uint64_t place, const void* data, std::uint32_t dataSize,
                                             std::uint32_t* count) {
    MoveToPlace(hFile, place);
    return VirtualItem::WriteFile(hFile, place, data, dataSize, count);
}

void FileContent::SetWriteTimeToNow(HANDLE hFile) {
    FILETIME now{};
    GetSystemTimeAsFileTime(&now);
    SetFileTime(hFile, nullptr, nullptr, &now);
}
