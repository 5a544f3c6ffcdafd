#include "explorer/History.h"

#include <atomic>
#include <map>
#include <set>

#include <windows.h>

#include "companion/Control.h"
#include "explorer/Document.h"
#include "explorer/Opener.h"
#include "explorer/Process.h"

namespace {

using process::Volume;
bool g_isPrinted = false;

class History : Document {
public:
    explicit History(const Start& begin) : Document(begin) {
        for (const Step& step : start.before)
            Do(step);
        m_hasBegun = false;
        m_hasActed[0] = m_openers[0].file;
        m_onlyOutside = true;
    }

    void Do(const Step& step) {
        m_step = TextOf(step);
        m_mayReplace = m_mayDrop = 0;
        m_hasBegun = true;
        m_onlyOutside &= IsOutside(step.op) || IsByPath(step.op);
        if (step.op == Op::Rename || IsByPath(step.op))
            m_touched.insert(step.argument == kCase ? kHome : step.argument);
        m_hasActed[step.actor] |= step.op > Op::Open && step.op <= Op::Close;
        process::LetFail(step);
        isRefused = !Call(step);
        wasFailed = Companion().wasHit;
        Companion().FailNth();
        const Look now = world.LookAround();
        Check(step, now);
        // A file that was replaced or moved away while a lock or another opener holds it is deleted with that, later.
        const Opener& other = m_openers[1 - step.actor];
        m_doomed |= m_isLocked || (other.file && (other.isPlain || other.sharesLock)) ? m_mayReplace : 0;
        look = now;
        if (g_isPrinted)
            Print(m_step + (isRefused ? ", refused" : ""));
        std::erase_if(look.ofEmpty, [&](const auto& tracking) { return std::ranges::count(m_leftOfEmpty, tracking) > 0; });
        std::erase_if(m_waiting, [&](const auto& waiting) { return !IsTracked(waiting.second.word, waiting.first); });
        if (!isRefused)
            Settle(step);
        else if (step.op == Op::Open)
            m_openers[step.actor] = {};
    }

    void End() {
        for (const int actor : {0, 1})
            if (m_openers[actor].file)
                Do({Op::Close, actor});
        if (m_isLocked)
            Do({Op::Unlock});
        for (const int place : m_touched)
            OpenAnew(place);
        m_step = "at the end";
        Expect(!process::HoldsHandles(), "the volume holds a handle");
        Expect(Companion().liveObjects == m_liveBefore, "a companion object lives");
        Expect(!look.hasLitter || m_mayLitter, "a temp folder without an owner");
        for (const auto& [path, file] : look.files) {
            Expect(path.find(L'~') == path.npos && !path.ends_with(L".side"), "an unfinished file is left");
            Expect(!file.isBare || m_mayBeBare, "the empty file of a lock is left");
        }
        Expect(world.Clear(), "a file is held open");
    }

    Steps Next() const {
        Steps next;
        for (int actor = 0; actor < 2; ++actor) {
            const Opener& opener = m_openers[actor];
            if (!opener.file) {
                const bool mayOpen = actor == 0 || m_openers[0].file || m_hasActed[0];
                const int first = actor == 1 && WordsAt(kHome) ? CREATE_ALWAYS : CREATE_NEW;  // that A is refused is enough
                for (int disposition = first; disposition <= kOpenToRead && mayOpen; ++disposition)
                    next.push_back({Op::Open, actor, disposition});
            } else if (actor == 0 || m_hasActed[0]) {
                for (const Op op : {Op::Read, Op::Write, Op::Cut, Op::Delete})
                    if (!opener.isDeleted && (!opener.mayOnlyRead || op != Op::Delete))
                        next.push_back({op, actor});
                for (int place = kOther; place < kPlaces && !opener.isDeleted && !opener.mayOnlyRead; ++place)
                    next.push_back({Op::Rename, actor, place});
                if (opener.isDeleted)
                    next.push_back({Op::Undelete, actor});
                const Failing last = opener.isDirty && !opener.isDeleted ? Failing::Information : Failing::None;
                for (Failing failing = Failing::None; failing <= last; failing = Failing(int(failing) + 1))
                    next.push_back({Op::Close, actor, 0, false, failing});
            }
        }
        for (const Op op : {Op::Move, Op::Copy})
            for (const int place : {kOther, kKey2, kAcross})
                next.push_back({op, 0, place});
        for (const Op op : {m_isLocked ? Op::Unlock : Op::Lock, Op::Store, Op::StoreInPlace, Op::Remove, Op::EndProcess})
            next.push_back({op});
        return next;
    }

