// SPDX-License-Identifier: BSD-3-Clause
// What the atomic replacement of the device description file costs: the time
// of DeviceDescriptionFile::record() against the same update written in place over
// the old file (truncate and write, the unsafe way), measured in alternating
// rounds in the same folder. Prints the ratio; never fails.
//
//   devicedescriptionfile [FOLDER] [ROUNDS]   (default: a temporary folder, 20 rounds)

#include "devicedescriptionfile.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QJsonObject>
#include <QJsonDocument>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <vector>

namespace {

const int RecordsPerRound = 50;

// A description file of a realistic size: one device with a few dozen facts.
QByteArray sampleDocument()
{
    QJsonObject device;
    for (int i = 0; i < 40; ++i)
        device.insert(QStringLiteral("fact%1").arg(i), QStringLiteral("value of fact %1").arg(i));
    return QJsonDocument(QJsonObject{{QStringLiteral("phone"), device}}).toJson();
}

void writeFile(const QString &path, const QByteArray &content)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
        qFatal("cannot write %s", qPrintable(path));
}

// The same read, update and write as record(), minus the atomic replacement.
void recordInPlace(const QString &path, const QString &key, double value)
{
    QFile in(path);
    if (!in.open(QIODevice::ReadOnly))
        return;
    const QJsonObject document = DeviceDescriptionFile::withCameraValue(QJsonDocument::fromJson(in.readAll()).object(),
                                                                 key, value);
    in.close();
    if (!document.isEmpty())
        writeFile(path, QJsonDocument(document).toJson(QJsonDocument::Indented));
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QTemporaryDir temporary;
    const QString folder = argc > 1 ? QString::fromLocal8Bit(argv[1]) : temporary.path();
    const int rounds = argc > 2 ? qMax(1, atoi(argv[2])) : 20;
    const QString atomicPath = folder + QStringLiteral("/atomic.json");
    const QString inPlacePath = folder + QStringLiteral("/in-place.json");
    writeFile(atomicPath, sampleDocument());
    writeFile(inPlacePath, sampleDocument());

    const DeviceDescriptionFile atomic(atomicPath);
    std::vector<double> atomicUs;
    std::vector<double> inPlaceUs;
    QElapsedTimer timer;
    for (int round = 0; round < rounds; ++round) {
        timer.start();
        for (int i = 0; i < RecordsPerRound; ++i)
            atomic.record(QStringLiteral("backResolutions"), i);
        atomicUs.push_back(timer.nsecsElapsed() / 1000.0 / RecordsPerRound);

        timer.start();
        for (int i = 0; i < RecordsPerRound; ++i)
            recordInPlace(inPlacePath, QStringLiteral("backResolutions"), i);
        inPlaceUs.push_back(timer.nsecsElapsed() / 1000.0 / RecordsPerRound);
    }

    const double atomicMedian = median(atomicUs);
    const double inPlaceMedian = median(inPlaceUs);
    std::printf("device description file, %d rounds of %d records in %s\n", rounds, RecordsPerRound,
                qPrintable(folder));
    std::printf("  record(), atomic replacement: %8.1f us per record (median)\n", atomicMedian);
    std::printf("  in-place rewrite (reference): %8.1f us per record (median)\n", inPlaceMedian);
    std::printf("  ratio atomic / in place:      %8.2f\n", atomicMedian / inPlaceMedian);
    return 0;
}
