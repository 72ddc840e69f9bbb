// GLib's headers use "signals" as an identifier, which Qt defines as a macro.
#pragma push_macro("signals")
#undef signals
#include <libsecret/secret.h>
#pragma pop_macro("signals")

#include "platform/linux/LibsecretStore.h"

#include "core/OffThread.h"

#include <memory>

namespace murmurly {

namespace {

constexpr int busTimeoutMilliseconds = 2000;

const SecretSchema* schema() {
    static const SecretSchema generic = [] {
        SecretSchema s{};
        s.name = "org.freedesktop.Secret.Generic";
        s.flags = SECRET_SCHEMA_NONE;
        s.attributes[0] = {"service", SECRET_SCHEMA_ATTRIBUTE_STRING};
        s.attributes[1] = {"account", SECRET_SCHEMA_ATTRIBUTE_STRING};
        return s;
    }();
    return &generic;
}

struct HashTableDeleter {
    void operator()(GHashTable* table) const { g_hash_table_unref(table); }
};

// The attribute table for one item; it borrows the two strings, which outlive every call.
class Attributes {
public:
    Attributes(const QString& service, const QString& account)
        : m_service(service.toUtf8())
        , m_account(account.toUtf8())
        , m_table(g_hash_table_new(g_str_hash, g_str_equal)) {
        g_hash_table_insert(m_table.get(), const_cast<char*>("service"), m_service.data());
        g_hash_table_insert(m_table.get(), const_cast<char*>("account"), m_account.data());
    }
    GHashTable* table() const { return m_table.get(); }

private:
    QByteArray m_service;
    QByteArray m_account;
    std::unique_ptr<GHashTable, HashTableDeleter> m_table;
};

bool call(GDBusConnection* bus, const char* method, GVariant* parameters, const GVariantType* replyType,
          GVariant** reply) {
    GError* error = nullptr;
    *reply = g_dbus_connection_call_sync(bus, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                                         "org.freedesktop.DBus", method, parameters, replyType,
                                         G_DBUS_CALL_FLAGS_NONE, busTimeoutMilliseconds, nullptr, &error);
    if (error) g_error_free(error);
    return *reply != nullptr;
}

} // namespace

bool LibsecretStore::isAvailable() {
    GError* error = nullptr;
    GDBusConnection* bus = g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, &error);
    if (!bus) {
        if (error) g_error_free(error);
        return false;
    }
    bool available = false;
    GVariant* reply = nullptr;
    if (call(bus, "NameHasOwner", g_variant_new("(s)", "org.freedesktop.secrets"), G_VARIANT_TYPE("(b)"),
             &reply)) {
        gboolean owned = FALSE;
        g_variant_get(reply, "(b)", &owned);
        available = owned;
        g_variant_unref(reply);
    }
    if (!available && call(bus, "ListActivatableNames", nullptr, G_VARIANT_TYPE("(as)"), &reply)) {
        GVariantIter* names = nullptr;
        const gchar* name = nullptr;
        g_variant_get(reply, "(as)", &names);
        while (g_variant_iter_loop(names, "&s", &name))
            if (g_strcmp0(name, "org.freedesktop.secrets") == 0) available = true;
        g_variant_iter_free(names);
        g_variant_unref(reply);
    }
    g_object_unref(bus);
    return available;
}

std::optional<QByteArray> LibsecretStore::read(const QString& service, const QString& account) {
    if (!isAvailable()) return std::nullopt;
    const Attributes attributes(service, account);
    GError* error = nullptr;
    SecretValue* value = secret_password_lookupv_binary_sync(schema(), attributes.table(), nullptr, &error);
    if (error) g_error_free(error);
    if (!value) return std::nullopt;
    gsize length = 0;
    const gchar* bytes = secret_value_get(value, &length);
    QByteArray secret(bytes, static_cast<qsizetype>(length));
    secret_value_unref(value);
    return secret;
}

QCoro::Task<std::optional<QByteArray>>
LibsecretStore::readWithin(const QString& service, const QString& account, std::chrono::milliseconds limit) {
    // The store holds no state: the thread reads through one of its own, which it owns.
    const std::optional<std::optional<QByteArray>> read =
        co_await OffThread::resultWithin<std::optional<QByteArray>>(
            [service, account] { return LibsecretStore().read(service, account); }, limit);
    co_return read ? *read : std::nullopt;
}

bool LibsecretStore::add(const QString& service, const QString& account, const QByteArray& secret) {
    if (!isAvailable()) return false;
    const Attributes attributes(service, account);
    const QByteArray label = QStringLiteral("Murmurly: %1").arg(account).toUtf8();
    SecretValue* value = secret_value_new(secret.constData(), secret.size(), "text/plain");
    GError* error = nullptr;
    const gboolean stored = secret_password_storev_binary_sync(
        schema(), attributes.table(), SECRET_COLLECTION_DEFAULT, label.constData(), value, nullptr, &error);
    secret_value_unref(value);
    if (error) g_error_free(error);
    return stored;
}

void LibsecretStore::remove(const QString& service, const QString& account) {
    if (!isAvailable()) return;
    const Attributes attributes(service, account);
    GError* error = nullptr;
    secret_password_clearv_sync(schema(), attributes.table(), nullptr, &error);
    if (error) g_error_free(error);
}

} // namespace murmurly
