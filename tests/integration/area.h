// What the integration actions touch: the install keys and locations of the
// suite's programs and their user and machine settings, the context menu's
// class keys, the files they leave in the temporary folder, the stand-in for
// the 32-bit interpreter (syswow64 is empty in this 64-bit prefix) with its
// record, and the driver services' keys and files.
#pragma once

#include "harness/harness.h"

#include <memory>

inline harness::Area IntegrationArea()
{
    const std::wstring temp = harness::TempFolder();
    return {{{HKEY_LOCAL_MACHINE, L"SOFTWARE\\Kestra Technologies"},
             {HKEY_LOCAL_MACHINE, L"SOFTWARE\\Kestra"},
             {HKEY_LOCAL_MACHINE, L"SOFTWARE\\Orvel"},
             {HKEY_CURRENT_USER, L"SOFTWARE\\Orvel"},
             {HKEY_CLASSES_ROOT, L"Directory\\Background\\shellex\\ContextMenuHandlers\\Lumen"},
             {HKEY_CLASSES_ROOT, L"CLSID\\{7B3A91C4-5E1D-4F02-9A66-2C8D1E07F3B5}"},
             {HKEY_LOCAL_MACHINE, L"SYSTEM\\CurrentControlSet\\Services\\orvelkmd"},
             {HKEY_LOCAL_MACHINE, L"SYSTEM\\CurrentControlSet\\Services\\intelkmd"}},
            {temp + L"StartHalyardBM.xml", temp + L"attemp.dll", L"C:\\windows\\syswow64\\cmd.exe",
             L"C:\\windows\\syswow64\\cmd.exe.cmdline", temp + L"Orvel",
             L"C:\\Program Files\\Kestra Technologies\\Dualis", L"C:\\windows\\system32\\kestradualbl.dat",
             L"C:\\windows\\system32\\OrvelIOVVer.dll", L"C:\\windows\\system32\\OrvelSMBusVer.dll"},
            {L"Orvel Signal Relay", L"OrvelDynamicLocalModeService"}};
}

// A UTF-16 task definition with `body` after the declaration, `date` for each "@".
inline std::string Definition(std::wstring body, const std::wstring& date = L"")
{
    for (size_t at; (at = body.find(L'@')) != std::wstring::npos;)
        body.replace(at, 1, date);
    const std::wstring text = L"\xFEFF<?xml version=\"1.0\" encoding=\"utf-16\"?>" + body;
    return std::string(reinterpret_cast<const char*>(text.data()), text.size() * sizeof(wchar_t));
}

// While `native_` lives, a recording program placed as schtasks or regsvr32
// runs in place of Wine's own. Wine's overrides hold for the whole prefix, so
// they are set and taken away under the machine lock only.
class IntegrationTest : public harness::ActionTest {
protected:
    IntegrationTest() : ActionTest(IntegrationArea()) {}
    void SetUp() override
    {
        ActionTest::SetUp();
        native_.reset(new harness::NativePrograms{L"schtasks.exe", L"regsvr32.exe"});
    }
    void TearDown() override
    {
        native_.reset();
        ActionTest::TearDown();
    }
    std::unique_ptr<harness::NativePrograms> native_;
};
