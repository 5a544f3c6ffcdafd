// A folder of its own for each test, a configuration file in it, and the companion library's functions as plain ones. The
// teardown finds files that are still held and side files that were left behind.
#pragma once

#include <array>
#include <atomic>
#include <cstring>
#include <filesystem>
#include <functional>
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

// What the writer is told of the plain file, and a listing shows.
struct Plain {
    std::wstring name = L"a.txt";
    std::filesystem::path source = {};
    std::uint32_t attributes = FILE_ATTRIBUTE_NORMAL;
    // Of the last write, the last access and the creation.
    std::array<SYSTEMTIME, 3> times{{{2024, 5, 3, 1, 12, 30, 15, 0}, {2024, 6, 0, 2, 1, 2, 3, 0}, {2020, 2, 6, 29, 23, 59, 59, 0}}};
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
        CHvcStringWImpl path(container.c_str()), name(plain.name.c_str()), source(plain.source.c_str());
        const auto& [lastWrite, lastAccess, creation] = plain.times;
        return Owned<IFileWriter>(companion::MakeWriter(&path, &name, &source, plain.attributes, &lastWrite, &lastAccess, &creation));
    }

    static bool Put(IFileWriter& writer, const std::string& content) {
        bool isWritten = true;
        for (std::size_t at = 0; at < content.size() && isWritten; at += 32768)
            isWritten = writer.Write(&content[at], static_cast<std::uint32_t>(std::min<std::size_t>(32768, content.size() - at)));
        return isWritten;
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

    // Without a name when it says nothing.
    static Plain Inform(const Path& container, const WIN32_FIND_DATAW* entry = nullptr) {
        Plain information{.name = L""};
        IHvcStringW* name = nullptr;
        auto& [lastWrite, lastAccess, creation] = information.times;
        if (companion::GetFileInformation(Narrow(container).c_str(), &name, &information.plainSize, entry, &lastWrite, &lastAccess,
                                          &creation) == 1)
            information.name = Owned<IHvcStringW>(name)->GetString();
        return information;
    }

    Path m_folder;
};
