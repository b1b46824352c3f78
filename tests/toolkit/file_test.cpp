// The file layer on the prefix's real file system, under the scratch folder.
#include "toolkit/area.h"

#include "frame/frame.h"
#include "toolkit/file.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <memory>
#include <sstream>

using harness::Session;
using namespace std::string_literals;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

namespace {

class FileTest : public harness::ActionTest {
protected:
    FileTest() : ActionTest(ToolkitArea()) {}
};

std::wstring Scratch(const std::wstring& relative)
{
    return harness::kScratchFolder + relative;
}

void MakeFolders(const std::wstring& path)
{
    for (size_t at = path.find(L'\\', 3); at != std::wstring::npos; at = path.find(L'\\', at + 1))
        CreateDirectoryW(path.substr(0, at).c_str(), NULL);
    CreateDirectoryW(path.c_str(), NULL);
}

void MakeFile(const std::wstring& path, const std::string& content = "x", DWORD attributes = 0)
{
    MakeFolders(path.substr(0, path.rfind(L'\\')));
    HANDLE file = CreateFileW(path.c_str(), GENERIC_WRITE, 0, NULL, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, NULL);
    ASSERT_NE(INVALID_HANDLE_VALUE, file) << "cannot create a test file";
    DWORD written = 0;
    ::WriteFile(file, content.data(), static_cast<DWORD>(content.size()), &written, NULL);
    CloseHandle(file);
    if (attributes != 0)
        SetFileAttributesW(path.c_str(), attributes);
}

std::string ReadText(const std::wstring& path)
{
    HANDLE file = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, NULL, OPEN_EXISTING, 0, NULL);
    if (file == INVALID_HANDLE_VALUE)
        return "<missing>";
    char buffer[256];
    DWORD read = 0;
    ::ReadFile(file, buffer, sizeof(buffer), &read, NULL);
    CloseHandle(file);
    return std::string(buffer, read);
}

