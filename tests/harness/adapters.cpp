// Display adapters added to the prefix for a test through SetupAPI, as a
// driver's installer adds them, and taken away after it.
#include "harness/harness.h"

#include <initguid.h>
#include <devguid.h>

namespace harness {

DisplayAdapter::DisplayAdapter(const std::wstring& manufacturer, const std::wstring& driverVersion,
                               const std::wstring& description)
    : devices(SetupDiCreateDeviceInfoList(&GUID_DEVCLASS_DISPLAY, NULL)), device{sizeof(SP_DEVINFO_DATA), {}, 0, 0}
{
    // A generated id (ROOT\TESSEL\0000), registered: a present device, and its driver key.
    SetupDiCreateDeviceInfoW(devices, L"Tessel", &GUID_DEVCLASS_DISPLAY, NULL, NULL, DICD_GENERATE_ID, &device);
    SetupDiSetDeviceRegistryPropertyW(devices, &device, SPDRP_MFG, reinterpret_cast<const BYTE*>(manufacturer.c_str()),
                                      DWORD(manufacturer.size() + 1) * 2);
    if (!description.empty())
        SetupDiSetDeviceRegistryPropertyW(devices, &device, SPDRP_DEVICEDESC,
                                          reinterpret_cast<const BYTE*>(description.c_str()),
                                          DWORD(description.size() + 1) * 2);
    SetupDiRegisterDeviceInfo(devices, &device, 0, NULL, NULL, NULL);
    RegCloseKey(SetupDiCreateDevRegKeyW(devices, &device, DICS_FLAG_GLOBAL, 0, DIREG_DRV, NULL, NULL));
    wchar_t driver[MAX_PATH] = L"";  // "{class}\0001"
    SetupDiGetDeviceRegistryPropertyW(devices, &device, SPDRP_DRIVER, NULL, reinterpret_cast<BYTE*>(driver),
                                      sizeof(driver), NULL);
    driverKey = std::wstring(L"SYSTEM\\CurrentControlSet\\Control\\Class\\") + driver;
    if (*driver != L'\0' && !driverVersion.empty())
        SetText(HKEY_LOCAL_MACHINE, driverKey, L"DriverVersion", driverVersion);
}

DisplayAdapter::~DisplayAdapter()
{
    const size_t split = driverKey.rfind(L'\\');
    const std::wstring classKey = driverKey.substr(0, split), instance = driverKey.substr(split + 1);
    for (const std::wstring& value : ValueNamesOf(HKEY_LOCAL_MACHINE, classKey))
        if (!instance.empty() && value.compare(0, instance.size(), instance) == 0)
            RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, classKey.c_str(), value.c_str());
    SetupDiRemoveDevice(devices, &device);
    SetupDiDestroyDeviceInfoList(devices);
}

}  // namespace harness
