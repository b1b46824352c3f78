// The task-definition copy through Wine's XmlLite, over its file streams. Wine's
// writer can't copy white space between tags or a namespace declaration, so the
// definitions here have neither (the predeclared xml prefix stands in for a
// declared one), and copies are compared node by node.
#include "integration/area.h"

#include "integration/integration.h"

#include <io.h>
#include <shlwapi.h>
#include <xmllite.h>

#include <cstdio>

using namespace harness;

namespace {

using TaskDefinitionTest = IntegrationTest;
const std::wstring kScratch = kScratchFolder, kSource = kScratch + L"StartHalyardBM.xml",
                   kCopy = kScratch + L"copy.xml", kPrinted = kScratch + L"printed.txt";

// Every node but white space as "type name value", an empty element marked "/".
// Wine's reader may run on for ever over a broken copy: a hundred nodes are
// more than any definition here has.
Lines Nodes(const std::string& bytes)
{
    Lines nodes;
    IStream* stream = SHCreateMemStream(reinterpret_cast<const BYTE*>(bytes.data()), static_cast<UINT>(bytes.size()));
    IXmlReader* reader = NULL;
    CreateXmlReader(__uuidof(IXmlReader), reinterpret_cast<void**>(&reader), NULL);
    HRESULT read = reader->SetInput(stream);
    XmlNodeType type;
    while (SUCCEEDED(read) && nodes.size() < 100 && (read = reader->Read(&type)) == S_OK) {
        const wchar_t *name, *value;
        reader->GetQualifiedName(&name, NULL);
        reader->GetValue(&value, NULL);
        if (type != XmlNodeType_Whitespace)
            nodes.push_back(std::to_wstring(type) + L" " + name + L" " + value +
                            (reader->IsEmptyElement() ? L"/" : L""));
    }
    reader->Release();
    stream->Release();
    return nodes;
}

// The rewrite with the runtime's standard output sent to a file: its result and what it printed.
HRESULT Rewrite(const std::wstring& source, const std::wstring& destination, std::string& printed)
{
    fflush(stdout);
    FILE* capture = _wfopen(kPrinted.c_str(), L"w");
    const int out = _fileno(stdout), saved = _dup(out);
    _dup2(_fileno(capture), out);
    fclose(capture);
    HRESULT result = RewriteStartBoundary(source, destination);
    fflush(stdout);
    _dup2(saved, out);
    _close(saved);
    printed = ReadFileBytes(kPrinted);
    return result;
}

time_t g_now;

TEST_F(TaskDefinitionTest, CopiesPutTomorrowIntoEachStartBoundaryText)
{
    // "@" is a text that the copy replaces by the stamp. The present time is local: second, minute, hour, day,
    // month from 0, years since 1900.
    const struct { const char* row; tm now; const wchar_t* stamp; std::wstring body; } cases[] = {
        {"both triggers, across the year's end", {58, 59, 23, 31, 11, 127, 0, 0, -1}, L"2028-01-01T23:59:58",
         L"<Triggers><TimeTrigger><StartBoundary>@</StartBoundary></TimeTrigger><LogonTrigger><StartBoundary>@"
         L"</StartBoundary><Enabled>true</Enabled></LogonTrigger></Triggers>"},
        {"a comment and CDATA pass, the text after them is replaced, a second text kept; across the month's end",
         {9, 5, 7, 31, 0, 127, 0, 0, -1}, L"2027-02-01T07:05:09",
         L"<Task><StartBoundary><!--built--><![CDATA[raw]]>@<!--again-->kept</StartBoundary></Task>"},
        {"self-closed and empty elements set nothing; other names do not match", {9, 5, 7, 31, 0, 127, 0, 0, -1}, L"",
         L"<Task><StartBoundary/><Enabled>true</Enabled><StartBoundary></StartBoundary><Hidden>no</Hidden>"
         L"<xml:StartBoundary>1</xml:StartBoundary><startboundary>2</startboundary><StartBoundaryX>3</StartBoundaryX>"
         L"</Task>"},
    };
    g_taskClock = [](time_t*) { return g_now; };
    for (const auto& c : cases) {
        tm now = c.now;
        g_now = mktime(&now);
        MakeFile(kSource, Definition(c.body, L"2016-01-01T00:00:00"));
        std::string printed;
        EXPECT_TRUE(Rewrite(kSource, kCopy, printed) == S_FALSE && printed.empty()) << c.row << printed;
        EXPECT_EQ(Nodes(Definition(c.body, c.stamp)), Nodes(ReadFileBytes(kCopy))) << c.row;
    }
    g_taskClock = time;
}

TEST_F(TaskDefinitionTest, FailuresPrintTheirStepAndLeaveAnEarlierCopyUntilTheWriterOpens)
{
    const struct { std::wstring source, destination; std::string printed; bool copyKept; } cases[] = {
        {kScratch + L"missing.xml", kCopy, "Error creating file reader, error is 80070002", true},
        {kSource, L"", "Error creating file writer, error is 80070003", true},
        {kSource, kCopy, "", false},  // the document type declaration fails in Read, silently
    };
    for (const auto& c : cases) {
        MakeFile(kSource, Definition(L"<!DOCTYPE Task><Task/>"));
        MakeFile(kCopy, "earlier");
        std::string printed;
        EXPECT_TRUE(Rewrite(c.source, c.destination, printed) < 0 && printed == c.printed &&
                    (ReadFileBytes(kCopy) == "earlier") == c.copyKept)
            << c.printed << " | " << printed;
    }
}

}  // namespace
