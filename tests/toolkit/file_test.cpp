// The file layer on the prefix's real file system, under the scratch folder.
#include "toolkit/area.h"

#include "frame/frame.h"
#include "toolkit/file.h"

#include <memory>
#include <sstream>

using harness::Exists;
using harness::Lines;
using harness::MakeFile;
using harness::MakeFolders;
using namespace std::string_literals;

namespace {

const std::wstring kScratch = harness::kScratchFolder;

class FileTest : public harness::ActionTest {
protected:
    FileTest() : ActionTest(ToolkitArea()) {}
};

Lines Sorted(NameList list)
{
    list.sort();
    return Lines(list.begin(), list.end());
}

TEST_F(FileTest, PathTestsAttributesAndRemove)
{
    const std::wstring file = kScratch + L"plain.txt";
    MakeFile(file, "x", FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_ARCHIVE);
    const std::wstring missing = kScratch + L"missing";
    EXPECT_EQ((std::vector<bool>{true, true, false, true, false, false, true, true, false}),
              (std::vector<bool>{PathExists(kScratch), PathExists(file), PathExists(missing), IsDirectory(kScratch),
                                 IsDirectory(file), IsDirectory(missing), IsWritable(file), IsReadWritable(file),
                                 IsWritable(missing)}));
    EXPECT_TRUE(SetWritable(file, false));  // the other attributes stay
    EXPECT_EQ(DWORD(FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_ARCHIVE | FILE_ATTRIBUTE_READONLY),
              GetFileAttributesW(file.c_str()));
    EXPECT_FALSE(IsWritable(file) || IsReadWritable(file));
    EXPECT_TRUE(SetWritable(file, true));
    EXPECT_EQ(DWORD(FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_ARCHIVE), GetFileAttributesW(file.c_str()));
    EXPECT_FALSE(SetWritable(missing, true));

    // Remove takes a read-only file; a folder answers false when it went and true when it stayed.
    SetWritable(file, false);
    EXPECT_TRUE(CFileInfo(file).Remove() && !Exists(file));
    EXPECT_TRUE(CFileInfo(missing).Remove());
    MakeFile(kScratch + L"full\\inside.txt");
    MakeFolders(kScratch + L"empty");
    EXPECT_TRUE(CFileInfo(kScratch + L"full").Remove() && Exists(kScratch + L"full"));
    EXPECT_FALSE(CFileInfo(kScratch + L"empty").Remove() || Exists(kScratch + L"empty"));
}

TEST(FilePaths, APathHoldsBackslashesAndFindsItsParent)
{
    CFileInfo info(L"C:/Suite/Config/InstallManager.cfg");
    EXPECT_EQ(L"C:\\Suite\\Config\\InstallManager.cfg", info.m_path);
    EXPECT_STREQ(L"\\", info.m_separator);
    const struct { const wchar_t* path; const wchar_t* parent; } cases[] = {
        {L"C:/Suite/Config/x.cfg", L"C:\\Suite\\Config"}, {L"C:\\Suite\\", L"C:\\"}, {L"C:\\Suite", L"C:\\"},
        {L"C:\\", L"C:\\"}, {L"C:/a/b/", L"C:\\a"}, {L"x.cfg", L"x.cfg\\"}, {L"\\\\server\\share\\dir", L"\\\\server\\share"},
        {L"", L""}};
    for (const auto& c : cases) {
        info.SetPath(c.path);
        EXPECT_EQ(c.parent, info.GetParentPath()) << c.path;
    }
}

TEST_F(FileTest, SearchesListFoldersChildrenFirstAndFilesByMask)
{
    MakeFolders(kScratch + L"tree\\a\\b\\c");
    MakeFolders(kScratch + L"tree\\d");
    MakeFile(kScratch + L"tree\\a\\file.txt");
    MakeFile(kScratch + L"tree\\top.log");
    MakeFile(kScratch + L"tree\\a\\b\\two.txt");
    MakeFile(kScratch + L"tree\\d\\folder.txt\\inner.log");
    MakeFolders(kScratch + L"tree\\e\\f\\g");
    EXPECT_FALSE(IsDirectoryEmpty(kScratch + L"tree") || IsDirectoryEmpty(kScratch + L"missing"));
    EXPECT_TRUE(IsDirectoryEmpty(kScratch + L"tree\\e"));  // empty folders don't count
    EXPECT_FALSE(IsDirectoryEmpty(kScratch + L"tree\\top.log"));

    const std::wstring a = kScratch + L"tree\\a";
    NameList list;
    EXPECT_TRUE(ListDirectories(L"C:/tessel/scratch/tree/a/", list));
    EXPECT_EQ((Lines{a + L"\\b\\c", a + L"\\b"}), Lines(list.begin(), list.end()));
    list.assign({L"kept"});
    EXPECT_FALSE(ListDirectories(kScratch + L"missing", list) || ListDirectories(kScratch + L"tree\\top.log", list));
    EXPECT_EQ(Lines{L"kept"}, Sorted(list));

    // "*" recursively: files of every level. Another mask: folder by folder, deepest first and the top last,
    // matching folders too, adjacent duplicates (the caller's last entry included) dropped. One level: folders too.
    const std::wstring root = L"C:/tessel/scratch/tree/";
    list.clear();
    EXPECT_TRUE(FindFiles(kScratch + L"tree", list, L"*", true));
    EXPECT_EQ((Lines{root + L"a/b/two.txt", root + L"a/file.txt", root + L"d/folder.txt/inner.log", root + L"top.log"}),
              Sorted(list));
    list.assign({root + L"a/b/two.txt"});
    EXPECT_TRUE(FindFiles(kScratch + L"tree", list, L"*.txt", true));
    EXPECT_EQ(3u, list.size());
    EXPECT_EQ((Lines{root + L"a/b/two.txt", root + L"a/file.txt", root + L"d/folder.txt"}), Sorted(list));
    MakeFile(kScratch + L"tree\\top.txt");
    list.clear();
    FindFiles(kScratch + L"tree", list, L"*.txt", true);
    EXPECT_EQ(std::make_pair(root + L"a/b/two.txt", root + L"top.txt"), std::make_pair(list.front(), list.back()));
    list.clear();
    EXPECT_TRUE(FindFiles(kScratch + L"tree", list, L"*", false));
    EXPECT_EQ((Lines{root + L"a", root + L"d", root + L"e", root + L"top.log", root + L"top.txt"}), Sorted(list));
    list.clear();
    EXPECT_FALSE(FindFiles(kScratch + L"tree", list, L"*.none", false));
    EXPECT_TRUE(FindFiles(kScratch + L"tree", list, L"*.none", true));
    EXPECT_FALSE(FindFiles(kScratch + L"missing", list, L"*", true) || FindFiles(kScratch + L"missing", list, L"*.txt", true));
    EXPECT_TRUE(list.empty());
}

TEST(FileSearch, FindLineInStreamMatchesWholeLinesOfUpTo1023Characters)
{
    const std::wstring text = L"[Settings]\nUseCustomColor=1\nlast line", longLine(1100, L'x');
    const struct { std::wstring text; std::wstring line; bool found; } cases[] = {
        {text, L"UseCustomColor=1", true}, {text, L"last line", true}, {text, L"usecustomcolor=1", false},
        {text, L"UseCustomColor", false}, {longLine + L"\nafter", longLine.substr(0, 1023), true},
        {longLine + L"\nafter", longLine, false}, {longLine + L"\nafter", L"after", false}};
    for (const auto& c : cases) {
        std::wistringstream stream(c.text);
        EXPECT_EQ(c.found, FindLineInStream(stream, c.line)) << c.line.substr(0, 20);
    }
}

TEST_F(FileTest, CopyDirectoryReplacesReadOnlyTargetsAndGoesOnAfterAFailure)
{
    MakeFile(kScratch + L"src\\a.txt", "new a");
    MakeFile(kScratch + L"src\\sub\\deeper\\c.txt", "new c");
    MakeFolders(kScratch + L"src\\hollow");
    MakeFile(kScratch + L"dst\\a.txt", "old a", FILE_ATTRIBUTE_READONLY);
    EXPECT_TRUE(CopyDirectory(kScratch + L"src", kScratch + L"dst"));
    EXPECT_EQ("new a new c", harness::ReadFileBytes(kScratch + L"dst\\a.txt") + " " +
                                 harness::ReadFileBytes(kScratch + L"dst\\sub\\deeper\\c.txt"));
    EXPECT_TRUE(IsDirectory(kScratch + L"dst\\hollow"));
    MakeFolders(kScratch + L"blocked\\a.txt");  // a folder where the source has a file
    EXPECT_FALSE(CopyDirectory(kScratch + L"src", kScratch + L"blocked"));
    EXPECT_EQ("new c", harness::ReadFileBytes(kScratch + L"blocked\\sub\\deeper\\c.txt"));
    EXPECT_FALSE(CopyDirectory(kScratch + L"missing", kScratch + L"dst2") ||
                 CopyDirectory(kScratch + L"src\\a.txt", kScratch + L"dst2") ||
                 CopyDirectory(kScratch + L"src", kScratch + L"missing\\dst3"));
    EXPECT_FALSE(Exists(kScratch + L"dst2") || Exists(kScratch + L"missing"));
}

// A file in use is queued for deletion at restart and the top folder retried for half a second: once on the
// real clock, once on the fake one.
TEST_F(FileTest, RemoveDirRecursiveQueuesAFileInUseAndRetriesHalfASecond)
{
    const std::wstring tree = kScratch + L"rm";
    for (bool fake : {false, true}) {
        MakeFile(tree + L"\\plain.txt");
        MakeFile(tree + L"\\sub\\deeper\\inner.txt", "x", FILE_ATTRIBUTE_READONLY);
        HANDLE held = CreateFileW((tree + L"\\held.txt").c_str(), GENERIC_WRITE, 0, NULL, CREATE_ALWAYS, 0, NULL);
        const ULONGLONG start = GetTickCount64();
        {
            std::unique_ptr<harness::FakeClock> clock(fake ? new harness::FakeClock(GetModuleHandleW(NULL)) : NULL);
            EXPECT_FALSE(removeDirRecursive(tree));
            EXPECT_GE(fake ? harness::FakeClock::Elapsed() : GetTickCount64() - start, 500u);
        }
        EXPECT_EQ(std::make_tuple(true, false, false),
                  std::make_tuple(Exists(tree + L"\\held.txt"), Exists(tree + L"\\plain.txt"), Exists(tree + L"\\sub")));
        EXPECT_NE(std::wstring::npos, harness::PendingRenames().find(L"\\??\\C:\\tessel\\scratch\\rm\\held.txt\0\0"s));
        CloseHandle(held);
    }
    EXPECT_TRUE(removeDirRecursive(tree + L"\\"));
    EXPECT_FALSE(Exists(tree));
    MakeFile(kScratch + L"single.txt");
    EXPECT_FALSE(removeDirRecursive(kScratch + L"single.txt") || removeDirRecursive(kScratch + L"missing"));
    EXPECT_TRUE(Exists(kScratch + L"single.txt"));
}

// DeleteTree passes a trailing quote on to the shell, which refuses the name; DeleteDirectory drops it and
// logs the outcome with the shell's text, or else the system's.
TEST_F(FileTest, ShellDeletesAndTheirLog)
{
    harness::Session session;
    g_hSession = session.handle();
    const std::wstring folder = kScratch + L"quoted";
    MakeFile(folder + L"\\inside.txt", "x", FILE_ATTRIBUTE_READONLY);
    EXPECT_FALSE(DeleteTree((folder + L"\"").c_str(), 1));
    EXPECT_TRUE(Exists(folder));
    EXPECT_TRUE(DeleteDirectory((folder + L"\"").c_str(), 0));
    EXPECT_FALSE(Exists(folder));
    MakeFolders(folder);
    EXPECT_TRUE(DeleteTree(folder.c_str(), 1));
    EXPECT_FALSE(Exists(folder) || DeleteDirectory(NULL, 0));
    // Wine answers 124 (DE_INVALIDFILES) with the parent missing, and 2 with it there, a code the shell has no
    // text for. Windows words the system's text "The system cannot find the file specified.".
    EXPECT_FALSE(DeleteDirectory(L"C:\\tessel\\scratch\\missing\\deeper", 0));
    EXPECT_FALSE(DeleteTree(L"C:\\tessel\\scratch\\missing\\deeper", 1));
    EXPECT_FALSE(DeleteDirectory(L"C:\\tessel\\scratch\\missing", 1));
    EXPECT_EQ((Lines{L"TESSEL_CA DeleteDirectory attempting to delete C:\\tessel\\scratch\\quoted \n",
                     L"TESSEL_CA DeleteDirectory C:\\tessel\\scratch\\quoted: no errors using SHFileOperation.  \n",
                     L"TESSEL_CA DeleteDirectory attempting to delete C:\\tessel\\scratch\\missing\\deeper \n",
                     L"TESSEL_CA DeleteDirectory C:\\tessel\\scratch\\missing\\deeper Error: The paths in the source or "
                     L"destination were invalid. \n",
                     L"TESSEL_CA DeleteDirectory attempting to delete C:\\tessel\\scratch\\missing \n",
                     L"TESSEL_CA DeleteDirectory C:\\tessel\\scratch\\missing Error: File not found.\r\n. \n"}),
              session.Log());
}

TEST(FileText, ConversionsKeepTextAndGiveEmptyOnFailure)
{
    EXPECT_EQ("C:\\Suite\\a.cfg", ToNarrowString(L"C:\\Suite\\a.cfg"));
    EXPECT_EQ(L"C:\\Suite\\a.cfg", ToWideString("C:\\Suite\\a.cfg"));
    EXPECT_EQ("", ToNarrowString(L"ab\x4E2D"));  // no narrow form in the "C" locale: nothing kept
}

}  // namespace
