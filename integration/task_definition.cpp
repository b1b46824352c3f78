// The task-definition copy: a file stream for XmlLite.
#include "integration/integration.h"

#include <new>

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
