// Clearing what a test program's actions touch, and the lock that keeps test
// programs running side by side under ctest -j off each other.
#include "harness/harness.h"

#include <shellapi.h>

namespace harness {

namespace {

void DeleteFolderTree(const std::wstring& folder)
{
    // SHFileOperationW wants a list ending in two nulls.
    const std::wstring from = folder + L'\0';
    SHFILEOPSTRUCTW operation = {};
    operation.wFunc = FO_DELETE;
    operation.pFrom = from.c_str();
    operation.fFlags = FOF_NO_UI;
    if (Exists(folder))
        SHFileOperationW(&operation);
}

// Stops a test service, ending its process if it won't stop, and deletes it.
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
    // Wine goes on reporting an ended process's last state; the delete works all the same.
    if (HANDLE process = status.dwCurrentState == SERVICE_STOPPED
                             ? NULL
                             : OpenProcess(PROCESS_TERMINATE | SYNCHRONIZE, FALSE, status.dwProcessId)) {
        TerminateProcess(process, 1);
        WaitForSingleObject(process, 5000);
        CloseHandle(process);
    }
    DeleteService(service);
    CloseServiceHandle(service);
    // The name is free once the manager has let the service go.
    for (int attempt = 0; attempt < 100 && (service = OpenServiceW(manager, name, SERVICE_QUERY_STATUS)); ++attempt) {
        CloseServiceHandle(service);
        Sleep(50);
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
        DeleteFolderTree(folder);
    // The prefix is the tests' own: whatever a test queued for the restart goes.
    RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, kSessionManager, L"PendingFileRenameOperations");
    SC_HANDLE manager = area.services.empty() ? NULL : OpenSCManagerW(NULL, NULL, SC_MANAGER_ALL_ACCESS);
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
