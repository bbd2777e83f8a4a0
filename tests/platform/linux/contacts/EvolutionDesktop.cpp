// SPDX-License-Identifier: Apache-2.0
#include "tests/platform/linux/contacts/EvolutionDesktop.h"

#include "tests/platform/linux/BusDaemon.h"

#include <QByteArray>
#include <QString>

#include <libebook/libebook.h>

#include <chrono>
#include <cstdlib>
#include <future>
#include <stdexcept>

namespace orvel::test {

namespace {

constexpr auto busVariable = "DBUS_SESSION_BUS_ADDRESS";

/// Converts a call's GError to an exception.
class Errors final {
public:
    ~Errors() { g_clear_error(&error_); }
    Errors() = default;
    Errors(const Errors&) = delete;
    Errors& operator=(const Errors&) = delete;

    [[nodiscard]] GError** out() { return &error_; }

    void check() const {
        if (error_ != nullptr) {
            throw std::runtime_error(error_->message);
        }
    }

private:
    GError* error_ = nullptr;
};

struct Unref {
    void operator()(gpointer object) const { g_object_unref(object); }
};
template <typename T>
using Object = std::unique_ptr<T, Unref>;

Object<EClient> connect(ESource* source) {
    Errors errors;
    Object<EClient> client(
        e_book_client_connect_sync(source, static_cast<guint32>(-1), nullptr, errors.out()));
    errors.check();
    return client;
}

void addContacts(ESource* source, const std::vector<Object<EContact>>& contacts) {
    const Object<EClient> client = connect(source);
    GSList* list = nullptr;
    for (const auto& contact : contacts) {
        list = g_slist_append(list, contact.get());
    }
    Errors errors;
    e_book_client_add_contacts_sync(
        E_BOOK_CLIENT(client.get()),
        list,
        E_BOOK_OPERATION_FLAG_NONE,
        nullptr,
        nullptr,
        errors.out());
    g_slist_free(list);
    errors.check();
}

void clear(ESource* source) {
    const Object<EClient> client = connect(source);
    Errors errors;
    GSList* identifiers = nullptr;
    e_book_client_get_contacts_uids_sync(
        E_BOOK_CLIENT(client.get()),
        "(contains \"x-evolution-any-field\" \"\")",
        &identifiers,
        nullptr,
        errors.out());
    errors.check();
    if (identifiers != nullptr) {
        e_book_client_remove_contacts_sync(
            E_BOOK_CLIENT(client.get()),
            identifiers,
            E_BOOK_OPERATION_FLAG_NONE,
            nullptr,
            errors.out());
        g_slist_free_full(identifiers, g_free);
        errors.check();
    }
}

void setText(EContact* contact, EContactField field, const std::string& text) {
    if (!text.empty()) {
        e_contact_set(contact, field, text.c_str());
    }
}

void setTexts(EContact* contact, EContactField field, const std::vector<std::string>& texts) {
    GList* list = nullptr;
    for (const std::string& text : texts) {
        list = g_list_append(list, g_strdup(text.c_str()));
    }
    e_contact_set(contact, field, list);
    g_list_free_full(list, g_free);
}

Object<EContact> contactOf(const ContactCard& card) {
    Object<EContact> contact(e_contact_new());
    setText(contact.get(), E_CONTACT_GIVEN_NAME, card.givenName);
    setText(contact.get(), E_CONTACT_FAMILY_NAME, card.familyName);
    setText(contact.get(), E_CONTACT_ORG, card.organizationName);
    setTexts(contact.get(), E_CONTACT_TEL, card.phoneNumbers);
    setTexts(contact.get(), E_CONTACT_EMAIL, card.emailAddresses);
    return contact;
}

/// Waits until all users have released GLib's shared connection, so that the next one uses another
/// bus.
void awaitEndOfSharedConnection() {
    GDBusConnection* connection = g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, nullptr);
    if (connection == nullptr) {
        return;
    }
    std::promise<void> end;
    g_object_weak_ref(
        G_OBJECT(connection),
        [](gpointer promise, GObject*) { static_cast<std::promise<void>*>(promise)->set_value(); },
        &end);
    g_object_unref(connection);
    const auto isOver = end.get_future();
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(1);
    while (isOver.wait_for(std::chrono::milliseconds(1)) != std::future_status::ready) {
        g_main_context_iteration(nullptr, FALSE);
        if (std::chrono::steady_clock::now() > deadline) {
            // A later release would use the destroyed promise.
            std::abort();
        }
    }
}

} // namespace

