// Short registry probes for the record tests. The 32-bit view is reached by
// its literal path (SOFTWARE\Wow6432Node\...), which is the same view.
#pragma once

#include <windows.h>

#include <string>

namespace records {

const HKEY HKLM = HKEY_LOCAL_MACHINE;
const HKEY HKCU = HKEY_CURRENT_USER;

inline bool KeyExists(HKEY root, const std::wstring& path)
{
    HKEY key = NULL;
    LSTATUS status = RegOpenKeyExW(root, path.c_str(), 0, KEY_READ, &key);
    return status == ERROR_SUCCESS && RegCloseKey(key) == ERROR_SUCCESS;
}

// Creates the key as need be.
inline void SetDword(HKEY root, const std::wstring& path, const std::wstring& name, DWORD value)
{
    RegSetKeyValueW(root, path.c_str(), name.c_str(), REG_DWORD, &value, sizeof(value));
}

inline void SetText(HKEY root, const std::wstring& path, const std::wstring& name, const std::wstring& text)
{
    RegSetKeyValueW(root, path.c_str(), name.c_str(), REG_SZ, text.c_str(),
                    static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t)));
}

// Any value of that name, whatever its type; the default value for "".
inline bool HasValue(HKEY root, const std::wstring& path, const std::wstring& name)
{
    return RegGetValueW(root, path.c_str(), name.c_str(), RRF_RT_ANY, NULL, NULL, NULL) == ERROR_SUCCESS;
}

// The DWORD, or ~0 when there is none.
inline DWORD DwordOf(HKEY root, const std::wstring& path, const std::wstring& name)
{
    DWORD value = ~0u;
    DWORD bytes = sizeof(value);
    RegGetValueW(root, path.c_str(), name.c_str(), RRF_RT_REG_DWORD, NULL, &value, &bytes);
    return value;
}

// The text, or "<none>" when there is none.
inline std::wstring TextOf(HKEY root, const std::wstring& path, const std::wstring& name)
{
    wchar_t text[512] = L"<none>";
    DWORD bytes = sizeof(text);
    if (RegGetValueW(root, path.c_str(), name.c_str(), RRF_RT_REG_SZ, NULL, text, &bytes) != ERROR_SUCCESS)
        return L"<none>";
    return text;
}

}  // namespace records
