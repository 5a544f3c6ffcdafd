// What moving, copying and renaming a file does, wherever it stands and wherever it goes: content, form on disk, clear text.
#include "harness/MovingFixture.h"

#include <functional>

namespace {

enum class Source { Plain, Encrypted, PlainLocked, EncryptedLocked };
enum class Place { Plain, SameKey, OtherKey };  // of the destination; the keys are compared with that of an encrypted source
enum class There { Nothing, PlainFile, EncryptedFile, Folder, NoParent };
enum class How { Move, Copy, Rename };

bool IsEncrypted(Source source) { return source == Source::Encrypted || source == Source::EncryptedLocked; }
bool IsLocked(Source source) { return source == Source::PlainLocked || source == Source::EncryptedLocked; }
const wchar_t* MountOf(Place place) { return place == Place::Plain ? L"Plain" : place == Place::SameKey ? L"Docs" : L"Other"; }

// One row of the table, and what is promised of it.
struct Cell {
    Source source;
    Place place;
    There there;
    bool destLocked;
    How how;

    bool ToPlain() const { return place == Place::Plain; }
    bool Exists() const { return there == There::PlainFile || there == There::EncryptedFile; }
    // A lock holds the file as it is stored now; the new file would be stored in the other form.
    bool LockIsOnOtherForm() const {
        return destLocked && Exists() && (there == There::EncryptedFile) == ToPlain();
    }
    VirtualVolumeStatus Status() const {
        if (there == There::NoParent)
            return VVS_PathNotFound;
        if (there == There::Folder || (how == How::Move && Exists() && (!destLocked || LockIsOnOtherForm())))
            return VVS_PathAlreadyExists;
        return LockIsOnOtherForm() ? VVS_Locked : VVS_Success;
    }
    bool ContainerIsJustMoved() const {
        return source == Source::Encrypted && place == Place::SameKey && how != How::Copy && !destLocked;
    }
    std::uint32_t Writers() const { return ToPlain() || ContainerIsJustMoved() ? 0 : 1; }

    std::string Text() const {
        static const char* const sources[] = {"plain", "encrypted", "locked plain", "locked encrypted"};
        static const char* const places[] = {"a plain place", "a place of the first key", "a place of the other key"};
        static const char* const theres[] = {"nothing", "a plain file", "an encrypted file", "a folder", "no parent folder"};
        static const char* const hows[] = {"move", "copy", "rename"};
        return std::string(hows[int(how)]) + " a(n) " + sources[int(source)] + " file to " + places[int(place)] + " where there is " +
               theres[int(there)] + (destLocked ? ", locked" : "");
    }
};

std::string ContentOf(const std::string& phrase) {
    std::string content;
    for (int line = 0; content.size() < 70'000; ++line)  // several pieces of what is copied or encrypted at a time
        content += phrase + ", line " + std::to_string(line) + "\n";
    return content;
}

}  // namespace

class MovingBetweenFolders : public Moving, public ::testing::WithParamInterface<Source> {
protected:
    struct Scene {
        Cell cell;
        std::string phrase, content;
        std::wstring fromFolder, toFolder, from, to, fromToken, toToken;
        void* hFile = nullptr;
        Snapshot before;
    };
    struct Outcome {
        VirtualVolumeStatus status = VVS_GeneralError;
        std::uint32_t writers = 0;
        bool wasClear = false;  // clear text lay in an encrypted place meanwhile
        std::vector<LogLine> lines;
    };

