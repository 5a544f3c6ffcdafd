// The document of one history: where it may lie, and what the last look found there.
#pragma once

#include <algorithm>
#include <cstdio>
#include <string>

#include "explorer/Steps.h"
#include "explorer/World.h"

class Document {
public:
    explicit Document(const Start& begin) : start(begin), world(begin.isEqual) {
        for (const auto& [place, asContainer] : start.stored)
            world.Store(PathOf(place) + (asContainer ? L".zip" : L""), asContainer, world.NewWord(), World::How::New);
        look = world.LookAround();
    }

    std::wstring PathOf(int place) const {
        static const wchar_t* const s_names[kPlaces] = {L"\\doc", L"\\other", L"\\doc", L"\\doc", L"\\Doc"};
        const std::wstring folder = place == kKey2 ? L"K2" : (place == kAcross) != start.isHomePlain ? L"Plain" : L"K1";
        return folder + s_names[place] + world.Number() + L".txt";
    }
    bool IsConflictCopy(int place) const { return start.isConflictCopy && (place == kHome || place == kCase); }
    std::wstring VolumePathOf(int place) const { return world.VolumePath(PathOf(place)); }
    std::wstring OpenPathOf(int place) const { return VolumePathOf(place) + (IsConflictCopy(place) ? L".zip" : L""); }

    const StoredFile* FileAt(const std::wstring& path) const {
        const auto found = look.files.find(LowerCase(path));
        return found == look.files.end() ? nullptr : &found->second;
    }
    const StoredFile* PlainAt(int place) const { return FileAt(PathOf(place)); }
    const StoredFile* ContainerAt(int place) const { return FileAt(PathOf(place) + L".zip"); }
    static Word WordOf(const StoredFile* file) { return file ? file->word : kNothing; }
    // What stands under a name, in either form. Beside a conflict copy the plain file is another document.
    WordSet WordsAt(int place) const {
        return Only(WordOf(ContainerAt(place))) | (IsConflictCopy(place) ? 0 : Only(WordOf(PlainAt(place))));
    }
    bool IsEmptyAt(int place) const { return ContainerAt(place) && ContainerAt(place)->word == kNothing; }
    // Is it in a temp file? Of empty ones the document's place tells which is meant; so many are of others.
    bool IsTracked(Word word, int place, int others = 0) const {
        const std::wstring path = PathOf(place) + L".zip]]";
        const auto namesPlace = [&](const std::string& tracking) {
            return LowerCase(std::wstring(tracking.begin(), tracking.end())).find(LowerCase(path)) != std::wstring::npos;
        };
        return word == kNothing ? std::ranges::count_if(look.ofEmpty, namesPlace) > others : (Only(word) & look.inTemp) != 0;
    }
    bool IsOnlyTracked(Word word, int place, int others = 0) const {
        return IsTracked(word, place, others) && !(Only(word) & look.inFolders);
    }

    void Print(const std::string& step) const {
        std::printf("  %s:", step.c_str());
        for (const auto& [path, file] : look.files)
            std::printf(" %ls = %d,", path.c_str(), file.word);
        std::printf(" words in temp files: %llx\n", static_cast<unsigned long long>(look.inTemp));
    }

    const Start& start;
    World world;
    Look look;
};