bool Exists(const std::wstring& path)
{
    return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

// Closes a file held open for a test before the fixture clears the folder.
struct HandleCloser {
    void operator()(HANDLE handle) const { CloseHandle(handle); }
};
typedef std::unique_ptr<void, HandleCloser> FileHandle;

// The delete-at-restart queue as it is stored: source, target, source, ...
std::wstring PendingRenames()
{
    std::wstring data(8192, L'\0');
    DWORD bytes = static_cast<DWORD>(data.size() * sizeof(wchar_t));
    if (RegGetValueW(HKEY_LOCAL_MACHINE, L"SYSTEM\\CurrentControlSet\\Control\\Session Manager",
                     L"PendingFileRenameOperations", RRF_RT_REG_MULTI_SZ, NULL, &data[0], &bytes) != ERROR_SUCCESS)
        return std::wstring();
    data.resize(bytes / sizeof(wchar_t));
    return data;
}

size_t IndexOf(const NameList& list, const std::wstring& entry)
{
    return static_cast<size_t>(std::distance(list.begin(), std::find(list.begin(), list.end(), entry)));
}

TEST_F(FileTest, PathTestsAndSetWritableKeepOtherAttributes)
{
    std::wstring folder = Scratch(L"tests");
    std::wstring file = Scratch(L"tests\\plain.txt");
    MakeFile(file);

    EXPECT_TRUE(PathExists(folder));
    EXPECT_TRUE(PathExists(file));
    EXPECT_FALSE(PathExists(Scratch(L"missing")));
    EXPECT_TRUE(IsDirectory(folder));
    EXPECT_FALSE(IsDirectory(file));
    EXPECT_FALSE(IsDirectory(Scratch(L"missing")));
    EXPECT_TRUE(IsWritable(file));
    EXPECT_TRUE(IsReadWritable(file));
    EXPECT_FALSE(IsWritable(Scratch(L"missing")));

    SetFileAttributesW(file.c_str(), FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_ARCHIVE);
    EXPECT_TRUE(SetWritable(file, false));
    EXPECT_EQ(static_cast<DWORD>(FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_ARCHIVE | FILE_ATTRIBUTE_READONLY),
              GetFileAttributesW(file.c_str()));
    EXPECT_TRUE(PathExists(file));
    EXPECT_FALSE(IsWritable(file));
    EXPECT_FALSE(IsReadWritable(file));

    EXPECT_TRUE(SetWritable(file, true));
    EXPECT_EQ(static_cast<DWORD>(FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_ARCHIVE), GetFileAttributesW(file.c_str()));
    EXPECT_TRUE(IsWritable(file));
    EXPECT_FALSE(SetWritable(Scratch(L"missing"), true));
}

TEST(FilePaths, CFileBaseHoldsBackslashesAndFindsTheParent)
{
    CFileInfo info(L"C:/Suite/Config/InstallManager.cfg");
    EXPECT_EQ(L"C:\\Suite\\Config\\InstallManager.cfg", info.m_path);
    EXPECT_STREQ(L"\\", info.m_separator);
    EXPECT_EQ(L"C:\\Suite\\Config", info.GetParentPath());

    // Under a drive, or for a bare name, a backslash stays so that the
    // result still names a folder; deeper down there is none at the end.
    const struct {
        const wchar_t* path;
        const wchar_t* parent;
    } cases[] = {
        {L"C:\\Suite\\", L"C:\\"},
        {L"C:\\Suite", L"C:\\"},
        {L"C:\\", L"C:\\"},
        {L"C:/a/b/", L"C:\\a"},
        {L"InstallManager.cfg", L"InstallManager.cfg\\"},
        {L"\\\\server\\share\\dir", L"\\\\server\\share"},
        {L"", L""},
    };
    for (const auto& c : cases) {
        info.SetPath(c.path);
        EXPECT_EQ(c.parent, info.GetParentPath()) << c.path;
    }
}

TEST_F(FileTest, RemoveTakesReadOnlyFilesAndAnswersInvertedForFolders)
{
    std::wstring readOnly = Scratch(L"remove\\locked.cfg");
    MakeFile(readOnly, "x", FILE_ATTRIBUTE_READONLY);
    EXPECT_TRUE(CFileInfo(readOnly).Remove());
    EXPECT_FALSE(Exists(readOnly));
    EXPECT_TRUE(CFileInfo(Scratch(L"remove\\missing")).Remove());

    // A folder that went answers false, one that stayed true.
    std::wstring full = Scratch(L"remove\\full");
    MakeFile(full + L"\\inside.txt");
    EXPECT_TRUE(CFileInfo(full).Remove());
    EXPECT_TRUE(Exists(full));
    std::wstring empty = Scratch(L"remove\\empty");
    MakeFolders(empty);
    EXPECT_FALSE(CFileInfo(empty).Remove());
    EXPECT_FALSE(Exists(empty));
}

TEST_F(FileTest, IsDirectoryEmptyCountsFilesOnly)
{
    std::wstring tree = Scratch(L"empty");
    MakeFolders(tree + L"\\a\\b\\c");
    MakeFolders(tree + L"\\d");
    EXPECT_TRUE(IsDirectoryEmpty(tree));
    EXPECT_FALSE(IsDirectoryEmpty(Scratch(L"missing")));

    MakeFile(tree + L"\\a\\b\\c\\deep.txt");
    EXPECT_FALSE(IsDirectoryEmpty(tree));
    EXPECT_FALSE(IsDirectoryEmpty(tree + L"\\a\\b\\c\\deep.txt"));
    EXPECT_TRUE(IsDirectoryEmpty(tree + L"\\d"));
}

TEST_F(FileTest, ListDirectoriesGivesChildrenFirstWithBackslashes)
{
    MakeFolders(Scratch(L"tree\\a\\b\\c"));
    MakeFolders(Scratch(L"tree\\d"));
    MakeFile(Scratch(L"tree\\a\\file.txt"));

    NameList list;
    EXPECT_TRUE(ListDirectories(L"C:/tessel/scratch/tree", list));
    const std::wstring a = L"C:\\tessel\\scratch\\tree\\a";
    EXPECT_THAT(list, UnorderedElementsAre(a, a + L"\\b", a + L"\\b\\c", L"C:\\tessel\\scratch\\tree\\d"));
    EXPECT_LT(IndexOf(list, a + L"\\b\\c"), IndexOf(list, a + L"\\b"));
    EXPECT_LT(IndexOf(list, a + L"\\b"), IndexOf(list, a));

    // A trailing backslash on the folder doesn't double.
    list.clear();
    EXPECT_TRUE(ListDirectories(Scratch(L"tree\\a\\"), list));
    EXPECT_THAT(list, ElementsAre(a + L"\\b\\c", a + L"\\b"));

    list.assign({L"kept"});
    EXPECT_FALSE(ListDirectories(Scratch(L"missing"), list));
    EXPECT_FALSE(ListDirectories(Scratch(L"tree\\a\\file.txt"), list));
    EXPECT_THAT(list, ElementsAre(L"kept"));
}

TEST_F(FileTest, FindFilesMasksOrdersAndForwardSlashes)
{
    MakeFile(Scratch(L"find\\top.txt"));
    MakeFile(Scratch(L"find\\top.log"));
    MakeFile(Scratch(L"find\\a\\one.txt"));
    MakeFile(Scratch(L"find\\a\\b\\two.txt"));
    MakeFile(Scratch(L"find\\a\\folder.txt\\inner.log"));
    const std::wstring root = L"C:/tessel/scratch/find/";

    // "*" with recursion: files of every level, never a folder.
    NameList list;
    EXPECT_TRUE(FindFiles(Scratch(L"find"), list, L"*", true));
    EXPECT_THAT(list, UnorderedElementsAre(root + L"top.txt", root + L"top.log", root + L"a/one.txt",
                                           root + L"a/b/two.txt", root + L"a/folder.txt/inner.log"));

    // Another mask searches folder by folder, deepest first and the top last,
    // and lists a matching folder too.
    list.clear();
    EXPECT_TRUE(FindFiles(Scratch(L"find"), list, L"*.txt", true));
    EXPECT_THAT(list, UnorderedElementsAre(root + L"a/b/two.txt", root + L"a/one.txt", root + L"a/folder.txt",
                                           root + L"top.txt"));
    EXPECT_EQ(root + L"a/b/two.txt", list.front());
    EXPECT_EQ(root + L"top.txt", list.back());

    // Adjacent duplicates go, including one the caller's list ended with.
    list.assign({root + L"a/b/two.txt"});
    EXPECT_TRUE(FindFiles(Scratch(L"find"), list, L"*.txt", true));
    EXPECT_EQ(4u, list.size());

    // One level: folders are listed as well.
    list.clear();
    EXPECT_TRUE(FindFiles(Scratch(L"find"), list, L"*", false));
    EXPECT_THAT(list, UnorderedElementsAre(root + L"top.txt", root + L"top.log", root + L"a"));

    // Nothing matching on one level is a failure; recursively it is not.
    list.clear();
    EXPECT_FALSE(FindFiles(Scratch(L"find"), list, L"*.none", false));
    EXPECT_TRUE(FindFiles(Scratch(L"find"), list, L"*.none", true));
    EXPECT_THAT(list, IsEmpty());
    EXPECT_FALSE(FindFiles(Scratch(L"missing"), list, L"*", true));
    EXPECT_FALSE(FindFiles(Scratch(L"missing"), list, L"*.txt", true));
}

TEST(FileSearch, FindLineInStreamMatchesWholeLinesExactly)
{
    std::wistringstream text(L"[Settings]\nUseCustomColor=1\nlast line");
    EXPECT_TRUE(FindLineInStream(text, L"UseCustomColor=1"));
    std::wistringstream again(L"[Settings]\nUseCustomColor=1\nlast line");
    EXPECT_TRUE(FindLineInStream(again, L"last line"));  // no line end after it
    std::wistringstream caseDiffers(L"[Settings]\nUseCustomColor=1\n");
    EXPECT_FALSE(FindLineInStream(caseDiffers, L"usecustomcolor=1"));
    std::wistringstream prefixOnly(L"[Settings]\nUseCustomColor=1\n");
    EXPECT_FALSE(FindLineInStream(prefixOnly, L"UseCustomColor"));

    // Lines are read 1023 characters at a time, and reading stops at a longer one.
    std::wstring longLine(1100, L'x');
    std::wistringstream truncated(longLine + L"\nafter");
    EXPECT_TRUE(FindLineInStream(truncated, std::wstring(1023, L'x')));
    std::wistringstream whole(longLine + L"\nafter");
    EXPECT_FALSE(FindLineInStream(whole, longLine));
    std::wistringstream throwing(longLine + L"\nafter");
    throwing.exceptions(std::ios::failbit | std::ios::badbit);
    EXPECT_FALSE(FindLineInStream(throwing, L"after"));
}

TEST_F(FileTest, CopyDirectoryReplacesReadOnlyTargetsAndGoesOnAfterAFailure)
{
    MakeFile(Scratch(L"src\\a.txt"), "new a");
    MakeFile(Scratch(L"src\\sub\\b.txt"), "new b");
    MakeFile(Scratch(L"src\\sub\\deeper\\c.txt"), "new c");
    MakeFolders(Scratch(L"src\\hollow"));
    MakeFile(Scratch(L"dst\\a.txt"), "old a", FILE_ATTRIBUTE_READONLY);
    MakeFile(Scratch(L"dst\\sub\\b.txt"), "old b", FILE_ATTRIBUTE_READONLY);

    EXPECT_TRUE(CopyDirectory(Scratch(L"src"), Scratch(L"dst")));
    EXPECT_EQ("new a", ReadText(Scratch(L"dst\\a.txt")));
    EXPECT_EQ("new b", ReadText(Scratch(L"dst\\sub\\b.txt")));
    EXPECT_EQ("new c", ReadText(Scratch(L"dst\\sub\\deeper\\c.txt")));
    EXPECT_TRUE(IsDirectory(Scratch(L"dst\\hollow")));

    // A folder where the source has a file fails that copy, not the others.
    MakeFolders(Scratch(L"blocked\\a.txt"));
    EXPECT_FALSE(CopyDirectory(Scratch(L"src"), Scratch(L"blocked")));
    EXPECT_EQ("new b", ReadText(Scratch(L"blocked\\sub\\b.txt")));
    EXPECT_TRUE(IsDirectory(Scratch(L"blocked\\a.txt")));

    EXPECT_FALSE(CopyDirectory(Scratch(L"missing"), Scratch(L"dst2")));
    EXPECT_FALSE(CopyDirectory(Scratch(L"src\\a.txt"), Scratch(L"dst2")));
    EXPECT_FALSE(Exists(Scratch(L"dst2")));
    // The top folder can't be made under a missing parent.
    EXPECT_FALSE(CopyDirectory(Scratch(L"src"), Scratch(L"missing\\dst3")));
}

TEST_F(FileTest, RemoveDirRecursiveQueuesAFileInUseAndSpinsHalfASecond)
{
    std::wstring tree = Scratch(L"rm");
    MakeFile(tree + L"\\plain.txt");
    MakeFile(tree + L"\\locked.txt", "x", FILE_ATTRIBUTE_READONLY);
    MakeFile(tree + L"\\sub\\deeper\\inner.txt", "x", FILE_ATTRIBUTE_READONLY);
    FileHandle held(CreateFileW((tree + L"\\held.txt").c_str(), GENERIC_WRITE, 0, NULL, CREATE_ALWAYS, 0, NULL));
    ASSERT_NE(INVALID_HANDLE_VALUE, held.get());

    ULONGLONG start = GetTickCount64();
    EXPECT_FALSE(removeDirRecursive(tree));
    ULONGLONG elapsed = GetTickCount64() - start;
    EXPECT_GE(elapsed, 490u);
    EXPECT_LT(elapsed, 900u);

    EXPECT_TRUE(Exists(tree + L"\\held.txt"));
    EXPECT_FALSE(Exists(tree + L"\\plain.txt"));
    EXPECT_FALSE(Exists(tree + L"\\locked.txt"));
    EXPECT_FALSE(Exists(tree + L"\\sub"));
    // Queued for deletion: the file's name, then an empty target.
    EXPECT_NE(std::wstring::npos, PendingRenames().find(L"\\??\\C:\\tessel\\scratch\\rm\\held.txt\0\0"s));

    held.reset();
    start = GetTickCount64();
    EXPECT_TRUE(removeDirRecursive(tree + L"\\"));
    EXPECT_LT(GetTickCount64() - start, 400u);
    EXPECT_FALSE(Exists(tree));

    MakeFile(Scratch(L"single.txt"));
    EXPECT_FALSE(removeDirRecursive(Scratch(L"single.txt")));
    EXPECT_TRUE(Exists(Scratch(L"single.txt")));
    EXPECT_FALSE(removeDirRecursive(Scratch(L"missing")));
}

TEST_F(FileTest, DeleteDirectoryDropsATrailingQuoteThatDeleteTreePassesOn)
{
    Session session;
    g_hSession = session.handle();
    std::wstring folder = Scratch(L"quoted");
    MakeFile(folder + L"\\inside.txt", "x", FILE_ATTRIBUTE_READONLY);

    // Wine answers 123 (ERROR_INVALID_NAME) for the quoted name.
    EXPECT_FALSE(DeleteTree((folder + L"\"").c_str(), 1));
    EXPECT_TRUE(Exists(folder));
    EXPECT_THAT(session.Log(), IsEmpty());

    EXPECT_TRUE(DeleteDirectory((folder + L"\"").c_str(), 0));
    EXPECT_FALSE(Exists(folder));
    EXPECT_THAT(session.Log(),
                ElementsAre(L"TESSEL_CA DeleteDirectory attempting to delete C:\\tessel\\scratch\\quoted \n",
                            L"TESSEL_CA DeleteDirectory C:\\tessel\\scratch\\quoted: no errors using "
                            L"SHFileOperation.  \n"));

    MakeFolders(folder);
    EXPECT_TRUE(DeleteTree(folder.c_str(), 1));
    EXPECT_FALSE(Exists(folder));
    EXPECT_FALSE(DeleteDirectory(NULL, 0));
    EXPECT_EQ(2u, session.Log().size());
}

TEST_F(FileTest, DeleteDirectoryLogsTheShellsAndTheSystemsErrorTexts)
{
    Session session;
    g_hSession = session.handle();
    MakeFolders(L"C:\\tessel\\scratch");

    // Wine answers 124 (DE_INVALIDFILES) when the parent is missing too,
    // one of the shell's own codes with a text of its own.
    EXPECT_FALSE(DeleteDirectory(L"C:\\tessel\\scratch\\missing\\deeper", 0));
    EXPECT_FALSE(DeleteTree(L"C:\\tessel\\scratch\\missing\\deeper", 1));
    // With the parent there Wine answers 2, which has no text of the shell's:
    // the system's own is logged. Windows words it "The system cannot find the
    // file specified.", Wine "File not found.".
    EXPECT_FALSE(DeleteDirectory(L"C:\\tessel\\scratch\\missing", 1));
    EXPECT_THAT(
        session.Log(),
        ElementsAre(L"TESSEL_CA DeleteDirectory attempting to delete C:\\tessel\\scratch\\missing\\deeper \n",
                    L"TESSEL_CA DeleteDirectory C:\\tessel\\scratch\\missing\\deeper Error: The paths in the "
                    L"source or destination were invalid. \n",
                    L"TESSEL_CA DeleteDirectory attempting to delete C:\\tessel\\scratch\\missing \n",
                    L"TESSEL_CA DeleteDirectory C:\\tessel\\scratch\\missing Error: File not found.\r\n. \n"));
}

TEST(FileText, ConversionsKeepTextAndGiveEmptyOnFailure)
{
    EXPECT_EQ("C:\\Suite\\InstallManager.cfg", ToNarrowString(L"C:\\Suite\\InstallManager.cfg"));
    EXPECT_EQ(L"C:\\Suite\\InstallManager.cfg", ToWideString("C:\\Suite\\InstallManager.cfg"));
    EXPECT_EQ("", ToNarrowString(L""));
    EXPECT_EQ(L"", ToWideString(""));
    // The "C" locale has no narrow form for this character: nothing is kept.
    EXPECT_EQ("", ToNarrowString(L"ab\x4E2D"));
}

}  // namespace
