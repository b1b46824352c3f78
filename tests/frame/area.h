// What the frame's tests touch: the install manager's keys.
#pragma once

#include "harness/harness.h"

inline harness::Area FrameArea()
{
    return {{{HKEY_LOCAL_MACHINE, L"SOFTWARE\\Kestra Technologies"}}, {}, {}};
}

class FrameTest : public harness::ActionTest {
protected:
    FrameTest() : ActionTest(FrameArea()) {}
};
