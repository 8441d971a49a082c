// SPDX-License-Identifier: BSD-3-Clause
// The Qt Quick tests of the QML module (tst_*.qml beside this file), against
// the real daemon; tests/integration/test_qml.py sets the scene and runs them.
#include "testharness.h"

#include <QQmlContext>
#include <QQmlEngine>
#include <QtQuickTest>

class Setup : public QObject
{
    Q_OBJECT

public slots:
    void qmlEngineAvailable(QQmlEngine *engine)
    {
        engine->rootContext()->setContextProperty(QStringLiteral("harness"), new TestHarness(engine));
    }
};

QUICK_TEST_MAIN_WITH_SETUP(plinthqml, Setup)

#include "tst_qml.moc"
