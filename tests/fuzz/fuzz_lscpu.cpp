// SPDX-License-Identifier: BSD-3-Clause
// lscpu's standard output, as SysInfo keeps it at start-up and reads the core
// count and the clock from it on every call.
#include "fuzzinput.h"

#include "probeparsers.h"

#include <QRegularExpression>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QStringList lines = ProbeParsers::splitLines(FuzzInput::bytes(data, size));
    FuzzInput::checkLines(lines);
    const uint cores = ProbeParsers::lscpuCoreCount(lines);
    const uint clock = ProbeParsers::lscpuMaxClockMHz(lines);
    // A count needs a line that starts with it, a clock at least a line that
    // names one.
    if (cores != 0)
        PLINTH_FUZZ_CHECK(lines.filter(QRegularExpression(QStringLiteral("^CPU\\(s\\):"))).size() > 0);
    if (clock != 0)
        PLINTH_FUZZ_CHECK(!lines.filter(QStringLiteral("MHz:")).isEmpty());
    return 0;
}
