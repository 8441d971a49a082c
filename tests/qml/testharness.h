// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHTEST_TESTHARNESS_H
#define PLINTHTEST_TESTHARNESS_H

#include <QObject>
#include <QVariant>

class QJSEngine;

// The QML tests' hands outside the QML engine: the Python test that runs them
// (tests/integration/test_qml.py) serves the methods that plug drives, change
// SIM cards, hold the daemon's walks or restart it, on the test's bus; a test
// calls them as harness.call("PlugDrive", ["sdcard"]). A call waits for the
// Python side to finish (it is a test, not the module). A failure is thrown
// into the calling test function as a JavaScript error, which fails it.
class TestHarness : public QObject
{
    Q_OBJECT
    // Milliseconds a test waits for the daemon: ten seconds, times the
    // suite's factor for slow machines (emulation).
    Q_PROPERTY(int timeout READ timeout CONSTANT)

public:
    explicit TestHarness(QJSEngine *engine);

    int timeout() const;

    Q_INVOKABLE QVariant call(const QString &method, const QVariantList &arguments = QVariantList());

private:
    QJSEngine *m_engine;
};

#endif // PLINTHTEST_TESTHARNESS_H
