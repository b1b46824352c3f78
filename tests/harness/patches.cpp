// Stand-ins behind a loaded module's import slots, for the failures a real
// machine won't produce on demand: refused property sets, and a clock of the
// test's own so that the library's long waits and spins cost no real time.
#include "harness/harness.h"

#include <algorithm>
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

// One set of refusals at a time.
std::vector<std::wstring> g_refusedNames;

UINT WINAPI FilteredSetProperty(MSIHANDLE session, LPCWSTR name, LPCWSTR value)
{
    if (name && std::find(g_refusedNames.begin(), g_refusedNames.end(), name) != g_refusedNames.end())
        return ERROR_FUNCTION_FAILED;
    return MsiSetPropertyW(session, name, value);
}

ULONGLONG g_start = 0;
ULONGLONG g_now = 0;
// Found by name: in a patched program, ::Sleep would be the stand-in itself.
const auto g_realSleep = reinterpret_cast<decltype(&Sleep)>(
    reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"kernel32.dll"), "Sleep")));

void WINAPI FakeSleep(DWORD ms)
{
    g_now += ms;
    // Let the other side (a service, a child) run a little meanwhile.
    g_realSleep(0);
}

DWORD WINAPI FakeTickCount()
{
    return static_cast<DWORD>(++g_now);
}

std::vector<std::wstring> g_refusedLines;

BOOL WINAPI RefuseCreateProcess(LPCWSTR, LPWSTR line, LPSECURITY_ATTRIBUTES, LPSECURITY_ATTRIBUTES, BOOL, DWORD, LPVOID,
                                LPCWSTR, LPSTARTUPINFOW, LPPROCESS_INFORMATION)
{
    g_refusedLines.push_back(line ? line : L"");
    SetLastError(ERROR_ACCESS_DENIED);
    return FALSE;
}

const wchar_t kWineOverrides[] = L"Software\\Wine\\DllOverrides";

}  // namespace

RefusedProcessStarts::RefusedProcessStarts(HMODULE module)
    : patch_(module, "kernel32.dll", "CreateProcessW", reinterpret_cast<void*>(&RefuseCreateProcess))
{
    g_refusedLines.clear();
}

std::vector<std::wstring> RefusedProcessStarts::CommandLines()
{
    return g_refusedLines;
}

NativePrograms::NativePrograms(std::initializer_list<std::wstring> programs) : programs_(programs)
{
    for (const std::wstring& program : programs_)
        SetText(HKEY_CURRENT_USER, kWineOverrides, program, L"native");
}

NativePrograms::~NativePrograms()
{
    for (const std::wstring& program : programs_)
        RegDeleteKeyValueW(HKEY_CURRENT_USER, kWineOverrides, program.c_str());
}

ImportPatch::ImportPatch(HMODULE module, const char* dll, const char* function, void* standIn)
    : slot_(ImportSlot(module, dll, function)), original_(*slot_)
{
    WriteSlot(slot_, standIn);
}

ImportPatch::~ImportPatch()
{
    WriteSlot(slot_, original_);
}

RefusedPropertySets::RefusedPropertySets(std::initializer_list<std::wstring> names)
    : patch_(TesselDll(), "msi.dll", "MsiSetPropertyW", reinterpret_cast<void*>(FilteredSetProperty))
{
    g_refusedNames.assign(names.begin(), names.end());
}

RefusedPropertySets::~RefusedPropertySets()
{
    g_refusedNames.clear();
}

FakeClock::FakeClock(HMODULE module)
    : sleep_(module, "kernel32.dll", "Sleep", reinterpret_cast<void*>(FakeSleep)),
      tick_(module, "kernel32.dll", "GetTickCount", reinterpret_cast<void*>(FakeTickCount))
{
    g_start = g_now = ::GetTickCount64();
}

FakeClock::~FakeClock() {}

ULONGLONG FakeClock::Elapsed()
{
    return g_now - g_start;
}

}  // namespace harness
