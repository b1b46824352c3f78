// Reading a settings file into one wide string, whatever its encoding looks
// like, and cutting text into items.
#include "config/config_store.h"

#include <sys/stat.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <locale>
#include <sstream>
#include <vector>

namespace {

// Reads the whole file raw, with two zero bytes behind it.
bool ReadWholeFile(const std::wstring& path, std::vector<unsigned char>& buffer, long& size)
{
    FILE* file = _wfopen(path.c_str(), L"rb");
    if (file == NULL)
        return false;
    fseek(file, 0, SEEK_END);
    size = ftell(file);
    rewind(file);
    buffer.assign(static_cast<size_t>(size) + 2, 0);
    fread(buffer.data(), 1, static_cast<size_t>(size), file);
    fclose(file);
    return true;
}

bool LoadNarrow(const std::wstring& path, std::wstring& text)
{
    struct _stat64 status;
    memset(&status, 0, sizeof(status));
    if (_wstat64(path.c_str(), &status) != 0 || status.st_size == 0)
        return false;
    size_t size = static_cast<size_t>(status.st_size);
    FILE* file = _wfopen(path.c_str(), L"rb");
    if (file == NULL)
        return false;
    std::vector<char> bytes(size + 1, 0);
    fread(bytes.data(), size, 1, file);
    fclose(file);
    std::vector<wchar_t> wide(size + 1, 0);
    // The system's ANSI code page; bytes behind a first zero byte are lost.
    MultiByteToWideChar(CP_ACP, 0, bytes.data(), static_cast<int>(strlen(bytes.data())), wide.data(),
                        static_cast<int>(size));
    wide[size] = L'\0';
    text.assign(wide.data());
    return true;
}

bool LoadWideStream(const std::wstring& path, std::wstring& text)
{
    std::wifstream stream(std::string(path.begin(), path.end()).c_str());
    if (!stream.is_open())
        return false;
    stream.imbue(std::locale(""));
    std::wostringstream buffer;
    buffer << stream.rdbuf();
    text = buffer.str();
    return true;
}

// Two-byte text as stored, after skipping what looks like a mark. No bytes
// are swapped, whatever the mark said.
bool LoadUnits(const std::wstring& path, std::wstring& text)
{
    std::vector<unsigned char> buffer;
    long size = 0;
    if (!ReadWholeFile(path, buffer, size))
        return false;
    const unsigned short* units = reinterpret_cast<const unsigned short*>(buffer.data());
    size_t skip = 0;
    if (size > 4) {
        if ((units[0] == 0xEFFE && units[1] == 0) || (units[0] == 0 && units[1] == 0xFEFF))
            skip = 2;
        else if (units[0] == 0xFEFF || units[0] == 0xFFFE)
            skip = 1;
    } else if (size == 4) {
        if (units[0] == 0xEFBB && units[1] == 0xBF)
            skip = 3;
        else if ((units[0] == 0xFE && units[1] == 0xFF) || (units[0] == 0xFF && units[1] == 0xFE))
            skip = 2;
    } else if (size == 3) {
        if ((units[0] == 0xFE && units[1] == 0xFF) || (units[0] == 0xFF && units[1] == 0xFE))
            skip = 2;
    }
    text.clear();
    size_t count = (static_cast<size_t>(size) + 2) / 2;
    for (size_t i = skip; i < count && units[i] != 0; ++i)
        text += static_cast<wchar_t>(units[i]);
    return true;
}

}  // namespace

int DetectEncoding(const std::wstring& path)
{
    FILE* file = _wfopen(path.c_str(), L"rb");
    if (file == NULL)
        return 0;
    unsigned char bytes[4] = {0, 0, 0, 0};
    fread(bytes, 1, 4, file);
    fclose(file);
    unsigned int w0 = bytes[0] | (bytes[1] << 8);
    unsigned int w1 = bytes[2] | (bytes[3] << 8);
    // The constants stand as the framework has always had them.
    if (w0 == 0xEFFE && w1 == 0)
        return 6;
    if (w0 == 0 && w1 == 0xFEFF)
        return 7;
    // This test ORs where a mask was meant, so it never holds: a file with the
    // UTF-8 mark is read as narrow text, mark and all.
    unsigned int markTail = w1 | 0xFF00;
    if (w0 == 0xEFBB && markTail == 0xBF)
        return 1;
    if (w0 == 0xFEFF)
        return 3;
    if (w0 == 0xFFFE)
        return 4;
    return 0;
}

bool LoadBuffer(const std::wstring& path, std::wstring& text)
{
    try {
        switch (DetectEncoding(path)) {
        case 0:
            return LoadNarrow(path, text);
        case 1:
            return LoadWideStream(path, text);
        default:
            return LoadUnits(path, text);
        }
    } catch (...) {
        OutputDebugStringW(L"*** Error Unknown exception on LoadBuffer\n");
        return false;
    }
}

void Tokenize(const std::wstring& text, const std::wstring& delimiters, StringList& items)
{
    size_t start = text.find_first_not_of(delimiters);
    while (start != std::wstring::npos) {
        size_t end = text.find_first_of(delimiters, start);
        if (end == std::wstring::npos)
            end = text.size();
        items.push_back(text.substr(start, end - start));
        start = text.find_first_not_of(delimiters, end);
    }
}

void ReplaceAll(std::wstring& text, const wchar_t* from, const wchar_t* to)
{
    if (from == NULL || *from == L'\0' || wcscmp(from, to) == 0)
        return;
    size_t fromLength = wcslen(from);
    size_t toLength = wcslen(to);
    for (size_t position = text.find(from); position != std::wstring::npos;
         position = text.find(from, position + toLength))
        text.replace(position, fromLength, to);
}
