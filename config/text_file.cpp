// Reading a settings file, whatever its encoding looks like, and cutting text
// into items.
#include "config/config_store.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <fstream>
#include <locale>
#include <memory>
#include <sstream>
#include <vector>

namespace {

// Every setting a save looks up reads the whole file, so narrow text is read
// and decoded a block at a time: a buffer of the file's size, fresh at each
// read, costs more than the read itself.
const size_t kBlockBytes = 16 * 1024;

typedef std::function<bool(std::wstring_view)> TextPieces;

// The first `unit` in [at, end), or end. Every setting a save looks up passes
// over the file's text, so eight bytes are tested at a time: a lane of `word`
// is zero when taking one from it borrows into its top bit.
template <typename Unit>
const Unit* FindUnit(const Unit* at, const Unit* end, Unit unit)
{
    const size_t bits = 8 * sizeof(Unit);
    const unsigned long long lanes = ~0ULL / ((1ULL << bits) - 1);  // a one in each lane
    const unsigned long long sought = lanes * static_cast<unsigned long long>(unit);
    const unsigned long long tops = lanes << (bits - 1);
    const size_t perWord = sizeof(unsigned long long) / sizeof(Unit);
    for (unsigned long long word; static_cast<size_t>(end - at) >= perWord; at += perWord) {
        memcpy(&word, at, sizeof(word));
        word ^= sought;
        if (((word - lanes) & ~word & tops) != 0)
            break;
    }
    return std::find(at, end, unit);
}

// A file opened for reading as the run-time library's "rb" opens it, closed
// with its holder.
class ReadOnlyFile {
public:
    explicit ReadOnlyFile(const std::wstring& path)
        : m_handle(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, NULL, OPEN_EXISTING,
                               FILE_ATTRIBUTE_NORMAL, NULL))
    {
    }
    ~ReadOnlyFile()
    {
        if (m_handle != INVALID_HANDLE_VALUE)
            CloseHandle(m_handle);
    }
    ReadOnlyFile(const ReadOnlyFile&) = delete;
    ReadOnlyFile& operator=(const ReadOnlyFile&) = delete;

    bool IsOpen() const { return m_handle != INVALID_HANDLE_VALUE; }
    HANDLE Handle() const { return m_handle; }

    // Up to `count` bytes from the current position; 0 at the end and on failure.
    size_t Read(char* buffer, size_t count)
    {
        DWORD read = 0;
        if (!ReadFile(m_handle, buffer, static_cast<DWORD>(count), &read, NULL))
            return 0;
        return read;
    }

private:
    HANDLE m_handle;
};

