// The reads that the actions make into fixed buffers of their own sizes: a
// property, and a text value of a key opened by hand.
#include "frame/frame.h"

#include <vector>

bool ReadPropertyInto(MSIHANDLE session, const wchar_t* name, wchar_t* buffer, DWORD chars)
{
    DWORD count = chars;
    return MsiGetPropertyW(session, name, buffer, &count) == ERROR_SUCCESS;
}

bool ReadKeyText(HKEY key, const wchar_t* name, DWORD chars, DWORD bytes, std::wstring& text, DWORD* type)
{
    std::vector<wchar_t> buffer(chars, L'\0');
    DWORD size = bytes;
    if (RegQueryValueExW(key, name, NULL, type, reinterpret_cast<BYTE*>(buffer.data()), &size) != ERROR_SUCCESS)
        return false;
    text.assign(buffer.data(), wcsnlen(buffer.data(), chars));
    return true;
}

bool ReadRegistryText(const wchar_t* path, REGSAM access, const wchar_t* name, DWORD chars, DWORD bytes,
                      KeyAfterRead after, std::wstring& text, DWORD* type)
{
    HKEY key = NULL;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, path, 0, access, &key) != ERROR_SUCCESS)
        return false;
    const bool read = ReadKeyText(key, name, chars, bytes, text, type);
    if (after == kCloseKey)
        RegCloseKey(key);
    return read;
}