    bool IsLikeAStart() const { return m_hasBegun && m_onlyOutside && m_waiting.empty() && !m_openers[0].file; }

    std::string failure;
    bool isRefused = false, wasFailed = false;

private:
    void Expect(bool isTrue, const std::string& what) {
        if (!isTrue && failure.empty())
            failure = what + " (" + m_step + ")";
    }

    // The edit that is shown at a place: not one that waits for a container which somebody else replaced since.
    const Edit* WaitingAt(int place) const {
        const auto found = m_waiting.find(place);
        if (found == m_waiting.end())
            return nullptr;
        const Edit* const edit = &found->second;
        const StoredFile* const file = ContainerAt(place);
        if (!file || file->isBare)
            return edit;
        return (file->word == kNothing ? edit->knowsEmpty : (Only(file->word) & edit->known) != 0) ? edit : nullptr;
    }

    // The first access to the content of an encrypted document.
    void Access(Opener& opener) {
        if (opener.isAccessed || opener.isPlain)
            return;
        opener.isAccessed = true;
        if (opener.disposition != OPEN_EXISTING)
            return;
        if (const Edit* const edit = WaitingAt(opener.place)) {
            static_cast<Edit&>(opener) = {edit->word, opener.known | edit->known, edit->knowsEmpty, opener.isUnsure || edit->isUnsure};
            opener.isDirty = true;
            m_waiting.erase(opener.place);
        } else {
            opener.word = WordOf(ContainerAt(opener.place));
            opener.known |= Only(opener.word);
            opener.knowsEmpty = IsEmptyAt(opener.place);
        }
    }

    // Who is refused has accessed nothing.
    template <class Action>
    bool WithAccess(Opener& opener, Action action) {
        const Opener before = opener;
        const auto waiting = m_waiting;
        Access(opener);
        if (action())
            return true;
        opener = before;
        m_waiting = waiting;
        return false;
    }

    // The steps: false when refused. Each says what it may replace.

    bool Open(const Step& step, Opener& opener) {
        opener = {};
        if (start.isConflictCopy && !ContainerAt(kHome))
            return false;  // another document would be made under the name of the container
        opener.mayOnlyRead = step.argument == kOpenToRead;
        opener.disposition = opener.mayOnlyRead ? OPEN_EXISTING : step.argument;
        const bool mustExist = opener.disposition == OPEN_EXISTING || opener.disposition == TRUNCATE_EXISTING;
        opener.isPlain = start.isHomePlain || (mustExist && !start.isConflictCopy && PlainAt(kHome));
        opener.startsEmpty = !opener.isPlain && opener.disposition != OPEN_EXISTING;
        if (opener.isPlain && opener.disposition != OPEN_EXISTING && opener.disposition != OPEN_ALWAYS)
            m_mayReplace = Only(WordOf(PlainAt(kHome)));
        if (m_isLocked && opener.isPlain && opener.disposition != OPEN_EXISTING)
            m_mayReplace |= m_doomed | m_openers[0].marked | m_openers[1].marked;  // deleted under the lock: it starts empty
        if (opener.disposition != OPEN_EXISTING && opener.disposition != CREATE_NEW) {
            opener.known = WordsAt(kHome);
            opener.knowsEmpty = IsEmptyAt(kHome);
        }
        const std::uint32_t access = opener.mayOnlyRead ? GENERIC_READ : GENERIC_READ | GENERIC_WRITE | DELETE;
        if (Volume()->OpenFile(&opener.file, OpenPathOf(kHome).c_str(), access, 7, static_cast<std::uint32_t>(opener.disposition),
                               step.withToken ? m_token.c_str() : nullptr, nullptr) != VVS_Success)
            return false;
        opener.sharesLock = m_isLocked;
        if (m_isLocked)
            m_doomedPlaces.erase(kHome);
        m_mayBeBare |= !opener.mayOnlyRead;
        return true;
    }

