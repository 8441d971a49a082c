// SPDX-License-Identifier: BSD-3-Clause
#include "mgconfitem.h"

#include "glibcontextpump.h"
#include "settingslogging.h"

#include <QStringList>

// GIO's headers name a structure member "signals", which Qt defines as a macro.
#pragma push_macro("signals")
#undef signals
#include <dconf.h>
#pragma pop_macro("signals")

namespace {

QVariant fromGVariant(GVariant *value)
{
    if (!value)
        return QVariant();
    if (g_variant_is_of_type(value, G_VARIANT_TYPE_BOOLEAN))
        return QVariant(bool(g_variant_get_boolean(value)));
    if (g_variant_is_of_type(value, G_VARIANT_TYPE_INT16))
        return QVariant(int(g_variant_get_int16(value)));
    if (g_variant_is_of_type(value, G_VARIANT_TYPE_INT32))
        return QVariant(int(g_variant_get_int32(value)));
    if (g_variant_is_of_type(value, G_VARIANT_TYPE_BYTE))
        return QVariant(uint(g_variant_get_byte(value)));
    if (g_variant_is_of_type(value, G_VARIANT_TYPE_UINT16))
        return QVariant(uint(g_variant_get_uint16(value)));
    if (g_variant_is_of_type(value, G_VARIANT_TYPE_UINT32))
        return QVariant(uint(g_variant_get_uint32(value)));
    if (g_variant_is_of_type(value, G_VARIANT_TYPE_INT64))
        return QVariant(qlonglong(g_variant_get_int64(value)));
    if (g_variant_is_of_type(value, G_VARIANT_TYPE_UINT64))
        return QVariant(qulonglong(g_variant_get_uint64(value)));
    if (g_variant_is_of_type(value, G_VARIANT_TYPE_DOUBLE))
        return QVariant(g_variant_get_double(value));
    if (g_variant_is_of_type(value, G_VARIANT_TYPE_STRING)
        || g_variant_is_of_type(value, G_VARIANT_TYPE_OBJECT_PATH)
        || g_variant_is_of_type(value, G_VARIANT_TYPE_SIGNATURE))
        return QVariant(QString::fromUtf8(g_variant_get_string(value, nullptr)));
    if (g_variant_is_of_type(value, G_VARIANT_TYPE_STRING_ARRAY)) {
        QStringList list;
        gsize length = 0;
        const gchar **strings = g_variant_get_strv(value, &length);
        for (gsize i = 0; i < length; ++i)
            list.append(QString::fromUtf8(strings[i]));
        g_free(strings);
        return QVariant(list);
    }
    qCDebug(lcSettings) << "Configuration value of unsupported type" << g_variant_get_type_string(value);
    return QVariant();
}

} // namespace

MGConfItem::MGConfItem(const QString &key, QObject *parent)
    : QObject(parent)
    , m_key(key)
    , m_dconfKey(key.toUtf8())
{
    if (!dconf_is_key(m_dconfKey.constData(), nullptr)) {
        qCWarning(lcSettings) << "Invalid configuration key" << key;
        return;
    }
    m_pump = new GlibContextPump(this);
    {
        // The client posts its change signals to the context that is the
        // thread default when it is made.
        GlibContextPump::Scope scope(*m_pump);
        m_client = dconf_client_new();
    }
    m_changedHandler = g_signal_connect(m_client, "changed", G_CALLBACK(&MGConfItem::onChanged), this);
    // Synchronous, so that a change made after the constructor returns is
    // never missed; it costs one bus round trip per item.
    dconf_client_watch_sync(m_client, m_dconfKey.constData());
    m_value = read();
    qCDebug(lcSettings) << "Configuration" << key << "is" << m_value;
}

MGConfItem::~MGConfItem()
{
    if (m_client) {
        g_signal_handler_disconnect(m_client, m_changedHandler);
        dconf_client_unwatch_fast(m_client, m_dconfKey.constData());
        g_object_unref(m_client);
    }
}

QVariant MGConfItem::value() const
{
    return m_value;
}

void MGConfItem::onChanged(DConfClient *, const char *prefix, const char *const *changes,
                           const char *, void *self)
{
    auto *item = static_cast<MGConfItem *>(self);
    if (item->concerns(prefix, changes))
        item->refresh();
}

// dconf names what changed as a prefix and a list of keys or directories
// (ending in "/") below it; an empty entry is the prefix itself.
bool MGConfItem::concerns(const char *prefix, const char *const *changes) const
{
    if (!prefix || !changes)
        return false;
    const QByteArray base(prefix);
    for (const char *const *change = changes; *change; ++change) {
        const QByteArray path = base + QByteArray(*change);
        if (path == m_dconfKey || (path.endsWith('/') && m_dconfKey.startsWith(path)))
            return true;
    }
    return false;
}

QVariant MGConfItem::read() const
{
    GVariant *raw = dconf_client_read(m_client, m_dconfKey.constData());
    const QVariant value = fromGVariant(raw);
    if (raw)
        g_variant_unref(raw);
    return value;
}

void MGConfItem::refresh()
{
    const QVariant value = read();
    // Qt 5 compares variants across types ("1" equals 1); a change of type is a
    // change.
    if (value.userType() == m_value.userType() && value == m_value)
        return;
    m_value = value;
    qCDebug(lcSettings) << "Configuration" << m_key << "changed to" << m_value;
    emit valueChanged();
}
