// The file layer on the prefix's real file system, under the scratch folder.
#include "toolkit/area.h"

#include "frame/frame.h"
#include "toolkit/file.h"

#include <gmock/gmock.h>

#include <functional>
#include <memory>
#include <sstream>

using namespace harness;
using namespace std::string_literals;
using ::testing::ElementsAre;

namespace {

using FileTest = ToolkitTest;
const std::wstring kScratch = kScratchFolder, kMissing = kScratch + L"missing";

TEST_F(FileTest, PathTestsSetWritableAndRemove)
{
    const DWORD others = FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_ARCHIVE;
    const std::wstring folder = kScratch + L"full", file = folder + L"\\locked.cfg";
    MakeFile(file, "x", others);
    EXPECT_TRUE(SetWritable(file, false) && GetFileAttributesW(file.c_str()) == (others | FILE_ATTRIBUTE_READONLY));
    EXPECT_TRUE(PathExists(file) && !IsDirectory(file) && !IsWritable(file) && !IsReadWritable(file));
    EXPECT_TRUE(IsDirectory(folder) && IsWritable(folder) && IsReadWritable(folder) && !PathExists(kMissing));
    EXPECT_TRUE(SetWritable(file, true) && GetFileAttributesW(file.c_str()) == others && !SetWritable(kMissing, true));
    // Remove answers true for a missing path, a file that went or a folder that stayed, false for a folder that went.
    SetWritable(file, false);
    EXPECT_TRUE(CFileInfo(kMissing).Remove() && CFileInfo(folder).Remove() && Exists(folder));
    EXPECT_TRUE(CFileInfo(file).Remove() && !Exists(file) && !CFileInfo(folder).Remove() && !Exists(folder));
}

TEST(FileText, PathsLinesAndConversions)
{
    CFileInfo info(L"C:/Suite/Config/Manager.cfg");
    EXPECT_EQ(L"C:\\Suite\\Config\\Manager.cfg", info.m_path);
    // Under a drive, or for a bare name, a backslash stays so that the parent still names a folder.
    const wchar_t* cases[][2] = {{L"C:/a/b/c.cfg", L"C:\\a\\b"}, {L"C:\\Suite\\", L"C:\\"}, {L"", L""},
                                 {L"a.cfg", L"a.cfg\\"}, {L"\\\\srv\\share\\dir", L"\\\\srv\\share"}};
    for (const auto& c : cases) {
        info.SetPath(c[0]);
        EXPECT_EQ(c[1], info.GetParentPath()) << c[0];
    }

    // FindLineInStream matches whole lines of up to 1023 characters; a longer one ends the search.
    const auto finds = [](const std::wstring& text, const std::wstring& line) {
        std::wistringstream stream(text);
        return FindLineInStream(stream, line);
    };
    const std::wstring text = L"Color=1\nlast", longLine = Repeat(L'x', 1100) + L"\nafter";
    EXPECT_TRUE(finds(text, L"Color=1") && finds(text, L"last") && finds(longLine, Repeat(L'x', 1023)));
    EXPECT_FALSE(finds(text, L"color=1") || finds(text, L"Color") || finds(longLine, Repeat(L'x', 1100)) ||
                 finds(longLine, L"after"));

    EXPECT_TRUE(ToNarrowString(L"C:\\a.cfg") == "C:\\a.cfg" && ToWideString("C:\\a.cfg") == L"C:\\a.cfg");
    EXPECT_EQ("", ToNarrowString(L"ab\x4E2D"));  // no narrow form in the "C" locale: nothing kept
}

TEST_F(FileTest, SearchesListChildrenFirstAndMatchLevelByLevel)
{
    const std::wstring find = kScratch + L"find", top = L"C:/tessel/scratch/find/";
    for (const wchar_t* file : {L"top.txt", L"top.log", L"a\\one.txt", L"a\\b\\two.txt", L"a\\b\\c.txt\\deep.txt"})
        MakeFile(find + L"\\" + file);
    MakeFolders(find + L"\\empty\\sub");
    EXPECT_TRUE(IsDirectoryEmpty(find + L"\\empty") && !IsDirectoryEmpty(find) && !IsDirectoryEmpty(kMissing));
    NameList list;
    EXPECT_TRUE(!ListDirectories(kMissing, list) && ListDirectories(top + L"a/", list));
    EXPECT_THAT(list, ElementsAre(find + L"\\a\\b\\c.txt", find + L"\\a\\b"));

    // "*" with recursion: files of every level, never a folder.
    list.clear();
    EXPECT_TRUE(FindFiles(find, list, L"*", true) && list.size() == 5 && list.front().find(top) == 0);
    // Another mask, recursively: matching files and folders level by level, deepest first, the top
    // last; an adjacent duplicate goes, the caller's last entry included.
    list.assign({top + L"a/b/c.txt/deep.txt"});
    EXPECT_TRUE(FindFiles(find, list, L"*.txt", true) && list.size() == 5 && list.back() == top + L"top.txt");
    EXPECT_EQ(top + L"a/one.txt", *std::next(list.rbegin()));
    // One level: folders too (a, empty). Nothing matching fails there, but not recursively.
    list.clear();
    EXPECT_TRUE(FindFiles(find, list, L"*", false) && list.size() == 4 && FindFiles(find, list, L"*.none", true));
    EXPECT_FALSE(FindFiles(find, list, L"*.none", false) || FindFiles(kMissing, list, L"*.txt", true));
}

TEST_F(FileTest, CopyDirectoryReplacesReadOnlyTargetsAndGoesOnAfterAFailure)
{
    for (const wchar_t* file : {L"src\\a.txt", L"src\\sub\\b.txt", L"src\\sub\\deeper\\c.txt"})
        MakeFile(kScratch + file, "new");
    MakeFile(kScratch + L"dst\\sub\\b.txt", "old", FILE_ATTRIBUTE_READONLY);
    MakeFolders(kScratch + L"blocked\\a.txt");  // a folder where the source has a file
    EXPECT_TRUE(CopyDirectory(kScratch + L"src", kScratch + L"dst"));
    EXPECT_FALSE(CopyDirectory(kScratch + L"src", kScratch + L"blocked"));
    for (const wchar_t* file : {L"dst\\a.txt", L"dst\\sub\\b.txt", L"dst\\sub\\deeper\\c.txt", L"blocked\\sub\\b.txt"})
        EXPECT_EQ("new", ReadFileBytes(kScratch + file)) << file;
    EXPECT_FALSE(CopyDirectory(kMissing, kScratch + L"new") || CopyDirectory(kScratch + L"src", kMissing + L"\\new"));
}

TEST_F(FileTest, DeletesOfADirectory)
{
    // removeDirRecursive queues a file in use for the restart and retries for half a second.
    const std::wstring tree = kScratch + L"rm";
    // 500 ms and two ticks of retries, after two ticks for each emptied subfolder; once on the real clock.
    for (bool fake : {true, false}) {
        MakeFile(tree + L"\\plain.txt");
        MakeFile(tree + L"\\sub\\deeper\\inner.txt", "x", FILE_ATTRIBUTE_READONLY);
        HANDLE held = CreateFileW((tree + L"\\held.txt").c_str(), GENERIC_WRITE, 0, NULL, CREATE_ALWAYS, 0, NULL);
        const ULONGLONG start = GetTickCount64();
        std::unique_ptr<FakeClock> clock(fake ? new FakeClock(GetModuleHandleW(NULL)) : nullptr);
        EXPECT_FALSE(removeDirRecursive(tree));
        EXPECT_TRUE(fake ? FakeClock::Elapsed() == 506 : GetTickCount64() - start >= 490);
        clock.reset();
        CloseHandle(held);
        EXPECT_TRUE(Exists(tree + L"\\held.txt") && !Exists(tree + L"\\plain.txt") && !Exists(tree + L"\\sub"));
    }
    // Queued for deletion: the file's name, then an empty target.
    EXPECT_NE(std::wstring::npos, PendingRenames().find(L"\\??\\C:\\tessel\\scratch\\rm\\held.txt\0\0"s));
    EXPECT_TRUE(removeDirRecursive(tree + L"\\") && !Exists(tree) && !removeDirRecursive(kMissing));

    // The shell's deletes: DeleteDirectory drops a closing quote and logs the shell's or the system's text.
    Session session;
    g_hSession = session.handle();
    const std::wstring folder = kScratch + L"quoted", quoted = folder + L"\"";
    MakeFile(folder + L"\\inside.txt", "x", FILE_ATTRIBUTE_READONLY);
    EXPECT_TRUE(DeleteDirectory(quoted.c_str(), 0) && !Exists(folder));
    MakeFolders(folder);
    EXPECT_TRUE(DeleteTree(folder.c_str(), 1) && !Exists(folder));
    // Wine answers 124, one of the shell's own codes, when the parent is missing too, else 2.
    EXPECT_FALSE(DeleteDirectory(NULL, 0) || DeleteDirectory((kMissing + L"\\deeper").c_str(), 0) ||
                 DeleteDirectory(kMissing.c_str(), 1));
    const std::wstring del = L"TESSEL_CA DeleteDirectory " + kScratch;
    const std::wstring attempt = L"TESSEL_CA DeleteDirectory attempting to delete " + kScratch;
    EXPECT_THAT(session.Log(),
                ElementsAre(attempt + L"quoted \n", del + L"quoted: no errors using SHFileOperation.  \n",
                            attempt + L"missing\\deeper \n",
                            del + L"missing\\deeper Error: The paths in the source or destination were invalid. \n",
                            attempt + L"missing \n", del + L"missing Error: File not found.\r\n. \n"));
}

int g_reached = 0;

// In place of the first system calls of each delete. On x64 it may ignore the arguments: -1 is a failure to
// each but PathIsDirectoryW, after which _waccess's -1 ends the delete.
LONG_PTR WINAPI Reached()
{
    ++g_reached;
    return -1;
}

ImportPatch StandIn(const char* dll, const char* function)
{
    return ImportPatch(GetModuleHandleW(NULL), dll, function, reinterpret_cast<void*>(&Reached));
}

struct StandIns {
    ImportPatch attributes = StandIn("kernel32.dll", "GetFileAttributesW");
    ImportPatch find = StandIn("kernel32.dll", "FindFirstFileW"), folder = StandIn("shlwapi.dll", "PathIsDirectoryW");
    ImportPatch access = StandIn("msvcrt.dll", "_waccess"), shell = StandIn("shell32.dll", "SHFileOperationW");
};

// Roots and the empty path are refused before any system call: first with stand-ins for the calls, so that
// not even "C:\" is handed on, then for real with Q:, a throw-away drive, as the current one.
TEST_F(FileTest, TheDeletesRefuseRootsAndTheEmptyPathBeforeAnySystemCall)
{
    ASSERT_TRUE(EnterThrowAwayDrive());
    const std::function<bool(const wchar_t*)> deletes[] = {
        [](const wchar_t* path) { return DeleteDirectory(path, 0); },
        [](const wchar_t* path) { return DeleteTree(path, 1); },
        [](const wchar_t* path) { return removeDirRecursive(path); },
        [](const wchar_t* path) { return CFileInfo(path).Remove(); }};
    const bool refused[] = {false, false, false, true};  // Remove: a directory that stayed
    const struct { const wchar_t* path; bool below; } rows[] = {
        {L"", 0}, {L"\\", 0}, {L"/", 0}, {L"C:", 0}, {L"C:\\", 0}, {L"C:/\\", 0}, {L"\\\\?\\C:\\", 0},
        {L"\\\\.\\C:\\", 0}, {L"\\??\\C:", 0}, {L"\\\\server\\share", 0}, {L"\\\\server\\share\\", 0},
        {L"\\\\?\\UNC\\server\\share\\", 0}, {L"C:\\a\\..\\.", 0}, {L"C:\\*", 0}, {L"C:\\a", 1}, {L"C:a", 1},
        {L"a", 1}, {L"\\\\?\\C:\\a", 1}, {L"\\\\server\\share\\a", 1}, {L"C:\\..\\a\\.", 1},
        {L"\\\\?\\UNC\\server\\share\\a", 1}};
    for (const auto& row : rows) {
        for (size_t i = 0; i < 4; ++i) {
            g_reached = 0;
            bool answer;
            {
                StandIns standIns;
                answer = deletes[i](row.path);
            }
            EXPECT_TRUE(row.below ? g_reached > 0 : g_reached == 0 && answer == refused[i])
                << i << " " << ::testing::PrintToString(std::wstring(row.path));
        }
    }
    Session session;
    g_hSession = session.handle();
    Lines expected;
    for (const std::wstring path : {L"", L"\\", L"Q:", L"Q:\\", L"\\\\?\\Q:\\"}) {
        for (size_t i = 0; i < 4; ++i)
            EXPECT_EQ(refused[i], deletes[i](path.c_str())) << i << " " << ::testing::PrintToString(path);
        const std::wstring text = path.empty() ? L"The paths in the source or destination were invalid"
                                               : L"Source is a root directory, cannot be moved or renamed";
        expected.push_back(L"TESSEL_CA DeleteDirectory attempting to delete " + path + L" \n");
        expected.push_back(L"TESSEL_CA DeleteDirectory " + path + L" Error: " + text + L". \n");
    }
    EXPECT_EQ(expected, session.Log());
    EXPECT_EQ("throw-away", ReadFileBytes(kThrowAwayFile));
}


// The links come from the host side (tests/harness/drive_and_links.sh): Windows code can't make one under
// Wine 8, which shows a Unix symbolic link as a folder with the reparse-point attribute. Nothing may reach the
// file behind them. Wine's RemoveDirectoryW can't remove such a link (145: it looks at the target's files), so
// the deletes fail and the link stays, where Windows removes the link and then its folder.
TEST_F(FileTest, ALinkIsAnEntryNeitherWalkedIntoNorDeletedThrough)
{
    const std::wstring links = L"C:\\tessel\\links\\", tree = links + L"tree", kept = links + L"target\\kept.txt";
    ASSERT_EQ(static_cast<DWORD>(FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT),
              GetFileAttributesW((tree + L"\\link").c_str())) << "made by ctest's drive_and_links fixture";
    MakeFile(tree + L"\\plain.txt");
    MakeFolders(kScratch);
    NameList list;
    EXPECT_TRUE(ListDirectories(tree, list) && FindFiles(tree, list, L"*.txt", true) &&
                FindFiles(tree, list, L"*", true));
    const std::wstring plain = L"C:/tessel/links/tree/plain.txt";
    EXPECT_THAT(list, ElementsAre(plain, L"C:/tessel/links/tree/link", plain));
    EXPECT_TRUE(CopyDirectory(tree, kScratch + L"copy") && Exists(kScratch + L"copy\\plain.txt"));
    EXPECT_FALSE(Exists(kScratch + L"copy\\link"));
    FakeClock clock(GetModuleHandleW(NULL));
    EXPECT_FALSE(DeleteTree(tree.c_str(), 1) || DeleteDirectory((links + L"top").c_str(), 0));  // Wine
    EXPECT_TRUE(Exists(tree + L"\\plain.txt"));  // the shell never saw the tree
    EXPECT_FALSE(removeDirRecursive(tree) || removeDirRecursive(links + L"top"));  // Wine
    EXPECT_TRUE(Exists(kept) && !Exists(tree + L"\\plain.txt"));
}

}  // namespace
