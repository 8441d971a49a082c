// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_TESTS_MESSAGECAPTURE_H
#define PLINTHD_TESTS_MESSAGECAPTURE_H

#include <QByteArray>
#include <QList>
#include <QString>
#include <QtGlobal>

// Records every message logged while it lives, so a test can assert on exact
// texts and categories, and on the absence of any. Messages still reach the
// handler that was installed before, so they show in the test output.
class MessageCapture
{
public:
    struct Message
    {
        QtMsgType type;
        QByteArray category;
        QString text;
    };

    MessageCapture()
    {
        active = this;
        previous = qInstallMessageHandler(&MessageCapture::handle);
    }

    ~MessageCapture()
    {
        qInstallMessageHandler(previous);
        active = nullptr;
    }

    const QList<Message> &messages() const { return recorded; }

    int count(const QString &text) const
    {
        int n = 0;
        for (const Message &message : recorded)
            n += message.text == text ? 1 : 0;
        return n;
    }

private:
    static void handle(QtMsgType type, const QMessageLogContext &context, const QString &text)
    {
        if (active)
            active->recorded.append({type, QByteArray(context.category), text});
        if (previous)
            previous(type, context, text);
    }

    static inline MessageCapture *active = nullptr;
    static inline QtMessageHandler previous = nullptr;
    QList<Message> recorded;

    Q_DISABLE_COPY(MessageCapture)
};

#endif // PLINTHD_TESTS_MESSAGECAPTURE_H
