#include "explorer/History.h"

#include <algorithm>
#include <atomic>
#include <map>

#include <windows.h>

#include "explorer/Process.h"

namespace {

const char* const kDispositions[] = {"", "new", "always new", "existing", "always", "truncating", "to read"};
const char* const kPlaceNames[] = {"home", "other", "key 2", "across", "case"};
const char* const kFailings[] = {"", "no writer", "a writer throws", "Write fails", "Finish fails", "GetFileInformation fails", "fails", "throws"};

std::string Actor(int actor) { return actor == 0 ? "A " : "B "; }

struct Opener {
    void* file = nullptr;
    int place = kHome;
    int disposition = 0;
    bool mayOnlyRead = false;
    bool isPlain = false;
    bool isAccessed = false;  // an encrypted one: its temp file is made
    bool isDirty = false;     // its temp file holds what is not stored
    bool isUnsure = false;    // what it reads or began from may be one thing or another
    bool isDeleted = false;
    WordSet known = 0;
    bool knowsEmpty = false;  // and an empty document
    WordSet moved = 0;   // an edit that waited, and goes with a rename
    WordSet marked = 0;  // what was there when it was marked for deletion
    Word current = kNothing;
};

std::string g_current;
std::atomic<int> g_run{0};

class History {
public:
    explicit History(const Start& start) : m_start(start), m_world(start.isEqual) {
        for (const auto& [place, asContainer] : start.stored)
            m_world.Store(PathOf(place) + (asContainer ? L".zip" : L""), asContainer, m_world.NewWord(), World::How::New);
        m_look = m_world.LookAround();
        for (const Step& step : start.before)
            Do(step);
        m_hasBegun = false;
        m_onlyOutside = true;
        m_hasActed[0] = false;
    }

    void Do(const Step& step);
    void End();
    std::vector<Step> Next() const;
    bool IsLikeAStart() const { return m_hasBegun && m_onlyOutside && m_waiting.empty(); }

    std::string failure;
    bool isRefused = false;

private:
    // A failure is told once, the first.
    void Expect(bool isTrue, const std::string& what) {
        if (!isTrue && failure.empty())
            failure = what + " (" + m_step + ")";
    }
    void ExpectText(const std::string& found, const std::string& expected, const char* verb) {
        Expect(found == expected, std::string(verb) + " something else (\"" + found + "\", not \"" + expected + "\")");
    }
    std::wstring PathOf(int place) const;
    std::wstring OpenPathOf(int place) const { return PathOf(place) + (place == kHome && m_start.isHomeConflictCopy ? L".zip" : L""); }
    const StoredFile* FileAt(const Look& look, const std::wstring& path) const;
    Word PlainAt(int place) const;
    Word ContainerAt(int place) const;
    WordSet WordsAt(int place) const;

    struct Waiting {
        Word word;
        WordSet known;
        bool knowsEmpty;  // it began from an empty document
        bool isUnsure;    // whether the container is still the one it began from
    };
    bool Call(const Step& step);
    bool CallOpener(const Step& step, Opener& opener);
    bool Open(const Step& step, Opener& opener);
    bool Write(Opener& opener, bool isCut);
    bool Read(Opener& opener);
    bool Rename(Opener& opener, int place);
    void Close(Opener& opener);
    bool MoveOrCopy(const Step& step);
    bool LockOrUnlock(bool isLock);
    bool StoreOutside(Op op);
    void EndProcess();
    void Access(Opener& opener);
    const Waiting* WaitingAt(int place) const;
    void TakeWaiting(int place, WordSet& known, Word& current);
    void Check(const Step& step, const Look& now);
    void Settle(const Step& step);
    void OpenAnew(int place);
    bool IsEmptyAt(int place) const {
        const StoredFile* const file = FileAt(m_look, PathOf(place) + L".zip");
        return file && file->word == kNothing;
    }
    bool IsTracked(Word word) const { return word == kNothing ? m_look.tracksNothing : (Only(word) & m_look.inTemp) != 0; }
    bool IsOnlyTracked(Word word) const { return IsTracked(word) && !(Only(word) & m_look.inFolders); }

