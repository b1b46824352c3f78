// The file layer on the prefix's real file system, under the scratch folder.
#include "toolkit/area.h"

#include "frame/frame.h"
#include "toolkit/file.h"

#include <gmock/gmock.h>

#include <memory>
#include <sstream>

using namespace harness;
using namespace std::string_literals;
using ::testing::ElementsAre;
using ::testing::UnorderedElementsAre;

namespace {

using FileTest = ToolkitTest;
const std::wstring kScratch = kScratchFolder;

TEST_F(FileTest, PathTestsSetWritableAndRemove)
{
    MakeFile(kScratch + L"hidden.txt", "x", FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_ARCHIVE);
    MakeFile(kScratch + L"locked.cfg", "x", FILE_ATTRIBUTE_READONLY);
    MakeFile(kScratch + L"full\\inside.txt");
    MakeFolders(kScratch + L"empty");
    const std::wstring hidden = kScratch + L"hidden.txt";
    EXPECT_TRUE(SetWritable(hidden, false) && !SetWritable(kScratch + L"missing", true));
    const DWORD others = FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_ARCHIVE;
    EXPECT_EQ(others | FILE_ATTRIBUTE_READONLY, GetFileAttributesW(hidden.c_str()));
    EXPECT_TRUE(SetWritable(hidden, true) && GetFileAttributesW(hidden.c_str()) == others);
    // Exists, folder, writable, read-writable; then Remove's answer, inverted for a folder, and whether it stays.
    const struct { const wchar_t* name; bool exists, folder, writable, readWritable, removed, stays; } rows[] = {
        {L"hidden.txt", 1, 0, 1, 1, 1, 0}, {L"locked.cfg", 1, 0, 0, 0, 1, 0}, {L"missing", 0, 0, 0, 0, 1, 0},
        {L"full", 1, 1, 1, 1, 1, 1}, {L"empty", 1, 1, 1, 1, 0, 0}};
    for (const auto& row : rows) {
        const std::wstring path = kScratch + row.name;
        EXPECT_TRUE(row.exists == PathExists(path) && row.folder == IsDirectory(path)) << row.name;
        EXPECT_TRUE(row.writable == IsWritable(path) && row.readWritable == IsReadWritable(path)) << row.name;
        EXPECT_TRUE(row.removed == CFileInfo(path).Remove() && row.stays == Exists(path)) << row.name;
    }
}

TEST(FilePaths, CFileBaseHoldsBackslashesAndFindsTheParent)
{
    CFileInfo info(L"C:/Suite/Config/Manager.cfg");
    EXPECT_TRUE(info.m_path == L"C:\\Suite\\Config\\Manager.cfg" && info.m_separator == std::wstring(L"\\"));
    // Under a drive, or for a bare name, a backslash stays so that the result still names a folder.
    const wchar_t* cases[][2] = {{L"C:/Suite/Config/Manager.cfg", L"C:\\Suite\\Config"}, {L"C:\\Suite\\", L"C:\\"},
                                 {L"C:\\Suite", L"C:\\"}, {L"C:\\", L"C:\\"}, {L"C:/a/b/", L"C:\\a"}, {L"", L""},
                                 {L"Manager.cfg", L"Manager.cfg\\"}, {L"\\\\server\\share\\dir", L"\\\\server\\share"}};
    for (const auto& c : cases) {
        info.SetPath(c[0]);
        EXPECT_EQ(c[1], info.GetParentPath()) << c[0];
    }
}

TEST_F(FileTest, SearchesListChildrenFirstAndMatchLevelByLevel)
{
    const std::wstring find = kScratch + L"find", top = L"C:/tessel/scratch/find/", missing = kScratch + L"missing";
    for (const wchar_t* file : {L"top.txt", L"top.log", L"a\\one.txt", L"a\\b\\two.txt", L"a\\b\\c.txt\\deep.txt"})
        MakeFile(find + L"\\" + file);
    MakeFolders(find + L"\\empty\\sub");
    EXPECT_TRUE(IsDirectoryEmpty(find + L"\\empty"));  // files only count
    EXPECT_FALSE(IsDirectoryEmpty(find) || IsDirectoryEmpty(find + L"\\top.txt") || IsDirectoryEmpty(missing));

    NameList list;
    EXPECT_TRUE(ListDirectories(top + L"a/", list));
    EXPECT_THAT(list, ElementsAre(find + L"\\a\\b\\c.txt", find + L"\\a\\b"));
    list.assign({L"kept"});
    EXPECT_FALSE(ListDirectories(missing, list) || ListDirectories(find + L"\\top.txt", list));
    EXPECT_THAT(list, ElementsAre(L"kept"));

    // "*" with recursion: files of every level, never a folder; one level: folders too.
    list.clear();
    EXPECT_TRUE(FindFiles(find, list, L"*", true));
    EXPECT_THAT(list, UnorderedElementsAre(top + L"top.txt", top + L"top.log", top + L"a/one.txt", top + L"a/b/two.txt",
                                           top + L"a/b/c.txt/deep.txt"));
    list.clear();
    EXPECT_TRUE(FindFiles(find, list, L"*", false));
    EXPECT_THAT(list, UnorderedElementsAre(top + L"top.txt", top + L"top.log", top + L"a", top + L"empty"));

    // Another mask, recursively: level by level, deepest first, the top last, matching folders
    // too; an adjacent duplicate goes, the caller's last entry included.
    list.assign({top + L"a/b/c.txt/deep.txt"});
    EXPECT_TRUE(FindFiles(find, list, L"*.txt", true));
    EXPECT_THAT(list, UnorderedElementsAre(top + L"a/b/c.txt/deep.txt", top + L"a/b/two.txt", top + L"a/b/c.txt",
                                           top + L"a/one.txt", top + L"top.txt"));
    EXPECT_TRUE(*std::next(list.rbegin()) == top + L"a/one.txt" && list.back() == top + L"top.txt");

    // Nothing matching on one level is a failure; recursively it is not.
    list.clear();
    EXPECT_FALSE(FindFiles(find, list, L"*.none", false) || FindFiles(missing, list, L"*", true) ||
                 FindFiles(missing, list, L"*.txt", true));
    EXPECT_TRUE(FindFiles(find, list, L"*.none", true) && list.empty());
}

TEST(FileSearch, FindLineInStreamMatchesWholeLinesUpTo1023Characters)
{
    const std::wstring text = L"Color=1\nlast", longLine = Repeat(L'x', 1100) + L"\nafter";
    const struct { std::wstring text, line; bool found; } rows[] = {
        {text, L"Color=1", true}, {text, L"last", true}, {text, L"color=1", false}, {text, L"Color", false},
        {longLine, Repeat(L'x', 1023), true}, {longLine, Repeat(L'x', 1100), false}, {longLine, L"after", false}};
    for (const auto& row : rows) {
        std::wistringstream stream(row.text);
        EXPECT_EQ(row.found, FindLineInStream(stream, row.line)) << row.line.substr(0, 20);
    }
    std::wistringstream throwing(longLine);
    throwing.exceptions(std::ios::failbit | std::ios::badbit);
    EXPECT_FALSE(FindLineInStream(throwing, L"after"));
}

TEST_F(FileTest, CopyDirectoryReplacesReadOnlyTargetsAndGoesOnAfterAFailure)
{
    for (const wchar_t* file : {L"src\\a.txt", L"src\\sub\\b.txt", L"src\\sub\\deeper\\c.txt"})
        MakeFile(kScratch + file, "new");
    MakeFolders(kScratch + L"src\\hollow");
    MakeFile(kScratch + L"dst\\a.txt", "old", FILE_ATTRIBUTE_READONLY);
    MakeFile(kScratch + L"dst\\sub\\b.txt", "old", FILE_ATTRIBUTE_READONLY);
    MakeFolders(kScratch + L"blocked\\a.txt");  // a folder where the source has a file
    EXPECT_TRUE(CopyDirectory(kScratch + L"src", kScratch + L"dst") && IsDirectory(kScratch + L"dst\\hollow"));
    EXPECT_FALSE(CopyDirectory(kScratch + L"src", kScratch + L"blocked"));
    for (const wchar_t* file : {L"dst\\a.txt", L"dst\\sub\\b.txt", L"dst\\sub\\deeper\\c.txt", L"blocked\\sub\\b.txt"})
        EXPECT_EQ("new", ReadFileBytes(kScratch + file)) << file;
    EXPECT_FALSE(CopyDirectory(kScratch + L"missing", kScratch + L"new") ||
                 CopyDirectory(kScratch + L"src\\a.txt", kScratch + L"new") || Exists(kScratch + L"new") ||
                 CopyDirectory(kScratch + L"src", kScratch + L"missing\\new"));
}

TEST_F(FileTest, RemoveDirRecursiveQueuesAFileInUseAndRetriesHalfASecond)
{
    const std::wstring tree = kScratch + L"rm";
    // First on the fake clock: 500 ms and two ticks of retries, after two ticks for each emptied subfolder.
    for (bool fake : {true, false}) {
        MakeFile(tree + L"\\plain.txt");
        MakeFile(tree + L"\\sub\\deeper\\inner.txt", "x", FILE_ATTRIBUTE_READONLY);
        HANDLE held = CreateFileW((tree + L"\\held.txt").c_str(), GENERIC_WRITE, 0, NULL, CREATE_ALWAYS, 0, NULL);
        const ULONGLONG start = GetTickCount64();
        std::unique_ptr<FakeClock> clock(fake ? new FakeClock(GetModuleHandleW(NULL)) : nullptr);
        EXPECT_FALSE(removeDirRecursive(tree));
        EXPECT_EQ(fake ? 506u : 0u, fake ? FakeClock::Elapsed() : 0u);
        EXPECT_GE(GetTickCount64() - start, fake ? 0u : 490u);
        clock.reset();
        CloseHandle(held);
        EXPECT_TRUE(Exists(tree + L"\\held.txt") && !Exists(tree + L"\\plain.txt") && !Exists(tree + L"\\sub"));
        // Queued for deletion: the file's name, then an empty target.
        EXPECT_NE(std::wstring::npos, PendingRenames().find(L"\\??\\C:\\tessel\\scratch\\rm\\held.txt\0\0"s));
    }
    MakeFile(kScratch + L"single.txt");
    EXPECT_TRUE(removeDirRecursive(tree + L"\\") && !Exists(tree) && Exists(kScratch + L"single.txt"));
    EXPECT_FALSE(removeDirRecursive(kScratch + L"single.txt") || removeDirRecursive(kScratch + L"missing"));
}

TEST_F(FileTest, DeleteDirectoryDropsATrailingQuoteAndLogsTheShellsOrTheSystemsText)
{
    Session session;
    g_hSession = session.handle();
    const std::wstring folder = kScratch + L"quoted", quoted = folder + L"\"";
    MakeFile(folder + L"\\inside.txt", "x", FILE_ATTRIBUTE_READONLY);
    EXPECT_FALSE(DeleteTree(quoted.c_str(), 1) || !Exists(folder));  // passed on with its quote
    EXPECT_TRUE(DeleteDirectory(quoted.c_str(), 0) && !Exists(folder));
    MakeFolders(folder);
    EXPECT_TRUE(DeleteTree(folder.c_str(), 1) && !Exists(folder));
    // Wine answers 124, one of the shell's own codes, when the parent is missing too, else 2.
    EXPECT_FALSE(DeleteDirectory(NULL, 0) || DeleteDirectory((kScratch + L"missing\\deeper").c_str(), 0) ||
                 DeleteDirectory((kScratch + L"missing").c_str(), 1));
    const std::wstring del = L"TESSEL_CA DeleteDirectory " + kScratch;
    const std::wstring attempt = L"TESSEL_CA DeleteDirectory attempting to delete " + kScratch;
    EXPECT_THAT(session.Log(),
                ElementsAre(attempt + L"quoted \n", del + L"quoted: no errors using SHFileOperation.  \n",
                            attempt + L"missing\\deeper \n",
                            del + L"missing\\deeper Error: The paths in the source or destination were invalid. \n",
                            attempt + L"missing \n", del + L"missing Error: File not found.\r\n. \n"));
}

TEST(FileText, ConversionsKeepTextAndGiveEmptyOnFailure)
{
    EXPECT_TRUE(ToNarrowString(L"C:\\a.cfg") == "C:\\a.cfg" && ToWideString("C:\\a.cfg") == L"C:\\a.cfg");
    EXPECT_TRUE(ToNarrowString(L"").empty() && ToWideString("").empty());
    EXPECT_EQ("", ToNarrowString(L"ab\x4E2D"));  // no narrow form in the "C" locale: nothing kept
}

}  // namespace
