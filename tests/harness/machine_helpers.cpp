// Setting up and checking registry values and files, one way for every test.
#include "harness/harness.h"

#include <stdexcept>

namespace harness {

namespace {

// An open key that closes itself; null when the key can't be opened.
class OpenKey {
public:
    OpenKey(HKEY root, const std::wstring& path, REGSAM access) : key_(NULL)
    {
        RegOpenKeyExW(root, path.c_str(), 0, access, &key_);
    }
    ~OpenKey()
    {
        if (key_ != NULL)
            RegCloseKey(key_);
    }
    OpenKey(const OpenKey&) = delete;
    OpenKey& operator=(const OpenKey&) = delete;
    operator HKEY() const { return key_; }

private:
    HKEY key_;
};

Lines Enumerate(HKEY root, const std::wstring& key, REGSAM view, bool values)
{
    Lines names;
    OpenKey open(root, key, KEY_READ | view);
    wchar_t name[1024];
    for (DWORD i = 0; open != NULL; ++i) {
        DWORD chars = 1024;
        LSTATUS status = values ? RegEnumValueW(open, i, name, &chars, NULL, NULL, NULL, NULL)
                                : RegEnumKeyExW(open, i, name, &chars, NULL, NULL, NULL, NULL);
        if (status != ERROR_SUCCESS)
            break;
        names.push_back(name);
    }
    return names;
}

}  // namespace

void SetValue(HKEY root, const std::wstring& key, const std::wstring& name, DWORD type, const void* data,
              DWORD bytes, REGSAM view)
{
    HKEY handle;
    if (RegCreateKeyExW(root, key.c_str(), 0, NULL, 0, KEY_ALL_ACCESS | view, NULL, &handle, NULL) != ERROR_SUCCESS)
        throw std::runtime_error("RegCreateKeyExW failed");
    if (data != NULL)
        RegSetValueExW(handle, name.c_str(), 0, type, static_cast<const BYTE*>(data), bytes);
    RegCloseKey(handle);
}

void SetText(HKEY root, const std::wstring& key, const std::wstring& name, const std::wstring& text, REGSAM view)
{
    SetValue(root, key, name, REG_SZ, text.c_str(), static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t)), view);
}

void SetDword(HKEY root, const std::wstring& key, const std::wstring& name, DWORD value, REGSAM view)
{
    SetValue(root, key, name, REG_DWORD, &value, sizeof(value), view);
}

void CreateKey(HKEY root, const std::wstring& key, REGSAM view)
{
    SetValue(root, key, L"", REG_NONE, NULL, 0, view);
}

bool KeyExists(HKEY root, const std::wstring& key, REGSAM view)
{
    OpenKey open(root, key, KEY_READ | view);
    return open != NULL;
}

bool HasValue(HKEY root, const std::wstring& key, const std::wstring& name, REGSAM view)
{
    OpenKey open(root, key, KEY_READ | view);
    return open != NULL && RegQueryValueExW(open, name.c_str(), NULL, NULL, NULL, NULL) == ERROR_SUCCESS;
}

std::wstring TextOf(HKEY root, const std::wstring& key, const std::wstring& name, REGSAM view)
{
    OpenKey open(root, key, KEY_READ | view);
    wchar_t data[2048];
    DWORD bytes = sizeof(data) - sizeof(wchar_t);
    DWORD type = 0;
    if (open == NULL ||
        RegQueryValueExW(open, name.c_str(), NULL, &type, reinterpret_cast<BYTE*>(data), &bytes) != ERROR_SUCCESS ||
        (type != REG_SZ && type != REG_EXPAND_SZ))
        return L"<missing>";
    data[bytes / sizeof(wchar_t)] = L'\0';
    return data;
}

DWORD DwordOf(HKEY root, const std::wstring& key, const std::wstring& name, REGSAM view)
{
    OpenKey open(root, key, KEY_READ | view);
    DWORD value = 0, bytes = sizeof(value), type = 0;
    if (open == NULL ||
        RegQueryValueExW(open, name.c_str(), NULL, &type, reinterpret_cast<BYTE*>(&value), &bytes) != ERROR_SUCCESS ||
        type != REG_DWORD)
        return kMissingDword;
    return value;
}

Lines SubKeysOf(HKEY root, const std::wstring& key, REGSAM view)
{
    return Enumerate(root, key, view, false);
}

Lines ValueNamesOf(HKEY root, const std::wstring& key, REGSAM view)
{
    return Enumerate(root, key, view, true);
}

void DeleteRegTree(HKEY root, const std::wstring& key, REGSAM view)
{
    {
        OpenKey open(root, key, KEY_ALL_ACCESS | view);
        if (open == NULL)
            return;
        RegDeleteTreeW(open, NULL);
    }
    RegDeleteKeyExW(root, key.c_str(), view, 0);
}

void MakeFolders(const std::wstring& path)
{
    for (size_t at = path.find(L'\\', 3); at != std::wstring::npos; at = path.find(L'\\', at + 1))
        CreateDirectoryW(path.substr(0, at).c_str(), NULL);
    CreateDirectoryW(path.c_str(), NULL);
}

void MakeFile(const std::wstring& path, const std::string& content, DWORD attributes)
{
    MakeFolders(path.substr(0, path.rfind(L'\\')));
    WriteFileBytes(path, content);
    if (attributes != 0)
        SetFileAttributesW(path.c_str(), attributes);
}

bool Exists(const std::wstring& path)
{
    return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

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

void WriteFileBytes(const std::wstring& path, const std::string& bytes)
{
    HANDLE file = CreateFileW(path.c_str(), GENERIC_WRITE, 0, NULL, CREATE_ALWAYS, 0, NULL);
    if (file == INVALID_HANDLE_VALUE)
        throw std::runtime_error("a test file could not be written");
    DWORD written = 0;
    WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &written, NULL);
    CloseHandle(file);
}

std::string ReadFileBytes(const std::wstring& path)
{
    HANDLE file = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, NULL, OPEN_EXISTING, 0,
                              NULL);
    if (file == INVALID_HANDLE_VALUE)
        return "<missing>";
    std::string bytes(GetFileSize(file, NULL), '\0');
    DWORD read = 0;
    ReadFile(file, &bytes[0], static_cast<DWORD>(bytes.size()), &read, NULL);
    CloseHandle(file);
    return bytes;
}

}  // namespace harness