    const Start& m_start;
    World m_world;
    Look m_look;  // after the last step
    Opener m_openers[2];
    bool m_hasActed[2] = {};
    bool m_hasBegun = false, m_onlyOutside = true;  // so far nothing was opened or locked
    bool m_isLocked = false;
    bool m_mayLitter = false;  // a temp folder can go later only than the volume knows of
    const std::int32_t m_liveBefore = Explorer_LiveObjects();
    bool m_mayBeBare = false;  // somebody may have wanted an empty file
    std::wstring m_token;
    std::map<int, Waiting> m_waiting;  // edits that could not be saved, as long as their process lives
    WordSet m_edits = 0;               // words that openers wrote
    WordSet m_doomed = 0;              // marked for deletion by somebody who has closed
    std::set<int> m_doomedPlaces;      // of plain files that are not locked: the platform deletes them with their last handle
    WordSet m_mayReplace = 0, m_mayDrop = 0;  // by this step: of what is stored, of what is in temp files
    std::string m_step;
};

std::wstring History::PathOf(int place) const {
    const std::wstring home = m_start.isHomePlain ? L"Plain" : L"K1";
    const std::wstring name = m_world.Number() + L".txt";
    switch (place) {
    case kOther: return home + L"\\other" + name;
    case kKey2: return L"K2\\doc" + name;
    case kAcross: return (m_start.isHomePlain ? L"K1\\doc" : L"Plain\\doc") + name;
    case kCase: return home + L"\\Doc" + name;
    default: return home + L"\\doc" + name;
    }
}

const StoredFile* History::FileAt(const Look& look, const std::wstring& path) const {
    const auto found = look.files.find(LowerCase(path));
    return found == look.files.end() ? nullptr : &found->second;
}

Word History::PlainAt(int place) const {
    const StoredFile* const file = FileAt(m_look, PathOf(place));
    return file ? file->word : kNothing;
}

Word History::ContainerAt(int place) const {
    const StoredFile* const file = FileAt(m_look, PathOf(place) + L".zip");
    return file ? file->word : kNothing;
}

// What stands under a name, in either form. Beside a conflict copy the plain file is another document.
WordSet History::WordsAt(int place) const {
    const bool isCopy = m_start.isHomeConflictCopy && (place == kHome || place == kCase);
    return Only(ContainerAt(place)) | (isCopy ? 0 : Only(PlainAt(place)));
}

// The edit that is shown at a place: not one that waits for a container which somebody else replaced since.
const History::Waiting* History::WaitingAt(int place) const {
    const auto waiting = m_waiting.find(place);
    if (waiting == m_waiting.end())
        return nullptr;
    const StoredFile* const file = FileAt(m_look, PathOf(place) + L".zip");
    const bool isShown = !file || file->isBare || (file->word == kNothing ? waiting->second.knowsEmpty : (Only(file->word) & waiting->second.known) != 0);
    return isShown ? &waiting->second : nullptr;
}

void History::TakeWaiting(int place, WordSet& known, Word& current) {
    known |= m_waiting[place].known;
    current = m_waiting[place].word;
    m_waiting.erase(place);
}

// The first access to the content of an encrypted document.
void History::Access(Opener& opener) {
    if (opener.isAccessed || opener.isPlain)
        return;
    opener.isAccessed = true;
    if (opener.disposition != OPEN_EXISTING)
        return;
    opener.isDirty = WaitingAt(opener.place) != nullptr;
    opener.isUnsure |= opener.isDirty && WaitingAt(opener.place)->isUnsure;
    if (opener.isDirty)
        TakeWaiting(opener.place, opener.known, opener.current);
    else {
        opener.current = ContainerAt(opener.place);
        opener.knowsEmpty = IsEmptyAt(opener.place);
    }
    opener.known |= Only(opener.current);
}

bool History::Open(const Step& step, Opener& opener) {
    const bool readsOnly = step.argument == kOpenToRead;
    const std::uint32_t access = readsOnly ? GENERIC_READ : GENERIC_READ | GENERIC_WRITE | DELETE;
    opener = {};
    if (m_start.isHomeConflictCopy && !FileAt(m_look, PathOf(kHome) + L".zip"))
        return false;  // another document would be made under the name of the container
    opener.mayOnlyRead = readsOnly;
    opener.disposition = readsOnly ? OPEN_EXISTING : step.argument;
    const bool startsEmpty = opener.disposition == CREATE_ALWAYS || opener.disposition == TRUNCATE_EXISTING;
    const bool mayCreate = opener.disposition != OPEN_EXISTING && opener.disposition != TRUNCATE_EXISTING;
    opener.isPlain = m_start.isHomePlain || (!mayCreate && !m_start.isHomeConflictCopy && FileAt(m_look, PathOf(kHome)));
    if (startsEmpty && opener.isPlain)
        m_mayReplace = Only(PlainAt(kHome));
    if (startsEmpty || opener.disposition == OPEN_ALWAYS) {
        opener.known = WordsAt(kHome);
        opener.knowsEmpty = IsEmptyAt(kHome);
    }
    const bool isDone = process::Volume()->OpenFile(&opener.file, m_world.VolumePath(OpenPathOf(kHome)).c_str(), access, 7,
                                                  static_cast<std::uint32_t>(opener.disposition),
                                                  step.withToken ? m_token.c_str() : nullptr, nullptr) == VVS_Success;
    if (isDone && m_isLocked)
        m_doomedPlaces.erase(kHome);
    m_mayBeBare |= isDone && !readsOnly;
    return isDone;
}

bool History::Read(Opener& opener) {
    const Word plain = PlainAt(opener.place);
    Opener accessed = opener;
    const auto waiting = m_waiting;
    Access(accessed);
    char data[512];
    std::uint32_t length = 0;
    if (process::Volume()->ReadFile(opener.file, 0, data, sizeof(data), &length, nullptr) != VVS_Success)
        return m_waiting = waiting, false;
    opener = accessed;
    const Word expected = opener.isPlain ? plain : opener.current;
    const bool isThere = !opener.isPlain || FileAt(m_look, PathOf(opener.place));
    ExpectText(std::string(data, length), isThere && !opener.isUnsure ? m_world.TextOf(expected) : std::string(data, length), "reads");
    return true;
}

bool History::Write(Opener& opener, bool isCut) {
    const Word word = isCut ? kNothing : m_world.NewWord();
    Opener accessed = opener;
    const auto waiting = m_waiting;
    Access(accessed);
    m_mayReplace = opener.isPlain ? Only(PlainAt(opener.place)) : 0;
    m_mayDrop = accessed.known;
    const std::string text = m_world.TextOf(word);
    if (process::Volume()->SetFileSize(opener.file, text.size(), nullptr) != VVS_Success ||
        (!isCut && process::Volume()->WriteFile(opener.file, 0, text.data(), static_cast<std::uint32_t>(text.size()), nullptr, nullptr) !=
                       VVS_Success))
        return m_waiting = waiting, false;
    m_mayBeBare |= isCut;
    opener = accessed;
    opener.current = word;
    opener.known |= Only(word);
    opener.isDirty = !opener.isPlain;
    m_edits |= Only(word);
    if (opener.isPlain && m_doomedPlaces.count(opener.place))
        m_doomed |= Only(word);
    return true;
}

bool History::Rename(Opener& opener, int place) {
    Opener accessed = opener;
    const auto waiting = m_waiting;
    Access(accessed);
    const bool isSame = LowerCase(PathOf(place)) == LowerCase(PathOf(opener.place));
    const WordSet replaced = isSame ? 0 : Only(PlainAt(place)) | Only(ContainerAt(place));
    m_mayReplace = m_doomed | replaced | (accessed.isDirty ? accessed.known & ~Only(accessed.current) : 0);
    if (const Waiting* const moved = WaitingAt(opener.place)) {  // an edit moves with its document
        m_mayReplace |= moved->known & ~Only(moved->word);
        accessed.moved = Only(moved->word);
        accessed.isUnsure |= !accessed.isAccessed || accessed.disposition != OPEN_EXISTING;
    }
    m_mayDrop = m_mayReplace;
    if (process::Volume()->RenameFile(opener.file, nullptr, m_world.VolumePath(PathOf(place)).c_str(), nullptr) != VVS_Success)
        return m_mayReplace = m_doomed, m_waiting = waiting, false;
    if (accessed.isPlain)
        accessed.current = PlainAt(opener.place);
    for (Opener& other : m_openers)
        if (&other != &opener && other.file) {
            m_mayLitter |= accessed.isPlain && other.isPlain;  // it holds open what became the temp file
            other.isUnsure |= isSame;                          // its container may have been written anew
        }
    opener = accessed;
    opener.known |= replaced | Only(opener.current);
    opener.place = place == kCase ? kHome : place;
    m_mayBeBare = true;
    m_doomed |= m_isLocked ? m_mayReplace : 0;  // a locked file goes with the lock
    return true;
}

void History::Close(Opener& opener) {
    const WordSet left = opener.known & ~Only(opener.current);
    m_mayReplace = m_doomed | (opener.isDeleted ? opener.marked : opener.isDirty ? left : 0);
    m_mayDrop = m_doomed | (opener.isDeleted || !opener.isDirty ? opener.known | opener.marked : left);
    if (const Waiting* const waiting = WaitingAt(opener.place))  // a refused call may have taken it up
        m_mayReplace |= waiting->known & ~Only(waiting->word);
    process::Volume()->CloseFile(opener.file, nullptr);
    m_doomed |= m_isLocked ? m_mayReplace : 0;
    if (opener.isDeleted)
        m_doomed |= opener.marked;  // it goes with the lock, or with the last handle
}

bool History::CallOpener(const Step& step, Opener& opener) {
    IVirtualVolume* const volume = process::Volume();
    switch (step.op) {
    case Op::Open: return Open(step, opener);
    case Op::Read: return Read(opener);
    case Op::Write: return Write(opener, false);
    case Op::Cut: return Write(opener, true);
    case Op::Rename: return Rename(opener, step.argument);
    case Op::Close: return Close(opener), true;
    case Op::Delete:
        if (volume->Delete(opener.file, nullptr) != VVS_Success)
            return false;
        opener.isDeleted = true;
        opener.marked = WordsAt(opener.place);
        if (const Waiting* const waiting = WaitingAt(opener.place))
            opener.marked |= Only(waiting->word) | waiting->known;
        if (opener.isPlain && !m_isLocked)
            m_doomedPlaces.insert(opener.place);
        return true;
    default:
        if (volume->Undelete(opener.file, nullptr) != VVS_Success)
            return false;
        if (opener.isDeleted && opener.isPlain)
            m_doomedPlaces.erase(opener.place);
        opener.isDeleted = false;
        opener.marked = 0;
        return true;
    }
}

bool History::MoveOrCopy(const Step& step) {
    WordSet known = 0;
    Word current = kNothing;
    const auto waiting = m_waiting;
    if (WaitingAt(kHome))
        TakeWaiting(kHome, known, current);
    m_mayReplace = m_mayDrop = WordsAt(step.argument) | (known & ~Only(current)) | m_doomed;
    const auto call = step.op == Op::Move ? &IVirtualVolume::MoveFileW : &IVirtualVolume::CopyFileW;
    const bool isDone = (process::Volume()->*call)(m_world.VolumePath(OpenPathOf(kHome)).c_str(),
                                                 m_world.VolumePath(PathOf(step.argument)).c_str(), nullptr) == VVS_Success;
    m_waiting = waiting;  // until it is seen where the edit is
    m_mayBeBare |= isDone;  // also a lock's empty file can be copied
    if (!isDone && waiting.empty())
        m_mayReplace = m_doomed;
    else if (isDone && m_isLocked)
        m_doomed |= m_mayReplace;
    if (!isDone)
        return false;
    for (const Opener& opener : m_openers)
        m_mayLitter |= opener.file && opener.isPlain;
    if (step.op == Op::Move && WaitingAt(kHome)) {
        m_waiting[step.argument] = m_waiting[kHome];
        m_waiting.erase(kHome);
    }
    return true;
}

bool History::LockOrUnlock(bool isLock) {
    const std::wstring path = m_world.VolumePath(OpenPathOf(kHome));
    if (!isLock) {
        m_mayReplace = m_mayDrop = m_doomed;
        const bool isDone = process::Volume()->Unlock(path.c_str(), m_token.c_str()) == VVS_Success;
        m_isLocked = m_isLocked && !isDone;
        return isDone;
    }
    LockInfo info{};
    info.scope = LockScope_Exclusive;
    if (process::Volume()->Lock(path.c_str(), &info) != VVS_Success)
        return false;
    m_token = info.token;
    m_isLocked = true;
    return true;
}

bool History::StoreOutside(Op op) {
    const bool isPlain = !m_start.isHomeConflictCopy && FileAt(m_look, PathOf(kHome));
    const bool asContainer = !isPlain && !m_start.isHomePlain;
    const std::wstring path = PathOf(kHome) + (asContainer ? L".zip" : L"");
    m_mayReplace = Only(asContainer ? ContainerAt(kHome) : PlainAt(kHome));
    if (op == Op::StoreInPlace && m_doomedPlaces.count(kHome))
        return false;  // the platform opens nothing that is marked for deletion, though not every one of its likes refuses
    if (op != Op::Remove)
        return m_world.Store(path, asContainer, m_world.NewWord(), op == Op::Store ? World::How::ByRename : World::How::InPlace);
    if (m_doomedPlaces.count(kHome) || !m_world.Remove(path))
        return false;
    if (!asContainer) {
        m_doomed |= m_mayReplace;
        m_doomedPlaces.insert(kHome);
    }
    return true;
}

void History::EndProcess() {
    m_mayReplace = m_mayDrop = m_doomed;
    for (Opener& opener : m_openers) {
        if (opener.isDeleted) {
            m_mayLitter = true;  // of a temp file that goes with its process the tracking file stays
            m_mayReplace |= opener.marked;
            m_mayDrop |= opener.marked | opener.known;
        }
        opener = {};
    }
    m_mayBeBare |= m_isLocked;
    m_isLocked = false;
    m_waiting.clear();
    process::End();
}

bool History::Call(const Step& step) {
    switch (step.op) {
    case Op::Move:
    case Op::Copy: return MoveOrCopy(step);
    case Op::Lock: return LockOrUnlock(true);
    case Op::Unlock: return LockOrUnlock(false);
    case Op::Store:
    case Op::StoreInPlace:
    case Op::Remove: return StoreOutside(step.op);
    case Op::EndProcess: return EndProcess(), true;
    default: return CallOpener(step, m_openers[step.actor]);
    }
}

void History::Check(const Step& step, const Look& now) {
    const WordSet found = now.inFolders | now.inTemp;
    const WordSet lost = (m_look.inFolders | (m_look.inTemp & m_edits)) & ~found;
    const WordSet wrong = (lost & m_look.inFolders & ~m_mayReplace) | (lost & ~m_look.inFolders & ~(m_mayDrop | m_mayReplace));
    for (Word word = 0; word < 64; ++word)
        if (wrong & Only(word))
            Expect(false, "word " + std::to_string(word) + " is lost");
    for (const auto& [path, file] : now.files)
        Expect(file.word != kTorn, "half a content in a folder");
    const bool isByName = step.op == Op::Rename || step.op == Op::Move || step.op == Op::Copy;
    if (isRefused && isByName && step.failing == Failing::None && m_doomedPlaces.empty() && m_waiting.empty())
        Expect(now.files == m_look.files, "refused, but something was touched");
    if (isRefused || step.op == Op::Open)
        return;
    const Opener& opener = m_openers[step.actor];
    if (step.op == Op::Write)
        Expect((Only(opener.current) & ~found) == 0, "what was written is found nowhere");
    const bool isAlone = !m_openers[1 - step.actor].file;  // another one may hold the lock's file beyond the lock
    if (step.op == Op::Close && !opener.isDeleted && opener.isDirty && isAlone && step.failing == Failing::None)
        Expect((Only(opener.current) & ~now.inFolders) == 0, "closed, but not stored");
}

// What is known only after the step.
void History::Settle(const Step& step) {
    Opener& opener = m_openers[step.actor];
    if (step.op == Op::Rename) {
        opener.isAccessed |= opener.isPlain;
        opener.isPlain = PathOf(opener.place).starts_with(L"Plain");
        opener.isDirty &= !opener.isPlain && IsOnlyTracked(opener.current);
        opener.knowsEmpty |= IsEmptyAt(opener.place);
        opener.known |= WordsAt(opener.place) & opener.moved;
    }
    if (step.op == Op::Rename || step.op == Op::Move)  // the platform's handles follow a file that is renamed
        for (Opener& other : m_openers)
            if (other.file && other.isPlain && !FileAt(m_look, PathOf(other.place))) {
                other.isUnsure |= !FileAt(m_look, PathOf(step.argument));
                other.place = other.isUnsure ? other.place : step.argument;
            }
    if (step.op != Op::Close)
        return;
    if (opener.isDirty && IsOnlyTracked(opener.current))  // also one whose document could not be deleted
        m_waiting[opener.place] = {opener.current, opener.known, opener.knowsEmpty, opener.isUnsure};
    opener = {};
}

void History::Do(const Step& step) {
    m_step = TextOf(step);
    m_mayReplace = m_mayDrop = 0;
    const bool isOutside = step.op == Op::Store || step.op == Op::StoreInPlace || step.op == Op::Remove || step.op == Op::EndProcess;
    m_hasBegun = true;
    m_onlyOutside &= isOutside || step.op == Op::Move || step.op == Op::Copy;
    m_hasActed[step.actor] |= step.op != Op::Open && !isOutside && step.op <= Op::Close;
    Explorer_Fail(step.failing, step.nth);
    isRefused = !Call(step);
    Explorer_Fail(Failing::None);
    const Look now = m_world.LookAround();
    Check(step, now);
    m_look = now;
    std::erase_if(m_waiting, [&](const auto& waiting) { return !IsTracked(waiting.second.word); });
    if (!isRefused)
        Settle(step);
    else if (step.op == Op::Open)
        m_openers[step.actor] = {};
}

// What is there can be opened, and shows what is stored under its name, or the edit that waits for it.
void History::OpenAnew(int place) {
    m_step = std::string("opened anew: ") + kPlaceNames[place];
    const StoredFile* const plain = place == kHome && m_start.isHomeConflictCopy ? nullptr : FileAt(m_look, PathOf(place));
    const Waiting* const waiting = plain ? nullptr : WaitingAt(place);  // beside a plain file its conflict copy waits
    const StoredFile* const file = plain ? plain : FileAt(m_look, PathOf(place) + L".zip");
    if (place == kHome && m_start.isHomeConflictCopy && !file)
        return;  // an edit that waits for a conflict copy is found only beside it
    if (!waiting && (!file || (m_look.keptFolders == 0 && !file->isBare)))
        return;  // nothing is known of it, so this is how many a history begins
    const Word expected = waiting ? waiting->word : file->word;
    const bool isUnsure = waiting && waiting->isUnsure;
    m_mayReplace = m_mayDrop = waiting ? waiting->known & ~Only(expected) : 0;
    void* opened = nullptr;
    char data[512];
    std::uint32_t length = 0;
    const bool isDone = process::Volume()->OpenFile(&opened, m_world.VolumePath(OpenPathOf(place)).c_str(), GENERIC_READ, 7, OPEN_EXISTING,
                                                  nullptr, nullptr) == VVS_Success &&
                        process::Volume()->ReadFile(opened, 0, data, sizeof(data), &length, nullptr) == VVS_Success;
    Expect(isDone, "cannot be opened");
    if (isDone && !isUnsure)
        ExpectText(std::string(data, length), m_world.TextOf(expected), "shows");
    process::Volume()->CloseFile(opened, nullptr);
    const Look now = m_world.LookAround();
    isRefused = false;
    Check({Op::Lock}, now);
    Expect((Only(expected) & ~(isUnsure ? now.inFolders | now.inTemp : now.inFolders)) == 0, "the edit that waited is not stored");
    m_look = now;
}

void History::End() {
    for (const int actor : {0, 1})
        if (m_openers[actor].file)
            Do({Op::Close, actor});
    if (m_isLocked)
        Do({Op::Unlock});
    for (int place = kHome; place < kCase; ++place)
        OpenAnew(place);
    m_step = "at the end";
    Expect(!process::HoldsHandles(), "the volume holds a handle");
    Expect(Explorer_LiveObjects() == m_liveBefore, "a companion object lives");
    Expect(!m_look.hasLitter || m_mayLitter, "a temp folder without an owner");
    for (const auto& [path, file] : m_look.files) {
        Expect(path.find(L'~') == path.npos && !path.ends_with(L".side"), "an unfinished file is left");
        Expect(!file.isBare || m_mayBeBare, "the empty file of a lock is left");
        Expect(!file.isBare || m_mayBeBare || !path.ends_with(L".zip"), "a container without a byte is left");
    }
    Expect(m_world.Clear(), "a file is held open");
}

std::vector<Step> History::Next() const {
    std::vector<Step> next;
    for (int actor = 0; actor < 2; ++actor) {
        const Opener& opener = m_openers[actor];
        if (!opener.file) {
            const bool mayOpen = actor == 0 || m_openers[0].file || m_hasActed[0];
            const int first = actor == 1 && WordsAt(kHome) ? CREATE_ALWAYS : CREATE_NEW;  // that A is refused is enough
            for (int disposition = first; disposition <= kOpenToRead && mayOpen; ++disposition)
                next.push_back({Op::Open, actor, disposition});
            continue;
        }
        if (actor == 1 && !m_hasActed[0])
            continue;
        if (!opener.isDeleted) {
            for (const Op op : {Op::Read, Op::Write, Op::Cut, Op::Delete})
                if (!opener.mayOnlyRead || op < Op::Delete)
                    next.push_back({op, actor});
            for (int place = kOther; place < kPlaces && !opener.mayOnlyRead; ++place)
                next.push_back({Op::Rename, actor, place});
        } else {
            next.push_back({Op::Undelete, actor});
        }
        next.push_back({Op::Close, actor});
        for (const Failing failing : {Failing::NoWriter, Failing::ThrowingWriter, Failing::Write, Failing::Finish, Failing::Information})
            if (opener.isDirty && !opener.isDeleted)
                next.push_back({Op::Close, actor, 0, false, failing});
    }
    for (const int place : {kOther, kKey2, kAcross})
        for (const Op op : {Op::Move, Op::Copy})
            next.push_back({op, 0, place});
    next.push_back({m_isLocked ? Op::Unlock : Op::Lock});
    for (const Op op : {Op::Store, Op::StoreInPlace, Op::Remove, Op::EndProcess})
        next.push_back({op});
    return next;
}

std::vector<Step> AllSteps() {
    std::vector<Step> steps;
    for (int op = 0; op <= static_cast<int>(Op::EndProcess); ++op)
        for (int actor = 0; actor < 2; ++actor)
            for (int argument = 0; argument <= kOpenToRead; ++argument)
                for (const bool withToken : {false, true})
                    for (int failing = 0; failing <= static_cast<int>(Failing::NthThrows); ++failing)
                        for (int nth = failing < static_cast<int>(Failing::Nth) ? 0 : 1; nth < (failing < static_cast<int>(Failing::Nth) ? 1 : 10); ++nth)
                            steps.push_back({static_cast<Op>(op), actor, argument, withToken, static_cast<Failing>(failing), nth});
    return steps;
}

}  // namespace

