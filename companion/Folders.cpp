#include "Folders.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>

#include <windows.h>
// After windows.h.
#include <shlwapi.h>

#include "Boundary.h"
#include "Paths.h"
#include "SettingsStore.h"
#include "Text.h"

namespace companion {
namespace {

class HandedText final : public Handed<IQuelcryptText> {
public:
    explicit HandedText(std::string text) : m_text(std::move(text)) {}
    bool HasText(std::int32_t) override { return !m_text.empty(); }
    const char* GetText(std::int32_t) override { return m_text.c_str(); }

private:
    std::string m_text;
};

bool HandOut(IQuelcryptText** text, const std::string& value) {
    if (!text)
        return false;
    *text = new HandedText(value);
    return true;
}

class HandedFolder final : public Handed<IProtectedFolder> {
public:
    explicit HandedFolder(const ConfiguredFolder& folder)
        : m_type(folder.type), m_name(folder.name), m_path(ToUtf8(DriveRootOr(folder.path))) {}

    void Reserved2() override {}
    void GetRecord(ProtectedFolderRecord* record) override {
        if (record)
            record->type = m_type;
    }
    void Reserved4() override {}
    bool GetName(IQuelcryptText** text) override {
        return AtBoundary([&] { return HandOut(text, m_name); });
    }
    bool GetPath(IQuelcryptText** text) override {
        return AtBoundary([&] { return HandOut(text, m_path); });
    }

private:
    static std::wstring DriveRootOr(const std::wstring& path) { return path.ends_with(L':') ? path + L'\\' : path; }

    ProtectedFolderType m_type;
    std::string m_name;
    std::string m_path;
};

class HandedFolderEnum final : public Handed<IProtectedFolderEnum> {
public:
    explicit HandedFolderEnum(std::shared_ptr<const SettingsInForce> inForce) : m_inForce(std::move(inForce)) {}

    std::int32_t Next(IProtectedFolder** folder) override {
        return AtBoundary([&] {
            const auto& folders = m_inForce->settings.folders;
            while (folder && m_next < folders.size()) {
                const ConfiguredFolder& candidate = folders[m_next++];
                if (candidate.name.empty())
                    continue;
                *folder = new HandedFolder(candidate);
                return 1;
            }
            return 0;
        });
    }
    void Reserved3() override {}
    void Reserved4() override {}
    std::uint32_t GetChangeCounter() override { return m_inForce->changeCounter; }

private:
    std::shared_ptr<const SettingsInForce> m_inForce;
    std::size_t m_next = 0;
};

class HandedBoxConfig final : public Handed<IHalvaneBoxConfig> {
public:
    explicit HandedBoxConfig(BoxSettings box) : m_box(std::move(box)) {}

    void Reserved2() override {}
    std::uint32_t GetTargetKeyId(char* buffer, std::uint32_t capacity) override { return Fill(m_box.targetKey, buffer, capacity); }
    void Reserved4() override {}
    std::uint32_t GetOwnerId(char* buffer, std::uint32_t capacity) override { return Fill(m_box.owner, buffer, capacity); }
    void Reserved6() override {}
    std::uint32_t GetPolicy(char* buffer, std::uint32_t capacity) override { return Fill(m_box.policy, buffer, capacity); }

private:
    // A text that is too long is cut between two characters.
    static std::uint32_t Fill(const std::string& text, char* buffer, std::uint32_t capacity) {
        if (!buffer)
            return 0;
        std::size_t length = std::min<std::size_t>(text.size(), capacity);
        const auto continues = [&text](std::size_t at) { return (static_cast<unsigned char>(text[at]) & 0xC0) == 0x80; };
        while (length > 0 && length < text.size() && continues(length))
            --length;
        std::memcpy(buffer, text.data(), length);
        if (length < capacity)
            buffer[length] = '\0';
        return static_cast<std::uint32_t>(length);
    }

    BoxSettings m_box;
};

class HandedConfig final : public Handed<IQuelcryptConfig> {
public:
    explicit HandedConfig(std::shared_ptr<const SettingsInForce> inForce) : m_inForce(std::move(inForce)) {}

    bool IsExcluded(const char* fileNameUtf8, std::int32_t) override {
        return AtBoundary([&] {
            if (!fileNameUtf8)
                throw CQuelcryptInvalidArgumentException();
            const std::wstring name = FromUtf8(fileNameUtf8);
            const auto& patterns = m_inForce->settings.excluded;
            return std::any_of(patterns.begin(), patterns.end(),
                               [&name](const std::wstring& pattern) { return PathMatchSpecW(name.c_str(), pattern.c_str()) != FALSE; });
        });
    }

private:
    std::shared_ptr<const SettingsInForce> m_inForce;
};

}  // namespace

IQuelcryptConfig* MakeQuelcryptConfig() {
    return AtBoundary([] { return new HandedConfig(CurrentSettings()); });
}

std::int32_t MakeHalvaneBoxConfig(const char* folderPathUtf8, IHalvaneBoxConfig** config) {
    return AtBoundary([&] {
        if (!folderPathUtf8 || !*folderPathUtf8 || !config)
            return 0;
        auto box = CurrentSettings()->settings.BoxOf(FullPath(FromUtf8(folderPathUtf8)));
        *config = box ? new HandedBoxConfig(std::move(*box)) : nullptr;
        return 1;
    });
}

std::int32_t MakeProtectedFolderEnum(IProtectedFolderEnum** folders) {
    return AtBoundary([&] {
        if (!folders)
            return 0;
        *folders = new HandedFolderEnum(CurrentSettings());
        return 1;
    });
}

}  // namespace companion
