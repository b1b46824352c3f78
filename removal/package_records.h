// What the package-record files share: the install manager's key and the
// program's usual way of removing a key tree.
#pragma once

#include <windows.h>

#include <string>

// The install manager's own key under HKLM, with OriginalDB and Ferrule_Reboot.
const wchar_t kInstallManagerKey[] = L"SOFTWARE\\Kestra Technologies\\Install\\Kestra Quillon Install Manager";

// Hands `path` to a registry_value on `hive` and deletes the tree of its key,
// the 32-bit view first, then the native one. A path without a closing
// backslash loses its last component, so the parent goes. Results are ignored:
// an absent key is no failure.
void DeleteKeyInBothViews(HKEY hive, const std::wstring& path);