std::string TextOf(const Step& step) {
    const std::string actor = Actor(step.actor);
    const auto named = [&]() -> std::string {
        switch (step.op) {
        case Op::Open: return actor + "opens " + kDispositions[step.argument] + (step.withToken ? " with the token" : "");
        case Op::Read: return actor + "reads";
        case Op::Write: return actor + "writes";
        case Op::Cut: return actor + "cuts";
        case Op::Delete: return actor + "deletes";
        case Op::Undelete: return actor + "undeletes";
        case Op::Rename: return actor + "renames to " + kPlaceNames[step.argument % kPlaces];
        case Op::Close: return actor + "closes";
        case Op::Move: return std::string("move to ") + kPlaceNames[step.argument % kPlaces];
        case Op::Copy: return std::string("copy to ") + kPlaceNames[step.argument % kPlaces];
        case Op::Lock: return "lock";
        case Op::Unlock: return "unlock";
        case Op::Store: return "somebody stores";
        case Op::StoreInPlace: return "somebody stores in place";
        case Op::Remove: return "somebody deletes";
        default: return "the process ends";
        }
    };
    const std::string call = step.nth ? "call " + std::to_string(step.nth) + " " : "";
    return named() + (step.failing == Failing::None ? "" : ", " + call + kFailings[static_cast<int>(step.failing)]);
}

