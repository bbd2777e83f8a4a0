// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/contacts/EvolutionCards.h"

#include "core/Text.h"
#include "platform/linux/support/LazyLibrary.h"

#include <libebook/libebook.h>

#include <memory>
#include <string>
#include <string_view>
#include <utility>

namespace orvel {

namespace {

/// A query for all cards; the service rejects "#t", which should mean the same.
constexpr auto everyCard = R"((contains "x-evolution-any-field" ""))";

/// Open an address book without waiting until its server can be reached.
constexpr auto withoutWaiting = static_cast<guint32>(-1);

/// The functions used of libebook and GIO, which are loaded at the first access to the address
/// book.
struct Evolution {
    /// Throws `tavrin::PlatformError` when libebook cannot be loaded. Thread-safe.
    static const Evolution& get() {
        static const Evolution evolution{LazyLibrary(ORVEL_EBOOK_LIBRARY)};
        return evolution;
    }

    LazyLibrary library;
    decltype(&e_book_client_connect_sync) bookClientConnect =
        library.symbol("e_book_client_connect_sync");
    decltype(&e_book_client_get_contacts_sync) bookClientGetContacts =
        library.symbol("e_book_client_get_contacts_sync");
    decltype(&e_contact_get) contactGet = library.symbol("e_contact_get");
    decltype(&e_contact_get_const) contactGetConst = library.symbol("e_contact_get_const");
    decltype(&e_source_get_display_name) sourceGetDisplayName =
        library.symbol("e_source_get_display_name");
    decltype(&e_source_get_uid) sourceGetUid = library.symbol("e_source_get_uid");
    decltype(&e_source_registry_new_sync) sourceRegistryNew =
        library.symbol("e_source_registry_new_sync");
    decltype(&e_source_registry_list_enabled) sourceRegistryListEnabled =
        library.symbol("e_source_registry_list_enabled");
    decltype(&e_source_registry_list_sources) sourceRegistryListSources =
        library.symbol("e_source_registry_list_sources");
    decltype(&g_bus_get_sync) busGet = library.symbol("g_bus_get_sync");
    decltype(&g_dbus_connection_set_exit_on_close) dbusConnectionSetExitOnClose =
        library.symbol("g_dbus_connection_set_exit_on_close");
    decltype(&g_dbus_error_quark) dbusErrorQuark = library.symbol("g_dbus_error_quark");
    decltype(&g_dbus_error_strip_remote_error) dbusErrorStripRemoteError =
        library.symbol("g_dbus_error_strip_remote_error");
    decltype(&g_object_unref) objectUnref = library.symbol("g_object_unref");
};

template <typename T>
using Object = std::unique_ptr<T, LazyRelease<&Evolution::objectUnref>>;

struct FreeObjects {
    void operator()(GList* list) const { g_list_free_full(list, Evolution::get().objectUnref); }
    void operator()(GSList* list) const { g_slist_free_full(list, Evolution::get().objectUnref); }
};
struct FreeTexts {
    void operator()(GList* list) const { g_list_free_full(list, g_free); }
};

/// Makes libebook deliver a thread's events to the thread's own context, not to the one that Qt's
/// event loop runs on the main thread.
class OwnMainContext final {
public:
    OwnMainContext() : context_(g_main_context_new()) {
        g_main_context_push_thread_default(context_);
    }
    ~OwnMainContext() {
        // Pending events reference clients, and clients reference the context: both would leak.
        while (g_main_context_iteration(context_, FALSE) != FALSE) {
        }
        g_main_context_pop_thread_default(context_);
        g_main_context_unref(context_);
    }
    OwnMainContext(const OwnMainContext&) = delete;
    OwnMainContext& operator=(const OwnMainContext&) = delete;

private:
    GMainContext* context_;
};

/// Takes ownership of the error.
tavrin::PlatformError platformError(std::string_view doing, GError* error) {
    Evolution::get().dbusErrorStripRemoteError(error);
    tavrin::PlatformError result(
        g_quark_to_string(error->domain),
        error->code,
        std::string(doing) + ": " + tavrin::repairedUTF8(error->message));
    g_error_free(error);
    return result;
}

std::string text(EContact* contact, EContactField field) {
    const auto* value = static_cast<const char*>(Evolution::get().contactGetConst(contact, field));
    return value == nullptr ? std::string() : tavrin::repairedUTF8(value);
}

std::vector<std::string> texts(EContact* contact, EContactField field) {
    const std::unique_ptr<GList, FreeTexts> values(
        static_cast<GList*>(Evolution::get().contactGet(contact, field)));
    std::vector<std::string> result;
    for (const GList* value = values.get(); value != nullptr; value = value->next) {
        result.push_back(tavrin::repairedUTF8(static_cast<const char*>(value->data)));
    }
    return result;
}

ContactCard cardOf(EContact* contact, AddressBook::Fields fields) {
    ContactCard card;
    card.phoneNumbers = texts(contact, E_CONTACT_TEL);
    card.emailAddresses = texts(contact, E_CONTACT_EMAIL);
    if (fields == AddressBook::Fields::IdentifiersAndNames) {
        card.givenName = text(contact, E_CONTACT_GIVEN_NAME);
        card.familyName = text(contact, E_CONTACT_FAMILY_NAME);
        card.organizationName = text(contact, E_CONTACT_ORG);
        // Some programs write only the full name. For an organization it equals the organization's
        // name.
        std::string fullName = text(contact, E_CONTACT_FULL_NAME);
        if (card.givenName.empty() && card.familyName.empty() &&
            fullName != card.organizationName) {
            card.givenName = std::move(fullName);
        }
    }
    return card;
}

/// Appends the cards of one address book.
void readBook(ESource* source, AddressBook::Fields fields, std::vector<ContactCard>& cards) {
    GError* error = nullptr;
    const Object<EClient> client(
        Evolution::get().bookClientConnect(source, withoutWaiting, nullptr, &error));
    GSList* found = nullptr;
    if (client &&
        Evolution::get().bookClientGetContacts(
            reinterpret_cast<EBookClient*>(client.get()), everyCard, &found, nullptr, &error)) {
        const std::unique_ptr<GSList, FreeObjects> contacts(found);
        for (const GSList* item = found; item != nullptr; item = item->next) {
            auto* contact = static_cast<EContact*>(item->data);
            if (Evolution::get().contactGet(contact, E_CONTACT_IS_LIST) == nullptr) {
                cards.push_back(cardOf(contact, fields));
            }
        }
        return;
    }
    // Address books are often named after their owner's e-mail address, which must not be logged.
    if (const char* name = Evolution::get().sourceGetDisplayName(source);
        name != nullptr && *name != '\0') {
        GString* message = g_string_new(error->message);
        g_string_replace(message, name, Evolution::get().sourceGetUid(source), 0);
        g_free(error->message);
        error->message = g_string_free(message, FALSE);
    }
    throw platformError("Could not read an address book", error);
}

/// Appends the cards of all enabled address books.
void readBooks(ESourceRegistry* registry, AddressBook::Fields fields, EvolutionCards& result) {
    const std::unique_ptr<GList, FreeObjects> books(
        Evolution::get().sourceRegistryListEnabled(registry, E_SOURCE_EXTENSION_ADDRESS_BOOK));
    for (const GList* book = books.get(); book != nullptr; book = book->next) {
        try {
            readBook(static_cast<ESource*>(book->data), fields, result.cards);
        } catch (const tavrin::PlatformError& failure) {
            result.failures.push_back(failure);
        }
    }
    if (!result.failures.empty()) {
        result.error = result.failures.front();
    }
}

} // namespace

EvolutionCards EvolutionCards::read(std::optional<AddressBook::Fields> fields) {
    constexpr std::string_view doing = "Could not reach the desktop's address book";
    EvolutionCards result;
    try {
        Evolution::get();
    } catch (const tavrin::PlatformError& missing) {
        result.error = missing;
        result.isMissing = true;
        return result;
    }
    const OwnMainContext context;
    GError* error = nullptr;
    const Object<GDBusConnection> bus(Evolution::get().busGet(G_BUS_TYPE_SESSION, nullptr, &error));
    if (!bus) {
        result.error = platformError(doing, error);
        result.isMissing = true;
        return result;
    }
    // Otherwise GLib would end the process when the bus ends.
    Evolution::get().dbusConnectionSetExitOnClose(bus.get(), FALSE);
    const Object<ESourceRegistry> registry(Evolution::get().sourceRegistryNew(nullptr, &error));
    if (!registry) {
        result.error = platformError(doing, error);
        return result;
    }
    // The registry reports no error for a missing service, but a running service always has
    // sources.
    const std::unique_ptr<GList, FreeObjects> sources(
        Evolution::get().sourceRegistryListSources(registry.get(), nullptr));
    if (!sources) {
        result.error = tavrin::PlatformError(
            g_quark_to_string(Evolution::get().dbusErrorQuark()),
            G_DBUS_ERROR_SERVICE_UNKNOWN,
            std::string(doing) + ": Evolution Data Server is not installed");
        result.isMissing = true;
        return result;
    }
    if (fields) {
        readBooks(registry.get(), *fields, result);
    }
    return result;
}

} // namespace orvel