    bool Read(Opener& opener) {
        return WithAccess(opener, [&] {
            char data[512];
            std::uint32_t length = 0;
            if (Volume()->ReadFile(opener.file, 0, data, sizeof(data), &length, nullptr) != VVS_Success)
                return false;
            const bool readsFile = opener.isPlain && !opener.startsEmpty;
            const std::string expected = world.TextOf(readsFile ? WordOf(PlainAt(opener.place)) : opener.word);
            const bool isKnown = !opener.isUnsure && (!opener.isPlain || PlainAt(opener.place));
            Expect(!isKnown || std::string(data, length) == expected, "reads something else than \"" + expected + "\"");
            return true;
        });
    }

    // A word takes the place of all there is; nothing cuts it off.
    bool Write(Opener& opener, Word word) {
        return WithAccess(opener, [&] {
            m_mayReplace = opener.isPlain ? Only(WordOf(PlainAt(opener.place))) | Only(opener.word) : 0;
            m_mayDrop = opener.known;
            const std::string text = world.TextOf(word);
            if (Volume()->SetFileSize(opener.file, text.size(), nullptr) != VVS_Success)
                return false;
            if (word != kNothing &&
                Volume()->WriteFile(opener.file, 0, text.data(), static_cast<std::uint32_t>(text.size()), nullptr, nullptr) != VVS_Success)
                return false;
            opener.word = word;
            opener.known |= Only(word);
            opener.startsEmpty = false;
            opener.isDirty = !opener.isPlain;
            m_edits |= Only(word);
            m_mayBeBare |= word == kNothing;
            if (opener.isPlain && m_doomedPlaces.count(opener.place))
                m_doomed |= Only(word);
            return true;
        });
    }

    bool Rename(Opener& opener, int place) {
        const int there = place == kCase ? kHome : place;
        const bool isSame = LowerCase(PathOf(place)) == LowerCase(PathOf(opener.place));
        const WordSet replaced = isSame ? 0 : Only(WordOf(PlainAt(place))) | Only(WordOf(ContainerAt(place)));
        return WithAccess(opener, [&] {
            m_mayReplace = m_mayDrop = m_doomed | replaced | (opener.isDirty ? opener.Replaced() : 0);
            if (const Edit* const edit = WaitingAt(opener.place)) {  // it moves with its document
                m_mayReplace = m_mayDrop |= edit->Replaced();
                opener.moved = Only(edit->word);
                opener.isUnsure = true;
            }
            if (Volume()->RenameFile(opener.file, nullptr, VolumePathOf(place).c_str(), nullptr) != VVS_Success) {
                m_mayReplace = m_doomed;
                return false;
            }
            for (Opener& other : m_openers)
                if (&other != &opener && other.file) {
                    m_mayLitter |= opener.isPlain && other.isPlain;    // it holds open what became the temp file
                    other.isUnsure |= isSame || other.place == there;  // its container may have been written anew
                }
            if (opener.isPlain && !opener.startsEmpty)
                opener.word = WordOf(PlainAt(opener.place));
            if (const auto waiting = m_waiting.find(there); waiting != m_waiting.end())
                waiting->second.isUnsure = true;
            opener.known |= replaced | Only(opener.word);
            const bool isNothingDone = opener.isPlain && place == opener.named && !PlainAt(there);  // somebody has moved its file away
            opener.place = isNothingDone ? opener.place : there;
            opener.named = place;
            m_mayBeBare = true;
            return true;
        });
    }

    bool Close(Opener& opener) {
        m_mayReplace = m_doomed | (opener.isDeleted ? opener.marked : opener.isDirty ? opener.Replaced() : 0);
        m_mayDrop = m_doomed | (opener.isDeleted || !opener.isDirty ? opener.known | opener.marked : opener.Replaced());
        if (const Edit* const edit = WaitingAt(opener.place))  // a refused call may have taken it up
            m_mayReplace |= edit->Replaced();
        Volume()->CloseFile(opener.file, nullptr);
        m_doomed |= opener.isDeleted ? opener.marked : 0;
        return true;
    }

