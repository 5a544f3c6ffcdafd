// The explorer's companion library, without encryption: one mount folder, "Docs", in which folders named K1 or K2 have a
// policy with that key. A container is put in place by one rename, as every companion library must do.
#include "common/Patience.h"
#include "companion/Boundary.h"
#include "companion/ContainerInformation.h"
#include "companion/ContainerReader.h"
#include "companion/ContainerWriter.h"
#include "companion/Library.h"
#include "companion/SettingsStore.h"
#include "companion/Text.h"
#include "explorer/Container.h"

namespace {

struct Name final : companion::Handed<IHvcStringW> {
    explicit Name(std::wstring given) : text(std::move(given)) {}
    const wchar_t* GetString() override { return text.c_str(); }
    std::wstring text;
};

struct Reader final : companion::Handed<IFileReader> {
    explicit Reader(std::string whole) : content(std::move(whole)) {}
    std::uint32_t Advance() override { return !content.empty() && left-- > 0; }
    const void* GetData() override { return content.data(); }
    std::uint32_t GetDataLength() override { return static_cast<std::uint32_t>(content.size()); }
    std::string content;
    int left = 1;
};

struct Writer final : companion::Handed<IFileWriter> {
    Writer(std::wstring place, Container begun) : path(std::move(place)), container(std::move(begun)) {}
    bool Write(const void* data, std::uint32_t length) override {
        container.content.append(static_cast<const char*>(data), length);
        return true;
    }
    bool Finish(bool commit) override {
        const std::wstring side = path + L".side";
        const auto replace = [&] { return MoveFileExW(side.c_str(), path.c_str(), MOVEFILE_REPLACE_EXISTING) != 0; };
        if (!commit || (WriteRaw(side, BytesOf(container), CREATE_NEW) && RepeatForAMoment(replace)))
            return true;
        RepeatForAMoment([&] { return DeleteFileW(side.c_str()) != 0; });
        return false;
    }
    std::wstring path;
    Container container;
};

}  // namespace

namespace companion {

void Initialize(void (*)()) noexcept {}
void Uninitialize() noexcept {}
std::uint32_t LoggerComponentIndex(const char*) { return 0; }

std::shared_ptr<const SettingsInForce> CurrentSettings() {
    static const auto s_inForce = [] {
        wchar_t root[MAX_PATH] = L"";
        GetEnvironmentVariableW(L"EXPLORER_ROOT", root, MAX_PATH);
        SettingsInForce inForce{{}, 1};
        inForce.settings.folders.push_back({root, "Docs", PFT_General, {}, {}, {}});
        return std::make_shared<const SettingsInForce>(inForce);
    }();
    return s_inForce;
}

std::optional<BoxSettings> Settings::BoxOf(const std::wstring& path) const {
    const std::wstring name = path.substr(path.rfind(L'\\') + 1);
    return name == L"K1" || name == L"K2" ? std::optional(BoxSettings{"O1", "encrypt", ToUtf8(name)}) : std::nullopt;
}

std::int32_t GetFileInformation(const char* containerPathUtf8, IHvcStringW** storedName, std::uint64_t* plainSize, const WIN32_FIND_DATAW*,
                                SYSTEMTIME* lastWrite, SYSTEMTIME* lastAccess, SYSTEMTIME* creation) {
    const auto container = ContainerOf(ReadRaw(FromUtf8(containerPathUtf8)));
    if (!container)
        return 0;
    *storedName = new Name(container->header.name);
    *plainSize = container->content.size();
    *lastWrite = container->header.times[0];
    *lastAccess = container->header.times[1];
    *creation = container->header.times[2];
    return 1;
}

IFileReader* MakeReader(IHvcStringW* containerPath) {
    const auto container = ContainerOf(ReadRaw(containerPath->GetString()));
    return container ? new Reader(container->content) : nullptr;
}

IFileWriter* MakeWriter(IHvcStringW* containerPath, IHvcStringW* virtualFileSpec, IHvcStringW*, std::uint32_t, const SYSTEMTIME* lastWrite,
                        const SYSTEMTIME* lastAccess, const SYSTEMTIME* creation, IfThere) {
    ContainerHeader header{.times = {*lastWrite, *lastAccess, *creation}};
    std::wcsncpy(header.name, virtualFileSpec->GetString(), std::size(header.name) - 1);
    return new Writer(containerPath->GetString(), {header, {}});
}

}  // namespace companion
