// What the framework's tests touch: the install manager's keys.
#pragma once

#include "harness/harness.h"

inline harness::Area FrameworkArea()
{
    return {{{HKEY_LOCAL_MACHINE, L"SOFTWARE\\Kestra Technologies"}}, {}, {}};
}

class FrameworkTest : public harness::ActionTest {
protected:
    FrameworkTest() : ActionTest(FrameworkArea()) {}
};