    bool Delete(Opener& opener) {
        if (Volume()->Delete(opener.file, nullptr) != VVS_Success)
            return false;
        opener.isDeleted = true;
        opener.marked = WordsAt(opener.place);
        if (const Edit* const edit = WaitingAt(opener.place))
            opener.marked |= Only(edit->word) | edit->known;
        if (opener.isPlain && !m_isLocked)
            m_doomedPlaces.insert(opener.place);
        return true;
    }

    bool Undelete(Opener& opener) {
        if (Volume()->Undelete(opener.file, nullptr) != VVS_Success)
            return false;
        opener.isDeleted = false;
        const bool isMarked = m_openers[0].isDeleted || m_openers[1].isDeleted || m_removedPlaces.count(opener.place);
        if (opener.isPlain && !isMarked)  // some systems keep a mark for each handle
            m_doomedPlaces.erase(opener.place);
        opener.marked = 0;
        return true;
    }

    bool MoveOrCopy(const Step& step) {
        const Edit* const edit = WaitingAt(kHome);
        m_mayReplace = m_mayDrop = m_doomed | WordsAt(step.argument) | (edit ? edit->Replaced() : 0);
        const auto call = step.op == Op::Move ? &IVirtualVolume::MoveFileW : &IVirtualVolume::CopyFileW;
        if ((Volume()->*call)(OpenPathOf(kHome).c_str(), VolumePathOf(step.argument).c_str(), nullptr) != VVS_Success) {
            m_mayReplace = m_waiting.empty() ? m_doomed : m_mayReplace;  // an edit that waits is saved by the way
            return false;
        }
        m_mayBeBare = true;  // also a lock's empty file can be copied
        for (Opener& opener : m_openers) {
            m_mayLitter |= opener.file && opener.isPlain;
            opener.isUnsure |= opener.file && opener.place == step.argument;  // the same word may be of another version there
        }
        for (const int place : {static_cast<int>(kHome), step.argument})
            if (const auto waiting = m_waiting.find(place); waiting != m_waiting.end())
                waiting->second.isUnsure = true;  // it is stored elsewhere as well, or of a container that was replaced
        const bool wasPlain = PlainAt(kHome) && !IsConflictCopy(kHome);  // the edit of a container beside it is not taken along
        if (step.op == Op::Move && edit && !wasPlain) {
            m_waiting[step.argument] = *edit;
            m_waiting.erase(kHome);
        }
        return true;
    }

    bool LockOrUnlock(bool isLock) {
        LockInfo info{};
        info.scope = LockScope_Exclusive;
        m_mayReplace = m_mayDrop = m_doomed;
        const std::wstring path = OpenPathOf(kHome);
        if ((isLock ? Volume()->Lock(path.c_str(), &info) : Volume()->Unlock(path.c_str(), m_token.c_str())) != VVS_Success)
            return false;
        m_token = isLock ? info.token : m_token;
        m_isLocked = isLock;
        return true;
    }

    bool StoreOutside(Op op) {
        const bool asContainer = !start.isHomePlain && (start.isConflictCopy || !PlainAt(kHome));
        const std::wstring path = PathOf(kHome) + (asContainer ? L".zip" : L"");
        m_mayReplace = Only(WordOf(FileAt(path)));
        if (op != Op::Store && m_doomedPlaces.count(kHome))
            return false;          // the platform opens nothing that is marked for deletion, though not every one of its likes refuses
        m_edits &= ~m_mayReplace;  // a stored word that is replaced is no edit any more, though copies of it may be left
        if (op != Op::Remove)
            return world.Store(path, asContainer, world.NewWord(), op == Op::Store ? World::How::ByRename : World::How::InPlace);
        if (!world.Remove(path))
            return false;
        if (!asContainer) {
            m_doomed |= m_mayReplace;
            m_doomedPlaces.insert(kHome), m_removedPlaces.insert(kHome);
        }
        return true;
    }

