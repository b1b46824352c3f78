// Makes Tessel_CA.dll's own MsiSetPropertyW fail for chosen property names. A
// real session never refuses an immediate action's property, so this is the
// only way to reach those paths.
#include "harness/harness.h"

#include <algorithm>

namespace harness {

namespace {

// One set of refusals at a time.
std::vector<std::wstring> g_refusedNames;

UINT WINAPI FilteredSetProperty(MSIHANDLE session, LPCWSTR name, LPCWSTR value)
{
    if (name && std::find(g_refusedNames.begin(), g_refusedNames.end(), name) != g_refusedNames.end())
        return ERROR_FUNCTION_FAILED;
    return MsiSetPropertyW(session, name, value);
}

}  // namespace

RefusedPropertySets::RefusedPropertySets(std::initializer_list<std::wstring> names)
    : patch_(TesselDll(), "msi.dll", "MsiSetPropertyW", reinterpret_cast<void*>(FilteredSetProperty))
{
    g_refusedNames.assign(names.begin(), names.end());
}

RefusedPropertySets::~RefusedPropertySets()
{
    g_refusedNames.clear();
}

}  // namespace harness
