// The one walk over a folder's entries that the searches, the copy and the
// hand-made delete share. Internal to the file layer.
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
