// What the integration actions touch: the settings application's install key
// and its user and machine settings, the context menu's class keys, and the
// scratch folder where tests put definitions, libraries and recorders.
#pragma once

#include "harness/harness.h"

inline harness::Area IntegrationArea()
{
    return {{{HKEY_LOCAL_MACHINE, L"SOFTWARE\\Kestra Technologies"},
             {HKEY_LOCAL_MACHINE, L"SOFTWARE\\Orvel"},
             {HKEY_CURRENT_USER, L"SOFTWARE\\Orvel"},
             {HKEY_CLASSES_ROOT, L"Directory\\Background\\shellex\\ContextMenuHandlers\\Lumen"},
             {HKEY_CLASSES_ROOT, L"CLSID\\{7B3A91C4-5E1D-4F02-9A66-2C8D1E07F3B5}"}},
            {},
            {}};
}

class IntegrationTest : public harness::ActionTest {
protected:
    IntegrationTest() : ActionTest(IntegrationArea()) {}
};
