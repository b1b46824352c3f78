// Tests on a path, its attributes, and CFileBase.
#include "toolkit/file.h"

#include "frame/frame.h"

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
    if (!PathExists(m_path))
        return true;
    // Callers have always had 0 back for a directory that went.
    if (IsDirectory(m_path))
        return RemoveDirectoryW(m_path.c_str()) == 0;
    if (!SetWritable(m_path, true))
        return false;
    return DeleteFileW(m_path.c_str()) != 0;
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
