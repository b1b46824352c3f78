// Narrow and wide text, in the run-time library's current locale.
#include "toolkit/file.h"

#include <stdlib.h>

#include <vector>

namespace {

// Where the terminator goes, from the count the conversion reported (its
// terminator included): nothing is kept of a failed or overlong conversion.
size_t TerminatorIndex(size_t converted, size_t size)
{
    if (converted == size)
        return size - 1;
    if (converted == 0 || converted > size)
        return 0;
    return converted;
}

}  // namespace

std::string ToNarrowString(const std::wstring& text)
{
    size_t size = text.length() + 1;
    std::vector<char> buffer(size, '\0');
    size_t converted = 0;
    wcstombs_s(&converted, buffer.data(), size, text.c_str(), size - 1);
    buffer[TerminatorIndex(converted, size)] = '\0';
    return std::string(buffer.data());
}

std::wstring ToWideString(const std::string& text)
{
    size_t size = text.length() + 1;
    std::vector<wchar_t> buffer(size, L'\0');
    size_t converted = 0;
    mbstowcs_s(&converted, buffer.data(), size, text.c_str(), size - 1);
    buffer[TerminatorIndex(converted, size)] = L'\0';
    return std::wstring(buffer.data());
}
