// Which files a folder's policy has stored encrypted, also while the companion library cannot say.
#include "harness/VolumeFixture.h"

class DecidingWhatIsEncrypted : public VolumeFixture {
protected:
    // How a new file comes to be stored: "encrypted", "plain", or the status of the open that failed. It is gone afterwards.
    std::string Stored(const std::wstring& volumePath) {
        void* hFile = nullptr;
        const VirtualVolumeStatus status = Open(&hFile, volumePath, kReadWrite, CREATE_NEW);
        if (status != VVS_Success) {
            EXPECT_FALSE(Exists(NativePath(volumePath)) || Exists(ContainerPath(volumePath)));
            return StatusName(status);
        }
        EXPECT_OK(Write(hFile, "content"));
        Close(hFile);
        const bool isPlain = Exists(NativePath(volumePath));
        EXPECT_NE(isPlain, Exists(ContainerPath(volumePath))) << Narrow(volumePath);
        EXPECT_EQ("content", isPlain ? ReadRaw(NativePath(volumePath)) : ContainerContent(ContainerPath(volumePath)));
        DeleteFileW(isPlain ? NativePath(volumePath).c_str() : ContainerPath(volumePath).c_str());
        return isPlain ? "plain" : "encrypted";
    }
};

TEST_F(DecidingWhatIsEncrypted, GoesByNameAndFolder) {
    fs::create_directories(NativePath(L"Docs\\sub\\open\\closed"));
    fs::create_directories(NativePath(L"Docs\\.HalvaneBox"));
    Configure(R"({
  "folders": [
    {"name": "Docs", "path": "Docs", "owner": "O1", "policy": "encrypt", "targetKey": "K1"},
    {"path": "Docs/sub/open", "policy": ""},
    {"path": "Docs/sub/open/closed", "policy": "encrypt"},
    {"name": "Plain", "path": "Plain"}
  ],
  "passwords": {"K1": "first secret"},
  "exclude": ["*.tmp", "~$*", "ö*.übergehen", "?é.*", "thumbs.db"]
})");
    const std::tuple<const wchar_t*, const char*> rows[] = {
        {L"Docs\\a.txt", "encrypted"},
        {L"Docs\\Überblick 日本.TXT", "encrypted"},
        {L"Docs\\.txt", "encrypted"},
        {L"Docs\\a.txt.zip", "encrypted"},  // there is no such container, so this is a name like any other
        {L"Docs\\noextension", "plain"},
        {L"Docs\\policy.hvc", "plain"},
        {L"Docs\\POLICY.HVC", "plain"},
        {L"Docs\\policy.hvc. .", "plain"},  // the platform would drop what trails
        {L"Docs\\my policy.hvc", "encrypted"},
        {L"Docs\\policy.hvc.txt", "encrypted"},
        {L"Docs\\- HalvaneCloud Readme -.htm", "plain"},
        {L"Docs\\- halvanecloud readme -.HTM", "plain"},
        {L"Docs\\.HalvaneCloud", "plain"},
        {L"Docs\\.HalvaneBox\\a.txt", "encrypted"},  // the name of the file itself counts
        {L"Docs\\a.tmp", "plain"},
        {L"Docs\\a.TMP", "plain"},
        {L"Docs\\a.tmp.txt", "encrypted"},
        {L"Docs\\~$a.docx", "plain"},
        {L"Docs\\a~$.docx", "encrypted"},
        {L"Docs\\Thumbs.db", "plain"},
        {L"Docs\\thumbs.db.txt", "encrypted"},
        {L"Docs\\xÉ.doc", "plain"},
        {L"Docs\\é.doc", "encrypted"},
        {L"Docs\\öffentlich.übergehen", "plain"},
        {L"Docs\\sub\\a.txt", "encrypted"},  // inherited
        {L"Docs\\sub\\open\\a.txt", "plain"},
        {L"Docs\\sub\\open\\closed\\a.txt", "encrypted"},
        {L"Plain\\a.txt", "plain"},
    };
    for (const auto& [path, stored] : rows)
        EXPECT_EQ(stored, Stored(path)) << Narrow(path);
}

TEST_F(DecidingWhatIsEncrypted, AFailingCompanionIsNoPolicyAndNoExclusion) {
    constexpr const char* kBox = "Quelcrypt_GetHalvaneBoxConfig";
    constexpr const char* kPolicy = "IHalvaneBoxConfig::GetPolicy";
    constexpr const char* kConfig = "Quelcrypt_GetQuelcryptConfig";
    constexpr const char* kExcluded = "IQuelcryptConfig::IsExcluded";
    const struct {
        const char* call;
        Fault fault;
        const char* ofText;      // a.txt, which policy wants encrypted
        const char* ofExcluded;  // a.tmp, which is excluded
    } rows[] = {
        {kBox, Fault::Null, "plain", "plain"},
        {kBox, Fault::Raise, "plain", "plain"},
        {kBox, Fault::Error, "plain", "plain"},
        {kBox, Fault::OutOfMemory, "VSS_OutMemory", "plain"},
        {kPolicy, Fault::Null, "plain", "plain"},
        {kPolicy, Fault::Raise, "plain", "plain"},
        {kPolicy, Fault::Error, "plain", "plain"},
        {kPolicy, Fault::OverLong, "encrypted", "plain"},
        {kConfig, Fault::Null, "encrypted", "encrypted"},
        {kConfig, Fault::Raise, "encrypted", "encrypted"},
        {kConfig, Fault::Error, "encrypted", "encrypted"},
        {kConfig, Fault::OutOfMemory, "VSS_OutMemory", "VSS_OutMemory"},
        {kExcluded, Fault::Null, "encrypted", "encrypted"},
        {kExcluded, Fault::Raise, "encrypted", "encrypted"},
        {kExcluded, Fault::Error, "encrypted", "encrypted"},
    };
    for (const auto& [call, fault, ofText, ofExcluded] : rows) {
        SCOPED_TRACE(std::string(call) + ", fault " + std::to_string(static_cast<int>(fault)));
        Companion().FailNth(call, 1, fault, true);
        EXPECT_EQ(ofText, Stored(L"Docs\\a.txt"));
        EXPECT_EQ(ofExcluded, Stored(L"Docs\\a.tmp"));
        Companion().FailNth();
    }
    EXPECT_EQ("encrypted", Stored(L"Docs\\a.txt"));
    EXPECT_EQ("plain", Stored(L"Docs\\a.tmp"));
}
