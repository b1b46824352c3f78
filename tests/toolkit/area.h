// What the toolkit tests touch: their own keys in each hive, the suite's keys
// that the free registry operations write, and the test service.
#pragma once

#include "harness/harness.h"

inline harness::Area ToolkitArea()
{
    return {{{HKEY_LOCAL_MACHINE, L"SOFTWARE\\TesselTest"},
             {HKEY_CLASSES_ROOT, L"SOFTWARE\\TesselTest"},
             {HKEY_CURRENT_USER, L"SOFTWARE\\TesselTest"},
             {HKEY_CURRENT_USER, L"SOFTWARE\\Orvel"}},
            {},
            {L"TesselTestServiceA"}};
}
