// A folder of its own for each test, a configuration file in it, and the companion library's functions as plain ones. The
// teardown finds files that are still held and side files that were left behind.
#pragma once

#include <atomic>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>

#include <windows.h>

#include <gtest/gtest.h>

#include "companion/Library.h"
#include "harness/Files.h"
#include "quelcrypt/QuelcryptExceptions.h"

template <class Interface>
struct Releaser {
    void operator()(Interface* owned) const { owned->Release(); }
};
template <class Interface>
using Owned = std::unique_ptr<Interface, Releaser<Interface>>;

inline std::string Utf8(const std::filesystem::path& path) {
    const std::u8string text = path.u8string();
    return {text.begin(), text.end()};
}

// What the writer is told of the plain file, and a listing shows.
struct Plain {
    std::wstring name = L"a.txt";
    std::filesystem::path source;
    std::uint32_t attributes = FILE_ATTRIBUTE_NORMAL;
    SYSTEMTIME lastWrite = {2024, 5, 3, 1, 12, 30, 15, 0};
    SYSTEMTIME lastAccess = {2024, 6, 6, 2, 1, 2, 3, 0};
    SYSTEMTIME creation = {2020, 2, 6, 29, 23, 59, 59, 0};
    std::uint64_t plainSize = 0;
};

class CompanionTest : public ::testing::Test {
protected:
    using Path = std::filesystem::path;

    void SetUp() override {
        static std::atomic<int> counter{0};
        m_folder = std::filesystem::temp_directory_path() /
                   ("quelcrypt-companion-" + std::to_string(GetCurrentProcessId()) + "-" + std::to_string(++counter));
        std::filesystem::create_directories(m_folder / "docs");
        SetEnvironmentVariableW(L"QUELCRYPT_CONFIG", (m_folder / "quelcrypt.json").c_str());
        Configure(R"({"folders": [{"name": "Docs", "path": "docs", "policy": "all", "targetKey": "home"}],
                      "passwords": {"home": "first secret"}})");
    }

    void TearDown() override {
        for (const auto& entry : std::filesystem::recursive_directory_iterator(m_folder)) {
            EXPECT_NE(entry.path().filename(), L".HalvaneCloud");
            if (entry.is_regular_file() && entry.path().extension() != L".log") {
                EXPECT_TRUE(Held(entry.path())) << entry.path() << " is still open";
            }
            SetFileAttributesW(entry.path().c_str(), FILE_ATTRIBUTE_NORMAL);
        }
        companion::Uninitialize();
        std::filesystem::remove_all(m_folder);
    }

    void Configure(const std::string& json) { WriteRaw(m_folder / "quelcrypt.json", json); }
    Path InDocs(const Path& name) const { return m_folder / "docs" / name; }

    static Owned<IFileWriter> Writer(const Path& container, const Plain& plain = {}) {
        CHvcStringWImpl path(container.c_str());
        CHvcStringWImpl name(plain.name.c_str());
        CHvcStringWImpl source(plain.source.c_str());
        return Owned<IFileWriter>(
            companion::MakeWriter(&path, &name, &source, plain.attributes, &plain.lastWrite, &plain.lastAccess, &plain.creation));
    }

    static bool Put(IFileWriter& writer, const std::string& content) {
        constexpr std::size_t chunk = 32768;
        for (std::size_t at = 0; at < content.size(); at += chunk) {
            const std::string part = content.substr(at, chunk);
            if (!writer.Write(part.data(), static_cast<std::uint32_t>(part.size())))
                return false;
        }
        return true;
    }

    static void Encrypt(const Path& container, const std::string& content, const Plain& plain = {}) {
        const auto writer = Writer(container, plain);
        ASSERT_TRUE(writer);
        EXPECT_TRUE(Put(*writer, content) && writer->Finish(true));
    }

    static std::string Decrypt(const Path& container) {
        CHvcStringWImpl path(container.c_str());
        const Owned<IFileReader> reader(companion::MakeReader(&path));
        if (!reader)
            throw CQuelcryptErrorException(L"no reader");
        std::string content;
        while (reader->Advance())
            content.append(static_cast<const char*>(reader->GetData()), reader->GetDataLength());
        return content;
    }

    // The description of the error exception that the action throws; empty when it throws none.
    static std::wstring ErrorOf(const std::function<void()>& action) {
        try {
            action();
            return {};
        } catch (const CQuelcryptErrorException& error) {
            return error.GetDescription();
        }
    }

    static std::optional<Plain> Inform(const Path& container, const WIN32_FIND_DATAW* entry = nullptr) {
        IHvcStringW* name = nullptr;
        Plain information;
        const auto result = companion::GetFileInformation(Utf8(container).c_str(), &name, &information.plainSize, entry,
                                                          &information.lastWrite, &information.lastAccess, &information.creation);
        const Owned<IHvcStringW> owned(name);
        if (result != 1)
            return std::nullopt;
        information.name = name->GetString();
        return information;
    }

    Path m_folder;
};
