// The file stream under the task-definition copy.
#include "integration/area.h"

#include "integration/integration.h"

using namespace harness;

namespace {

using TaskDefinitionTest = IntegrationTest;
const std::wstring kScratch = kScratchFolder;

TEST_F(TaskDefinitionTest, FileStreamSlots)
{
    const std::wstring path = kScratch + L"stream.bin";
    MakeFile(path, "0123456789");
    IStream* stream = reinterpret_cast<IStream*>(1);
    EXPECT_EQ(HRESULT(0x80070002), FileStream::OpenFile((kScratch + L"missing").c_str(), &stream, false));
    ASSERT_EQ(reinterpret_cast<IStream*>(1), stream);
    ASSERT_EQ(S_OK, FileStream::OpenFile(path.c_str(), &stream, false));

    EXPECT_EQ(E_INVALIDARG, stream->QueryInterface(IID_IStream, NULL));
    const struct {
        const char* row;
        IID iid;
        bool found;
    } interfaces[] = {{"IUnknown", IID_IUnknown, true},
                      {"IStream", IID_IStream, true},
                      {"ISequentialStream", IID_ISequentialStream, true},
                      {"IPersist", IID_IPersist, false}};
    for (const auto& c : interfaces) {
        void* object = stream;
        EXPECT_EQ(c.found ? S_OK : E_NOINTERFACE, stream->QueryInterface(c.iid, &object)) << c.row;
        EXPECT_EQ(c.found ? stream : NULL, object) << c.row;
        if (object != NULL)
            EXPECT_EQ(1u, stream->Release()) << c.row;
    }

    // Seek and Read; an unknown origin leaves the position alone.
    ULARGE_INTEGER position = {};
    LARGE_INTEGER move = {};
    move.QuadPart = -2;
    char buffer[4] = {};
    ULONG count = 9;
    EXPECT_EQ(S_OK, stream->Seek(move, STREAM_SEEK_END, &position));
    EXPECT_EQ(STG_E_INVALIDFUNCTION, stream->Seek(move, 3, &position));
    EXPECT_TRUE(position.QuadPart == 8 && stream->Read(buffer, 4, &count) == S_OK && count == 2 &&
                std::string(buffer) == "89");
    EXPECT_TRUE(stream->Read(buffer, 4, &count) == S_OK && count == 0);
    move.QuadPart = -4;
    EXPECT_TRUE(stream->Seek(move, STREAM_SEEK_CUR, &position) == S_OK && position.QuadPart == 6);
    // A read-only handle refuses writing: access denied as a result.
    EXPECT_EQ(HRESULT(0x80070005), stream->Write("x", 1, &count));

    // Stat fills the size only; the stubs.
    STATSTG stat = {};
    stat.type = STGTY_LOCKBYTES;
    EXPECT_TRUE(stream->Stat(&stat, STATFLAG_DEFAULT) == S_OK && stat.cbSize.QuadPart == 10 &&
                stat.type == STGTY_LOCKBYTES);
    const ULARGE_INTEGER none = {};
    EXPECT_TRUE(stream->SetSize(none) == E_NOTIMPL && stream->CopyTo(NULL, none, NULL, NULL) == E_NOTIMPL &&
                stream->Commit(0) == E_NOTIMPL && stream->Revert() == E_NOTIMPL &&
                stream->LockRegion(none, none, 0) == E_NOTIMPL && stream->UnlockRegion(none, none, 0) == E_NOTIMPL &&
                stream->Clone(NULL) == E_NOTIMPL);

    // The last reference closes the handle, which shared reading only.
    EXPECT_FALSE(DeleteFileW(path.c_str()));
    EXPECT_EQ(0u, stream->Release());
    EXPECT_TRUE(DeleteFileW(path.c_str()));
}

}  // namespace
