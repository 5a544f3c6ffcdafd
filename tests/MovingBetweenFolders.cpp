// What moving, copying and renaming a file does, wherever it stands and wherever it goes: content, form on disk, clear text.
#include <filesystem>

#include "harness/VolumeFixture.h"

namespace {

enum class Source { Plain, Encrypted, PlainLocked, EncryptedLocked };
enum class Place { Plain, SameKey, OtherKey };  // of the destination; the keys are compared with that of an encrypted source
enum class There { Nothing, PlainFile, EncryptedFile, Folder, NoParent };
enum class How { Move, Copy, Rename };

void PrintTo(Source source, std::ostream* out) { *out << "source " << int(source); }
bool IsEncrypted(Source source) { return source == Source::Encrypted || source == Source::EncryptedLocked; }
bool IsLocked(Source source) { return source == Source::PlainLocked || source == Source::EncryptedLocked; }

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
    bool LockIsOnOtherForm() const { return destLocked && Exists() && (there == There::EncryptedFile) == ToPlain(); }
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
    std::string Text() const {
        static const char* const sources[] = {"plain", "encrypted", "locked plain", "locked encrypted"};
        static const char* const places[] = {"a plain place", "a place of the first key", "a place of the other key"};
        static const char* const theres[] = {"nothing", "a plain file", "an encrypted file", "a folder", "no parent folder"};
        static const char* const hows[] = {"move", "copy", "rename"};
        return std::string(hows[int(how)]) + " a(n) " + sources[int(source)] + " file to " + places[int(place)] + " where there is " +
               theres[int(there)] + (destLocked ? ", locked" : "");
    }
};

}  // namespace

class MovingBetweenFolders : public VolumeFixture, public ::testing::WithParamInterface<Source> {
protected:
    MovingBetweenFolders() : VolumeFixture(LogLevel_Error) {}

    VirtualVolumeStatus Do(How how, const std::wstring& from, const std::wstring& to, const wchar_t* token = nullptr) {
        return how == How::Move ? Move(from, to, token) : how == How::Copy ? Copy(from, to, token) : Rename(from, to);
    }
    void Run(const Cell& cell);
    void ExpectDone(const Cell& cell, void* hFile, const std::wstring& to, const std::string& oldContainer);

    const std::wstring m_mounts[3] = {L"Plain", L"Docs", L"Other"};
    int m_cells = 0;
    std::wstring m_toToken;
    std::string m_phrase, m_content;
};

