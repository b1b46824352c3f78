// A value named by a path, in both registry views, and the recursive deletes.
#include "toolkit/registry.h"

namespace {

void CloseAndNull(HKEY& key)
{
    if (key != NULL) {
        RegCloseKey(key);
        key = NULL;
    }
}

// RegDeleteKeyW and RegDeleteKeyExW with a view differ only in that flag.
typedef LSTATUS (*DeleteOneKey)(HKEY hive, const wchar_t* subkey);

LSTATUS DeleteNative(HKEY hive, const wchar_t* subkey)
{
    return RegDeleteKeyW(hive, subkey);
}

LSTATUS Delete32(HKEY hive, const wchar_t* subkey)
{
    return RegDeleteKeyExW(hive, subkey, KEY_WOW64_32KEY, 0);
}

// Children are deleted first, one at a time from index 0, since each delete
// shifts the others down. A child that won't go ends the walk, and the final
// delete of the key then fails.
bool DeleteTree(HKEY hive, const std::wstring& subkey, REGSAM access, DeleteOneKey deleteOne)
{
    if (deleteOne(hive, subkey.c_str()) == ERROR_SUCCESS)
        return true;

    HKEY key = NULL;
    LSTATUS opened = RegOpenKeyExW(hive, subkey.c_str(), 0, access, &key);
    if (opened == ERROR_FILE_NOT_FOUND)
        return true;
    if (opened != ERROR_SUCCESS)
        return false;

    wchar_t name[MAX_PATH];
    DWORD nameSize = MAX_PATH;
    LSTATUS enumerated = RegEnumKeyExW(key, 0, name, &nameSize, NULL, NULL, NULL, NULL);
    while (enumerated == ERROR_SUCCESS) {
        if (!DeleteTree(hive, subkey + L"\\" + name, access, deleteOne))
            break;
        nameSize = MAX_PATH;
        enumerated = RegEnumKeyExW(key, 0, name, &nameSize, NULL, NULL, NULL, NULL);
    }
    RegCloseKey(key);
    return deleteOne(hive, subkey.c_str()) == ERROR_SUCCESS;
}

}  // namespace

registry_value::registry_value(const std::wstring& path)
    : key64(NULL), key32(NULL), hive(HKEY_LOCAL_MACHINE)
{
    std::wstring::size_type last = path.rfind(L'\\');
    if (last == std::wstring::npos) {
        // No separator: callers get the whole text in both.
        subkey = path;
        value_name = path;
    } else {
        subkey = path.substr(0, last);
        value_name = path.substr(last + 1);
    }
}

// The handles are not closed here: each operation closes its own, and those
// of open() belong to its caller.
registry_value::~registry_value() {}

bool registry_value::exists()
{
    RegOpenKeyExW(hive, subkey.c_str(), 0, kView32Access, &key32);
    RegOpenKeyExW(hive, subkey.c_str(), 0, kNativeViewAccess, &key64);
    if (key32 == NULL && key64 == NULL)
        return false;

    bool found = false;
    DWORD type = 0;
    DWORD size = 0;
    if (key64 != NULL)
        found = RegQueryValueExW(key64, value_name.c_str(), NULL, &type, NULL, &size) == ERROR_SUCCESS;
    if (!found && key32 != NULL) {
        size = 0;
        found = RegQueryValueExW(key32, value_name.c_str(), NULL, &type, NULL, &size) == ERROR_SUCCESS;
    }
    CloseAndNull(key32);
    CloseAndNull(key64);
    return found;
}

bool registry_value::open(bool create)
{
    // Each step's result is ignored; only the handles count. A handle from the
    // create is overwritten by the open without being closed.
    if (create && key32 == NULL)
        RegCreateKeyExW(hive, subkey.c_str(), 0, NULL, 0, kView32Access, NULL, &key32, NULL);
    RegOpenKeyExW(hive, subkey.c_str(), 0, kView32Access, &key32);
    if (create && key64 == NULL)
        RegCreateKeyExW(hive, subkey.c_str(), 0, NULL, 0, kNativeViewAccess, NULL, &key64, NULL);
    RegOpenKeyExW(hive, subkey.c_str(), 0, kNativeViewAccess, &key64);
    return key32 != NULL || key64 != NULL;
}

void registry_value::remove_value()
{
    // Opens with create, so a key that was absent is left behind, empty.
    open(true);
    if (key32 != NULL)
        RegDeleteValueW(key32, value_name.c_str());
    if (key64 != NULL)
        RegDeleteValueW(key64, value_name.c_str());
    CloseAndNull(key32);
    CloseAndNull(key64);
}

bool registry_value::delete_key32(HKEY hive, const std::wstring& subkey)
{
    return DeleteTree(hive, subkey, kView32Access, Delete32);
}

bool registry_value::delete_key(HKEY hive, const std::wstring& subkey)
{
    return DeleteTree(hive, subkey, kNativeViewAccess, DeleteNative);
}

std::wstring registry_string::read()
{
    std::wstring result;
    RegOpenKeyExW(hive, subkey.c_str(), 0, kView32Access, &key32);
    RegOpenKeyExW(hive, subkey.c_str(), 0, kNativeViewAccess, &key64);
    if (key32 == NULL && key64 == NULL)
        return result;

    DWORD size = 0;
    bool sized = key64 != NULL && RegQueryValueExW(key64, value_name.c_str(), NULL, NULL, NULL, &size) == ERROR_SUCCESS;
    if (!sized && key32 != NULL) {
        size = 0;
        sized = RegQueryValueExW(key32, value_name.c_str(), NULL, NULL, NULL, &size) == ERROR_SUCCESS;
    }
    if (sized) {
        // Twice the size, zeroed: whatever the type, the text ends inside it.
        std::vector<wchar_t> buffer(size + 1, L'\0');
        DWORD bytes = size * 2;
        BYTE* data = reinterpret_cast<BYTE*>(buffer.data());
        bool read = key64 != NULL &&
                    RegQueryValueExW(key64, value_name.c_str(), NULL, NULL, data, &bytes) == ERROR_SUCCESS;
        if (!read && key32 != NULL) {
            bytes = size * 2;
            read = RegQueryValueExW(key32, value_name.c_str(), NULL, NULL, data, &bytes) == ERROR_SUCCESS;
        }
        if (read)
            result.assign(buffer.data());
    }
    CloseAndNull(key32);
    CloseAndNull(key64);
    return result;
}

registry_string& registry_string::write(const std::wstring& text)
{
    if (!open(true))
        return *this;
    if (key32 != NULL)
        RegSetValueExW(key32, value_name.c_str(), 0, REG_SZ, TextData(text), TextBytes(text));
    if (key64 != NULL)
        RegSetValueExW(key64, value_name.c_str(), 0, REG_SZ, TextData(text), TextBytes(text));
    CloseAndNull(key32);
    CloseAndNull(key64);
    return *this;
}

void registry_string64::write(const std::wstring& text)
{
    if (key32 == NULL)
        RegCreateKeyExW(hive, subkey.c_str(), 0, NULL, 0, kView64Access, NULL, &key32, NULL);
    RegOpenKeyExW(hive, subkey.c_str(), 0, kView64Access, &key32);
    if (key32 == NULL)
        return;
    RegSetValueExW(key32, value_name.c_str(), 0, REG_SZ, TextData(text), TextBytes(text));
    CloseAndNull(key32);
}
