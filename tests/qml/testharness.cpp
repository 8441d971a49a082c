// SPDX-License-Identifier: BSD-3-Clause
#include "testharness.h"

#include <plinth/plainvalue.h>

#include <QDBusConnection>
#include <QDBusMessage>
#include <QJSEngine>

namespace {

const char HarnessService[] = "org.norvu.plinth.test.Harness";
const char HarnessPath[] = "/";
constexpr int BaseTimeoutMs = 10000;
// Plugging a drive or restarting the daemon waits for the daemon itself.
constexpr int CallTimeoutMs = 120000;

int timeFactor()
{
    bool ok = false;
    const int factor = qEnvironmentVariableIntValue("PLINTHD_TEST_TIME_FACTOR", &ok);
    return ok && factor > 0 ? factor : 1;
}

} // namespace

TestHarness::TestHarness(QJSEngine *engine)
    : QObject(engine)
    , m_engine(engine)
{
}

int TestHarness::timeout() const
{
    return BaseTimeoutMs * timeFactor();
}

QVariant TestHarness::call(const QString &method, const QVariantList &arguments)
{
    QDBusMessage message = QDBusMessage::createMethodCall(QLatin1String(HarnessService), QLatin1String(HarnessPath),
                                                          QLatin1String(HarnessService), method);
    message.setArguments(arguments);
    const QDBusMessage answer = QDBusConnection::systemBus().call(message, QDBus::Block, CallTimeoutMs * timeFactor());
    if (answer.type() != QDBusMessage::ReplyMessage) {
        m_engine->throwError(QStringLiteral("harness.%1: %2").arg(method, answer.errorMessage()));
        return QVariant();
    }
    return Plinth::plainValue(answer.arguments().value(0));
}
