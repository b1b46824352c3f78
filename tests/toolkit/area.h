// What the toolkit tests touch: their own keys, the user's Orvel key that
// CreateRegDWValue writes, and the test service.
#pragma once

#include "harness/harness.h"

inline const harness::Area kToolkitArea = {{{HKEY_LOCAL_MACHINE, L"SOFTWARE\\TesselTest"},
                                            {HKEY_CLASSES_ROOT, L"SOFTWARE\\TesselTest"},
                                            {HKEY_CURRENT_USER, L"SOFTWARE\\Orvel"}},
                                           {},
                                           {L"TesselTestService"}};

class ToolkitTest : public harness::ActionTest {
protected:
    ToolkitTest() : ActionTest(kToolkitArea) {}
};
