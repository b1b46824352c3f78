// What the removal actions share among their files. Each action stays in the
// file of its subject; these are the steps one subject lends another.
#pragma once

#include <windows.h>
#include <msi.h>

#include <string>

// The install manager's own key under HKLM, with InstallDir, OriginalDB and Ferrule_Reboot.
const wchar_t kInstallManagerKey[] = L"SOFTWARE\\Kestra Technologies\\Install\\Kestra Quillon Install Manager";

// Removes the old uninstaller's folder under the 32-bit program files; 1 when
// it is gone or was never there, 0 when the delete failed.
bool CleanUninstallerFiles();

// Carries the install manager's reboot request into the session: sets REBOOT
// to "F" when Ferrule_Reboot says "yes". 1 when REBOOT was set, else 0.
UINT ApplyFerruleRebootFlag(MSIHANDLE hInstall);
