// What the removal actions touch: the suite's records, the uninstall entries
// they clear, and the suite's folders.
#pragma once

#include "harness/harness.h"

inline harness::Area RemovalArea()
{
    const std::wstring uninstall = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\";
    return {{{HKEY_LOCAL_MACHINE, L"SOFTWARE\\Kestra Technologies"},
             {HKEY_LOCAL_MACHINE, L"SOFTWARE\\Kestra"},
             {HKEY_LOCAL_MACHINE, L"SOFTWARE\\Orvel"},
             {HKEY_LOCAL_MACHINE, L"SOFTWARE\\OrvelBranding"},
             {HKEY_CURRENT_USER, L"SOFTWARE\\Orvel"},
             {HKEY_LOCAL_MACHINE, uninstall + L"Orvel Quillon Install Manager"},
             {HKEY_LOCAL_MACHINE, uninstall + L"All Kestra Software"},
             {HKEY_LOCAL_MACHINE, uninstall + TESSEL_TEST_PRODUCT_1},
             {HKEY_LOCAL_MACHINE, uninstall + TESSEL_TEST_PRODUCT_2}},
            {L"C:\\Program Files\\Orvel", L"C:\\Program Files\\Kestra Technologies",
             L"C:\\Program Files\\Common Files\\Kestra Technologies", L"C:\\Program Files (x86)\\Kestra Technologies",
             L"C:\\ProgramData\\Orvel"},
            {}};
}

// Checks after an action that the keys under `root` are there, or with a "-" in front, gone.
inline std::function<void(harness::Session&)> Keys(HKEY root, std::vector<std::wstring> keys)
{
    return [=](harness::Session&) {
        for (const std::wstring& key : keys)
            EXPECT_EQ(key[0] != L'-', harness::KeyExists(root, key[0] == L'-' ? key.substr(1) : key)) << key;
    };
}

class RemovalTest : public harness::ActionTest {
protected:
    RemovalTest() : ActionTest(RemovalArea()) {}
};
