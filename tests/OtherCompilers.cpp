// A companion library of another compiler may raise that compiler's exceptions: they end where it is called, as its other failures do.
#include "harness/VolumeFixture.h"

class OtherCompilers : public VolumeFixture {};

TEST_F(OtherCompilers, AnExceptionOfAnotherCompilerFailsTheCallAndHoldsNothing) {
    const auto raise = [] {
        constexpr DWORD kOtherCompilers = 0xE06D7363;  // "What is the 0xE06D7363 exception code?"
        RaiseException(kOtherCompilers, EXCEPTION_NONCONTINUABLE, 0, nullptr);
    };
    for (const char* const call :
         {"Quelcrypt_GetFileInformation", "Quelcrypt_FileReaderFactory", "IFileReader::Advance", "IFileReader::GetData", "IFileReader::GetDataLength",
          "Quelcrypt_FileWriterFactory", "IFileWriter::Write", "IFileWriter::Finish", "Quelcrypt_GetHalvaneBoxConfig",
          "IHalvaneBoxConfig::GetPolicy", "IHalvaneBoxConfig::GetTargetKeyId", "IHalvaneBoxConfig::GetOwnerId", "Quelcrypt_GetQuelcryptConfig",
          "IQuelcryptConfig::IsExcluded", "Quelcrypt_GetProtectedFolderEnum", "IProtectedFolderEnum::Next", "IProtectedFolder::GetRecord",
          "IProtectedFolder::GetName", "IQuelcryptText::HasText", "IQuelcryptText::GetText"}) {
        SCOPED_TRACE(call);
        UnloadVolume();  // a new module asks for everything
        LoadVolume();
        const std::wstring name = L"Docs\\" + std::wstring(call, call + 9) + L".txt";
        MakeEncrypted(name, "content");
        MakeFolder(L"Docs\\folder");
        const auto work = [&] {
            void* hFile = nullptr;
            if (Open(&hFile, name) == VVS_Success) {
                Read(hFile);
                Write(hFile, "edit");
                Close(hFile);
            }
            Move(L"Docs\\folder", L"Docs\\folder2");
            Move(L"Docs\\folder2", L"Docs\\folder");
            TryOpen(L"Docs\\new.txt", kReadWrite, CREATE_NEW);
            List(L"*");
        };
        Before(call, raise, work);
        work();  // nothing is locked, and what waited is saved
        EXPECT_EQ("editent", ContainerContent(ContainerPath(name)));
        EXPECT_EQ(4u, List(L"*").size());
    }
}
