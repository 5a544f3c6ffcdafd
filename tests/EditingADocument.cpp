#include "harness/VolumeFixture.h"

class EditingADocument : public VolumeFixture {};

TEST_F(EditingADocument, ListsOpensChangesAndSavesAnEncryptedFile) {
    MakeContainer(ContainerPath(L"Docs\\a.txt"), L"a.txt", "first");
    WriteRaw(NativePath(L"Docs\\README"), "plain");
    const std::string readMe = ReadRaw(NativePath(L"Docs\\README"));
    EXPECT_EQ((std::vector<std::wstring>{L"README", L"a.txt"}), List(L"Docs\\*"));

    void* const hFile = MustOpen(L"Docs\\a.txt");
    EXPECT_EQ("first", Read(hFile));
    EXPECT_OK(Write(hFile, "second version"));
    Close(hFile);

    EXPECT_EQ("second version", ContainerContent(ContainerPath(L"Docs\\a.txt")));
    EXPECT_EQ("second version", Get(L"Docs\\a.txt"));
    EXPECT_EQ(readMe, ReadRaw(NativePath(L"Docs\\README")));
    EXPECT_TRUE(FilesHolding(NativePath(L"Docs"), "second").empty());
}
