// Tests on a path, its attributes, and CFileBase.
#include "toolkit/file.h"

#include "frame/frame.h"
#include "toolkit/file_walk.h"

#include <shlwapi.h>

#include <algorithm>
#include <io.h>

namespace {

const wchar_t kBackslash[] = L"\\";

// _waccess modes.
const int kExists = 0;
const int kWrite = 2;
const int kReadWrite = 6;

bool Accessible(const std::wstring& path, int mode)
{
    return _waccess(path.c_str(), mode) == 0;
}

}  // namespace

CFileBase::CFileBase(const std::wstring& path) : m_path(), m_separator(kBackslash)
{
    SetPath(path);
}

CFileBase::~CFileBase() {}

void CFileBase::SetPath(const std::wstring& path)
{
    m_path = path;
    std::replace(m_path.begin(), m_path.end(), L'/', L'\\');
}

std::wstring CFileBase::GetParentPath() const
{
    if (m_path.empty())
        return m_path;
    std::wstring parent = m_path;
    std::replace(parent.begin(), parent.end(), L'/', L'\\');
    if (parent.back() == L'/' || parent.back() == L'\\')
        parent.pop_back();
    size_t last = parent.rfind(L'\\');
    size_t first = parent.find(L'\\');
    if (last != std::wstring::npos)
        parent.erase(last);
    // Under a drive, or a bare name: keep a backslash so it still names a folder.
    if (last == std::wstring::npos || last == first)
        parent += PathSeparatorFor(parent.c_str());
    return parent;
}

bool CFileBase::Remove()
{
    // A root stays, which a directory answers with true; so does the empty
    // path, true as it always was for a path that isn't there.
    if (!NamesFolderBelowRoot(m_path))
        return true;
    if (!PathExists(m_path))
        return true;
    // Callers have always had 0 back for a directory that went.
    if (IsDirectory(m_path))
        return RemoveDirectoryW(m_path.c_str()) == 0;
    if (!SetWritable(m_path, true))
        return false;
    return DeleteFileW(m_path.c_str()) != 0;
}

bool NamesFolderBelowRoot(const std::wstring& path)
{
    std::wstring rest = path;
    std::replace(rest.begin(), rest.end(), L'/', L'\\');
    // Leading components that name the root itself: the device after "\\?\",
    // "\\.\" or "\??\" (three with UNC\server\share), or a share's server and name.
    size_t rootParts = 0;
    if (rest.compare(0, 4, L"\\\\?\\") == 0 || rest.compare(0, 4, L"\\\\.\\") == 0 ||
        rest.compare(0, 4, L"\\??\\") == 0) {
        rest.erase(0, 4);
        rootParts = CompareNoCase(rest.substr(0, 4), L"UNC\\") == 0 ? 3 : 1;
    } else if (rest.compare(0, 2, L"\\\\") == 0) {
        rootParts = 2;
    } else if (rest.size() >= 2 && rest[1] == L':') {
        rest.erase(0, 2);
    }
    // Windows drops "." and trailing dots and blanks, and ".." climbs; a
    // wildcard names no folder either.
    size_t depth = 0;
    for (size_t start = 0; start < rest.size();) {
        size_t end = std::min(rest.find(L'\\', start), rest.size());
        const std::wstring part = rest.substr(start, end - start);
        start = end + 1;
        if (part.empty())
            continue;
        if (rootParts > 0)
            --rootParts;
        else if (part == L"..")
            depth -= depth > 0 ? 1 : 0;
        else if (part.find_first_not_of(L". ") != std::wstring::npos && part.find_first_of(L"*?") == std::wstring::npos)
            ++depth;
    }
    return depth > 0;
}

bool PathExists(const std::wstring& path)
{
    return Accessible(path, kExists);
}

bool IsDirectory(const std::wstring& path)
{
    return PathIsDirectoryW(path.c_str()) != 0;
}

bool IsReadWritable(const std::wstring& path)
{
    return Accessible(path, kReadWrite);
}

bool IsWritable(const std::wstring& path)
{
    return Accessible(path, kWrite) || Accessible(path, kReadWrite);
}

bool SetWritable(const std::wstring& path, bool writable)
{
    DWORD attributes = GetFileAttributesW(path.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES)
        return false;
    DWORD wanted = writable ? attributes & ~static_cast<DWORD>(FILE_ATTRIBUTE_READONLY)
                            : attributes | FILE_ATTRIBUTE_READONLY;
    // The deletes call this for every entry: don't write back what is there.
    if (wanted == attributes)
        return true;
    return SetFileAttributesW(path.c_str(), wanted) != 0;
}
