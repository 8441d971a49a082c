// SPDX-License-Identifier: BSD-3-Clause
// How long the certification probe takes on the installed-package database
// that librpm opens by default (bench/features.py points HOME at one with
// thousands of packages), against walking the whole database for the same
// exact name, measured side by side in the same run. Both must agree.
//
//     HOME=/path/with/.rpmmacros build/release/bench/packagelookup [name] [rounds]
#include "packagedatabase.h"

#include <QByteArray>
#include <QElapsedTimer>

#include <rpm/header.h>
#include <rpm/rpmdb.h>
#include <rpm/rpmlib.h>
#include <rpm/rpmtd.h>
#include <rpm/rpmts.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <vector>

namespace {

// The reference: every header of the database, names compared one by one.
bool scanForName(const QByteArray &name)
{
    rpmReadConfigFiles(nullptr, nullptr);
    rpmts ts = rpmtsCreate();
    rpmtsSetRootDir(ts, nullptr);
    rpmdbMatchIterator iterator = rpmtsInitIterator(ts, RPMDBI_PACKAGES, nullptr, 0);
    bool found = false;
    while (Header header = rpmdbNextIterator(iterator)) {
        rpmtd td = rpmtdNew();
        if (headerGet(header, RPMTAG_NAME, td, HEADERGET_EXT)) {
            const char *text = rpmtdGetString(td);
            found = text && name == text;
        }
        rpmtdFree(td);
        if (found)
            break;
    }
    rpmdbFreeIterator(iterator);
    rpmtsFree(ts);
    return found;
}

template<typename Probe>
double medianMs(Probe probe, int rounds, bool *answer)
{
    std::vector<double> times;
    for (int i = 0; i < rounds; ++i) {
        QElapsedTimer timer;
        timer.start();
        *answer = probe();
        times.push_back(timer.nsecsElapsed() / 1e6);
    }
    std::sort(times.begin(), times.end());
    return times[times.size() / 2];
}

} // namespace

int main(int argc, char *argv[])
{
    const QByteArray name = argc > 1 ? QByteArray(argv[1]) : QByteArrayLiteral("content-configuration-cert");
    const int rounds = argc > 2 ? std::max(1, std::atoi(argv[2])) : 20;
    bool byIndex = false;
    bool byScan = false;
    const double indexMs = medianMs([&] { return PackageDatabase::hasPackageNamed(name); }, rounds, &byIndex);
    const double scanMs = medianMs([&] { return scanForName(name); }, rounds, &byScan);
    std::printf("certification probe for \"%s\" (median of %d): name index %.3f ms, whole-database walk %.3f ms, "
                "ratio %.0f; answers %s/%s%s\n",
                name.constData(), rounds, indexMs, scanMs, scanMs / std::max(indexMs, 1e-6),
                byIndex ? "true" : "false", byScan ? "true" : "false", byIndex == byScan ? "" : "  DISAGREE");
    return byIndex == byScan ? 0 : 1;
}
