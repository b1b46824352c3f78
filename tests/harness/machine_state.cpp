// The machine state that the library's actions touch, and the lock that
// keeps test programs running side by side under ctest -j off each other.
#include "harness/harness.h"

#include <shellapi.h>

#include <stdexcept>

namespace harness {

namespace {

struct KeyTree {
    HKEY root;
    const wchar_t* path;
};

// Cleared in both registry views.
const KeyTree kKeyTrees[] = {
    {HKEY_LOCAL_MACHINE, L"SOFTWARE\\Kestra Technologies"},
};

// Folders removed whole.
const wchar_t* const kFolders[] = {
    L"C:\\tessel\\scratch",
};

void DeleteFolderTree(const wchar_t* folder)
{
    // SHFileOperationW wants a list ending in two nulls.
    std::wstring from = std::wstring(folder) + L'\0';
    SHFILEOPSTRUCTW operation = {};
    operation.wFunc = FO_DELETE;
    operation.pFrom = from.c_str();
    operation.fFlags = FOF_NO_UI;
    if (GetFileAttributesW(folder) != INVALID_FILE_ATTRIBUTES)
        SHFileOperationW(&operation);
}

HANDLE MachineLock()
{
    static HANDLE mutex = CreateMutexW(NULL, FALSE, L"Local\\TesselCA.MachineState");
    return mutex;
}

}  // namespace

void MachineState::Clear()
{
    for (const KeyTree& tree : kKeyTrees) {
        DeleteRegTree(tree.root, tree.path, KEY_WOW64_64KEY);
        DeleteRegTree(tree.root, tree.path, KEY_WOW64_32KEY);
    }
    for (const wchar_t* folder : kFolders)
        DeleteFolderTree(folder);
}

void ActionTest::SetUp()
{
    // An abandoned lock (a test program that died) is ours all the same.
    WaitForSingleObject(MachineLock(), INFINITE);
    MachineState::Clear();
}

void ActionTest::TearDown()
{
    MachineState::Clear();
    ReleaseMutex(MachineLock());
}

void WriteRegString(HKEY root, const std::wstring& key, const std::wstring& name, const std::wstring& value,
                    REGSAM view)
{
    HKEY handle;
    if (RegCreateKeyExW(root, key.c_str(), 0, NULL, 0, KEY_ALL_ACCESS | view, NULL, &handle, NULL) !=
        ERROR_SUCCESS)
        throw std::runtime_error("RegCreateKeyExW failed");
    RegSetValueExW(handle, name.c_str(), 0, REG_SZ, reinterpret_cast<const BYTE*>(value.c_str()),
                   static_cast<DWORD>((value.size() + 1) * sizeof(wchar_t)));
    RegCloseKey(handle);
}

bool ReadRegString(HKEY root, const std::wstring& key, const std::wstring& name, std::wstring& value,
                   REGSAM view)
{
    HKEY handle;
    if (RegOpenKeyExW(root, key.c_str(), 0, KEY_READ | view, &handle) != ERROR_SUCCESS)
        return false;
    wchar_t data[2048];
    DWORD bytes = sizeof(data) - sizeof(wchar_t);
    DWORD type = 0;
    LSTATUS status = RegQueryValueExW(handle, name.c_str(), NULL, &type, reinterpret_cast<BYTE*>(data), &bytes);
    RegCloseKey(handle);
    if (status != ERROR_SUCCESS || (type != REG_SZ && type != REG_EXPAND_SZ))
        return false;
    data[bytes / sizeof(wchar_t)] = L'\0';
    value = data;
    return true;
}

void DeleteRegTree(HKEY root, const std::wstring& key, REGSAM view)
{
    HKEY handle;
    if (RegOpenKeyExW(root, key.c_str(), 0, KEY_ALL_ACCESS | view, &handle) != ERROR_SUCCESS)
        return;
    RegDeleteTreeW(handle, NULL);
    RegCloseKey(handle);
    RegDeleteKeyExW(root, key.c_str(), view, 0);
}

}  // namespace harness
