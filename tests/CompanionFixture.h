// A folder for each test, with a configuration file. The teardown finds files that are still held and side files that were left behind.
#pragma once

#include <atomic>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>

#include <windows.h>

#include <gtest/gtest.h>

#include "companion/ContainerInformation.h"
#include "companion/Folders.h"
#include "companion/Library.h"
#include "harness/Containers.h"
#include "harness/Files.h"

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
            EXPECT_TRUE(!entry.is_regular_file() || entry.path().extension() == L".log" || Held(entry.path()))
                << entry.path() << " is open";
            SetFileAttributesW(entry.path().c_str(), FILE_ATTRIBUTE_NORMAL);
        }
        companion::Uninitialize();
        std::filesystem::remove_all(m_folder);
    }

    void Configure(const std::string& json) { WriteRaw(m_folder / "quelcrypt.json", json); }
    Path InDocs(const Path& name) const { return m_folder / "docs" / name; }

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
    static PlainFile Inform(const Path& container, const WIN32_FIND_DATAW* entry = nullptr) {
        PlainFile told{.name = L""};
        IHvcStringW* name = nullptr;
        auto& [lastWrite, lastAccess, creation] = told.times;
        if (companion::GetFileInformation(Narrow(container).c_str(), &name, &told.size, entry, &lastWrite, &lastAccess, &creation) == 1)
            told.name = Owned<IHvcStringW>(name)->GetString();
        return told;
    }

    Path m_folder;
};