    bool EndProcess() {
        m_mayReplace = m_mayDrop = m_doomed;
        for (Opener& opener : m_openers) {
            m_mayLitter |= opener.isDeleted;  // of a temp file that goes with its process the tracking file stays
            m_mayReplace |= opener.isDeleted ? opener.marked : 0;
            m_mayDrop |= opener.isDeleted ? opener.marked | opener.known : 0;
            opener = {};
        }
        m_mayBeBare |= m_isLocked;
        m_isLocked = false;
        m_waiting.clear();
        m_leftOfEmpty.insert(m_leftOfEmpty.end(), look.ofEmpty.begin(), look.ofEmpty.end());
        process::End();
        return true;
    }

    bool Call(const Step& step) {
        Opener& opener = m_openers[step.actor];
        switch (step.op) {
            case Op::Open: return Open(step, opener);
            case Op::Read: return Read(opener);
            case Op::Write: return Write(opener, world.NewWord());
            case Op::Cut: return Write(opener, kNothing);
            case Op::Delete: return Delete(opener);
            case Op::Undelete: return Undelete(opener);
            case Op::Rename: return Rename(opener, step.argument);
            case Op::Close: return Close(opener);
            case Op::Move:
            case Op::Copy: return MoveOrCopy(step);
            case Op::Lock: return LockOrUnlock(true);
            case Op::Unlock: return LockOrUnlock(false);
            case Op::EndProcess: return EndProcess();
            default: return StoreOutside(step.op);
        }
    }

    void Check(const Step& step, const Look& now) {
        const WordSet found = now.inFolders | now.inTemp;
        const WordSet lost = (look.inFolders | (look.inTemp & m_edits)) & ~found;
        const WordSet wrong = lost & ~(m_mayReplace | (m_mayDrop & ~look.inFolders));
        for (Word word = 0; word < 64; ++word)
            Expect(!(wrong & Only(word)), "word " + std::to_string(word) + " is lost");
        for (const auto& [path, file] : now.files)
            Expect(file.word != kTorn, "half a content in a folder");
        const bool isUndisturbed = step.failing == Failing::None && m_doomedPlaces.empty() && m_waiting.empty();
        if (isRefused && isUndisturbed && (step.op == Op::Rename || IsByPath(step.op)))
            Expect(now.files == look.files, "refused, but something was touched");
        const Opener& opener = m_openers[step.actor];
        if (step.op == Op::Write && !isRefused)
            Expect(!(Only(opener.word) & ~found), "what was written is found nowhere");
        const bool isAlone = !m_openers[1 - step.actor].file;  // another one may hold the lock's file beyond the lock
        if (step.op == Op::Close && !opener.isDeleted && opener.isDirty && isAlone && step.failing == Failing::None)
            Expect(!(Only(opener.word) & ~now.inFolders), "closed, but not stored");
    }

    // What is known only after the step.
    void Settle(const Step& step) {
        Opener& opener = m_openers[step.actor];
        if (step.op == Op::Rename) {
            opener.isAccessed |= opener.isPlain;
            opener.isPlain = PathOf(opener.place).starts_with(L"Plain");
            opener.isDirty &= !opener.isPlain && IsOnlyTracked(opener.word, opener.place);
            opener.knowsEmpty |= IsEmptyAt(opener.place);
            opener.known |= WordsAt(opener.place) & opener.moved;
        }
        if (step.op == Op::Rename || step.op == Op::Move)  // the platform's handles follow a file that is renamed
            for (Opener& other : m_openers)
                if (other.file && other.isPlain && !PlainAt(other.place)) {
                    other.isUnsure |= !PlainAt(step.argument);
                    other.place = other.isUnsure ? other.place : step.argument;
                }
        if (step.op == Op::Close) {
            const Opener& other = m_openers[1 - step.actor];
            const auto waiting = m_waiting.find(opener.place);
            const int others = (other.isDirty && other.place == opener.place && other.word == kNothing) +
                               (waiting != m_waiting.end() && waiting->second.word == kNothing);
            if (opener.isDirty &&
                (opener.isUnsure ? IsTracked(opener.word, opener.place, others)
                                 : IsOnlyTracked(opener.word, opener.place, others)))  // also one whose document could not be deleted
                m_waiting[opener.place] = opener;
            opener = {};
        }
    }

