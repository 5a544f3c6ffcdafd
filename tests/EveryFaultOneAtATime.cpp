// Whatever call of the companion library fails while something is done, and however: the old or the new content stands whole,
// an edit that was taken is on disk, a status and the trace tell of it, nothing is left over, and the next attempt works.
#include "harness/ConflictsAndBackups.h"
#include "harness/MovingFixture.h"

#include <memory>

#include "quelcrypt/QuelcryptLib.h"

namespace {

// What scenarios work on: a folder of its own in an encrypted place, with a document in it, unless it is to be created.
struct Scene {
    std::wstring folder;    // "Docs\\7"
    std::wstring path;      // "Docs\\7\\f.txt"
    std::wstring token{};   // of the lock that is held, if any
    void* hFile = nullptr;  // of the item that is open, if any
    std::string read{};     // what was read
    bool wasTaken = false;  // the edit, by WriteFile
    bool isTold = false;    // a failed check, by the trace
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
const std::string kOld = Filled("old", 70'000);
const std::string kNew = Filled("new", 80'000);  // longer, so that it replaces all of the old one
const std::string kTheirs = Filled("theirs", 75'000);

}  // namespace

class EveryFaultOneAtATime : public Moving {
protected:
    using Act = std::function<VirtualVolumeStatus(Scene&)>;
    using Step = std::function<void(Scene&)>;
    struct Scenario {
        Step prepare;
        Act act;                                                // the first status that is none of success
        std::function<void(Scene&, VirtualVolumeStatus)> look;  // at what the failure left, then makes the next attempt
    };

    void SetUp() override {
        Moving::SetUp();
        m_user = std::make_unique<PromptedUser>();
    }
    void TearDown() override {
        m_user.reset();
        Moving::TearDown();
    }

    void Sweep(const Scenario& scenario);

    // Scenes.
    void MakeOld(Scene& scene) { MakeEncrypted(scene.path, kOld); }
    void MakeOldLocked(Scene& scene) {
        MakeOld(scene);
        scene.token = Lock(scene.path);
    }

    // Acts.
    VirtualVolumeStatus ReadAll(Scene& scene);
    VirtualVolumeStatus Edit(Scene& scene, std::uint32_t disposition, bool close = true);

    // Looks.
    void ExpectRead(Scene& scene, VirtualVolumeStatus status);
    void ExpectEdit(Scene& scene, const std::string& before);
    bool IsOnDisk(const std::string& edit) const;
    void Unlock(Scene& scene);
    // Has the protected folders asked for anew; an enumeration that ended early is believed until they change.
    void ReconfigureAnew() {
        Configure(DefaultConfiguration() + std::string(static_cast<std::size_t>(++m_configurations % 50), ' '));
    }

private:
    bool RunOnce(const Scenario& scenario, const FaultRow& row, std::uint32_t nth);
    static void ExpectStatusOf(Fault fault, const std::string& call, VirtualVolumeStatus status);

    std::unique_ptr<PromptedUser> m_user;  // cancels: the edit stays a temp file
    int m_scenes = 0;
    int m_configurations = 0;
};

void EveryFaultOneAtATime::Sweep(const Scenario& scenario) {
    std::uint32_t calls = 0;
    for (const FaultRow& row : kFaults)
        for (std::uint32_t nth = 1; !HasFailure(); ++nth) {
            ASSERT_LT(nth, 1000u);
            if (!RunOnce(scenario, row, nth))
                break;
            ++calls;
        }
    EXPECT_LT(0u, calls) << "no call was ever failed";
    std::printf("%u faults\n", calls);
}

// Whether the fault was reached.
bool EveryFaultOneAtATime::RunOnce(const Scenario& scenario, const FaultRow& row, std::uint32_t nth) {
    SCOPED_TRACE(std::string(row.name) + " at call " + std::to_string(nth));
    const std::wstring number = std::to_wstring(++m_scenes);
    Scene scene{L"Docs\\" + number, L"Docs\\" + number + L"\\f.txt"};
    MakeFolder(scene.folder);
    scenario.prepare(scene);
    TestCompanion_FailNth(row.call, nth, row.fault, false);
    VirtualVolumeStatus status = VVS_Success;
    const auto lines = LinesDuring([&] { status = scenario.act(scene); });
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
    scenario.look(scene, status);
    EXPECT_EQ(0, TestCompanion_LiveObjects());
    EXPECT_EQ(0u, TrackedEdits().size()) << "the next attempt saves what waited";
    for (const std::wstring& file : FilesBelow(NativePath(scene.folder)))
        EXPECT_TRUE(OpensUnshared(file)) << Narrow(file) << " is held";
    EXPECT_FALSE(Exists(NativePath(scene.folder) + L"\\.HalvaneCloud")) << "a writer's side folder was left behind";
    std::filesystem::remove_all(NativePath(scene.folder));
    return wasHit;
}

void EveryFaultOneAtATime::ExpectStatusOf(Fault fault, const std::string& call, VirtualVolumeStatus status) {
    if (call.find("FileReader") != std::string::npos)
        EXPECT_EQ(VSS_DecryptError, status);
    else if (call == "Quelcrypt_GetFileInformation")  // the container counts as a plain file of its own name
        EXPECT_TRUE(status == VVS_FileNotFound || status == VVS_PathAlreadyExists);
    else if (fault == Fault::OutOfMemory)
        EXPECT_EQ(VSS_OutMemory, status);
    else if (call == "Quelcrypt_GetHalvaneBoxConfig" || fault == Fault::Raise || fault == Fault::Error)  // nobody can say
        EXPECT_TRUE(status == VSS_EncryptError || status == VVS_MountFolderNotFound);
    else if (call.find("BoxConfig") != std::string::npos)  // no owner, no key: not those of the other folder
        EXPECT_EQ(VVS_GeneralError, status);
    else
        EXPECT_EQ(VVS_MountFolderNotFound, status);
}

VirtualVolumeStatus EveryFaultOneAtATime::ReadAll(Scene& scene) {
    void* hFile = nullptr;
    const VirtualVolumeStatus opened = Open(&hFile, scene.path, GENERIC_READ, OPEN_EXISTING, scene.token.c_str());
    if (opened != VVS_Success)
        return opened;
    std::string content(200'000, '\0');
    std::uint32_t done = 7;
    const VirtualVolumeStatus status = volume()->ReadFile(hFile, 0, content.data(), 200'000, &done, nullptr);
    EXPECT_TRUE(status == VVS_Success || done == 0);
    scene.read = content.substr(0, done);
    Close(hFile);
    return status;
}

VirtualVolumeStatus EveryFaultOneAtATime::Edit(Scene& scene, std::uint32_t disposition, bool close) {
    void* hFile = nullptr;
    VirtualVolumeStatus status = Open(&hFile, scene.path, kReadWrite, disposition, scene.token.c_str());
    if (status != VVS_Success)
        return status;
    status = Write(hFile, kNew);
    scene.wasTaken = status == VVS_Success;
    if (close)
        Close(hFile);
    else
        scene.hFile = hFile;
    return status;
}

void EveryFaultOneAtATime::Unlock(Scene& scene) {
    if (!scene.token.empty()) {
        EXPECT_OK(volume()->Unlock(scene.path.c_str(), scene.token.c_str()));
    }
}

void EveryFaultOneAtATime::ExpectRead(Scene& scene, VirtualVolumeStatus status) {
    if (status == VVS_Success) {
        EXPECT_TRUE(kOld == scene.read) << "read " << scene.read.substr(0, 60) << "... of " << scene.read.size();
    }
    EXPECT_TRUE(kOld == ContainerContent(ContainerPath(scene.path)));
    EXPECT_TRUE(kOld == Get(scene.path));
    Unlock(scene);
}

bool EveryFaultOneAtATime::IsOnDisk(const std::string& edit) const {
    const auto edits = TrackedEdits();
    return edits.size() == 1 && ReadRaw(edits[0]) == edit;
}

// before: what the file held, "<none>" when there was none.
void EveryFaultOneAtATime::ExpectEdit(Scene& scene, const std::string& before) {
    const std::string stored = ContainerContent(ContainerPath(scene.path));
    const bool isStored = stored == kNew || ReadRaw(NativePath(scene.path)) == kNew;  // in clear where no policy was told
    EXPECT_TRUE(isStored || stored == before) << "stored is " << stored.substr(0, 60) << "... of " << stored.size();
    if (scene.wasTaken && !isStored) {
        EXPECT_TRUE(IsOnDisk(kNew)) << "the edit is not on disk";
        EXPECT_TRUE(scene.isTold) << "the trace names no failed check";
    }
    if (!scene.wasTaken) {
        EXPECT_EQ(0u, TrackedEdits().size());
    }
    if (scene.wasTaken) {
        EXPECT_TRUE(kNew == Get(scene.path)) << "who opens it sees the edit";
        EXPECT_TRUE(kNew == ContainerContent(ContainerPath(scene.path)) || kNew == ReadRaw(NativePath(scene.path)));
    }
    VirtFindData findData{};
    EXPECT_OK(Edit(scene, Find(scene.path, &findData) ? OPEN_EXISTING : CREATE_NEW));
    EXPECT_TRUE(kNew == Get(scene.path));
    Unlock(scene);
    EXPECT_EQ(1u, FilesBelow(NativePath(scene.folder)).size());
}

TEST_F(EveryFaultOneAtATime, Reading) {
    Sweep({[this](Scene& scene) { MakeOld(scene); }, [this](Scene& scene) { return ReadAll(scene); },
           [this](Scene& scene, VirtualVolumeStatus status) { ExpectRead(scene, status); }});
}

TEST_F(EveryFaultOneAtATime, ReadingUnderALock) {
    Sweep({[this](Scene& scene) { MakeOldLocked(scene); }, [this](Scene& scene) { return ReadAll(scene); },
           [this](Scene& scene, VirtualVolumeStatus status) { ExpectRead(scene, status); }});
}

TEST_F(EveryFaultOneAtATime, Saving) {
    Sweep({[this](Scene& scene) { MakeOld(scene); }, [this](Scene& scene) { return Edit(scene, OPEN_EXISTING); },
           [this](Scene& scene, VirtualVolumeStatus) { ExpectEdit(scene, kOld); }});
}

TEST_F(EveryFaultOneAtATime, SavingUnderALock) {
    Sweep({[this](Scene& scene) { MakeOldLocked(scene); }, [this](Scene& scene) { return Edit(scene, OPEN_EXISTING); },
           [this](Scene& scene, VirtualVolumeStatus) { ExpectEdit(scene, kOld); }});
}

TEST_F(EveryFaultOneAtATime, Replacing) {
    Sweep({[this](Scene& scene) { MakeOld(scene); }, [this](Scene& scene) { return Edit(scene, CREATE_ALWAYS); },
           [this](Scene& scene, VirtualVolumeStatus) { ExpectEdit(scene, kOld); }});
}

TEST_F(EveryFaultOneAtATime, Creating) {
    Sweep({[](Scene&) {}, [this](Scene& scene) { return Edit(scene, CREATE_NEW); },
           [this](Scene& scene, VirtualVolumeStatus) { ExpectEdit(scene, "<none>"); }});
}

TEST_F(EveryFaultOneAtATime, SavingInConflict) {
    const auto prepare = [this](Scene& scene) {
        MakeOld(scene);
        EXPECT_OK(Edit(scene, OPEN_EXISTING, false));
        MakeEncrypted(scene.path, kTheirs);
        Touch(ContainerPath(scene.path));
    };
    const auto look = [this](Scene& scene, VirtualVolumeStatus) {
        const std::wstring conflict = scene.folder + L"\\" + ConflictName(L"f.txt");
        EXPECT_TRUE(kTheirs == ContainerContent(ContainerPath(scene.path)));
        if (Exists(ContainerPath(conflict))) {
            EXPECT_EQ(0u, TrackedEdits().size());
        } else {
            EXPECT_TRUE(scene.isTold) << "the trace names no failed check";
            EXPECT_TRUE(IsOnDisk(kNew)) << "the edit is not on disk";
        }
        EXPECT_TRUE(kTheirs == Get(scene.path));  // the close of which saves the edit beside it
        EXPECT_TRUE(kNew == Get(conflict));
        EXPECT_EQ(2u, FilesBelow(NativePath(scene.folder)).size());
    };
    Sweep({prepare,
           [this](Scene& scene) {
               Close(scene.hFile);
               return VVS_Success;
           },
           look});
}

TEST_F(EveryFaultOneAtATime, Deleting) {
    const auto act = [this](Scene& scene) {
        void* hFile = nullptr;
        VirtualVolumeStatus status = Open(&hFile, scene.path, DELETE, OPEN_EXISTING, scene.token.c_str());
        if (status != VVS_Success)
            return status;
        status = volume()->Delete(hFile, nullptr);
        Close(hFile);
        return status;
    };
    const auto look = [&](Scene& scene, VirtualVolumeStatus status) {
        const std::wstring container = ContainerPath(scene.path);
        EXPECT_TRUE((status == VVS_Success ? "<none>" : kOld) == ContainerContent(container));
        if (status != VVS_Success) {
            EXPECT_OK(act(scene));
        }
        EXPECT_FALSE(Exists(container));
    };
    Sweep({[this](Scene& scene) { MakeOld(scene); }, act, look});
}

TEST_F(EveryFaultOneAtATime, Listing) {
    const auto act = [this](Scene& scene) {
        List(L"*");
        scene.read.clear();
        for (const std::wstring& name : List(scene.folder + L"\\*"))
            scene.read += Narrow(name) + ";";
        VirtFindData findData{};
        Find(scene.path, &findData);
        return VVS_Success;
    };
    const auto look = [&](Scene& scene, VirtualVolumeStatus) {
        // One container that cannot be asked shows as the file it is.
        EXPECT_TRUE(scene.read == "f.txt;" || scene.read == "f.txt.zip;" || scene.read.empty()) << scene.read;
        ReconfigureAnew();
        act(scene);
        EXPECT_EQ("f.txt;", scene.read);
        EXPECT_TRUE(kOld == Get(scene.path));
    };
    const auto prepare = [this](Scene& scene) {
        MakeOld(scene);
        ReconfigureAnew();
    };
    Sweep({prepare, act, look});
}

TEST_F(EveryFaultOneAtATime, LockingAndUnlocking) {
    for (const bool isThere : {true, false}) {
        const auto act = [this](Scene& scene) {
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
        const auto look = [&](Scene& scene, VirtualVolumeStatus) {
            Unlock(scene);
            LockInfo lockInfo{};
            EXPECT_NE(VVS_Success, volume()->FindLock(scene.path.c_str(), nullptr, &lockInfo)) << "no lock stays";
            scene.token.clear();
            EXPECT_OK(act(scene));
            EXPECT_TRUE((isThere ? kOld : "<none>") == ContainerContent(ContainerPath(scene.path)));
            EXPECT_EQ(isThere ? 1u : 0u, FilesBelow(NativePath(scene.folder)).size());
        };
        Sweep({[&](Scene& scene) {
                   if (isThere)
                       MakeOld(scene);
               },
               act, look});
    }
}

// Folders go as they are, containers and all, where key and owner are the same.
TEST_F(EveryFaultOneAtATime, MovingAndCopyingAFolder) {
    for (const bool keep : {false, true}) {
        const auto destination = [](const Scene& scene) { return scene.folder + L" moved"; };
        const auto act = [&](Scene& scene) {
            return keep ? Copy(scene.folder, destination(scene)) : Move(scene.folder, destination(scene));
        };
        const auto look = [&](Scene& scene, VirtualVolumeStatus status) {
            const std::wstring moved = ContainerPath(destination(scene) + L"\\f.txt");
            if (status != VVS_Success) {
                EXPECT_FALSE(Exists(NativePath(destination(scene))));
                EXPECT_TRUE(kOld == Get(scene.path));
                EXPECT_OK(act(scene));
            }
            EXPECT_TRUE(kOld == ContainerContent(moved));
            EXPECT_TRUE((keep ? kOld : "<none>") == ContainerContent(ContainerPath(scene.path)));
            std::filesystem::remove_all(NativePath(destination(scene)));
        };
        const auto prepare = [this](Scene& scene) {
            MakeOld(scene);
            List(L"*");  // the protected folders are known
        };
        Sweep({prepare, act, look});
    }
}
