// Points one import slot of a loaded module at a stand-in, for the failures a
// real machine won't produce on demand.
#include "harness/harness.h"

#include <stdexcept>

namespace harness {

namespace {

void** ImportSlot(HMODULE module, const char* dll, const char* function)
{
    BYTE* base = reinterpret_cast<BYTE*>(module);
    IMAGE_NT_HEADERS* headers =
        reinterpret_cast<IMAGE_NT_HEADERS*>(base + reinterpret_cast<IMAGE_DOS_HEADER*>(base)->e_lfanew);
    const IMAGE_DATA_DIRECTORY& directory = headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
    for (IMAGE_IMPORT_DESCRIPTOR* import = reinterpret_cast<IMAGE_IMPORT_DESCRIPTOR*>(base + directory.VirtualAddress);
         import->Name != 0; ++import) {
        if (lstrcmpiA(reinterpret_cast<char*>(base + import->Name), dll) != 0)
            continue;
        IMAGE_THUNK_DATA* names = reinterpret_cast<IMAGE_THUNK_DATA*>(base + import->OriginalFirstThunk);
        IMAGE_THUNK_DATA* slots = reinterpret_cast<IMAGE_THUNK_DATA*>(base + import->FirstThunk);
        for (; names->u1.AddressOfData != 0; ++names, ++slots) {
            if (IMAGE_SNAP_BY_ORDINAL(names->u1.Ordinal))
                continue;
            IMAGE_IMPORT_BY_NAME* byName = reinterpret_cast<IMAGE_IMPORT_BY_NAME*>(base + names->u1.AddressOfData);
            if (lstrcmpA(reinterpret_cast<char*>(byName->Name), function) == 0)
                return reinterpret_cast<void**>(&slots->u1.Function);
        }
    }
    throw std::runtime_error(std::string("the module does not import ") + function);
}

void WriteSlot(void** slot, void* value)
{
    DWORD protection;
    VirtualProtect(slot, sizeof(void*), PAGE_READWRITE, &protection);
    *slot = value;
    VirtualProtect(slot, sizeof(void*), protection, &protection);
}

}  // namespace

ImportPatch::ImportPatch(HMODULE module, const char* dll, const char* function, void* standIn)
    : slot_(ImportSlot(module, dll, function)), original_(*slot_)
{
    WriteSlot(slot_, standIn);
}

ImportPatch::~ImportPatch()
{
    WriteSlot(slot_, original_);
}

}  // namespace harness
