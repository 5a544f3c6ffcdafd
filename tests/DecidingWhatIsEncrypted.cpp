// Which files are stored encrypted by their folder's policy, also when the companion library fails to say.
#include "harness/VolumeFixture.h"

class DecidingWhatIsEncrypted : public VolumeFixture {
protected:
    // How a new file comes to be stored: "encrypted", "plain", or the status of the open that failed. It is gone afterwards.
    std::string Stored(const std::wstring& volumePath) {
        void* hFile = nullptr;
        const Status status = Open(&hFile, volumePath, kReadWrite, CREATE_NEW);
        Write(hFile, "content");
        Close(hFile);
        const std::string plain = ReadRaw(NativePath(volumePath)), encrypted = ContainerContent(ContainerPath(volumePath));
        EXPECT_EQ(status == VVS_Success ? 1u : 0u, Disk().size()) << Narrow(volumePath);
        EmptyFolders();
        return plain == "content" ? "plain" : encrypted == "content" ? "encrypted" : StatusName(status);
    }
};

TEST_F(DecidingWhatIsEncrypted, GoesByNameAndFolder) {
    fs::create_directories(NativePath(L"Docs\\sub\\open\\closed"));
    fs::create_directories(NativePath(L"Docs\\.HalvaneBox"));
    Configure(R"({"folders": [{"name": "Docs", "path": "Docs", "owner": "O1", "policy": "encrypt", "targetKey": "K1"},
                  {"path": "Docs/sub/open", "policy": ""}, {"path": "Docs/sub/open/closed", "policy": "encrypt"},
                  {"name": "Plain", "path": "Plain"}], "passwords": {"K1": "first secret"},
                  "exclude": ["*.tmp", "~$*", "ö*.übergehen", "?é.*", "thumbs.db"]})");
    // Of the last two encrypted ones: the name of the file itself counts, and there is no such container.
    const std::pair<const char*, Names> rows[] = {
        {"encrypted",
         {L"a.txt", L"Überblick 日本.TXT", L".txt", L"my policy.hvc", L"policy.hvc.txt", L"a.tmp.txt", L"a~$.docx", L"thumbs.db.txt",
          L"é.doc", L"sub\\a.txt", L"sub\\open\\closed\\a.txt", L".HalvaneBox\\a.txt", L"a.txt.zip"}},
        {"plain",
         {L"noextension", L"policy.hvc", L"POLICY.HVC", L"policy.hvc. .", L"- HalvaneCloud Readme -.htm", L"- halvanecloud readme -.HTM",
          L".HalvaneCloud", L"a.tmp", L"a.TMP", L"~$a.docx", L"Thumbs.db", L"xÉ.doc", L"öffentlich.übergehen", L"sub\\open\\a.txt"}},
    };
    for (const auto& [stored, names] : rows)
        for (const std::wstring& name : names)
            EXPECT_EQ(stored, Stored(L"Docs\\" + name)) << Narrow(name);
    EXPECT_EQ("plain", Stored(L"Plain\\a.txt"));
}

TEST_F(DecidingWhatIsEncrypted, AFailingCompanionIsNoPolicyAndNoExclusion) {
    // Rows: the call that fails; how a text and an excluded file are then stored; the same without memory.
    const std::tuple<const char*, const char*, const char*, const char*, const char*> rows[] = {
        {"Quelcrypt_GetHalvaneBoxConfig", "plain", "plain", "VSS_OutMemory", "plain"},
        {"IHalvaneBoxConfig::GetPolicy", "plain", "plain", "VSS_OutMemory", "plain"},
        {"Quelcrypt_GetQuelcryptConfig", "encrypted", "encrypted", "VSS_OutMemory", "VSS_OutMemory"},
        {"IQuelcryptConfig::IsExcluded", "encrypted", "encrypted", "VSS_OutMemory", "VSS_OutMemory"},
    };
    for (const auto& [call, ofText, ofExcluded, ofTextWithoutMemory, ofExcludedWithoutMemory] : rows)
        for (const Fault fault : {Fault::Null, Fault::Raise, Fault::Error, Fault::OutOfMemory}) {
            SCOPED_TRACE(std::string(call) + ", fault " + std::to_string(static_cast<int>(fault)));
            Companion().FailNth(call, 1, fault, true);
            EXPECT_EQ(fault == Fault::OutOfMemory ? ofTextWithoutMemory : ofText, Stored(L"Docs\\a.txt"));
            EXPECT_EQ(fault == Fault::OutOfMemory ? ofExcludedWithoutMemory : ofExcluded, Stored(L"Docs\\a.tmp"));
        }
    Companion().FailNth("IHalvaneBoxConfig::GetPolicy", 1, Fault::OverLong, true);
    EXPECT_EQ("encrypted", Stored(L"Docs\\a.txt"));
    EXPECT_EQ("plain", Stored(L"Docs\\a.tmp"));
}
