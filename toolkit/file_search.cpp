// Searches that fill a list of names, and the line search in a stream.
#include "toolkit/file.h"

#include "frame/frame.h"
#include "toolkit/file_walk.h"

#include <algorithm>

namespace {

std::wstring WithSlashes(std::wstring path, wchar_t from, wchar_t to)
{
    std::replace(path.begin(), path.end(), from, to);
    return path;
}

// One level of FindFiles; with `recursive`, folders are entered, not listed.
bool SearchLevel(const std::wstring& directory, NameList& list, const std::wstring& mask, bool recursive)
{
    if (!IsDirectory(directory))
        return false;
    std::wstring prefix = directory + PathSeparatorFor(directory.c_str());
    return ForEachEntry(prefix + mask, false, [&](const WIN32_FIND_DATAW& entry) {
        if (IsDotName(entry.cFileName))
            return;
        std::wstring full = prefix + entry.cFileName;
        if (recursive && IsFolderToWalk(entry.dwFileAttributes))
            SearchLevel(full, list, mask, true);
        else
            list.push_back(WithSlashes(full, L'\\', L'/'));
    });
}

}  // namespace

bool ListDirectories(const std::wstring& directory, NameList& list)
{
    if (!IsDirectory(directory))
        return false;
    std::wstring prefix = directory + PathSeparatorFor(directory.c_str());
    return ForEachEntry(prefix + L"*", false, [&](const WIN32_FIND_DATAW& entry) {
        // A link is no folder of this tree: not listed, so that FindFiles'
        // folder-by-folder search doesn't look inside it either.
        if (IsDotName(entry.cFileName) || !IsFolderToWalk(entry.dwFileAttributes))
            return;
        std::wstring full = WithSlashes(prefix + entry.cFileName, L'/', L'\\');
        // Children stand ahead of their parent, so a caller can delete in order.
        ListDirectories(full, list);
        list.push_back(full);
    });
}

bool FindFiles(const std::wstring& directory, NameList& list, const std::wstring& mask, bool recursive)
{
    if (!recursive || mask == L"*")
        return SearchLevel(directory, list, mask, recursive);

    // A folder-by-folder search: each level matched on its own, the top last.
    NameList folders;
    if (!ListDirectories(directory, folders))
        return false;
    folders.push_back(directory);
    folders.unique();
    for (const std::wstring& folder : folders)
        SearchLevel(folder, list, mask, false);
    list.unique();
    return true;
}

bool IsDirectoryEmpty(const std::wstring& path)
{
    NameList files;
    if (!FindFiles(path, files, L"*", true))
        return false;
    return files.empty();
}

bool FindLineInStream(std::wistream& stream, const std::wstring& line)
{
    try {
        wchar_t buffer[1024];
        while (!(stream.rdstate() & (std::ios::eofbit | std::ios::failbit))) {
            stream.getline(buffer, 1024);
            if (line == buffer)
                return true;
        }
    } catch (...) {
        return false;
    }
    return false;
}