std::optional<Step> StepOfText(const std::string& text) {
    static const std::vector<Step> s_all = AllSteps();
    const auto found = std::find_if(s_all.begin(), s_all.end(), [&](const Step& step) { return TextOf(step) == text; });
    return found == s_all.end() ? std::nullopt : std::optional(*found);
}

const std::vector<Start>& Starts() {
    static const std::vector<Step> waiting{{Op::Open, 0, OPEN_EXISTING}, {Op::Write}, {Op::Close, 0, 0, false, Failing::Finish}};
    static const std::vector<Step> waitingNew{{Op::Open, 0, CREATE_NEW}, {Op::Write}, {Op::Close, 0, 0, false, Failing::Finish}};
    static const std::vector<Start> starts{
        {"missing", false, false, false, false, {}, {}},
        {"encrypted", false, false, false, false, {{kHome, true}}, {}},
        {"plain", false, false, false, false, {{kHome, false}}, {}},
        {"conflict", false, true, false, false, {{kHome, false}, {kHome, true}}, {}},
        {"waiting", false, false, false, false, {{kHome, true}}, waiting},
        {"waiting-new", false, false, false, true, {}, waitingNew},
        {"occupied", false, false, false, false, {{kHome, true}, {kOther, true}, {kKey2, true}, {kAcross, false}}, {}},
        {"folder-missing", true, false, false, false, {}, {}},
        {"folder-stored", true, false, false, false, {{kHome, false}}, {}},
        {"equal", false, false, true, false, {{kHome, true}}, {}},
    };
    return starts;
}

std::string TextOf(const Start& start, const std::vector<Step>& steps) {
    std::string text = std::string(start.name) + ":";
    for (const Step& step : steps)
        text += (&step == steps.data() ? " " : "; ") + TextOf(step);
    return text;
}

int HistoriesRun() { return g_run; }
const std::string& CurrentHistory() { return g_current; }

Outcome Run(const Start& start, const std::vector<Step>& steps) {
    ++g_run;
    g_current = TextOf(start, steps);
    History history(start);
    for (const Step& step : steps)
        if (history.failure.empty())
            history.Do(step);
    Outcome outcome;
    outcome.isRefused = history.isRefused;
    outcome.isLikeAStart = history.IsLikeAStart();
    outcome.next = history.Next();
    history.End();
    outcome.failure = history.failure;
    if (!outcome.failure.empty())
        process::End();  // what it holds is not to disturb others
    return outcome;
}
