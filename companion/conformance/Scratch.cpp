#include <fstream>
#include <random>

#include "common/Names.h"
#include "common/Patience.h"
#include "companion/conformance/Checks.h"
#include "library/PlatformPath.h"

namespace fs = std::filesystem;

namespace conformance {

Scratch::Scratch(const Path& folder, const std::wstring& name)
    : plain(folder / (kOwnName + name)), container(plain.native() + std::wstring(kContainerExtension)) {}

Scratch::~Scratch() {
    Discard(plain);
    Discard(container);
}

void Discard(const Path& ordinaryPath) {
    const Path path = PlatformPath(ordinaryPath).c_str();
    std::error_code error;
    SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_NORMAL);
    for (const auto& entry : fs::recursive_directory_iterator(path, error))
        SetFileAttributesW(entry.path().c_str(), FILE_ATTRIBUTE_NORMAL);
    fs::remove_all(path, error);
}

std::set<std::wstring> ShownNames(const Path& folder) {
    std::set<std::wstring> names;
    for (const auto& entry : fs::directory_iterator(folder))
        if (const std::wstring name = entry.path().filename(); !IsReservedName(name))
            names.insert(name);
    return names;
}

std::string SomeBytes(std::size_t size) {
    std::mt19937 random(static_cast<unsigned>(size));
    std::string bytes(size, '\0');
    for (char& byte : bytes)
        byte = static_cast<char>(random());
    return bytes;
}

std::string ReadFileBytes(const Path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

void WriteFileBytes(const Path& path, std::string_view bytes) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    file.close();
    Must(file.good(), "the check could not write its own file");
}

bool CanBeOpened(const Path& path, DWORD shareMode) {
    return RepeatForAMoment([&] {
        const HANDLE handle = CreateFileW(PlatformPath(path).c_str(), GENERIC_READ, shareMode, nullptr, OPEN_EXISTING, 0, nullptr);
        return handle != INVALID_HANDLE_VALUE && CloseHandle(handle);
    });
}

}  // namespace conformance
