// Questions the actions ask of the machine: which Windows, which bitness,
// where the special folders and the maker's software are. Only GetINSTFolder
// logs, through g_hSession: an action that calls it stores its session first.
#pragma once

#include <windows.h>

#include <string>

// OSVERSIONINFOW's size member as the queries set it.
const DWORD kOsVersionInfoSize = 276;

bool GetOSVersion(OSVERSIONINFOW* info);
bool Is64BitOS();
BOOL IsWow64();
bool IsWindows7();
std::wstring GetBinDirName();
std::wstring GetInstallDir();
bool GetINSTFolder(std::wstring& path);
bool GetSpecialFolder(int csidl, std::wstring& path);
// The system folder as GetSystemDirectoryW gives it, with room for 520 characters; "" on failure.
std::wstring GetSystemFolder();
