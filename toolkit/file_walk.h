// The one walk over a folder's entries that the searches, the copy and the
// deletes share, and the deletes' test of a path. Internal to the file layer.
#pragma once

#include <windows.h>

#include <string>
#include <wchar.h>

inline bool IsDotName(const wchar_t* name)
{
    return wcscmp(name, L".") == 0 || wcscmp(name, L"..") == 0;
}

inline bool IsFolderEntry(const WIN32_FIND_DATAW& entry)
{
    return (entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

// A junction or a symbolic link to a folder carries both attributes. It is an
// entry of its own, removed as the link: what it points at lies outside the
// tree, and following it would let a delete or a copy reach anywhere.
const DWORD kFolderLinkAttributes = FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT;

inline bool IsFolderToWalk(DWORD attributes)
{
    return (attributes & kFolderLinkAttributes) == FILE_ATTRIBUTE_DIRECTORY;
}

inline bool IsFolderLink(DWORD attributes)
{
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & kFolderLinkAttributes) == kFolderLinkAttributes;
}

// False for a path that names no folder below a root: empty, a drive ("C:",
// "C:\", "\\?\C:\"), the current drive's root ("\"), a share
// ("\\server\share"), or one of these with nothing but separators, dots or
// wildcards after it. The deletes refuse such a path before any system call.
bool NamesFolderBelowRoot(const std::wstring& path);

// Calls visit(entry) for every entry FindFirstFileW finds for `pattern`, "."
// and ".." included; with `skipFirst`, from the second entry on. False only
// when the search can't start.
template <typename Visit>
bool ForEachEntry(const std::wstring& pattern, bool skipFirst, Visit visit)
{
    WIN32_FIND_DATAW entry;
    HANDLE search = FindFirstFileW(pattern.c_str(), &entry);
    if (search == INVALID_HANDLE_VALUE)
        return false;
    if (!skipFirst || FindNextFileW(search, &entry)) {
        do {
            visit(entry);
        } while (FindNextFileW(search, &entry));
    }
    FindClose(search);
    return true;
}
