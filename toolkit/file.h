// The file layer: tests on a path, searches that fill a list of names, a
// recursive copy and three ways to delete a directory. Nothing here throws for
// a file-system failure; operations answer with a bool, and the searches keep
// what they found so far. Only DeleteDirectory logs, through g_hSession:
// an action that calls it stores its session first.
#pragma once

#include <windows.h>

#include <istream>
#include <list>
#include <string>

// Names found by ListDirectories (backslashes) and FindFiles (forward slashes).
typedef std::list<std::wstring> NameList;

// One path, always held with backslashes.
class CFileBase {
public:
    explicit CFileBase(const std::wstring& path);
    virtual ~CFileBase();

    void SetPath(const std::wstring& path);
    // The folder above m_path: "C:\" for a folder under a drive, "name\" for a
    // bare name, otherwise the parent without a trailing backslash.
    std::wstring GetParentPath() const;
    // A missing path counts as removed. A directory answers false when it
    // went and true when it stayed, as a root always does; a file answers
    // true when it went.
    bool Remove();

    std::wstring m_path;
    const wchar_t* m_separator;
};

// What the settings store and the driver actions build from a path.
class CFileInfo : public CFileBase {
public:
    explicit CFileInfo(const std::wstring& path) : CFileBase(path) {}
};

bool PathExists(const std::wstring& path);
bool IsDirectory(const std::wstring& path);
bool IsReadWritable(const std::wstring& path);
bool IsWritable(const std::wstring& path);
// true clears the read-only attribute, false sets it; the others stay.
bool SetWritable(const std::wstring& path, bool writable);

// Links to folders (junctions, symbolic links) are entries here, never
// walked into: the searches list them as names, the copy leaves them out,
// and the deletes remove them as links.

// True when no file lies anywhere below: empty folders don't count, a link does.
bool IsDirectoryEmpty(const std::wstring& path);
// Every folder below, each after its own children, never `directory` itself
// and never a link.
bool ListDirectories(const std::wstring& directory, NameList& list);
// Entries matching `mask`. Recursive with "*": files only, from every level.
// Recursive with another mask: matching files and folders of every level.
bool FindFiles(const std::wstring& directory, NameList& list, const std::wstring& mask, bool recursive);
// The stream holds `line` exactly, as one line of at most 1023 characters.
bool FindLineInStream(std::wistream& stream, const std::wstring& line);

// Copies the tree, overwriting read-only targets; goes on after a failure.
bool CopyDirectory(const std::wstring& source, const std::wstring& destination);

// The three deletes refuse an empty path and a root (a drive, "\", a share)
// with their usual failure, before any system call.

// Deletes by hand; files in use are left for the next restart. True only when
// the top directory has gone, after up to 500 ms of retrying.
bool removeDirRecursive(const std::wstring& path);
// Shell deletes. `permanent` 0 sends the tree to the recycle bin; for
// DeleteDirectory it is `allow_undo` non-zero that does.
bool DeleteTree(const wchar_t* path, int permanent);
bool DeleteDirectory(const wchar_t* path, int allow_undo);

// Conversions in the run-time library's current locale; a failure gives "".
std::string ToNarrowString(const std::wstring& text);
std::wstring ToWideString(const std::string& text);
