// The registry layer: a value named by a path, in both registry views, the name
// list of a key, the recursive key deletes and a few free operations that only
// one or two actions need. Nothing here throws on a registry failure: results
// say it, and the action decides what it means. CreateRegDWValue and
// CreateRegStringValue log through g_hSession: store the session first.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

// Every open names its full mask, also for a pure read.
const REGSAM kNativeViewAccess = KEY_ALL_ACCESS;                    // 0xf003f
const REGSAM kView32Access = KEY_ALL_ACCESS | KEY_WOW64_32KEY;      // 0xf023f
const REGSAM kView64Access = KEY_ALL_ACCESS | KEY_WOW64_64KEY;      // 0xf013f

// A text as REG_SZ stores it: its characters, and its size in bytes with the terminator.
inline const BYTE* TextData(const std::wstring& text)
{
    return reinterpret_cast<const BYTE*>(text.c_str());
}
inline DWORD TextBytes(const std::wstring& text)
{
    return static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t));
}

// The buffer DeleteKeyRecursive32 works in, in characters.
const size_t kKeyPathChars = 520;

// The process-wide list that QueryKeyNames fills and DeleteandRetainValues reads.
extern std::vector<std::wstring> g_keyNameList;

// A value named by key\value (or key\ for the key's default value),
// under `hive`, opened in the native and the 32-bit view for one operation.
// Each operation closes and nulls the handles it opened; only open() leaves
// them open, and then they are its caller's to close.
class registry_value {
public:
    explicit registry_value(const std::wstring& path);
    virtual ~registry_value();

    bool exists();
    bool open(bool create);
    void remove_value();

    // Recursive deletes of `subkey` under `hive`; an absent key counts as deleted.
    static bool delete_key32(HKEY hive, const std::wstring& subkey);
    static bool delete_key(HKEY hive, const std::wstring& subkey);

    HKEY key64;
    HKEY key32;
    HKEY hive;                 // HKEY_LOCAL_MACHINE unless the caller sets another
    std::wstring value_name;   // after the last backslash; empty for the default value
    std::wstring subkey;       // before the last backslash
};

class registry_string : public registry_value {
public:
    explicit registry_string(const std::wstring& path) : registry_value(path) {}

    std::wstring read();
    registry_string& write(const std::wstring& text);
};

// Writes into the 64-bit view alone, through the key32 slot.
class registry_string64 : public registry_value {
public:
    explicit registry_string64(const std::wstring& path) : registry_value(path) {}

    void write(const std::wstring& text);
};

// Names of one key, read from both views. `names` is only ever appended to.
class registry_key_list {
public:
    static const DWORD kNameBufferChars = 520;

    explicit registry_key_list(HKEY hive = HKEY_LOCAL_MACHINE, const std::wstring& subkey = std::wstring());

    void list_sub_keys();
    void list_values();

    std::vector<std::wstring> names;
    std::wstring subkey;
    HKEY hive;
    HKEY key64;
    HKEY key32;
    wchar_t name_buffer[kNameBufferChars];
    DWORD index;
    DWORD sub_key_count;
    DWORD max_sub_key_length;
    DWORD name_size;
    DWORD value_count;
    DWORD max_value_name_length;
    LONG last_result;
};

// Hands `path` to a registry_value on `hive` and deletes the tree of its key,
// the 32-bit view first, then the native one. A path without a closing
// backslash loses its last component, so the parent goes. Results are ignored:
// an absent key is no failure.
void DeleteKeyInBothViews(HKEY hive, const std::wstring& path);
// Sets a REG_DWORD under HKCU\SOFTWARE\Orvel, creating the key if need be. 1 or 0.
int CreateRegDWValue(const std::wstring& name, DWORD data);
// Sets a REG_SZ: opens the key under HKLM, or else creates it under `createRoot`. Always 0.
int CreateRegStringValue(const std::wstring& subkey, const std::wstring& name, const std::wstring& text,
                         HKEY createRoot = HKEY_CLASSES_ROOT);
// Deletes every named value of `key` but the one named " "; `name` is not looked at.
void DeleteKeyValues(HKEY key, const std::wstring& name);
// Deletes a value of HKLM's Run key, native view; true when it was deleted.
bool DeleteRunValue(const std::wstring& name);
// Appends the sub-key names and the REG_SZ texts (backslashes made slashes) to g_keyNameList.
void QueryKeyNames(HKEY key);
// Recursive delete under HKLM, 32-bit view, working in the caller's buffer of
// kKeyPathChars characters. 1 or 0.
int DeleteKeyRecursive32(wchar_t* path);
// Creates a key under HKLM, 64-bit view, giving Everyone and Administrators
// full access. Prints one line to standard output.
bool CreateKeyWithAcl(const std::wstring& subkey);