    void Run(const Cell& cell);
    Scene MakeScene(const Cell& cell);
    Outcome Act(const Scene& scene);
    void ExpectRefused(const Scene& scene, const Outcome& outcome);
    void ExpectDone(const Scene& scene, const Outcome& outcome);
    void ExpectSource(const Scene& scene, bool isGone);
    void RemoveScene(const Scene& scene) const;
    void RunFailing(const Cell& cell, Fault fault);

private:
    int m_cells = 0;
};

MovingBetweenFolders::Scene MovingBetweenFolders::MakeScene(const Cell& cell) {
    const std::wstring tag = L"\\cell" + std::to_wstring(++m_cells);
    Scene scene{cell, "what cell " + std::to_string(m_cells) + " holds", {}, {}, {}, {}, {}, {}, {}, nullptr, {}};
    scene.content = ContentOf(scene.phrase);
    scene.fromFolder = (IsEncrypted(cell.source) ? L"Docs" : L"Plain") + tag;
    scene.toFolder = MountOf(cell.place) + tag + L"to";
    scene.from = scene.fromFolder + L"\\f.txt";
    scene.to = scene.toFolder + L"\\f.txt";
    MakeFolder(scene.fromFolder);
    IsEncrypted(cell.source) ? MakeEncrypted(scene.from, scene.content) : MakePlain(scene.from, scene.content);
    if (cell.there != There::NoParent)
        MakeFolder(cell.there == There::Folder ? scene.to : scene.toFolder);
    if (cell.there == There::PlainFile)
        MakePlain(scene.to, "what was there");
    if (cell.there == There::EncryptedFile)
        MakeEncrypted(scene.to, "what was there");
    if (IsLocked(cell.source))
        scene.fromToken = Lock(scene.from);
    if (cell.destLocked)
        scene.toToken = Lock(scene.to);
    scene.hFile = cell.how == How::Rename ? MustOpen(scene.from) : nullptr;
    scene.before = Disk();
    return scene;
}

MovingBetweenFolders::Outcome MovingBetweenFolders::Act(const Scene& scene) {
    Outcome outcome;
    std::function<void()> look = [&] {
        outcome.wasClear = outcome.wasClear || !FilesHolding(NativePath(L"Docs"), scene.phrase).empty() ||
                           !FilesHolding(NativePath(L"Other"), scene.phrase).empty();
    };
    TestCompanion_SetHook("IFileWriter::Finish", [](void* context) { (*static_cast<std::function<void()>*>(context))(); }, &look);
    const auto act = [&] {
        const wchar_t* const token = scene.toToken.c_str();
        switch (scene.cell.how) {
            case How::Move: return Move(scene.from, scene.to, token);
            case How::Copy: return Copy(scene.from, scene.to, token);
            default: return Rename(scene.hFile, scene.to, token);
        }
    };
    outcome.writers = CallsDuring("Quelcrypt_FileWriterFactory",
                                  [&] { outcome.lines = LinesDuring([&] { outcome.status = act(); }); });
    TestCompanion_SetHook(nullptr, nullptr, nullptr);
    look();
    return outcome;
}

void MovingBetweenFolders::ExpectRefused(const Scene& scene, const Outcome& outcome) {
    const std::wstring check = scene.hFile ? L"hFile->Rename(newFilePath, newLockTokenAlways ) =>"
                                           : L"virtualItemExisting->Move(fullNewFilePath, keepExistingFile, "
                                             L"newFileLockTokenAlways) =>";
    const std::string name = StatusName(outcome.status);
    EXPECT_TRUE(HasLine(outcome.lines, check + std::wstring(name.begin(), name.end())));
    EXPECT_TRUE(scene.before == Disk()) << "a refusal changes nothing on disk";
    if (scene.hFile) {
        EXPECT_EQ(scene.content, Read(scene.hFile)) << "the handle is usable at the old path";
    }
    Close(scene.hFile);
}

// Nothing holds the files any more but the locks: the destination is one file, whole, in its place's own form.
void MovingBetweenFolders::ExpectDone(const Scene& scene, const Outcome& outcome) {
    const Cell& cell = scene.cell;
    EXPECT_TRUE(HasLine(outcome.lines, scene.hFile ? L"File had been SUCCESFULLY renamed" : L"SUCCESS. existingFilePath["));
    EXPECT_EQ(cell.Writers(), outcome.writers);
    if (cell.ContainerIsJustMoved()) {
        EXPECT_TRUE(scene.before.at(ContainerPath(scene.from)) == ReadRaw(ContainerPath(scene.to))) << "the container was changed";
    }
    std::string content = scene.content;
    if (scene.hFile) {
        EXPECT_TRUE(content == Read(scene.hFile)) << "the handle does not read at the new path";
        EXPECT_OK(Write(scene.hFile, "changed", 40'000));
        content.replace(40'000, 7, "changed");
        Close(scene.hFile);
    }
    EXPECT_TRUE(content == Get(scene.to));
    if (cell.destLocked) {
        EXPECT_OK(volume()->Unlock(scene.to.c_str(), scene.toToken.c_str()));
    }
    EXPECT_EQ(std::vector<std::wstring>{cell.ToPlain() ? L"f.txt" : L"f.txt.zip"}, NamesBelow(scene.toFolder));
    EXPECT_TRUE(content == (cell.ToPlain() ? ReadRaw(NativePath(scene.to)) : ContainerContent(ContainerPath(scene.to))));
}

void MovingBetweenFolders::ExpectSource(const Scene& scene, bool isGone) {
    Snapshot expected;
    for (const auto& [file, bytes] : scene.before)
        if (!isGone && file.starts_with(NativePath(scene.fromFolder) + L"\\"))
            expected.emplace(file, bytes);
    EXPECT_TRUE(expected == DiskBelow(scene.fromFolder)) << "the source is not " << (isGone ? "gone" : "as it was");
}

// So that later cells look through their own files only.
void MovingBetweenFolders::RemoveScene(const Scene& scene) const {
    for (const std::wstring& folder : {scene.fromFolder, scene.toFolder})
        std::filesystem::remove_all(NativePath(folder));
}

void MovingBetweenFolders::Run(const Cell& cell) {
    SCOPED_TRACE(cell.Text());
    const Scene scene = MakeScene(cell);
    const Outcome outcome = Act(scene);
    const bool isDone = outcome.status == VVS_Success;
    EXPECT_EQ(cell.Status(), outcome.status);
    EXPECT_FALSE(outcome.wasClear);
    isDone ? ExpectDone(scene, outcome) : ExpectRefused(scene, outcome);
    if (cell.destLocked && !isDone) {
        EXPECT_OK(volume()->Unlock(scene.to.c_str(), scene.toToken.c_str()));
    }
    if (IsLocked(cell.source)) {
        EXPECT_OK(volume()->Unlock(scene.from.c_str(), scene.fromToken.c_str()));
    }
    ExpectSource(scene, isDone && cell.how != How::Copy);
    RemoveScene(scene);
}

TEST_P(MovingBetweenFolders, EveryPlaceGetsTheWholeFileInItsOwnForm) {
    for (const How how : {How::Move, How::Copy, How::Rename})
        for (const Place place : {Place::Plain, Place::SameKey, Place::OtherKey})
            for (const There there : {There::Nothing, There::PlainFile, There::EncryptedFile, There::Folder, There::NoParent})
                for (const bool destLocked : {false, true})
                    if (!destLocked || (there != There::Folder && there != There::NoParent))
                        Run({GetParam(), place, there, destLocked, how});
}

// Whatever call of the companion library fails, and however: the file stands whole somewhere, and what was there, if
// anything, was replaced by the whole file or not at all.
void MovingBetweenFolders::RunFailing(const Cell& cell, Fault fault) {
    SCOPED_TRACE(cell.Text());
    bool wasHit = true;
    for (std::uint32_t nth = 1; wasHit && !HasFailure(); ++nth) {
        SCOPED_TRACE("call " + std::to_string(nth) + " fails, kind " + std::to_string(int(fault)));
        const Scene scene = MakeScene(cell);
        const std::string there = Get(scene.to);
        TestCompanion_FailNth(nullptr, nth, fault, false);
        const Outcome outcome = Act(scene);
        wasHit = TestCompanion_FaultWasHit();
        TestCompanion_FailNth(nullptr, 0, Fault::None, false);
        Close(scene.hFile);
        const bool isDone = outcome.status == VVS_Success;
        // A folder for which the query gives no policy counts as one without: then, and only then, the file may stand there in
        // clear. While the companion cannot answer at all, it never does.
        EXPECT_FALSE(outcome.wasClear && (!isDone || fault != Fault::Null));
        const std::string thereNow = Get(scene.to);
        EXPECT_TRUE(thereNow == scene.content || (!isDone && thereNow == there)) << Narrow(scene.to) << " holds " << thereNow.substr(0, 60);
        if (cell.destLocked) {
            EXPECT_OK(volume()->Unlock(scene.to.c_str(), scene.toToken.c_str()));
        }
        if (IsLocked(cell.source)) {
            EXPECT_OK(volume()->Unlock(scene.from.c_str(), scene.fromToken.c_str()));
        }
        if (!isDone || cell.how == How::Copy) {
            EXPECT_TRUE(scene.content == Get(scene.from)) << StatusName(outcome.status);
        } else {
            ExpectSource(scene, true);
        }
        EXPECT_GE(1u, NamesBelow(scene.toFolder).size()) << "something was left beside the file";
        RemoveScene(scene);
    }
}

TEST_P(MovingBetweenFolders, AFailureOfTheCompanionLosesNothing) {
    for (const Fault fault : {Fault::Null, Fault::Error, Fault::OutOfMemory})
        for (const Place place : {Place::Plain, Place::SameKey, Place::OtherKey})
            for (const bool destLocked : {false, true})
                RunFailing({GetParam(), place, There::Nothing, destLocked, destLocked ? How::Rename : How::Move}, fault);
    for (const Place place : {Place::SameKey, Place::OtherKey})
        for (const There there : {There::PlainFile, There::EncryptedFile})
            RunFailing({GetParam(), place, there, false, How::Rename}, Fault::Raise);
}

std::string NameOf(const ::testing::TestParamInfo<Source>& source) {
    static const char* const names[] = {"Plain", "Encrypted", "PlainLocked", "EncryptedLocked"};
    return names[int(source.param)];
}
INSTANTIATE_TEST_SUITE_P(From, MovingBetweenFolders,
                         ::testing::Values(Source::Plain, Source::Encrypted, Source::PlainLocked, Source::EncryptedLocked), NameOf);