// Nothing holds the files any more but the locks: the destination is one file, whole, in its place's own form.
void MovingBetweenFolders::ExpectDone(const Cell& cell, void* hFile, const std::wstring& to, const std::string& oldContainer) {
    if (cell.ContainerIsJustMoved())
        EXPECT_TRUE(oldContainer == ReadRaw(ContainerPath(to))) << "the container was changed";
    if (hFile) {
        EXPECT_TRUE(m_content == Read(hFile)) << "the handle does not read at the new path";
        EXPECT_OK(Write(hFile, "changed", 40'000));
        m_content.replace(40'000, 7, "changed");
        Close(hFile);
    }
    EXPECT_TRUE(m_content == Get(to));
    if (cell.destLocked)
        Unlock(to, m_toToken);
    EXPECT_EQ(Names{cell.ToPlain() ? L"f.txt" : L"f.txt.zip"}, NamesBelow(to.substr(0, to.rfind(L'\\'))));
    EXPECT_TRUE(m_content == Stored(to));
}

void MovingBetweenFolders::Run(const Cell& cell) {
    SCOPED_TRACE(cell.Text());
    const std::wstring tag = L"\\cell" + std::to_wstring(++m_cells);
    const std::wstring fromFolder = (IsEncrypted(cell.source) ? L"Docs" : L"Plain") + tag, toFolder = m_mounts[int(cell.place)] + tag + L"to";
    const std::wstring from = fromFolder + L"\\f.txt", to = toFolder + L"\\f.txt";
    m_phrase = "what cell " + std::to_string(m_cells) + " holds";
    for (m_content.clear(); m_content.size() < 70'000;)  // several pieces of what is copied or encrypted at a time
        m_content += m_phrase + " at " + std::to_string(m_content.size()) + "\n";
    MakeFolder(fromFolder);
    Store(from, m_content);
    if (cell.there != There::NoParent)
        MakeFolder(cell.there == There::Folder ? to : toFolder);
    if (cell.Exists())
        cell.there == There::PlainFile ? MakePlain(to, "what was there") : MakeEncrypted(to, "what was there");
    const std::wstring fromToken = IsLocked(cell.source) ? Lock(from) : L"";
    m_toToken = cell.destLocked ? Lock(to) : L"";
    void* const hFile = cell.how == How::Rename ? MustOpen(from) : nullptr;
    const Snapshot before = Disk(), source = DiskBelow(fromFolder);

    bool wasClear = false;  // clear text lay in an encrypted place
    const auto look = [&] {
        for (const wchar_t* mount : {L"Docs", L"Other"})
            wasClear = wasClear || !FilesHolding(NativePath(mount), m_phrase).empty();
    };
    VirtualVolumeStatus status = VVS_GeneralError;
    const auto act = [&] { status = hFile ? Rename(hFile, to, m_toToken.c_str()) : Do(cell.how, from, to, m_toToken.c_str()); };
    const bool isDone = cell.Status() == VVS_Success;
    const bool encrypts = isDone && !cell.ToPlain() && !cell.ContainerIsJustMoved();
    EXPECT_EQ(encrypts ? 1u : 0u, CallsDuring("Quelcrypt_FileWriterFactory", [&] {
                  encrypts ? Before("IFileWriter::Finish", look, act) : act();
              }));
    look();
    EXPECT_EQ(cell.Status(), status);
    EXPECT_FALSE(wasClear);
    if (isDone) {
        ExpectDone(cell, hFile, to, IsEncrypted(cell.source) ? before.at(ContainerPath(from)) : "");
    } else {
        EXPECT_TRUE(before == Disk()) << "a refusal changes nothing on disk";
        EXPECT_TRUE(!hFile || m_content == Read(hFile)) << "the handle is usable at the old path";
        Close(hFile);
        if (cell.destLocked)
            Unlock(to, m_toToken);
    }
    if (IsLocked(cell.source))
        Unlock(from, fromToken);
    EXPECT_TRUE((isDone && cell.how != How::Copy ? Snapshot() : source) == DiskBelow(fromFolder));
    for (const std::wstring& folder : {fromFolder, toFolder})  // so that later cells look through their own files only
        std::filesystem::remove_all(NativePath(folder));
}

TEST_P(MovingBetweenFolders, EveryPlaceGetsTheWholeFileInItsOwnForm) {
    for (const How how : {How::Move, How::Copy, How::Rename})
        for (const Place place : {Place::Plain, Place::SameKey, Place::OtherKey})
            for (const There there : {There::Nothing, There::PlainFile, There::EncryptedFile, There::Folder, There::NoParent})
                for (const bool destLocked : {false, true})
                    if (!destLocked || (there != There::Folder && there != There::NoParent))
                        Run({GetParam(), place, there, destLocked, how});
}

INSTANTIATE_TEST_SUITE_P(From, MovingBetweenFolders,
                         ::testing::Values(Source::Plain, Source::Encrypted, Source::PlainLocked, Source::EncryptedLocked),
                         [](const auto& source) { return std::to_string(int(source.param)); });

class MovingAFile : public MovingBetweenFolders {
protected:
    // Two documents, and beside them what only looks like some.
    void MakeLookalikes() {
        MakeEncrypted(L"Docs\\a.txt", "kept");
        MakePlain(L"Plain\\a.txt", "kept");
        // Both forms: shown as "both.HvcConflicted" and opened as "both.txt.zip". One whose container got another name outside.
        MakeEncrypted(L"Docs\\both.txt", "the conflict copy");
        MakePlain(L"Docs\\both.txt", "the plain one");
        MakeContainer(ContainerPath(L"Docs\\renamed.txt"), L"stored name.txt", "renamed outside");
        // A ZIP file of the user is no container: nothing takes its place, and nothing deletes it as another form of a file.
        MakePlain(L"Docs\\user.txt.zip", "PK of the user");
        MakePlain(L"Plain\\user.txt.zip", "PK of the user");
    }
};

// Decrypting and encrypting take long. What somebody else stores meanwhile, at the source or at the destination, is not taken
// for what was there when the move began.
TEST_F(MovingAFile, WhatComesUpMeanwhileStays) {
    constexpr const char* kRead = "Quelcrypt_FileReaderFactory";
    constexpr const char* kWrite = "IFileWriter::Write";
    constexpr const char* kFinish = "IFileWriter::Finish";
    const std::wstring a = L"Docs\\a.txt", b = L"Docs\\b.txt", p = L"Plain\\a.txt", q = L"Plain\\b.txt", other = L"Other\\b.txt";
    const struct {
        How how;
        std::wstring from, to, exchanged;
        const char* during;
        VirtualVolumeStatus status;
    } rows[] = {
        {How::Move, a, b, a, kFinish, VSS_SharingViolation},
        {How::Move, a, other, a, kFinish, VSS_SharingViolation},
        {How::Move, a, b, a, kRead, VVS_Success},  // in time: the newer one is moved
        {How::Move, a, q, a, kRead, VVS_Success},
        {How::Move, a, b, b, kRead, VVS_PathAlreadyExists},
        {How::Move, a, other, other, kRead, VVS_PathAlreadyExists},
        {How::Move, a, q, q, kRead, VVS_PathAlreadyExists},
        // An empty file holds the place; one that is renamed over it is somebody else's.
        {How::Move, a, b, b, kWrite, VVS_PathAlreadyExists},
        {How::Move, a, other, other, kWrite, VVS_PathAlreadyExists},
        {How::Move, p, b, b, kWrite, VVS_PathAlreadyExists},
        // What a rename or a copy replaces must be what was there when it began.
        {How::Rename, a, b, b, kWrite, VSS_SharingViolation},
        {How::Rename, p, b, b, kWrite, VSS_SharingViolation},
        {How::Copy, a, b, b, kWrite, VSS_SharingViolation},
        {How::Copy, a, other, other, kWrite, VSS_SharingViolation},
        {How::Copy, p, b, b, kWrite, VSS_SharingViolation},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::to_string(int(row.how)) + ": " + Narrow(row.from) + " to " + Narrow(row.to) + ", " + Narrow(row.exchanged) +
                     " during " + row.during);
        Store(row.from, "mine");
        if (row.how != How::Move)
            Store(row.to, "what was there");
        VirtualVolumeStatus status = VVS_GeneralError;
        Before(row.during, SaverElsewhere(row.exchanged, "somebody's newer content"), [&] { status = Do(row.how, row.from, row.to); });
        EXPECT_EQ(row.status, status);
        const bool isMoved = status == VVS_Success;
        EXPECT_EQ("somebody's newer content", Stored(isMoved ? row.to : row.exchanged));
        EXPECT_EQ(isMoved ? "<none>" : row.exchanged == row.from ? "somebody's newer content" : "mine", Stored(row.from));
        EXPECT_EQ(isMoved || row.exchanged == row.from ? 1u : 2u, Disk().size()) << "nothing is left beside";
        EmptyFolders();
    }
}

TEST_F(MovingAFile, RefusesWhatCannotBe) {
    MakeLookalikes();
    const auto all = {How::Move, How::Copy, How::Rename};
    const struct {
        std::initializer_list<How> hows;
        const wchar_t* from;
        const wchar_t* to;
        VirtualVolumeStatus status;
    } rows[] = {
        {all, L"Docs\\missing.txt", L"Docs\\b.txt", VVS_FileNotFound},
        {{How::Move, How::Copy}, L"Nowhere\\a.txt", L"Docs\\b.txt", VVS_MountFolderNotFound},
        {all, L"Docs\\a.txt", L"Nowhere\\b.txt", VVS_MountFolderNotFound},
        {all, L"Docs\\a.txt", L"Docs\\..\\..\\b.txt", VVS_MountFolderNotFound},
        {all, L"Docs\\a.txt", L"Plain", VVS_PathAlreadyExists},
        {{How::Move, How::Rename}, L"Docs\\a.txt", L"Docs\\a.txt", VVS_Success},  // where it is
        {{How::Move, How::Rename}, L"Plain\\a.txt", L"Plain\\a.txt", VVS_Success},
        {{How::Copy}, L"Docs\\a.txt", L"Docs\\A.txt", VVS_PathAlreadyExists},
        {{How::Copy}, L"Plain\\a.txt", L"Plain\\A.txt", VVS_PathAlreadyExists},
        {{How::Move, How::Copy}, L"Docs\\both.txt.zip", L"Docs\\both.txt", VVS_PathAlreadyExists},
        {all, L"Docs\\a.txt", L"Docs\\both.txt", VVS_PathAlreadyExists},
        {{How::Rename}, L"Docs\\both.txt", L"Docs\\Both.txt", VVS_PathAlreadyExists},
        {all, L"Docs\\a.txt", L"Docs\\renamed.txt", VVS_PathAlreadyExists},
        {all, L"Docs\\a.txt", L"Docs\\user.txt", VVS_PathAlreadyExists},
        {all, L"Plain\\a.txt", L"Docs\\user.txt", VVS_PathAlreadyExists},
        {all, L"Plain\\a.txt", L"Docs\\a.txt.zip", VVS_PathAlreadyExists},  // another document's container
    };
    const Snapshot before = Disk();
    for (const auto& row : rows)
        for (const How how : row.hows) {
            SCOPED_TRACE(std::to_string(int(how)) + ": " + Narrow(row.from) + " to " + Narrow(row.to));
            void* hFile = nullptr;
            VirtualVolumeStatus status = how == How::Rename ? Open(&hFile, row.from) : Do(how, row.from, row.to);
            if (hFile)
                status = Rename(hFile, row.to);
            Close(hFile);
            EXPECT_EQ(row.status, status);
            EXPECT_TRUE(before == Disk());
        }
    EXPECT_EQ(VVS_InvalidParameter, Rename(nullptr, L"Docs\\b.txt"));
}

TEST_F(MovingAFile, LeavesAloneWhatOnlyLooksLikeIt) {
    MakeLookalikes();
    const Snapshot before = Disk();
    for (const wchar_t* from : {L"Docs\\a.txt", L"Plain\\a.txt"}) {
        EXPECT_OK(Copy(from, L"Plain\\user.txt"));
        EXPECT_OK(Rename(L"Plain\\user.txt", L"Plain\\b.txt"));
        EXPECT_OK(Move(L"Plain\\b.txt", L"Plain\\user.txt"));
        Delete(L"Plain\\user.txt");
        EXPECT_TRUE(before == Disk());
    }
    // A document may have a container's name, but no document's container may then get it.
    Put(L"Docs\\n.txt.zip", "a document");
    void* hFile = nullptr;
    EXPECT_EQ(VVS_PathAlreadyExists, Open(&hFile, L"Docs\\n.txt", kReadWrite, CREATE_NEW));
    EXPECT_EQ(VVS_PathAlreadyExists, Copy(L"Docs\\a.txt", L"Docs\\n.txt"));
    EXPECT_EQ("a document", Get(L"Docs\\n.txt.zip"));
    Delete(L"Docs\\n.txt.zip");
    EXPECT_TRUE(before == Disk());
    EXPECT_OK(Rename(L"Docs\\renamed.txt.zip", L"Docs\\c.txt"));
    EXPECT_EQ("renamed outside", Stored(L"Docs\\c.txt"));
    EXPECT_OK(Move(L"Docs\\both.txt.zip", L"Docs\\d.txt"));
    EXPECT_EQ("the conflict copy", Stored(L"Docs\\d.txt"));
    EXPECT_EQ("the plain one", ReadRaw(NativePath(L"Docs\\both.txt")));
}

// Whether the disk then shows the new case is the platform's affair for a plain file; an encrypted one stores its name.
TEST_F(MovingAFile, ToAnotherLetterCaseKeepsContentAndLock) {
    for (const std::wstring path : {L"Docs\\a.txt", L"Plain\\a.txt"}) {
        Store(path, "content");
        const std::wstring folder = path.substr(0, path.find(L'\\') + 1);
        EXPECT_OK(Move(path, folder + L"A.txt"));
        EXPECT_OK(Rename(path, folder + L"a.TXT"));
        const std::wstring token = Lock(path);
        EXPECT_OK(Move(path, folder + L"A.TxT"));
        Unlock(path, token);
        EXPECT_EQ("content", Get(path));
        EXPECT_EQ(1u, List(folder + L"*").size());
    }
    EXPECT_EQ(Names{L"A.TxT"}, List(L"Docs\\*"));
}

// A host that writes piece after piece goes on where it was, whatever form the file takes meanwhile.
TEST_F(MovingAFile, KeepsThePlaceInTheFile) {
    for (const wchar_t* from : {L"Docs\\a.txt", L"Plain\\a.txt"})
        for (const wchar_t* to : {L"Docs\\b.txt", L"Other\\a.txt", L"Plain\\b.txt"})
            for (const bool locked : {false, true}) {
                SCOPED_TRACE(Narrow(from) + " to " + Narrow(to) + (locked ? ", locked" : ""));
                const std::wstring token = locked ? Lock(from) : L"";
                void* const hFile = MustOpen(from, kReadWrite, locked ? OPEN_EXISTING : CREATE_NEW);
                EXPECT_OK(Write(hFile, "first, ", kHere));
                EXPECT_OK(Write(hFile, "second, ", kHere));
                EXPECT_OK(Rename(hFile, to));
                EXPECT_OK(Write(hFile, "third", kHere));
                Close(hFile);
                EXPECT_EQ("first, second, third", Get(to));
                if (locked)
                    Unlock(from, token);
                Delete(to);
                EXPECT_TRUE(Disk().empty());
            }
}

TEST_F(MovingAFile, ANewFileIsStoredUnderItsNewNameAlone) {
    // Nothing written yet: the new name is where the first save goes, and without one nothing comes into being.
    void* hFile = MustOpen(L"Docs\\new.txt", kReadWrite, CREATE_NEW);
    EXPECT_OK(Rename(hFile, L"Docs\\named.txt"));
    EXPECT_TRUE(Disk().empty());
    EXPECT_OK(Write(hFile, "content"));
    Close(hFile);
    EXPECT_EQ(Names{L"named.txt.zip"}, NamesBelow(L"Docs"));

    // Written: stored at once, so that the caller learns whether it was; in place of what is there.
    for (const wchar_t* to : {L"Docs\\other.txt", L"Docs\\named.txt", L"Other\\n.txt", L"Plain\\n.txt", L"Plain\\n.txt"}) {
        SCOPED_TRACE(Narrow(to));
        hFile = MustOpen(L"Docs\\new.txt", kReadWrite, CREATE_NEW);
        EXPECT_OK(Write(hFile, "newer content"));
        EXPECT_OK(Rename(hFile, to));
        EXPECT_EQ("newer content", Stored(to));
        EXPECT_EQ(0u, CallsDuring("Quelcrypt_FileWriterFactory", [&] { Close(hFile); })) << "stored already";
    }
    EXPECT_EQ(4u, Disk().size());
}

// A file that was stored before its folder got a policy, or lost it. A move onto its own path brings it into the form of the folder.
TEST_F(MovingAFile, OntoItselfTakesTheFormOfItsFolder) {
    MakePlain(L"Docs\\clear.txt", "content");
    MakeEncrypted(L"Plain\\hidden.txt", "content");
    for (const std::wstring path : {L"Docs\\clear.txt", L"Plain\\hidden.txt"}) {
        SCOPED_TRACE(Narrow(path));
        const Snapshot before = Disk();
        EXPECT_EQ(VVS_PathAlreadyExists, Copy(path, path)) << "two files of one name";
        EXPECT_TRUE(before == Disk());
        EXPECT_OK(Move(path, path));
        EXPECT_EQ("content", Stored(path));
        EXPECT_EQ(1u, NamesBelow(path.substr(0, path.find(L'\\'))).size());
    }
    EXPECT_EQ(Names{}, FilesHolding(temp(), "content")) << "nothing stays of what was clear";
}

// The right to delete is asked for at the open, also under a lock, which shares its own handle.
TEST_F(MovingAFile, OrDeletingItTakesTheRightTo) {
    MakePlain(L"Plain\\a.txt", "content");
    for (const bool isLocked : {false, true}) {
        SCOPED_TRACE(isLocked ? "locked" : "free");
        const std::wstring token = isLocked ? Lock(L"Plain\\a.txt") : std::wstring();
        void* const hFile = MustOpen(L"Plain\\a.txt", GENERIC_READ, OPEN_EXISTING, token.c_str());
        EXPECT_EQ(VVS_AccessDenied, volume()->Delete(hFile, nullptr));
        for (const wchar_t* to : {L"Plain\\b.txt", L"Docs\\b.txt"})
            EXPECT_EQ(VVS_AccessDenied, Rename(hFile, to)) << Narrow(to);
        Close(hFile);
        if (isLocked)
            Unlock(L"Plain\\a.txt", token);
        EXPECT_EQ(1u, Disk().size());
        EXPECT_EQ("content", ReadRaw(NativePath(L"Plain\\a.txt")));
    }
    void* const hFile = MustOpen(L"Plain\\a.txt");
    EXPECT_OK(volume()->Delete(hFile, nullptr));
    EXPECT_EQ(VVS_GeneralError, volume()->Flush(hFile)) << "of a deleted file nothing is written any more";
    Close(hFile);
}

// Who has a plain file open for writing would lose what he writes after it became a container; who only reads it does not.
TEST_F(MovingAFile, APlainFileInUseBecomesNoContainer) {
    MakePlain(L"Plain\\a.txt", "first");
    void* const writer = MustOpen(L"Plain\\a.txt", GENERIC_READ | GENERIC_WRITE);
    EXPECT_EQ(VSS_SharingViolation, Move(L"Plain\\a.txt", L"Docs\\b.txt"));
    EXPECT_OK(Write(writer, "later"));
    Close(writer);
    void* const reader = MustOpen(L"Plain\\a.txt", GENERIC_READ);
    EXPECT_OK(Move(L"Plain\\a.txt", L"Plain\\c.txt"));
    EXPECT_OK(Move(L"Plain\\c.txt", L"Docs\\b.txt"));
    EXPECT_EQ("later", Read(reader));
    Close(reader);
    EXPECT_EQ("later", Stored(L"Docs\\b.txt"));
    EXPECT_EQ(1u, Disk().size());
    EXPECT_EQ(Names{}, FilesHolding(temp(), "later"));
    EXPECT_EQ("later", Get(L"Docs\\b.txt"));
    EXPECT_EQ(1u, TempFolders()) << "that of what somebody still read went with the next one made";
}