// The framework's encoding numbers, from a file's first four bytes, zeros
// standing in for those a short file lacks.
int EncodingOf(const char* bytes, size_t count)
{
    unsigned char first[4] = {0, 0, 0, 0};
    memcpy(first, bytes, std::min<size_t>(count, sizeof(first)));
    unsigned int w0 = first[0] | (first[1] << 8);
    unsigned int w1 = first[2] | (first[3] << 8);
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

// Narrow text in the system's ANSI code page, from the block already in
// `bytes` on. A piece ends behind the last LF byte read, which is never part
// of a character, so that no piece splits a line or a character. The text
// ends at the first zero byte. The file is read to its end either way.
void NarrowPieces(ReadOnlyFile& file, std::vector<char>& bytes, size_t available, const TextPieces& take)
{
    std::unique_ptr<wchar_t[]> piece;  // left as it comes: only what is decoded into it is handed on
    size_t pieceChars = 0;
    size_t looked = 0;  // bytes ahead of this hold no zero
    bool atEnd = available == 0;
    for (;;) {
        size_t zero = FindUnit(bytes.data() + looked, bytes.data() + available, '\0') - bytes.data();
        bool last = atEnd || zero < available;
        size_t through = zero;
        if (!last) {
            size_t lineEnd = std::string_view(bytes.data(), available).rfind('\n');
            through = lineEnd == std::string_view::npos ? 0 : lineEnd + 1;
        }
        if (through > 0) {
            if (pieceChars < through) {
                piece.reset(new wchar_t[through]);
                pieceChars = through;
            }
            int chars = MultiByteToWideChar(CP_ACP, 0, bytes.data(), static_cast<int>(through), piece.get(),
                                            static_cast<int>(through));
            if (!take(std::wstring_view(piece.get(), static_cast<size_t>(chars))))
                break;
        }
        if (last)
            break;
        // What follows the last LF waits for the rest of its line.
        bytes.erase(bytes.begin(), bytes.begin() + through);
        available -= through;
        looked = available;
        bytes.resize(available + kBlockBytes);
        size_t read = file.Read(bytes.data() + available, kBlockBytes);
        available += read;
        atEnd = read == 0;
    }
    while (file.Read(bytes.data(), bytes.size()) > 0) {
    }
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

// The whole file raw, from its start, with two zero bytes behind it.
void ReadWholeFile(ReadOnlyFile& file, size_t size, std::vector<unsigned char>& buffer)
{
    LARGE_INTEGER start = {};
    SetFilePointerEx(file.Handle(), start, NULL, FILE_BEGIN);
    buffer.assign(size + 2, 0);
    size_t got = 0;
    for (size_t read = 1; got < size && read > 0; got += read)
        read = file.Read(reinterpret_cast<char*>(buffer.data()) + got, size - got);
}

// Two-byte text as stored, after skipping what looks like a mark. No bytes
// are swapped, whatever the mark said.
void LoadUnits(ReadOnlyFile& file, size_t size, std::wstring& text)
{
    std::vector<unsigned char> buffer;
    ReadWholeFile(file, size, buffer);
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
    size_t count = (size + 2) / 2;
    size_t end = skip;
    while (end < count && units[end] != 0)
        ++end;
    text.assign(units + skip, units + end);
}

// The file's text, whatever its encoding looks like, handed to `take` in
// pieces of whole lines until it returns false. False when the file can't be
// read as text.
bool ReadText(const std::wstring& path, const TextPieces& take)
{
    try {
        ReadOnlyFile file(path);
        LARGE_INTEGER size;
        if (!file.IsOpen() || !GetFileSizeEx(file.Handle(), &size))
            return false;
        // Room for a block behind the start of a line that waits for its end.
        std::vector<char> bytes;
        bytes.reserve(2 * kBlockBytes);
        bytes.resize(kBlockBytes);
        size_t available = file.Read(bytes.data(), bytes.size());
        std::wstring text;
        switch (EncodingOf(bytes.data(), available)) {
        case 0:
            if (size.QuadPart == 0)
                return false;
            NarrowPieces(file, bytes, available, take);
            return true;
        case 1:
            if (!LoadWideStream(path, text))
                return false;
            break;
        default:
            LoadUnits(file, static_cast<size_t>(size.QuadPart), text);
            break;
        }
        take(text);
        return true;
    } catch (...) {
        OutputDebugStringW(L"*** Error Unknown exception on LoadBuffer\n");
        return false;
    }
}

}  // namespace

int DetectEncoding(const std::wstring& path)
{
    ReadOnlyFile file(path);
    if (!file.IsOpen())
        return 0;
    char bytes[4];
    return EncodingOf(bytes, file.Read(bytes, sizeof(bytes)));
}

bool LoadBuffer(const std::wstring& path, std::wstring& text)
{
    std::wstring loaded;
    if (!ReadText(path, [&loaded](std::wstring_view piece) {
            loaded.append(piece);
            return true;
        }))
        return false;
    text.swap(loaded);
    return true;
}

bool ForEachLine(const std::wstring& path, const std::function<bool(std::wstring_view)>& visit)
{
    // An exception of the walk is the caller's, not a failed read: it ends the
    // walk and passes up once the file is closed.
    std::exception_ptr failed;
    bool read = ReadText(path, [&visit, &failed](std::wstring_view piece) {
        try {
            // A piece ends behind an LF or at the text's end: no line runs on into the next piece.
            for (size_t start = piece.find_first_not_of(L'\n'); start != std::wstring_view::npos;
                 start = piece.find_first_not_of(L'\n', start)) {
                size_t end = FindUnit(piece.data() + start, piece.data() + piece.size(), L'\n') - piece.data();
                if (!visit(piece.substr(start, end - start)))
                    return false;
                start = end;
            }
            return true;
        } catch (...) {
            failed = std::current_exception();
            return false;
        }
    });
    if (failed)
        std::rethrow_exception(failed);
    return read;
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
