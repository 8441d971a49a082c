// SPDX-License-Identifier: BSD-3-Clause
// The lines of /proc/cpuinfo that grep lets through, and the SoC name picked
// from its "Hardware" line.
#include "fuzzinput.h"

#include "probeparsers.h"

#include <algorithm>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QStringList lines = ProbeParsers::splitLines(FuzzInput::bytes(data, size));
    FuzzInput::checkLines(lines);
    const QString model = ProbeParsers::cpuinfoHardware(lines);
    // Either no answer, or a non-empty part of one "Hardware" line.
    if (!model.isNull()) {
        PLINTH_FUZZ_CHECK(!model.isEmpty());
        const bool fromAHardwareLine = std::any_of(lines.cbegin(), lines.cend(), [&](const QString &line) {
            return line.startsWith(QLatin1String("Hardware")) && line.contains(model);
        });
        PLINTH_FUZZ_CHECK(fromAHardwareLine);
    }
    return 0;
}
