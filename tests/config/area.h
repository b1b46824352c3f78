// What these tests touch: the install manager's records and the tests' own keys.
#pragma once

#include "harness/harness.h"

inline harness::Area SuiteKeysArea()
{
    return {{{HKEY_LOCAL_MACHINE, L"SOFTWARE\\Kestra Technologies"},
             {HKEY_LOCAL_MACHINE, L"SOFTWARE\\TesselTest"}},
            {},
            {}};
}
