#include "explorer/World.h"

#include <algorithm>
#include <cwctype>
#include <filesystem>

#include "explorer/Container.h"

namespace {

constexpr FILETIME kTime{0x10000000, 0x01DA0000};  // of all that is stored, where times are to be equal
const wchar_t* const kFolders[] = {L"\\K1", L"\\K2", L"\\Plain"};

// The folders of all worlds of this process, one after the other; when one was not left empty, they are made anew.
std::wstring g_tree;
int g_trees = 0;

std::int64_t ChangeTimeOf(const std::wstring& path) {
    FILE_BASIC_INFO info{};
    GetFileInformationByHandleEx(Held(path, kShareAll, FILE_READ_ATTRIBUTES).handle, FileBasicInfo, &info, sizeof(info));
    return info.ChangeTime.QuadPart;
}

std::vector<std::wstring> NamesIn(const std::wstring& folder) {
    std::vector<std::wstring> names;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(folder, error))
        names.push_back(entry.path().filename().wstring());
    return names;
}

// The folder of this run, which no run before it had.
struct Root {
    std::wstring path;

    Root() {
        const std::wstring temp = std::filesystem::temp_directory_path().wstring();
        for (int number = 0; path.empty() || !CreateDirectoryW(path.c_str(), nullptr);)
            path = temp + L"explorer-" + std::to_wstring(++number);
        SetEnvironmentVariableW(L"EXPLORER_ROOT", path.c_str());
    }
    ~Root() {
        std::error_code error;
        std::filesystem::remove_all(path, error);
    }
};

void MakeTree() {
    static const Root root;
    g_tree = root.path + L"\\" + std::to_wstring(++g_trees);
    for (const wchar_t* folder : {L"", L"\\K1", L"\\K2", L"\\Plain", L"\\HalvaneCloud"})
        CreateDirectoryW((g_tree + folder).c_str(), nullptr);
    SetEnvironmentVariableW(L"TMP", g_tree.c_str());
}

}  // namespace

std::wstring LowerCase(std::wstring text) {
    std::transform(text.begin(), text.end(), text.begin(), towlower);
    return text;
}

World::World(bool isEqual) : m_isEqual(isEqual) {
    static int s_worlds = 0;
    m_number = std::to_wstring(++s_worlds);
    if (g_tree.empty())
        MakeTree();
}

std::string World::TextOf(Word word) const {
    if (word < 0)
        return {};
    const std::string text = "word " + std::to_string(word + 10);
    return m_isEqual ? text : text + std::string(static_cast<std::size_t>(word) * 3, '.');
}

std::wstring World::VolumePath(const std::wstring& path) const { return L"Docs\\" + std::to_wstring(g_trees) + L"\\" + path; }

StoredFile World::FileAt(const std::wstring& path) const {
    const std::string bytes = ReadRaw(path);
    const std::optional<Container> container = ContainerOf(bytes);
    if (BeginsLikeContainer(bytes) && !container)
        return {kTorn};
    const std::string& content = container ? container->content : bytes;
    for (Word word = kNothing; word < m_words; ++word)
        if (content == TextOf(word))
            return {word, bytes.empty()};
    return {kTorn};
}

Look World::LookAround() const {
    Look look;
    for (const std::wstring folder : kFolders)
        for (const std::wstring& name : NamesIn(g_tree + folder)) {
            const StoredFile file = FileAt(g_tree + folder + L"\\" + name);
            look.files[LowerCase(folder.substr(1) + L"\\" + name)] = file;
            look.inFolders |= Only(file.word);
        }
    LookIntoTemp(look);
    return look;
}

void World::LookIntoTemp(Look& look) const {
    const std::wstring base = g_tree + L"\\HalvaneCloud";
    for (const std::wstring& folder : NamesIn(base)) {
        std::wstring content, tracking;
        for (const std::wstring& name : NamesIn(base + L"\\" + folder))
            (name.ends_with(L".hvf") ? tracking : content) = base + L"\\" + folder + L"\\" + name;
        look.hasLitter |= content.empty();
        look.keptFolders += tracking.empty();
        if (content.empty() || tracking.empty())
            continue;
        const Word word = FileAt(content).word;
        look.inTemp |= Only(word);
        if (word == kNothing)
            look.ofEmpty.push_back(ReadRaw(tracking));
    }
}

bool World::Store(const std::wstring& path, bool asContainer, Word word, How how) {
    std::string bytes = TextOf(word);
    if (asContainer) {
        Container container{.content = bytes};
        const std::size_t name = path.find(L'\\') + 1;
        path.copy(container.header.name, path.size() - name - 4, name);  // without ".zip"
        for (SYSTEMTIME& time : container.header.times)
            time = {2024, 5, 3, 1, 12, 30, 14, 0};
        bytes = BytesOf(container);
    }
    const std::wstring fullPath = g_tree + L"\\" + path;
    const std::wstring side = how == How::ByRename ? g_tree + L"\\side" : fullPath;
    const std::int64_t before = m_isEqual ? ChangeTimeOf(fullPath) : 0;
    bool isDone = false;
    do {  // a change that not even the platform shows nobody could tell
        isDone = WriteRaw(side, bytes, how == How::InPlace ? TRUNCATE_EXISTING : CREATE_ALWAYS);
        if (isDone && how == How::ByRename && !MoveFileExW(side.c_str(), fullPath.c_str(), MOVEFILE_REPLACE_EXISTING))
            isDone = !DeleteFileW(side.c_str());
        if (m_isEqual && isDone)
            SetFileTime(Held(fullPath, kShareAll, FILE_WRITE_ATTRIBUTES).handle, &kTime, &kTime, &kTime);
    } while (isDone && m_isEqual && ChangeTimeOf(fullPath) == before);
    return isDone;
}

bool World::Remove(const std::wstring& path) { return DeleteFileW((g_tree + L"\\" + path).c_str()); }

bool World::Clear() {
    bool isFree = true;
    const auto clear = [&](const std::wstring& folder) {
        for (const std::wstring& name : NamesIn(folder)) {
            const HANDLE file =
                CreateFileW((folder + L"\\" + name).c_str(), DELETE, 0, nullptr, OPEN_EXISTING, FILE_FLAG_DELETE_ON_CLOSE, nullptr);
            isFree &= file != INVALID_HANDLE_VALUE;
            CloseHandle(file);
        }
    };
    const std::wstring base = g_tree + L"\\HalvaneCloud";
    for (const std::wstring folder : kFolders)
        clear(g_tree + folder);
    for (const std::wstring& folder : NamesIn(base)) {
        clear(base + L"\\" + folder);
        RemoveDirectoryW((base + L"\\" + folder).c_str());
    }
    if (!isFree)
        g_tree.clear();
    return isFree;
}
