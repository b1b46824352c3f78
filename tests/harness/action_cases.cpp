// The table runner for action tests: one row, one fresh session.
#include "harness/harness.h"

#include <gmock/gmock.h>

namespace harness {

namespace {

void ExpectLog(const Session& session, const LogCheck& check)
{
    const Lines log = session.Log();
    switch (check.mode) {
    case LogCheck::kUnchecked:
        break;
    case LogCheck::kExact:
        EXPECT_EQ(check.lines, log);
        break;
    case LogCheck::kIncludes: {
        Lines::const_iterator at = log.begin();
        for (const std::wstring& line : check.lines) {
            at = std::find(at, log.end(), line);
            if (at == log.end()) {
                ADD_FAILURE() << "the log lacks, in this order: " << ::testing::PrintToString(line)
                              << "\nlog: " << ::testing::PrintToString(log);
                return;
            }
            ++at;
        }
        break;
    }
    }
}

}  // namespace

void ActionTest::RunCases(const std::vector<ActionCase>& cases)
{
    for (size_t i = 0; i < cases.size(); ++i) {
        const ActionCase& row = cases[i];
        SCOPED_TRACE("row \"" + row.row + "\" (" + row.action + ")");
        if (i > 0)
            ClearArea(area_);
        if (row.arrange)
            row.arrange();
        Session session(row.properties, row.kestraRows);
        EXPECT_EQ(row.result, session.Call(row.action));
        ExpectLog(session, row.log);
        if (row.check)
            row.check(session);
    }
}

}  // namespace harness
