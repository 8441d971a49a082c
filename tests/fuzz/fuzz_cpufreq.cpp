// SPDX-License-Identifier: BSD-3-Clause
// The cpufreq maximum of every core, one value a line as the shell prints the
// files (kHz), turned into the per-core list of MHz.
#include "fuzzinput.h"

#include "probeparsers.h"

#include <limits>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QStringList lines = ProbeParsers::splitLines(FuzzInput::bytes(data, size));
    FuzzInput::checkLines(lines);
    const QVariantList speeds = ProbeParsers::coresClockSpeeds(lines);
    // One value per line, each an unsigned 32-bit number (the bus sends "v" of
    // "u"), and each divided by 1000 at least once.
    PLINTH_FUZZ_CHECK(speeds.size() == lines.size());
    for (const QVariant &speed : speeds) {
        PLINTH_FUZZ_CHECK(speed.userType() == QMetaType::UInt);
        PLINTH_FUZZ_CHECK(speed.toUInt() <= std::numeric_limits<uint>::max() / 1000);
    }
    return 0;
}
