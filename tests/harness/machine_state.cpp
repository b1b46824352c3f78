// Clearing what a test program's actions touch, and the lock that keeps test
// programs running side by side under ctest -j off each other.
#include "harness/harness.h"

#include <shellapi.h>

#include <stdexcept>

namespace harness {

namespace {

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

// Deletes queued for the restart (pairs of source and empty target) of files
// under `folder`; the others stay, and an emptied list goes.
void ClearPendingDeletesUnder(const std::wstring& folder)
{
    const wchar_t kSessionManager[] = L"SYSTEM\\CurrentControlSet\\Control\\Session Manager";
    const wchar_t kValue[] = L"PendingFileRenameOperations";
    HKEY key;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, kSessionManager, 0, KEY_ALL_ACCESS, &key) != ERROR_SUCCESS)
        return;
    DWORD bytes = 0;
    if (RegQueryValueExW(key, kValue, NULL, NULL, NULL, &bytes) == ERROR_SUCCESS && bytes > 0) {
        std::wstring data(bytes / sizeof(wchar_t), L'\0');
        RegQueryValueExW(key, kValue, NULL, NULL, reinterpret_cast<BYTE*>(&data[0]), &bytes);
        std::wstring kept;
        for (size_t at = 0; at < data.size();) {
            std::wstring source = data.c_str() + at;
            at += source.size() + 1;
            std::wstring target = at < data.size() ? std::wstring(data.c_str() + at) : std::wstring();
            at += target.size() + 1;
            std::wstring path = source.compare(0, 4, L"\\??\\") == 0 ? source.substr(4) : source;
            if (source.empty() || _wcsnicmp(path.c_str(), folder.c_str(), folder.size()) == 0)
                continue;
            kept += source + L'\0' + target + L'\0';
        }
        if (kept.empty())
            RegDeleteValueW(key, kValue);
        else
            RegSetValueExW(key, kValue, 0, REG_MULTI_SZ, reinterpret_cast<const BYTE*>(kept.c_str()),
                           static_cast<DWORD>((kept.size() + 1) * sizeof(wchar_t)));
    }
    RegCloseKey(key);
}

// Stops a test service (ends its process if it won't stop) and deletes it.
void RemoveService(SC_HANDLE manager, const wchar_t* name)
{
    SC_HANDLE service = OpenServiceW(manager, name, SERVICE_ALL_ACCESS);
    if (service == NULL)
        return;
    SERVICE_STATUS_PROCESS status = {};
    DWORD needed = 0;
    SERVICE_STATUS ignored = {};
    ControlService(service, SERVICE_CONTROL_STOP, &ignored);
    for (int poll = 0; poll < 20; ++poll, Sleep(50))
        if (!QueryServiceStatusEx(service, SC_STATUS_PROCESS_INFO, reinterpret_cast<LPBYTE>(&status), sizeof(status),
                                  &needed) ||
            status.dwCurrentState == SERVICE_STOPPED)
            break;
    HANDLE process = status.dwCurrentState == SERVICE_STOPPED || status.dwProcessId == 0
                         ? NULL
                         : OpenProcess(PROCESS_TERMINATE | SYNCHRONIZE, FALSE, status.dwProcessId);
    // Wine goes on reporting an ended process's last state; the delete works all the same.
    if (process != NULL) {
        TerminateProcess(process, 1);
        WaitForSingleObject(process, 5000);
        CloseHandle(process);
    }
    DeleteService(service);
    CloseServiceHandle(service);
    // The name is free once the manager has let the service go.
    for (int attempt = 0; attempt < 100; ++attempt, Sleep(50)) {
        SC_HANDLE again = OpenServiceW(manager, name, SERVICE_QUERY_STATUS);
        if (again == NULL)
            break;
        CloseServiceHandle(again);
    }
}

HANDLE MachineLock()
{
    static HANDLE mutex = CreateMutexW(NULL, FALSE, L"Local\\TesselCA.MachineState");
    return mutex;
}

}  // namespace

void ClearArea(const Area& area)
{
    for (const KeyTree& tree : area.keys) {
        DeleteRegTree(tree.root, tree.path, KEY_WOW64_64KEY);
        DeleteRegTree(tree.root, tree.path, KEY_WOW64_32KEY);
    }
    DeleteFolderTree(kScratchFolder);
    for (const std::wstring& folder : area.folders)
        DeleteFolderTree(folder.c_str());
    ClearPendingDeletesUnder(kScratchFolder);
    if (area.services.empty())
        return;
    SC_HANDLE manager = OpenSCManagerW(NULL, NULL, SC_MANAGER_ALL_ACCESS);
    if (manager == NULL)
        return;
    for (const std::wstring& service : area.services)
        RemoveService(manager, service.c_str());
    CloseServiceHandle(manager);
}

void ActionTest::SetUp()
{
    // An abandoned lock (a test program that died) is ours all the same.
    WaitForSingleObject(MachineLock(), INFINITE);
    ClearArea(area_);
}

void ActionTest::TearDown()
{
    ClearArea(area_);
    ReleaseMutex(MachineLock());
}

}  // namespace harness
