// What the settings tests touch: files in the scratch folder alone, which every test clears anyway.
#pragma once

#include "harness/harness.h"

inline harness::Area ConfigArea()
{
    return {{}, {}, {}};
}

class ConfigTest : public harness::ActionTest {
protected:
    ConfigTest() : ActionTest(ConfigArea()) {}
};
