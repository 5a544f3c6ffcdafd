#include <tuple>

#include "common/Halves.h"
#include "companion/conformance/Checks.h"

namespace conformance {
namespace {

// A ZIP file with the one entry "a" of content "b", stored and not encrypted.
constexpr std::string_view kOrdinaryZip(
    "PK\3\4\12\0\0\0\0\0\0\0\41\0\371\357\276\161\1\0\0\0\1\0\0\0\1\0\0\0ab"
    "PK\1\2\12\3\12\0\0\0\0\0\0\0\41\0\371\357\276\161\1\0\0\0\1\0\0\0\1\0\0\0\0\0\0\0\0\0\0\0\244\201\0\0\0\0a"
    "PK\5\6\0\0\0\0\1\0\1\0\57\0\0\0\40\0\0\0\0\0",
    101);

// Did the library hand out wrong content instead of refusing it?
bool IsMisread(const Library& library, const Scratch& file, const std::string& bytes, const std::string& content) {
    WriteFileBytes(file.container, bytes);
    SeenInstead([&] { library.Inform(file.container); });
    return library.ReadUnlessRefused(file.container).value_or(content) != content;
}

std::uint64_t Seconds(const SYSTEMTIME& time) {
    FILETIME fileTime{};
    SystemTimeToFileTime(&time, &fileTime);
    return FileTimeNumber(fileTime) / 10'000'000;
}

void CheckDamage(Report& report, const Library& library, const Folders& folders) {
    const Scratch file(folders.encrypted, L"damaged.txt");
    const std::tuple<const char*, std::size_t, std::size_t> rows[] = {{"small", 40, 1}, {"large", 1'000'000, 200'003}};
    for (const auto& [what, size, step] : rows) {
        const std::string content = SomeBytes(size);
        std::string whole;
        report.Require(std::string("reads a damaged ") + what + " container as it was, or refuses it", [&] {
            library.Save(file.container, {.name = file.plain.filename(), .content = content});
            whole = ReadFileBytes(file.container);
            for (std::size_t at = 0; at < whole.size(); at += step) {
                std::string bytes = whole;
                bytes[at] = static_cast<char>(bytes[at] ^ 0x55);
                Must(!IsMisread(library, file, bytes, content),
                     "byte " + std::to_string(at) + " was changed, and the content is another one");
            }
        });
        report.Require(std::string("reads a ") + what + " container that was cut as it was, or refuses it", [&] {
            for (std::size_t length = 0; length < whole.size(); length += step)
                Must(!IsMisread(library, file, whole.substr(0, length), content),
                     "it was cut to " + std::to_string(length) + " bytes, and the content is another one");
        });
    }
}

}  // namespace

void CheckContainers(Report& report, const Library& library, const Folders& folders) {
    // Around the pieces in which content is written; names are read back in their own form, or the document is shown as a conflict.
    const std::tuple<std::size_t, const char*, std::wstring> rows[] = {
        {0, "in ASCII", L"empty.txt"},
        {1, "with blanks and signs", L"~ #%&{}'+,;=@! one.tar.gz"},
        {32767, "with letters outside ASCII", L"\u00DCbergr\u00F6\u00DFe \u2013 \u65E5\u672C\u8A9E \U0001F600.docx"},
        {32768, "with a decomposed accent", L"Cafe\u0301.pdf"},
        {32769, "that makes its path longer than 260 units", std::wstring(230, L'n') + L".txt"},
        {3 * 1024 * 1024 + 7, "without an extension", L"large"},
    };
    for (const auto& [size, kind, name] : rows) {
        const Scratch file(folders.encrypted, name);
        const Document document{.name = file.plain.filename(), .content = SomeBytes(size)};
        report.Require("stores " + std::to_string(size) + " bytes under a name " + kind + ", and gives them back", [&] {
            library.Save(file.container, document);
            Must(CanBeOpened(file.container), "at the path given no file can be opened");
            Must(library.Read(file.container) == document.content, "the content is another one");
        });
        report.Require("says the name, size and times of it, the times to two seconds", [&] {
            const auto info = library.Inform(file.container);
            Must(info.has_value(), "the answer is not 1, or there is no name");
            Must(info->name == document.name, "the name is another one");
            Must(info->size == size, "the size is " + std::to_string(info->size));
            for (std::size_t which = 0; which < document.times.size(); ++which)
                Must(Seconds(info->times[which]) - Seconds(document.times[which]) + 2 <= 4,
                     "time " + std::to_string(which + 1) + " of the three is another one");
        });
        report.Require("holds it no longer",
                       [&] { Must(CanBeOpened(file.container), "it cannot be opened by one who shares it with nobody"); });
    }
    CheckDamage(report, library, folders);
}

void CheckOtherFiles(Report& report, const Library& library, const Folders& folders) {
    const Scratch file(folders.encrypted, L"other.txt");
    const std::tuple<const char*, std::string_view> rows[] = {
        {"a text", "just a text that was named wrongly, long enough to be anything"},
        {"an empty file", ""},
        {"an ordinary ZIP file", kOrdinaryZip},
    };
    for (const auto& [what, bytes] : rows)
        report.Require(std::string("takes ") + what + " for no container: it has no information, and is not read", [&] {
            WriteFileBytes(file.container, bytes);
            Must(!library.Inform(file.container), "GetFileInformation answered 1");
            Must(!library.ReadUnlessRefused(file.container), "it was read");
            Must(CanBeOpened(file.container), "afterwards it is held");
        });
    report.Require("takes a missing file for no container", [&] {
        WIN32_FIND_DATAW rawEntry{};
        const UniqueFindHandle found(FindFirstFileW(file.container.c_str(), &rawEntry));
        Discard(file.container);
        const Scratch missing(folders.encrypted, L"missing.txt");
        Must(!library.Inform(missing.container, rawEntry), "GetFileInformation answered 1");
        Must(!library.ReadUnlessRefused(missing.container), "it was read");
    });
}

}  // namespace conformance
