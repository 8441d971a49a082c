// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_TESTCAMERAS_H
#define PLINTHD_TESTCAMERAS_H

#include <QByteArray>
#include <QCamera>
#include <QList>
#include <QSize>
#include <QString>

// One camera offered by the test media service.
struct TestCamera
{
    QByteArray deviceName;
    QCamera::Position position = QCamera::UnspecifiedPosition;
    QList<QSize> stillResolutions;
};

// The cameras a test asks for, read from PLINTHD_TEST_CAMERAS, e.g.
// "back:4032x3024,front:640x480". Each entry is a position (back, front or
// unspecified), a colon and the still resolutions joined by '+'; an entry
// with nothing after the colon is a camera without still resolutions. The
// cameras are listed in the order given; an entry that does not parse is
// skipped with a warning, so a typo in a test shows in its log.
namespace TestCameras {

QList<TestCamera> parse(const QString &text);
QList<TestCamera> fromEnvironment();

// How long a camera takes to finish loading or unloading, in milliseconds:
// PLINTHD_TEST_CAMERA_DELAY_MS, at least 1. A test that wants to see the state
// before a measurement slows the cameras down with it.
//
// Never 0: a real backend reports from its own device and bus events, which
// the event loop handles after the events already posted when load() was
// called. A zero-time single shot would be one of those posted events and
// could overtake them, for instance the queued set-up that connects a D-Bus
// adaptor to its object, which no real camera can.
int settleDelay();

// Appends one line to the file named by PLINTHD_TEST_CAMERA_LOG, so a test can
// see which cameras were loaded and unloaded and when resolutions were asked.
void logEvent(const QString &event, const QByteArray &deviceName);

} // namespace TestCameras

#endif // PLINTHD_TESTCAMERAS_H
