// SPDX-License-Identifier: BSD-3-Clause
// /proc/meminfo: the total and free memory in bytes.
#include "fuzzinput.h"

#include "probeparsers.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QStringList lines = ProbeParsers::splitLines(FuzzInput::bytes(data, size));
    FuzzInput::checkLines(lines);
    // The file counts KiB, so the answers are whole KiB, even when a huge
    // number overflows (the product wraps modulo 2^64, a multiple of 1024).
    PLINTH_FUZZ_CHECK(ProbeParsers::memInfoTotalBytes(lines) % 1024 == 0);
    PLINTH_FUZZ_CHECK(ProbeParsers::memInfoFreeBytes(lines) % 1024 == 0);
    return 0;
}
