// The sub-key and value names of one key, gathered from both registry views.
// Callers use the pair to test whether a key is empty before they delete it.
#include "toolkit/registry.h"

#include <algorithm>

namespace {

// The longest name plus its terminator, never more than the buffer holds.
DWORD NameSizeFor(DWORD longest)
{
    return std::min<DWORD>(longest + 1, registry_key_list::kNameBufferChars);
}

// A value name too long for the buffer still names a value: it is listed as an empty name, so that a key
// holding only such a value never reads as empty.
bool NamedValue(LONG result, wchar_t (&buffer)[registry_key_list::kNameBufferChars])
{
    if (result == ERROR_MORE_DATA)
        buffer[0] = L'\0';
    return result == ERROR_SUCCESS || result == ERROR_MORE_DATA;
}

}  // namespace

registry_key_list::registry_key_list(HKEY hive, const std::wstring& subkey)
    : subkey(subkey), hive(hive), key64(NULL), key32(NULL), name_buffer(), index(0), sub_key_count(0),
      max_sub_key_length(0), name_size(0), value_count(0), max_value_name_length(0), last_result(0)
{
}

void registry_key_list::list_sub_keys()
{
    if (RegOpenKeyExW(hive, subkey.c_str(), 0, kNativeViewAccess, &key64) == ERROR_SUCCESS &&
        RegQueryInfoKeyW(key64, NULL, NULL, NULL, &sub_key_count, &max_sub_key_length, NULL, NULL, NULL, NULL,
                         NULL, NULL) == ERROR_SUCCESS) {
        for (index = 0; index < sub_key_count; ++index) {
            name_size = NameSizeFor(max_sub_key_length);
            // Not tested: a failed call appends what the buffer still holds.
            last_result = RegEnumKeyExW(key64, index, name_buffer, &name_size, NULL, NULL, NULL, NULL);
            names.push_back(name_buffer);
        }
        RegCloseKey(key64);
        key64 = NULL;
    }

    sub_key_count = 0;
    max_sub_key_length = 0;
    if (RegOpenKeyExW(hive, subkey.c_str(), 0, kView32Access, &key32) != ERROR_SUCCESS ||
        RegQueryInfoKeyW(key32, NULL, NULL, NULL, &sub_key_count, &max_sub_key_length, NULL, NULL, NULL, NULL,
                         NULL, NULL) != ERROR_SUCCESS)
        return;
    if (sub_key_count != 0) {
        for (index = 0; index < sub_key_count; ++index) {
            name_size = NameSizeFor(max_sub_key_length);
            last_result = RegEnumKeyExW(key32, index, name_buffer, &name_size, NULL, NULL, NULL, NULL);
            // A key that both views share shows up twice; names differing in case are kept apart.
            if (std::find(names.begin(), names.end(), name_buffer) == names.end())
                names.push_back(name_buffer);
        }
    }
    RegCloseKey(key32);
    key32 = NULL;
}

void registry_key_list::list_values()
{
    bool nativeNamed = false;
    if (RegOpenKeyExW(hive, subkey.c_str(), 0, kNativeViewAccess, &key64) == ERROR_SUCCESS &&
        RegQueryInfoKeyW(key64, NULL, NULL, NULL, NULL, NULL, NULL, &value_count, &max_value_name_length, NULL,
                         NULL, NULL) == ERROR_SUCCESS) {
        for (index = 0; index < value_count; ++index) {
            name_size = NameSizeFor(max_value_name_length);
            last_result = RegEnumValueW(key64, index, name_buffer, &name_size, NULL, NULL, NULL, NULL);
            if (NamedValue(last_result, name_buffer)) {
                names.push_back(name_buffer);
                nativeNamed = true;
            }
        }
        RegCloseKey(key64);
        key64 = NULL;
    }
    // The 32-bit view only stands in for a native view without names.
    if (nativeNamed)
        return;

    value_count = 0;
    max_value_name_length = 0;
    if (RegOpenKeyExW(hive, subkey.c_str(), 0, kView32Access, &key32) != ERROR_SUCCESS ||
        RegQueryInfoKeyW(key32, NULL, NULL, NULL, NULL, NULL, NULL, &value_count, &max_value_name_length, NULL,
                         NULL, NULL) != ERROR_SUCCESS)
        return;
    if (value_count != 0) {
        for (index = 0; index < value_count; ++index) {
            name_size = NameSizeFor(max_value_name_length);
            last_result = RegEnumValueW(key32, index, name_buffer, &name_size, NULL, NULL, NULL, NULL);
            if (NamedValue(last_result, name_buffer))
                names.push_back(name_buffer);
        }
    }
    RegCloseKey(key32);
    key32 = NULL;
}
