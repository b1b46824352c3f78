// The task-definition copy: a file stream for XmlLite, and the copy that puts
// tomorrow's date into every StartBoundary of a definition.
#include "integration/integration.h"

#include <xmllite.h>

#include <cstdio>
#include <cwchar>
#include <initializer_list>
#include <iomanip>
#include <iterator>
#include <new>
#include <sstream>

TaskClock g_taskClock = time;

namespace {

// A failed platform call as a result. HRESULT_FROM_WIN32 gives back a last
// error of zero as it is, so such a failure reads as success.
HRESULT PlatformResult(BOOL succeeded)
{
    return succeeded ? S_OK : HRESULT_FROM_WIN32(GetLastError());
}

}  // namespace

FileStream::FileStream(HANDLE file) : file_(file), references_(1) {}

FileStream::~FileStream()
{
    if (file_ != INVALID_HANDLE_VALUE)
        CloseHandle(file_);
}

HRESULT FileStream::OpenFile(LPCWSTR path, IStream** stream, bool write)
{
    HANDLE file = CreateFileW(path, write ? GENERIC_WRITE : GENERIC_READ, FILE_SHARE_READ, NULL,
                              write ? CREATE_ALWAYS : OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, NULL);
    if (file == INVALID_HANDLE_VALUE)
        return PlatformResult(FALSE);
    *stream = new (std::nothrow) FileStream(file);
    if (*stream == NULL)
        CloseHandle(file);
    return S_OK;
}

HRESULT STDMETHODCALLTYPE FileStream::QueryInterface(REFIID iid, void** object)
{
    if (object == NULL)
        return E_INVALIDARG;
    *object = NULL;
    if (IsEqualIID(iid, IID_IUnknown) || IsEqualIID(iid, IID_IStream) || IsEqualIID(iid, IID_ISequentialStream)) {
        *object = static_cast<IStream*>(this);
        AddRef();
        return S_OK;
    }
    return E_NOINTERFACE;
}

ULONG STDMETHODCALLTYPE FileStream::AddRef()
{
    return static_cast<ULONG>(InterlockedIncrement(&references_));
}

ULONG STDMETHODCALLTYPE FileStream::Release()
{
    LONG count = InterlockedDecrement(&references_);
    if (count == 0)
        delete this;
    return static_cast<ULONG>(count);
}

HRESULT STDMETHODCALLTYPE FileStream::Read(void* buffer, ULONG count, ULONG* read)
{
    return PlatformResult(ReadFile(file_, buffer, count, read, NULL));
}

HRESULT STDMETHODCALLTYPE FileStream::Write(const void* buffer, ULONG count, ULONG* written)
{
    return PlatformResult(WriteFile(file_, buffer, count, written, NULL));
}

HRESULT STDMETHODCALLTYPE FileStream::Seek(LARGE_INTEGER move, DWORD origin, ULARGE_INTEGER* position)
{
    DWORD method;
    switch (origin) {
    case STREAM_SEEK_SET:
        method = FILE_BEGIN;
        break;
    case STREAM_SEEK_CUR:
        method = FILE_CURRENT;
        break;
    case STREAM_SEEK_END:
        method = FILE_END;
        break;
    default:
        return STG_E_INVALIDFUNCTION;
    }
    return PlatformResult(SetFilePointerEx(file_, move, reinterpret_cast<PLARGE_INTEGER>(position), method));
}

HRESULT STDMETHODCALLTYPE FileStream::SetSize(ULARGE_INTEGER)
{
    return E_NOTIMPL;
}

HRESULT STDMETHODCALLTYPE FileStream::CopyTo(IStream*, ULARGE_INTEGER, ULARGE_INTEGER*, ULARGE_INTEGER*)
{
    return E_NOTIMPL;
}

HRESULT STDMETHODCALLTYPE FileStream::Commit(DWORD)
{
    return E_NOTIMPL;
}

HRESULT STDMETHODCALLTYPE FileStream::Revert()
{
    return E_NOTIMPL;
}

HRESULT STDMETHODCALLTYPE FileStream::LockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD)
{
    return E_NOTIMPL;
}

HRESULT STDMETHODCALLTYPE FileStream::UnlockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD)
{
    return E_NOTIMPL;
}

// Only the size: XmlLite asks for nothing else.
HRESULT STDMETHODCALLTYPE FileStream::Stat(STATSTG* stat, DWORD)
{
    return PlatformResult(GetFileSizeEx(file_, reinterpret_cast<PLARGE_INTEGER>(&stat->cbSize)));
}

HRESULT STDMETHODCALLTYPE FileStream::Clone(IStream**)
{
    return E_NOTIMPL;
}

