// The program's own string helpers; everything else is the standard library.
#include "frame/frame.h"

#include <cstdarg>
#include <cstdio>
#include <cwctype>
#include <string.h>

void ToLowerInPlace(std::wstring& text)
{
    for (wchar_t& c : text)
        c = static_cast<wchar_t>(towlower(c));
}

int CompareNoCase(const std::wstring& a, const std::wstring& b)
{
    std::wstring left = a;
    std::wstring right = b;
    ToLowerInPlace(left);
    ToLowerInPlace(right);
    return left.compare(right);
}

int FindNoCase(const std::wstring& haystack, const std::wstring& needle)
{
    std::wstring text = haystack;
    std::wstring sought = needle;
    ToLowerInPlace(text);
    ToLowerInPlace(sought);
    size_t position = text.find(sought);
    if (position == std::wstring::npos)
        return -1;
    return static_cast<int>(position);
}

std::wstring PathSeparatorFor(const wchar_t* path)
{
    // The last character is read without a length test: an empty path looks
    // at the character ahead of it, as it always has.
    wchar_t last = path[wcslen(path) - 1];
    if (last == L'/' || last == L'\\')
        return std::wstring();
    return L"\\";
}

namespace {

// A text that doesn't fit is a fault in the caller: the Microsoft runtime
// ends the process in its invalid-parameter handler, and we must not go on
// with a cleared command line on a runtime whose handler returns.
void EndOnOverrun(bool overrun)
{
    if (overrun)
        TerminateProcess(GetCurrentProcess(), STATUS_STACK_BUFFER_OVERRUN);
}

}  // namespace

wchar_t* BoundedCopy(wchar_t* destination, size_t size, const wchar_t* source, size_t count)
{
    EndOnOverrun(wcsncpy_s(destination, size, source, count) != 0);
    return destination;
}

void BoundedFormat(wchar_t* destination, size_t size, const wchar_t* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    EndOnOverrun(vswprintf_s(destination, size, format, arguments) < 0);
    va_end(arguments);
}
