#include "Passwords.h"

#include <string_view>

#include "Boundary.h"
#include "Logger.h"
#include "Paths.h"
#include "Text.h"
#include "WholeFile.h"

namespace companion {
namespace {

std::string KeyOf(const std::optional<BoxSettings>& box) {
    return box ? box->targetKey : std::string();
}

// The text between the first start, looked for behind the first before, and the next end; empty when there is none.
std::string_view Between(std::string_view text, std::string_view before, std::string_view start, std::string_view end) {
    std::size_t from = text.find(before);
    if (from != std::string_view::npos)
        from = text.find(start, from);
    if (from == std::string_view::npos)
        return {};
    from += start.size();
    const std::size_t to = text.find(end, from);
    return to == std::string_view::npos ? std::string_view() : text.substr(from, to - from);
}

// The real container of a temp file, as its tracking file names it; empty when there is no tracking file.
std::wstring TrackedContainer(const std::wstring& tempPath) {
    try {
        constexpr std::size_t sizeLimit = 1 << 20;
        const std::string document = ReadWholeFile(tempPath + L".hvf", sizeLimit);
        const std::string_view name = Between(document, "<srcfile>", "<name><![CDATA[", "]]></name>");
        return name.empty() ? std::wstring() : FullPath(FromAnsi(name));
    } catch (const CQuelcryptErrorException&) {
        return {};
    }
}

std::string KeyToWrite(const Settings& settings, const std::wstring& containerPath, const std::wstring& sourcePath) {
    std::string key;
    if (const auto box = settings.BoxOf(containerPath)) {
        key = box->targetKey;
    } else {
        for (const std::wstring& tempPath : {containerPath, sourcePath}) {
            const std::wstring real = key.empty() && !tempPath.empty() ? TrackedContainer(tempPath) : std::wstring();
            if (!real.empty())
                key = KeyOf(settings.BoxOfAnsi(real));
        }
        if (key.empty() && !sourcePath.empty())
            key = KeyOf(settings.BoxOf(sourcePath));
    }
    return key.empty() ? settings.defaultKey : key;
}

}  // namespace

std::vector<std::string> PasswordsToRead(const Settings& settings, const std::wstring& containerPath) {
    std::vector<std::string> passwords;
    const std::string own = KeyOf(settings.BoxOf(containerPath));
    if (const auto found = settings.passwords.find(own); found != settings.passwords.end())
        passwords.push_back(found->second);
    for (const auto& [key, password] : settings.passwords) {
        if (key != own)
            passwords.push_back(password);
    }
    return passwords;
}

std::optional<std::string> PasswordToWrite(const Settings& settings, const std::wstring& containerPath,
                                           const std::wstring& sourcePath) {
    const std::string key = KeyToWrite(settings, containerPath, sourcePath);
    const auto found = settings.passwords.find(key);
    if (found != settings.passwords.end())
        return found->second;
    LogLine(LogLevel_Error, key.empty() ? L"No key is configured for " + containerPath
                                        : L"The password of key \"" + FromUtf8Lossy(key) + L"\" is not configured, needed for " +
                                              containerPath);
    return std::nullopt;
}

}  // namespace companion