namespace {

const wchar_t kStartBoundary[] = L"StartBoundary";

// The terminator is compared too, so a longer name doesn't match; nor does a
// prefixed one.
bool IsStartBoundary(const wchar_t* name)
{
    return name != NULL && wcsncmp(name, kStartBoundary, std::size(kStartBoundary)) == 0;
}

// Tomorrow at the present time of day, in local time: 2026-11-15T18:37:59.
std::wstring StartBoundaryStamp()
{
    time_t now = g_taskClock(NULL);
    // The second localtime overwrites the runtime's buffer.
    const tm present = *localtime(&now);
    tm today = {};
    today.tm_mday = present.tm_mday;
    today.tm_mon = present.tm_mon;
    today.tm_year = present.tm_year;
    // From the start of today a day later is tomorrow, also on a day of 23 or 25 hours.
    time_t tomorrow = mktime(&today) + 86400;
    wchar_t date[32];
    wcsftime(date, std::size(date), L"%Y-%m-%d", localtime(&tomorrow));

    std::wistringstream pieces(date);
    std::wostringstream stamp;
    stamp << std::setfill(L'0');
    std::wstring piece;
    for (const wchar_t* after : {L"-", L"-", L"T"}) {
        std::getline(pieces, piece, L'-');
        stamp << std::setw(2) << wcstol(piece.c_str(), NULL, 10) << after;
    }
    stamp << std::setw(2) << present.tm_hour << L':' << std::setw(2) << present.tm_min << L':' << std::setw(2)
          << present.tm_sec;
    return stamp.str();
}

// Prints a failed step's message with its result; gives the result either way.
HRESULT Reported(HRESULT result, const wchar_t* message)
{
    if (FAILED(result))
        wprintf(message, result);
    return result;
}

// Copies node by node until Read gives anything but S_OK: S_FALSE at the end
// of the document, or the parse error.
HRESULT CopyNodes(IXmlReader* reader, IXmlWriter* writer)
{
    const wchar_t kNameFailed[] = L"Error reading element name, error is %08.8lx";
    // True from an opened StartBoundary until its text has been replaced.
    bool inStartBoundary = false;
    XmlNodeType type;
    HRESULT result;
    while ((result = reader->Read(&type)) == S_OK) {
        const wchar_t* name = NULL;
        const wchar_t* text = NULL;
        switch (type) {
        case XmlNodeType_EndElement:
            if (FAILED(result = Reported(reader->GetQualifiedName(&name, NULL), kNameFailed)))
                return result;
            if (IsStartBoundary(name))
                inStartBoundary = false;
            result = Reported(writer->WriteFullEndElement(), L"Error writing WriteFullEndElement, error is %08.8lx");
            break;
        case XmlNodeType_Text:
            if (inStartBoundary) {
                if (FAILED(result = Reported(reader->GetValue(&text, NULL), L"Error reading value, error is %08.8lx")))
                    return result;
                // Only that there is a date matters; it isn't read.
                if (text == NULL || *text == L'\0')
                    return E_UNEXPECTED;
                result = Reported(writer->WriteString(StartBoundaryStamp().c_str()),
                                  L"Error writing WriteString, error is %08.8lx");
                inStartBoundary = false;
                break;
            }
            [[fallthrough]];
        default:
            if (type == XmlNodeType_Element && !reader->IsEmptyElement()) {
                if (FAILED(result = Reported(reader->GetQualifiedName(&name, NULL), kNameFailed)))
                    return result;
                inStartBoundary = IsStartBoundary(name);
            }
            result =
                Reported(writer->WriteNodeShallow(reader, FALSE), L"Error writing WriteNodeShallow, error is %08.8lx");
        }
        if (FAILED(result))
            return result;
    }
    return result;
}

// What a copy holds, released in this order on every road out. Nothing ends
// the document or flushes: releasing the writer and its output completes the file.
struct CopyObjects {
    IStream* source = NULL;
    IStream* destination = NULL;
    IXmlReader* reader = NULL;
    IXmlWriter* writer = NULL;
    IXmlReaderInput* input = NULL;
    IXmlWriterOutput* output = NULL;

    ~CopyObjects()
    {
        for (IUnknown* object : std::initializer_list<IUnknown*>{source, destination, reader, writer, input, output})
            if (object != NULL)
                object->Release();
    }
};

HRESULT SetUpAndCopy(CopyObjects& copy, const std::wstring& source, const std::wstring& destination)
{
    // The writer's output has no text of its own: it prints the reader's.
    const wchar_t kEncodingFailed[] = L"Error creating xml reader with encoding code page, error is %08.8lx";
    HRESULT result;
    // The destination is emptied only once the source has opened.
    if (FAILED(result = Reported(FileStream::OpenFile(source.c_str(), &copy.source, false),
                                 L"Error creating file reader, error is %08.8lx")) ||
        FAILED(result = Reported(FileStream::OpenFile(destination.c_str(), &copy.destination, true),
                                 L"Error creating file writer, error is %08.8lx")) ||
        FAILED(result = Reported(CreateXmlReader(__uuidof(IXmlReader), reinterpret_cast<void**>(&copy.reader), NULL),
                                 L"Error creating xml reader, error is %08.8lx")))
        return result;
    // A document type declaration then fails in Read; whether the property took is not checked.
    copy.reader->SetProperty(XmlReaderProperty_DtdProcessing, DtdProcessing_Prohibit);
    if (FAILED(result = Reported(CreateXmlReaderInputWithEncodingName(copy.source, NULL, L"utf-16", FALSE, L"c:\\temp",
                                                                      &copy.input),
                                 kEncodingFailed)) ||
        FAILED(result = Reported(CreateXmlWriter(__uuidof(IXmlWriter), reinterpret_cast<void**>(&copy.writer), NULL),
                                 L"Error creating xml writer, error is %08.8lx")) ||
        FAILED(result = Reported(CreateXmlWriterOutputWithEncodingName(copy.destination, NULL, L"utf-16", &copy.output),
                                 kEncodingFailed)) ||
        FAILED(result = Reported(copy.reader->SetInput(copy.input),
                                 L"Error setting input for reader, error is %08.8lx")) ||
        FAILED(result = Reported(copy.writer->SetOutput(copy.output),
                                 L"Error setting output for writer, error is %08.8lx")) ||
        FAILED(result = Reported(copy.writer->SetProperty(XmlWriterProperty_Indent, TRUE),
                                 L"Error setting indent property in writer, error is %08.8lx")))
        return result;
    return CopyNodes(copy.reader, copy.writer);
}

}  // namespace

HRESULT RewriteStartBoundary(std::wstring source, std::wstring destination)
{
    CopyObjects copy;
    return SetUpAndCopy(copy, source, destination);
}
