// Whatever call of the companion library fails while something is done, and however: the old or the new content stands whole,
// an edit that was taken is on disk, a status and the trace tell of it, nothing is left over, and the next attempt works.
#include "harness/VolumeFixture.h"

#include <algorithm>
#include <filesystem>

namespace {

// What is worked on: a folder of its own in an encrypted place, with a document in it, unless it is to be created.
struct Scene {
    std::wstring folder;    // "Docs\\7"
    std::wstring path;      // "Docs\\7\\f.txt"
    std::wstring token{};   // of the lock that is held, if any
    void* hFile = nullptr;  // of the item that is open, if any
    std::string read{};     // what was read
    bool wasTaken = false;  // the edit, by WriteFile
    bool isTold = false;    // a failed check, by the trace
    Fault fault = Fault::None;
};

struct FaultRow {
    Fault fault;
    const char* name;
    const char* call;  // null: any
};
const FaultRow kFaults[] = {{Fault::Null, "null", nullptr},
                            {Fault::Raise, "raise", nullptr},
                            {Fault::Error, "error", nullptr},
                            {Fault::OutOfMemory, "out of memory", nullptr},
                            {Fault::OverLong, "over-long policy", "IHalvaneBoxConfig::GetPolicy"},
                            {Fault::OverLong, "over-long key", "IHalvaneBoxConfig::GetTargetKeyId"},
                            {Fault::OverLong, "over-long owner", "IHalvaneBoxConfig::GetOwnerId"},
                            {Fault::NoData, "no data", "IFileReader::GetData"}};

std::string Filled(const std::string& word, std::size_t size) {  // several pieces of what is encrypted at a time
    std::string content;
    while (content.size() < size)
        content += word + " " + std::to_string(content.size()) + "\n";
    return content;
}
const std::string kOld = Filled("old", 35'000);
const std::string kNew = Filled("new", 40'000);  // longer, so that it replaces all of the old one
const std::string kTheirs = Filled("theirs", 37'000);

}  // namespace

class EveryFaultOneAtATime : public VolumeFixture {
protected:
    EveryFaultOneAtATime() : VolumeFixture(LogLevel_Error) {}

    using Step = std::function<void(Scene&)>;
    using Act = std::function<VirtualVolumeStatus(Scene&)>;                // the first status that is none of success
    using Look = std::function<void(Scene&, VirtualVolumeStatus status)>;  // at what the failure left, then makes the next attempt


    void Sweep(const Step& prepare, const Act& act, const Look& look) {
        std::uint32_t calls = 0;
        for (const FaultRow& row : kFaults)
            for (std::uint32_t nth = 1; !HasFailure() && RunOnce(prepare, act, look, row, nth); ++nth)
                ASSERT_LT(++calls, 1000u);
        EXPECT_LT(0u, calls) << "no call was ever failed";
        std::printf("%u faults\n", calls);
    }
    void SweepEdit(bool isThere, bool isLocked, std::uint32_t disposition);
    void SweepMove(const wchar_t* from, const wchar_t* to, bool isFolder, bool isCopied);

    // Prepares: a document, maybe locked.
    void MakeOld(Scene& scene, bool isLocked = false) {
        MakeEncrypted(scene.path, kOld);
        scene.token = isLocked ? Lock(scene.path) : L"";
    }
    VirtualVolumeStatus Edit(Scene& scene, std::uint32_t disposition, bool close = true) {
        const VirtualVolumeStatus opened = Open(&scene.hFile, scene.path, kReadWrite, disposition, scene.token.c_str());
        if (opened != VVS_Success)
            return opened;
        const VirtualVolumeStatus status = Write(scene.hFile, kNew);
        scene.wasTaken = status == VVS_Success;
        if (close)
            Close(scene.hFile);
        return status;
    }
    void Release(Scene& scene) {
        if (!scene.token.empty())
            Unlock(scene.path, scene.token);
        scene.token.clear();
    }
    // Has the protected folders asked for anew; an enumeration that ended early is believed until they change.
    void ReconfigureAnew() { Configure(DefaultConfiguration() + std::string(static_cast<std::size_t>(++m_configurations % 50), ' ')); }
    void ExpectEditOnDisk() {
        ASSERT_EQ(1u, TrackedEdits().size()) << "the edit is not on disk";
        EXPECT_TRUE(kNew == ReadRaw(TrackedEdits()[0]));
    }

private:
    bool RunOnce(const Step& prepare, const Act& act, const Look& look, const FaultRow& row, std::uint32_t nth);
    static void ExpectStatusOf(Fault fault, const std::string& call, VirtualVolumeStatus status);

    int m_scenes = 0;
    int m_configurations = 0;
};

// Whether the fault was reached.
bool EveryFaultOneAtATime::RunOnce(const Step& prepare, const Act& act, const Look& look, const FaultRow& row, std::uint32_t nth) {
    SCOPED_TRACE(std::string(row.name) + " at call " + std::to_string(nth));
    const std::wstring folder = L"Docs\\" + std::to_wstring(++m_scenes);
    Scene scene{folder, folder + L"\\f.txt"};
    scene.fault = row.fault;
    MakeFolder(folder);
    prepare(scene);
    TestCompanion_FailNth(row.call, nth, row.fault, false);
    VirtualVolumeStatus status = VVS_Success;
    const auto lines = LinesDuring([&] { status = act(scene); });
    const bool wasHit = TestCompanion_FaultWasHit();
    const std::string call = TestCompanion_FaultedCall();
    TestCompanion_FailNth(nullptr, 0, Fault::None, false);

    SCOPED_TRACE(call + " was failed, the status is " + StatusName(status));
    scene.isTold = std::any_of(lines.begin(), lines.end(), [](const LogLine& line) {
        return line.level == LogLevel_Error && line.text.find(L" =>") != std::wstring::npos;
    });
    if (status != VVS_Success) {
        EXPECT_TRUE(wasHit);
        ExpectStatusOf(row.fault, call, status);
        EXPECT_TRUE(scene.isTold) << "the trace names no failed check";
    }
    EXPECT_EQ(0, TestCompanion_LiveObjects());
    look(scene, status);
    Release(scene);
    EXPECT_EQ(0, TestCompanion_LiveObjects());
    EXPECT_EQ(0u, TrackedEdits().size()) << "the next attempt saves what waited";
    for (const std::wstring& file : FilesBelow(NativePath(folder)))
        EXPECT_TRUE(OpensUnshared(file)) << Narrow(file) << " is held";
    EXPECT_FALSE(Exists(NativePath(folder) + L"\\.HalvaneCloud")) << "a writer's side folder was left behind";
    std::filesystem::remove_all(NativePath(folder));
    return wasHit;
}

void EveryFaultOneAtATime::ExpectStatusOf(Fault fault, const std::string& call, VirtualVolumeStatus status) {
    if (call.find("FileReader") != std::string::npos)
        EXPECT_EQ(VSS_DecryptError, status);
    else if (call.find("FileWriter") != std::string::npos)
        EXPECT_EQ(VSS_EncryptError, status);
    else if (call == "Quelcrypt_GetFileInformation")  // the container counts as a plain file of its own name
        EXPECT_TRUE(status == VVS_FileNotFound || status == VVS_PathAlreadyExists);
    else if (fault == Fault::OutOfMemory)
        EXPECT_EQ(VSS_OutMemory, status);
    else if (call == "Quelcrypt_GetHalvaneBoxConfig" || fault == Fault::Raise || fault == Fault::Error)  // nobody can say
        EXPECT_TRUE(status == VSS_EncryptError || status == VVS_MountFolderNotFound);
    else if (call.find("BoxConfig") != std::string::npos)  // no owner, no key: not those of the other folder; a policy without a key
        EXPECT_TRUE(status == VVS_GeneralError || (status == VSS_EncryptError && call == "IHalvaneBoxConfig::GetPolicy"));
    else
        EXPECT_EQ(VVS_MountFolderNotFound, status);
}

TEST_F(EveryFaultOneAtATime, Reading) {
    for (const bool isLocked : {false, true})
        Sweep([&](Scene& scene) { MakeOld(scene, isLocked); },
              [&](Scene& scene) {
                  const VirtualVolumeStatus opened = Open(&scene.hFile, scene.path, GENERIC_READ, OPEN_EXISTING, scene.token.c_str());
                  if (opened != VVS_Success)
                      return opened;
                  std::uint32_t done = 7;
                  scene.read.assign(200'000, '\0');
                  const VirtualVolumeStatus status = volume()->ReadFile(scene.hFile, 0, scene.read.data(), 200'000, &done, nullptr);
                  scene.read.resize(done);
                  return status;
              },
              [&](Scene& scene, VirtualVolumeStatus status) {
                  EXPECT_TRUE((status == VVS_Success ? kOld : "") == scene.read);
                  EXPECT_TRUE(!scene.hFile || kOld == Read(scene.hFile)) << "the same handle may try again";
                  Close(scene.hFile);
                  EXPECT_TRUE(kOld == Stored(scene.path));
                  EXPECT_TRUE(kOld == Get(scene.path));
              });
}

void EveryFaultOneAtATime::SweepEdit(bool isThere, bool isLocked, std::uint32_t disposition) {
    const auto look = [&](Scene& scene, VirtualVolumeStatus) {
        const std::string stored = Stored(scene.path);
        const bool isStored = stored == kNew || ReadRaw(NativePath(scene.path)) == kNew;  // in clear where no policy was told
        EXPECT_TRUE(isStored || stored == (isThere ? kOld : "<none>")) << "stored is " << stored.substr(0, 60) << "... of " << stored.size();
        if (scene.wasTaken && !isStored) {
            ExpectEditOnDisk();
            EXPECT_TRUE(scene.isTold) << "the trace names no failed check";
        }
        if (scene.wasTaken) {
            EXPECT_TRUE(kNew == Get(scene.path)) << "who opens it sees the edit";
            EXPECT_TRUE(kNew == Stored(scene.path) || kNew == ReadRaw(NativePath(scene.path)));
        }
        VirtFindData findData{};
        EXPECT_OK(Edit(scene, Find(scene.path, &findData) ? OPEN_EXISTING : CREATE_NEW));
        EXPECT_TRUE(kNew == Get(scene.path));
        EXPECT_EQ(1u, FilesBelow(NativePath(scene.folder)).size());
    };
    Sweep(
        [&](Scene& scene) {
            if (isThere)
                MakeOld(scene, isLocked);
        },
        [&](Scene& scene) { return Edit(scene, disposition); }, look);
}

TEST_F(EveryFaultOneAtATime, Saving) { SweepEdit(true, false, OPEN_EXISTING); }
TEST_F(EveryFaultOneAtATime, SavingUnderALock) { SweepEdit(true, true, OPEN_EXISTING); }
TEST_F(EveryFaultOneAtATime, Replacing) { SweepEdit(true, false, CREATE_ALWAYS); }
TEST_F(EveryFaultOneAtATime, Creating) { SweepEdit(false, false, CREATE_NEW); }

TEST_F(EveryFaultOneAtATime, SavingInConflict) {
    Sweep(
        [&](Scene& scene) {
            MakeOld(scene);
            EXPECT_OK(Edit(scene, OPEN_EXISTING, false));
            SaveElsewhere(scene.path, kTheirs);
        },
        [&](Scene& scene) {
            Close(scene.hFile);
            return VVS_Success;
        },
        [&](Scene& scene, VirtualVolumeStatus) {
            const std::wstring conflict = scene.folder + L"\\" + ConflictName(L"f.txt");
            EXPECT_TRUE(kTheirs == Stored(scene.path));
            if (!Exists(ContainerPath(conflict))) {
                EXPECT_TRUE(scene.isTold) << "the trace names no failed check";
                ExpectEditOnDisk();
            }
            EXPECT_TRUE(kTheirs == Get(scene.path));  // the close of which saves the edit beside it
            EXPECT_TRUE(kNew == Get(conflict));
            EXPECT_EQ(2u, FilesBelow(NativePath(scene.folder)).size());
        });
}

TEST_F(EveryFaultOneAtATime, Deleting) {
    const auto act = [&](Scene& scene) {
        VirtualVolumeStatus status = Open(&scene.hFile, scene.path, DELETE, OPEN_EXISTING, scene.token.c_str());
        if (status == VVS_Success)
            status = volume()->Delete(scene.hFile, nullptr);
        Close(scene.hFile);
        return status;
    };
    Sweep([&](Scene& scene) { MakeOld(scene); }, act,
          [&](Scene& scene, VirtualVolumeStatus status) {
              EXPECT_TRUE((status == VVS_Success ? "<none>" : kOld) == Stored(scene.path));
              if (status != VVS_Success)
                  EXPECT_OK(act(scene));
              EXPECT_FALSE(Exists(ContainerPath(scene.path)));
          });
}

TEST_F(EveryFaultOneAtATime, Listing) {
    const auto act = [&](Scene& scene) {
        List(L"*");
        scene.read.clear();
        for (const std::wstring& name : List(scene.folder + L"\\*"))
            scene.read += Narrow(name) + ";";
        VirtFindData findData{};
        Find(scene.path, &findData);
        return VVS_Success;
    };
    Sweep(
        [&](Scene& scene) {
            MakeOld(scene);
            ReconfigureAnew();
        },
        act,
        [&](Scene& scene, VirtualVolumeStatus) {
            // One container that cannot be asked shows as the file it is.
            EXPECT_TRUE(scene.read == "f.txt;" || scene.read == "f.txt.zip;" || scene.read.empty()) << scene.read;
            ReconfigureAnew();
            act(scene);
            EXPECT_EQ("f.txt;", scene.read);
        });
}

TEST_F(EveryFaultOneAtATime, LockingAndUnlocking) {
    for (const bool isThere : {true, false}) {
        const auto act = [&](Scene& scene) {
            LockInfo lockInfo = NewLock();
            VirtualVolumeStatus status = volume()->Lock(scene.path.c_str(), &lockInfo);
            if (status != VVS_Success)
                return status;
            scene.token = lockInfo.token;
            status = volume()->FindLock(scene.path.c_str(), nullptr, &lockInfo);
            const VirtualVolumeStatus unlocked = volume()->Unlock(scene.path.c_str(), scene.token.c_str());
            if (unlocked == VVS_Success)
                scene.token.clear();
            return status == VVS_Success ? unlocked : status;
        };
        Sweep(
            [&](Scene& scene) {
                if (isThere)
                    MakeOld(scene);
            },
            act,
            [&](Scene& scene, VirtualVolumeStatus) {
                Release(scene);
                LockInfo lockInfo{};
                EXPECT_NE(VVS_Success, volume()->FindLock(scene.path.c_str(), nullptr, &lockInfo)) << "no lock stays";
                EXPECT_OK(act(scene));
                EXPECT_TRUE((isThere ? kOld : "<none>") == Stored(scene.path));
                EXPECT_EQ(isThere ? 1u : 0u, FilesBelow(NativePath(scene.folder)).size());
            });
    }
}

// Files change their form and key on the way; folders go as they are, where key and owner are the same.
void EveryFaultOneAtATime::SweepMove(const wchar_t* from, const wchar_t* to, bool isFolder, bool isCopied) {
    SCOPED_TRACE(Narrow(from) + " to " + Narrow(to));
    const auto file = [&](const wchar_t* path) { return std::wstring(path) + (isFolder ? L"\\f.txt" : L""); };
    const auto act = [&](Scene&) { return isCopied ? Copy(from, to) : Move(from, to); };
    Sweep(
        [&](Scene&) {
            if (isFolder)
                MakeFolder(from);
            Store(file(from), kOld);
            List(L"*");  // the protected folders are known
        },
        act,
        [&](Scene& scene, VirtualVolumeStatus status) {
            if (status != VVS_Success) {
                EXPECT_FALSE(Exists(NativePath(to)) || Exists(ContainerPath(to)));
                EXPECT_TRUE(kOld == Get(file(from)));
                EXPECT_OK(act(scene));
            }
            const bool mayBePlain = scene.fault == Fault::Null;  // for where no policy is told, none is there
            EXPECT_TRUE(kOld == Stored(file(to)) || (mayBePlain && kOld == ReadRaw(NativePath(file(to)))));
            EXPECT_TRUE((isCopied ? kOld : "<none>") == Stored(file(from)));
            for (const wchar_t* path : {from, to})
                for (const std::wstring& left : {NativePath(path), ContainerPath(path)})
                    std::filesystem::remove_all(left);
        });
}

TEST_F(EveryFaultOneAtATime, MovingAFolder) { SweepMove(L"Docs\\a", L"Docs\\b", true, false); }
TEST_F(EveryFaultOneAtATime, CopyingAFolder) { SweepMove(L"Docs\\a", L"Docs\\b", true, true); }
TEST_F(EveryFaultOneAtATime, MovingToAnotherKey) { SweepMove(L"Docs\\a.txt", L"Other\\b.txt", false, false); }
TEST_F(EveryFaultOneAtATime, MovingToAPlainPlace) { SweepMove(L"Docs\\a.txt", L"Plain\\b.txt", false, false); }
TEST_F(EveryFaultOneAtATime, MovingAPlainFile) { SweepMove(L"Plain\\a.txt", L"Docs\\b.txt", false, false); }
TEST_F(EveryFaultOneAtATime, CopyingToAnotherKey) { SweepMove(L"Docs\\a.txt", L"Other\\b.txt", false, true); }