struct EvolutionDesktop::Session {
    Session() {
        Errors errors;
        registry.reset(e_source_registry_new_sync(nullptr, errors.out()));
        errors.check();
    }

    ~Session() {
        for (const Object<ESource>& book : books) {
            e_source_remove_sync(book.get(), nullptr, nullptr);
        }
    }

    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    [[nodiscard]] Object<ESource> source(const std::string& identifier) const {
        Object<ESource> found(e_source_registry_ref_source(registry.get(), identifier.c_str()));
        if (!found) {
            throw std::runtime_error("There is no address book " + identifier + ".");
        }
        return found;
    }

    Object<ESourceRegistry> registry;
    std::vector<Object<ESource>> books;
};

EvolutionDesktop::EvolutionDesktop() {
    if (std::getenv("PRIVATE_SESSION") == nullptr) {
        throw std::runtime_error("Run this under tests/support/private-session.");
    }
    // Makes incorrect use of libebook fail the test.
    g_log_set_always_fatal(G_LOG_LEVEL_CRITICAL);
    session_ = std::make_unique<Session>();
    clear(session_->source(personalBook).get());
}

EvolutionDesktop::~EvolutionDesktop() = default;

void EvolutionDesktop::add(const std::vector<ContactCard>& cards) {
    std::vector<Object<EContact>> contacts;
    contacts.reserve(cards.size());
    for (const ContactCard& card : cards) {
        contacts.push_back(contactOf(card));
    }
    addContacts(session_->source(personalBook).get(), contacts);
}

void EvolutionDesktop::addVCard(const std::string& vcard) {
    addVCardTo(personalBook, vcard);
}

std::string EvolutionDesktop::addBook(const std::string& name, const std::string& backend) {
    Errors errors;
    Object<ESource> book(e_source_new(nullptr, nullptr, errors.out()));
    errors.check();
    e_source_set_display_name(book.get(), name.c_str());
    e_source_set_parent(book.get(), "local-stub");
    e_source_backend_set_backend_name(
        E_SOURCE_BACKEND(e_source_get_extension(book.get(), E_SOURCE_EXTENSION_ADDRESS_BOOK)),
        backend.c_str());
    e_source_registry_commit_source_sync(
        session_->registry.get(), book.get(), nullptr, errors.out());
    errors.check();
    std::string identifier = e_source_get_uid(book.get());
    session_->books.push_back(session_->source(identifier));
    return identifier;
}

void EvolutionDesktop::addVCardTo(const std::string& book, const std::string& vcard) {
    std::vector<Object<EContact>> contacts;
    contacts.emplace_back(e_contact_new_from_vcard(vcard.c_str()));
    addContacts(session_->source(book).get(), contacts);
}

void EvolutionDesktop::setEnabled(const std::string& book, bool isEnabled) {
    const Object<ESource> source = session_->source(book);
    e_source_set_enabled(source.get(), isEnabled ? TRUE : FALSE);
    Errors errors;
    e_source_write_sync(source.get(), nullptr, errors.out());
    errors.check();
}

OtherBus::OtherBus(Kind kind) : usualAddress_(std::getenv(busVariable)) {
    awaitEndOfSharedConnection();
    if (kind == Kind::WithoutServices) {
        daemon_ = std::make_unique<BusDaemon>();
        qputenv(busVariable, QByteArray::fromStdString(daemon_->address()));
    } else {
        qputenv(busVariable, "unix:path=/nonexistent/bus");
    }
}

OtherBus::~OtherBus() {
    awaitEndOfSharedConnection();
    daemon_.reset();
    qputenv(busVariable, usualAddress_.c_str());
}

} // namespace orvel::test