    // What is there can be opened, and shows what is stored under its name, or the edit that waits for it.
    void OpenAnew(int place) {
        m_step = std::string("opened anew: ") + NameOf(static_cast<Place>(place));
        const StoredFile* const plain = IsConflictCopy(place) ? nullptr : PlainAt(place);
        const StoredFile* const file = plain ? plain : ContainerAt(place);
        const Edit* const edit = plain ? nullptr : WaitingAt(place);  // beside a plain file its conflict copy waits
        if (IsConflictCopy(place) && !file)
            return;  // an edit that waits for a conflict copy is found only beside it
        if (!edit && (!file || (look.keptFolders == 0 && !file->isBare)))
            return;  // the volume remembers nothing of it, so this is how many a history begins
        const Word word = edit ? edit->word : file->word;
        const bool isUnsure = edit && edit->isUnsure;
        m_mayReplace = m_mayDrop = edit ? edit->Replaced() : 0;
        void* opened = nullptr;
        char data[512];
        std::uint32_t length = 0;
        const bool isDone =
            Volume()->OpenFile(&opened, OpenPathOf(place).c_str(), GENERIC_READ, 7, OPEN_EXISTING, nullptr, nullptr) == VVS_Success &&
            Volume()->ReadFile(opened, 0, data, sizeof(data), &length, nullptr) == VVS_Success;
        Expect(isDone, "cannot be opened");
        Expect(!isDone || isUnsure || std::string(data, length) == world.TextOf(word), "shows not word " + std::to_string(word));
        Volume()->CloseFile(opened, nullptr);
        const Look now = world.LookAround();
        isRefused = false;
        Check({Op::Lock}, now);
        Expect(isUnsure || !(Only(word) & ~now.inFolders), "the edit that waited is not stored");
        look = now;
    }

    std::string m_step;
    Opener m_openers[2];
    bool m_hasActed[2] = {}, m_hasBegun = false, m_onlyOutside = true;  // so far nothing was opened or locked
    std::set<int> m_touched{kHome};                                     // places to which a step led
    bool m_isLocked = false;
    std::wstring m_token;
    std::map<int, Edit> m_waiting;            // edits that could not be saved, as long as their process lives
    WordSet m_edits = 0;                      // words that openers wrote
    WordSet m_mayReplace = 0, m_mayDrop = 0;  // by this step: of what is stored, of what is in temp files
    WordSet m_doomed = 0;                     // marked for deletion by somebody who has closed, or held by the lock after a move
    std::vector<std::string> m_leftOfEmpty;   // tracking files of empty edits that an ended process left
    std::set<int> m_removedPlaces;            // of plain files that somebody outside deleted
    std::set<int> m_doomedPlaces;             // of plain files that are not locked: the platform deletes them with their last handle
    bool m_mayBeBare = false;                 // somebody may have wanted an empty file
    bool m_mayLitter = false;                 // a temp folder can go only when the volume does not think of it any more
    const std::int32_t m_liveBefore = Companion().liveObjects;
};

std::string g_current;
std::atomic<int> g_run{0};

}  // namespace

int HistoriesRun() { return g_run; }
const std::string& CurrentHistory() { return g_current; }

Outcome Run(const Start& start, const Steps& steps, bool isPrinted) {
    g_isPrinted = isPrinted;
    ++g_run;
    g_current = TextOf(start, steps);
    History history(start);
    for (const Step& step : steps)
        if (history.failure.empty())
            history.Do(step);
    Outcome outcome{{}, history.isRefused, history.wasFailed, history.IsLikeAStart(), history.Next()};
    history.End();
    outcome.failure = history.failure;
    if (!outcome.failure.empty())
        process::End();  // what it holds is not to disturb others
    return outcome;
}
