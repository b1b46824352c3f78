// Makes Tessel_CA.dll's own MsiSetPropertyW fail for chosen property names, by
// pointing its import slot at a filter. A real session never refuses an
// immediate action's property, so this is the only way to reach those paths.
#include "harness/harness.h"

#include <algorithm>
#include <stdexcept>

namespace harness {

namespace {

typedef UINT(WINAPI* SetPropertyFn)(MSIHANDLE, LPCWSTR, LPCWSTR);

SetPropertyFn g_realSetProperty = NULL;
std::vector<std::wstring> g_refusedNames;

UINT WINAPI FilteredSetProperty(MSIHANDLE session, LPCWSTR name, LPCWSTR value)
{
    if (name && std::find(g_refusedNames.begin(), g_refusedNames.end(), name) != g_refusedNames.end())
        return ERROR_FUNCTION_FAILED;
    return g_realSetProperty(session, name, value);
}

// The import slot of msi.dll!MsiSetPropertyW in the loaded Tessel_CA.dll.
void** SetPropertySlot()
{
    BYTE* base = reinterpret_cast<BYTE*>(TesselDll());
    IMAGE_NT_HEADERS* headers =
        reinterpret_cast<IMAGE_NT_HEADERS*>(base + reinterpret_cast<IMAGE_DOS_HEADER*>(base)->e_lfanew);
    const IMAGE_DATA_DIRECTORY& directory = headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
    for (IMAGE_IMPORT_DESCRIPTOR* import = reinterpret_cast<IMAGE_IMPORT_DESCRIPTOR*>(base + directory.VirtualAddress);
         import->Name != 0; ++import) {
        if (lstrcmpiA(reinterpret_cast<char*>(base + import->Name), "msi.dll") != 0)
            continue;
        IMAGE_THUNK_DATA* names = reinterpret_cast<IMAGE_THUNK_DATA*>(base + import->OriginalFirstThunk);
        IMAGE_THUNK_DATA* slots = reinterpret_cast<IMAGE_THUNK_DATA*>(base + import->FirstThunk);
        for (; names->u1.AddressOfData != 0; ++names, ++slots) {
            if (IMAGE_SNAP_BY_ORDINAL(names->u1.Ordinal))
                continue;
            IMAGE_IMPORT_BY_NAME* byName = reinterpret_cast<IMAGE_IMPORT_BY_NAME*>(base + names->u1.AddressOfData);
            if (lstrcmpA(reinterpret_cast<char*>(byName->Name), "MsiSetPropertyW") == 0)
                return reinterpret_cast<void**>(&slots->u1.Function);
        }
    }
    throw std::runtime_error("Tessel_CA.dll does not import MsiSetPropertyW");
}

void WriteSlot(void** slot, void* value)
{
    DWORD protection;
    VirtualProtect(slot, sizeof(void*), PAGE_READWRITE, &protection);
    *slot = value;
    VirtualProtect(slot, sizeof(void*), protection, &protection);
}

}  // namespace

RefusedPropertySets::RefusedPropertySets(std::initializer_list<std::wstring> names)
{
    if (g_realSetProperty != NULL)
        throw std::logic_error("RefusedPropertySets can't be nested");
    void** slot = SetPropertySlot();
    g_realSetProperty = reinterpret_cast<SetPropertyFn>(*slot);
    g_refusedNames.assign(names.begin(), names.end());
    WriteSlot(slot, reinterpret_cast<void*>(FilteredSetProperty));
}

RefusedPropertySets::~RefusedPropertySets()
{
    WriteSlot(SetPropertySlot(), reinterpret_cast<void*>(g_realSetProperty));
    g_realSetProperty = NULL;
    g_refusedNames.clear();
}

}  // namespace harness
