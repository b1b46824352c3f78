// The crash reporter. All but construction, destruction and SetLogFileName
// runs inside the unhandled-exception filter, on the faulting thread, where
// nothing may fail in turn: a step that can't be done shortens the report, and
// a report that can't be written is lost. The report keeps the framework's
// 32-bit view of addresses: eight hex digits, and module handles cut to 32 bits.
#include "framework/exception_handler.h"

#include <imagehlp.h>

#include <cstdarg>
#include <cstdio>
#include <cwchar>
#include <string>

namespace {

// The 32-bit records of SymGetSymFromAddr and SymGetLineFromAddr, the entry
// points this reporter takes; the 64-bit SDK headers name only the 64-bit ones.
struct SymbolRecord {
    DWORD SizeOfStruct;
    DWORD Address;
    DWORD Size;
    DWORD Flags;
    DWORD MaxNameLength;
    CHAR Name[1];
};

struct LineRecord {
    DWORD SizeOfStruct;
    PVOID Key;
    DWORD LineNumber;
    PCHAR FileName;
    DWORD Address;
};

typedef BOOL(WINAPI* SymInitializeFn)(HANDLE process, PCSTR searchPath, BOOL invadeProcess);
typedef BOOL(WINAPI* SymCleanupFn)(HANDLE process);
typedef BOOL(WINAPI* StackWalk64Fn)(DWORD machine, HANDLE process, HANDLE thread, LPSTACKFRAME64 frame, PVOID context,
                                    PREAD_PROCESS_MEMORY_ROUTINE64 readMemory,
                                    PFUNCTION_TABLE_ACCESS_ROUTINE64 functionTableAccess,
                                    PGET_MODULE_BASE_ROUTINE64 getModuleBase,
                                    PTRANSLATE_ADDRESS_ROUTINE64 translateAddress);
typedef BOOL(WINAPI* SymGetSymFromAddrFn)(HANDLE process, DWORD address, PDWORD displacement, SymbolRecord* symbol);
typedef BOOL(WINAPI* SymGetLineFromAddrFn)(HANDLE process, DWORD address, PDWORD displacement, LineRecord* line);
typedef DWORD(WINAPI* UnDecorateSymbolNameFn)(PCSTR name, PSTR undecorated, DWORD length, DWORD flags);
typedef DWORD(WINAPI* SymGetOptionsFn)();
typedef DWORD(WINAPI* SymSetOptionsFn)(DWORD options);

const DWORD kSymbolRecordBytes = 544;
const DWORD kSymbolNameChars = 512;
const DWORD kUndecoratedChars = 512;
// No special symbols, member types, access specifiers, this-types or the
// compiler's keywords.
const DWORD kUndecorateFlags = 0x42E2;
const DWORD kFullContext = 0x10000B;
const DWORD kExceptionTextChars = 1024;

LPTOP_LEVEL_EXCEPTION_FILTER g_previousFilter = NULL;
wchar_t g_reportPath[MAX_PATH];
HANDLE g_reportFile = NULL;

// IMAGEHLP.DLL's entry points, taken at the first report.
SymInitializeFn g_symInitialize = NULL;
SymCleanupFn g_symCleanup = NULL;
StackWalk64Fn g_stackWalk64 = NULL;
PFUNCTION_TABLE_ACCESS_ROUTINE64 g_symFunctionTableAccess64 = NULL;
PGET_MODULE_BASE_ROUTINE64 g_symGetModuleBase64 = NULL;
SymGetSymFromAddrFn g_symGetSymFromAddr = NULL;
SymGetLineFromAddrFn g_symGetLineFromAddr = NULL;
UnDecorateSymbolNameFn g_unDecorateSymbolName = NULL;
SymGetOptionsFn g_symGetOptions = NULL;
SymSetOptionsFn g_symSetOptions = NULL;

// The system's text for a code outside the table; kept from one report to the next.
wchar_t g_exceptionText[kExceptionTextChars];

// One piece of the report. The text is cut at 1023 characters rather than
// overrunning the buffer: none of the report's own lines comes near that,
// but a system text or a symbol with its arguments could.
void WriteReport(const wchar_t* format, ...)
{
    wchar_t text[1024];
    va_list args;
    va_start(args, format);
    _vsnwprintf_s(text, 1024, _TRUNCATE, format, args);
    va_end(args);
    DWORD written = 0;
    WriteFile(g_reportFile, text, static_cast<DWORD>(wcslen(text) * sizeof(wchar_t)), &written, NULL);
}

DWORD Low32(ULONG_PTR value)
{
    return static_cast<DWORD>(value);
}

// Memory is read through the system, not through a pointer: an address that
// isn't mapped fails the call instead of raising a second exception inside the
// filter. This needs no structured exception handling, which only some
// compilers offer.
bool ReadMemory(ULONG_PTR address, void* data, SIZE_T bytes)
{
    SIZE_T read = 0;
    return ReadProcessMemory(GetCurrentProcess(), reinterpret_cast<LPCVOID>(address), data, bytes, &read) &&
           read == bytes;
}

// Where a module's headers can't be read (a handle cut to 32 bits may land in
// the middle of another module), as a fault there would have been reported.
bool HeadersUnreadable(ULONG_PTR address)
{
    WriteReport(
        L"Exception occurred in GetLogicalAddress::GetModuleFileName Last Error 0x%08x, Exception address: "
        L"0x%08x\r\n",
        GetLastError(), Low32(address));
    return false;
}

const wchar_t* GetExceptionString(DWORD code)
{
    static const struct {
        DWORD code;
        const wchar_t* name;
    } kNames[] = {
        {0xC0000005, L"ACCESS_VIOLATION"},
        {0x80000001, L"GUARD_PAGE"},
        {0x80000002, L"DATATYPE_MISALIGNMENT"},
        {0x80000003, L"BREAKPOINT"},
        {0x80000004, L"SINGLE_STEP"},
        {0xC0000006, L"IN_PAGE_ERROR"},
        {0xC0000008, L"INVALID_HANDLE"},
        {0xC000001D, L"ILLEGAL_INSTRUCTION"},
        {0xC0000025, L"NONCONTINUABLE_EXCEPTION"},
        {0xC0000026, L"INVALID_DISPOSITION"},
        {0xC000008C, L"ARRAY_BOUNDS_EXCEEDED"},
        {0xC000008D, L"FLT_DENORMAL_OPERAND"},
        {0xC000008E, L"FLT_DIVIDE_BY_ZERO"},
        {0xC000008F, L"FLT_INEXACT_RESULT"},
        {0xC0000090, L"FLT_INVALID_OPERATION"},
        {0xC0000091, L"FLT_OVERFLOW"},
        {0xC0000092, L"FLT_STACK_CHECK"},
        {0xC0000093, L"FLT_UNDERFLOW"},
        {0xC0000094, L"INT_DIVIDE_BY_ZERO"},
        {0xC0000095, L"INT_OVERFLOW"},
        {0xC0000096, L"PRIV_INSTRUCTION"},
        {0xC00000FD, L"STACK_OVERFLOW"},
    };
    for (const auto& entry : kNames) {
        if (entry.code == code)
            return entry.name;
    }
    FormatMessageW(FORMAT_MESSAGE_IGNORE_INSERTS | FORMAT_MESSAGE_FROM_HMODULE, GetModuleHandleW(L"NTDLL.DLL"), code, 0,
                   g_exceptionText, kExceptionTextChars, NULL);
    return g_exceptionText;
}

// The section (from 1) and the offset in it that hold `address`, and the
// module's path, read from the module's own headers.
bool GetLogicalAddress(ULONG_PTR address, wchar_t* module, DWORD moduleChars, DWORD& section, DWORD& offset)
{
    MEMORY_BASIC_INFORMATION memory;
    const SIZE_T queried = VirtualQuery(reinterpret_cast<LPCVOID>(address), &memory, sizeof(memory));
    if (queried == 0) {
        WriteReport(L"Failed in VirtualQuery returned 0x%x, Exception address: 0x%08x\r\n", Low32(queried),
                    Low32(address));
        return false;
    }
    const DWORD base = Low32(reinterpret_cast<ULONG_PTR>(memory.AllocationBase));
    if (base == 0) {
        WriteReport(L"Error: GetLogicalAddress::hMod == NULL\r\n");
        return false;
    }
    if (GetModuleFileNameW(reinterpret_cast<HMODULE>(static_cast<ULONG_PTR>(base)), module, moduleChars) == 0) {
        WriteReport(L"Failed in GetModuleFileName\r\n");
        return false;
    }
    IMAGE_DOS_HEADER dos;
    IMAGE_FILE_HEADER file;
    const ULONG_PTR image = base;
    if (!ReadMemory(image, &dos, sizeof(dos)) || !ReadMemory(image + dos.e_lfanew + sizeof(DWORD), &file, sizeof(file)))
        return HeadersUnreadable(address);
    const ULONG_PTR sections = image + dos.e_lfanew + 24 + file.SizeOfOptionalHeader;
    const DWORD relative = Low32(address) - base;
    for (WORD index = 0; index < file.NumberOfSections; ++index) {
        IMAGE_SECTION_HEADER header;
        if (!ReadMemory(sections + index * sizeof(header), &header, sizeof(header)))
            return HeadersUnreadable(address);
        const DWORD size =
            header.SizeOfRawData > header.Misc.VirtualSize ? header.SizeOfRawData : header.Misc.VirtualSize;
        if (relative >= header.VirtualAddress && relative <= header.VirtualAddress + size) {
            section = index + 1;
            offset = relative - header.VirtualAddress;
            return true;
        }
    }
    return false;
}

// An entry point of IMAGEHLP.DLL, as its own type; false when it is missing.
template <typename Entry>
bool TakeEntry(HMODULE module, const char* name, Entry& entry)
{
    entry = reinterpret_cast<Entry>(reinterpret_cast<void*>(GetProcAddress(module, name)));
    return entry != NULL;
}

bool LoadImageHelp()
{
    HMODULE module = LoadLibraryW(L"IMAGEHLP.DLL");
    if (module == NULL)
        return false;
    if (!TakeEntry(module, "SymInitialize", g_symInitialize) || !TakeEntry(module, "SymCleanup", g_symCleanup) ||
        !TakeEntry(module, "StackWalk64", g_stackWalk64) ||
        !TakeEntry(module, "SymFunctionTableAccess64", g_symFunctionTableAccess64) ||
        !TakeEntry(module, "SymGetModuleBase64", g_symGetModuleBase64) ||
        !TakeEntry(module, "SymGetSymFromAddr", g_symGetSymFromAddr))
        return false;
    // Without it the stack has no line numbers.
    TakeEntry(module, "SymGetLineFromAddr", g_symGetLineFromAddr);
    if (!TakeEntry(module, "UnDecorateSymbolName", g_unDecorateSymbolName))
        return false;
    TakeEntry(module, "SymGetOptions", g_symGetOptions);
    TakeEntry(module, "SymSetOptions", g_symSetOptions);

    // Names come raw, to be undecorated here; lines are wanted.
    const DWORD options = g_symGetOptions != NULL ? g_symGetOptions() & ~SYMOPT_UNDNAME : 0;
    if (g_symSetOptions != NULL)
        g_symSetOptions(options | SYMOPT_LOAD_LINES);
    if (!g_symInitialize(GetCurrentProcess(), NULL, TRUE)) {
        WriteReport(L"Failed in SymInitialize: Last Error returned 0x%08x\r\n", GetLastError());
        return false;
    }
    return true;
}

// A narrow name as wide text, a byte a character.
void Widen(const char* narrow, wchar_t* wide)
{
    while ((*wide++ = static_cast<unsigned char>(*narrow++)) != L'\0') {
    }
}

// An undecorated name with the values of its arguments behind each parameter:
// consecutive 32-bit words from eight bytes above the frame.
void WriteWithArguments(const std::wstring& name, DWORD64 frameAddress)
{
    ULONG_PTR argument = static_cast<ULONG_PTR>(frameAddress) + 8;
    size_t rest = 0;
    for (size_t at = name.find_first_of(L",)"); at != std::wstring::npos; at = name.find_first_of(L",)", rest)) {
        const bool last = name[at] == L')';
        WriteReport(L"%s ", (name.substr(rest, at - rest) + L" ").c_str());
        DWORD value = 0;
        ReadMemory(argument, &value, sizeof(value));
        argument += sizeof(value);
        WriteReport(last ? L"=0x%08X)" : L"=0x%08X,", value);
        rest = at + 1;
        if (last)
            break;
    }
    WriteReport(L"%s", name.substr(rest).c_str());
}

void WriteSymbol(const SymbolRecord& symbol, const STACKFRAME64& frame)
{
    wchar_t name[kSymbolNameChars + 1];
    Widen(symbol.Name, name);
    char undecorated[kUndecoratedChars];
    if (g_unDecorateSymbolName(symbol.Name, undecorated, kUndecoratedChars, kUndecorateFlags) == 0) {
        WriteReport(L"%s", name);
        WriteReport(L"(0x%08x, 0x%08x, 0x%08x, 0x%08x) ", Low32(frame.Params[0]), Low32(frame.Params[1]),
                    Low32(frame.Params[2]), Low32(frame.Params[3]));
        return;
    }
    wchar_t wide[kUndecoratedChars + 1];
    Widen(undecorated, wide);
    // A program's start functions read better as their declarations.
    static const struct {
        const wchar_t* name;
        const wchar_t* printed;
    } kStartFunctions[] = {
        {L"_WinMain@16", L"WinMain(HINSTANCE,HINSTANCE,LPCTSTR,int)"},
        {L"_main", L"main(int,TCHAR * *)"},
        {L"_mainCRTStartup", L"mainCRTStartup()"},
        {L"_wmain", L"wmain(int,TCHAR * *,TCHAR * *)"},
        {L"_wmainCRTStartup", L"wmainCRTStartup()"},
    };
    for (const auto& start : kStartFunctions) {
        if (wcscmp(wide, start.name) == 0) {
            WriteReport(L"%s", start.printed);
            return;
        }
    }
    const std::wstring text = wide;
    if (text.find(L"(void)") == std::wstring::npos && text.find(L"()") == std::wstring::npos)
        WriteWithArguments(text, frame.AddrFrame.Offset);
    else
        WriteReport(L"%s", wide);
}

void WriteLine(DWORD address, DWORD symbolDisplacement)
{
    if (g_symGetLineFromAddr == NULL)
        return;
    LineRecord line = {};
    line.SizeOfStruct = sizeof(line);
    DWORD displacement = 0;
    if (!g_symGetLineFromAddr(GetCurrentProcess(), address, &displacement, &line)) {
        if (symbolDisplacement != 0)
            WriteReport(L"+ %X bytes ", symbolDisplacement);
    } else if (displacement != 0) {
        WriteReport(L" line %04d + %04d bytes ", line.LineNumber, displacement);
    } else {
        WriteReport(L" line %04d ", line.LineNumber);
    }
}

void ImagehlpStackWalk(CONTEXT* context)
{
    WriteReport(L"\r\nStackWalk::Call stack:\r\n");
    WriteReport(L"Address   Frame\r\n");
    STACKFRAME64 frame = {};
    frame.AddrPC.Offset = context->Rip;
    frame.AddrPC.Mode = AddrModeFlat;
    frame.AddrStack.Offset = context->Rsp;
    frame.AddrStack.Mode = AddrModeFlat;
    frame.AddrFrame.Offset = context->Rbp;
    frame.AddrFrame.Mode = AddrModeFlat;
    while (g_stackWalk64(IMAGE_FILE_MACHINE_AMD64, GetCurrentProcess(), GetCurrentThread(), &frame, context, NULL,
                         g_symFunctionTableAccess64, g_symGetModuleBase64, NULL) &&
           frame.AddrFrame.Offset != 0) {
        const DWORD address = Low32(frame.AddrPC.Offset);
        WriteReport(L"%08X  %08X  ", address, Low32(frame.AddrFrame.Offset));
        union {
            SymbolRecord record;
            BYTE bytes[kSymbolRecordBytes];
        } symbol = {};
        symbol.record.SizeOfStruct = kSymbolRecordBytes;
        symbol.record.MaxNameLength = kSymbolNameChars;
        DWORD displacement = 0;
        if (g_symGetSymFromAddr(GetCurrentProcess(), address, &displacement, &symbol.record)) {
            WriteSymbol(symbol.record, frame);
            WriteLine(address, displacement);
        } else {
            wchar_t module[MAX_PATH] = L"";
            DWORD section = 0;
            DWORD offset = 0;
            GetLogicalAddress(frame.AddrPC.Offset, module, MAX_PATH, section, offset);
            WriteReport(L"%04X:%08X %s ", section, offset, module);
        }
        WriteReport(L"\r\n");
    }
}

// Without the debugging help: the frames are followed as a 32-bit stack lays
// them out, the caller's frame at the frame address and the return address
// four bytes above it.
void IntelStackWalk(const CONTEXT* context)
{
    WriteReport(L"\r\nIntelStackWalk::Call stack:\r\n");
    WriteReport(L"Address   Frame     Logical addr  Module\r\n");
    DWORD pc = Low32(context->Rip);
    ULONG_PTR frame = context->Rbp;
    for (;;) {
        wchar_t module[MAX_PATH] = L"";
        DWORD section = 0;
        DWORD offset = 0;
        GetLogicalAddress(pc, module, MAX_PATH, section, offset);
        WriteReport(L"%08X  %08X  %04X:%08X %s\r\n", pc, Low32(frame), section, offset, module);
        DWORD words[2] = {0, 0};
        ReadMemory(frame, words, sizeof(words));
        pc = words[1];
        const ULONG_PTR next = words[0];
        if (next % 4 != 0 || next <= frame || IsBadWritePtr(reinterpret_cast<LPVOID>(next), 16))
            break;
        frame = next;
    }
}

void GenerateExceptionReport(EXCEPTION_POINTERS* pointers)
{
    const EXCEPTION_RECORD* record = pointers->ExceptionRecord;
    WriteReport(L"=====================================================\r\n");
    wchar_t date[9];
    wchar_t time[9];
    _wstrdate_s(date, 9);
    _wstrtime_s(time, 9);
    WriteReport(L"Time of exception:\t%s %s\r\n", date, time);
    WriteReport(L"Exception code: %08X %s\r\n", record->ExceptionCode, GetExceptionString(record->ExceptionCode));

    const ULONG_PTR address = reinterpret_cast<ULONG_PTR>(record->ExceptionAddress);
    wchar_t module[MAX_PATH] = L"";
    DWORD section = 0;
    DWORD offset = 0;
    const bool located = GetLogicalAddress(address, module, MAX_PATH, section, offset);
    if (located)
        WriteReport(L"Fault address:  %08X %02X:%08X %s\r\n", Low32(address), section, offset, module);
    else
        WriteReport(L"Failded to get GetLogicalAddress Information\r\n");
    CONTEXT* context = pointers->ContextRecord;
    context->ContextFlags = kFullContext;
    if (!located) {
        WriteReport(L"\r\n");
        return;
    }
    if (!LoadImageHelp()) {
        OutputDebugStringW(L"IMAGEHLP.DLL or its exported procs not found");
        IntelStackWalk(context);
        return;
    }
    ImagehlpStackWalk(context);
    g_symCleanup(GetCurrentProcess());
    WriteReport(L"\r\n");
}

// Appends a report and lets the exception go on; the filter this one replaced
// isn't called, it comes back at unload.
LONG WINAPI ReportUnhandledException(EXCEPTION_POINTERS* pointers)
{
    g_reportFile = CreateFileW(g_reportPath, GENERIC_WRITE, 0, NULL, OPEN_ALWAYS, FILE_FLAG_WRITE_THROUGH, NULL);
    // A failed open gives INVALID_HANDLE_VALUE, not null: the report then runs
    // and each write fails unseen.
    if (g_reportFile != NULL) {
        SetFilePointer(g_reportFile, 0, NULL, FILE_END);
        GenerateExceptionReport(pointers);
        CloseHandle(g_reportFile);
        g_reportFile = NULL;
    }
    return EXCEPTION_CONTINUE_SEARCH;
}

}  // namespace

CExceptionHandler::CExceptionHandler()
{
    g_previousFilter = SetUnhandledExceptionFilter(ReportUnhandledException);
    GetModuleFileNameW(NULL, g_reportPath, MAX_PATH);
    // msiexec.exe reports into msiexec.RPT; a host whose extension is shorter
    // (or missing) reports into its own path, which can't be opened.
    wchar_t* dot = wcsrchr(g_reportPath, L'.');
    if (dot != NULL && wcslen(dot + 1) >= 3)
        wcscpy_s(dot + 1, MAX_PATH - (dot + 1 - g_reportPath), L"RPT");
}

CExceptionHandler::~CExceptionHandler()
{
    SetUnhandledExceptionFilter(g_previousFilter);
}

void CExceptionHandler::SetLogFileName(const wchar_t* fileName)
{
    wcsncpy_s(g_reportPath, MAX_PATH, fileName, _TRUNCATE);
}
