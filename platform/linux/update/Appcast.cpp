// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/update/Appcast.h"

#include "core/OutOfMemory.h"
#include "core/Text.h"
#include "core/UpdateStatement.h"
#include "platform/linux/update/UpdateError.h"

#include <expat.h>

#include <algorithm>
#include <array>
#include <memory>
#include <type_traits>
#include <utility>

namespace orvel {

namespace {

constexpr std::size_t maximumDepth = 64;
/// Stands between a namespace and a name.
constexpr char separator = '\n';

/// The elements that contain the items.
constexpr std::array<std::string_view, 3> pathToItem = {"rss", "channel", "item"};

struct FreeParser {
    void operator()(XML_Parser parser) const { XML_ParserFree(parser); }
};
using Parser = std::unique_ptr<std::remove_pointer_t<XML_Parser>, FreeParser>;

/// The name without this namespace; no value for one outside it.
std::optional<std::string_view> nameIn(std::string_view space, std::string_view name) {
    const bool isInside =
        name.size() > space.size() && name.starts_with(space) && name[space.size()] == separator;
    return isInside ? std::optional(name.substr(space.size() + 1)) : std::nullopt;
}

/// The name without the feed's own namespace; no value for one outside it.
std::optional<std::string_view> ownName(std::string_view name) {
    return nameIn(appcastNamespace, name);
}

/// How much of a field is kept: one byte more than is accepted.
std::size_t roomOf(bool isNotes) {
    return 1 + (isNotes ? tavrin::maximumUpdateNotesBytes : tavrin::maximumUpdateFieldBytes);
}

bool isUTF8(std::string_view encoding) {
    return encoding.size() == 5 && (encoding[0] | 0x20) == 'u' && (encoding[1] | 0x20) == 't' &&
           (encoding[2] | 0x20) == 'f' && encoding.substr(3) == "-8";
}

/// Collects the items during parsing.
class Reader final {
public:
    Reader() : parser_(XML_ParserCreateNS("UTF-8", separator)) {
        if (!parser_) {
            throw tavrin::OutOfMemory();
        }
        XML_SetUserData(parser_.get(), this);
        XML_SetXmlDeclHandler(parser_.get(), onDeclaration);
        XML_SetStartDoctypeDeclHandler(parser_.get(), onDocumentType);
        XML_SetElementHandler(parser_.get(), onStart, onEnd);
        XML_SetCharacterDataHandler(parser_.get(), onText);
    }

    std::vector<AppcastItem> read(std::string_view text) {
        const XML_Status status =
            XML_Parse(parser_.get(), text.data(), static_cast<int>(text.size()), XML_TRUE);
        if (refusal_) {
            throw UpdateError(*refusal_);
        }
        if (status != XML_STATUS_OK) {
            throw UpdateError(UpdateError::FeedNotXML{XML_GetCurrentLineNumber(parser_.get())});
        }
        return std::move(items_);
    }

private:
    // Called by the parser, which is C: must not throw.
    static void
    onDeclaration(void* reader, const XML_Char*, const XML_Char* encoding, int) noexcept {
        if (encoding != nullptr && !isUTF8(encoding)) {
            static_cast<Reader*>(reader)->refuse(UpdateError::FeedNotUTF8());
        }
    }

    static void
    onDocumentType(void* reader, const XML_Char*, const XML_Char*, const XML_Char*, int) noexcept {
        static_cast<Reader*>(reader)->refuse(UpdateError::FeedWithDocumentType());
    }

    static void onStart(void* reader, const XML_Char* name, const XML_Char** attributes) noexcept {
        static_cast<Reader*>(reader)->start(name, attributes);
    }

    static void onEnd(void* reader, const XML_Char*) noexcept {
        static_cast<Reader*>(reader)->end();
    }

    static void onText(void* reader, const XML_Char* text, int length) noexcept {
        static_cast<Reader*>(reader)->add({text, static_cast<std::size_t>(length)});
    }

    void refuse(UpdateError::Case reason) {
        if (!refusal_) {
            refusal_ = std::move(reason);
            XML_StopParser(parser_.get(), XML_FALSE);
        }
    }

    void add(std::string_view text) {
        // Ignore text of nested elements.
        if (field_ != nullptr && depth_ == pathToItem.size() + 1) {
            const bool isNotes = field_ == &items_.back().description;
            field_->append(text.substr(0, roomOf(isNotes) - field_->size()));
        }
    }

    void start(std::string_view name, const XML_Char** attributes) {
        const bool isOnPath = depth_ == depthOnPath_;
        ++depth_;
        if (++elements_ > maximumAppcastElements) {
            refuse(UpdateError::FeedTooLong());
        } else if (depth_ > maximumDepth) {
            refuse(UpdateError::FeedNotXML{XML_GetCurrentLineNumber(parser_.get())});
        } else if (depth_ == 1 && !isRSS(name, attributes)) {
            refuse(UpdateError::FeedNotRSS());
        } else if (isOnPath && depth_ <= pathToItem.size() && name == pathToItem[depth_ - 1]) {
            depthOnPath_ = depth_;
            if (depth_ == pathToItem.size()) {
                startItem();
            }
        } else if (isOnPath && depth_ == pathToItem.size() + 1) {
            startPart(items_.back(), name, attributes);
        }
    }

    void startItem() {
        if (items_.size() == maximumAppcastItems) {
            refuse(UpdateError::FeedTooLong());
        } else {
            items_.emplace_back();
        }
    }

    void end() {
        if (depth_ == pathToItem.size() + 1) {
            field_ = nullptr;
        }
        --depth_;
        depthOnPath_ = std::min(depthOnPath_, depth_);
    }

    static bool isRSS(std::string_view name, const XML_Char** attributes) {
        for (; *attributes != nullptr; attributes += 2) {
            if (std::string_view(attributes[0]) == "version") {
                return name == pathToItem.front() && std::string_view(attributes[1]) == "2.0";
            }
        }
        return false;
    }

    void startPart(AppcastItem& item, std::string_view name, const XML_Char** attributes) {
        if (name == "enclosure") {
            if (!item.enclosure) {
                readEnclosure(item, attributes);
            }
        } else if (name == "description") {
            field_ = &item.description;
        } else if (const auto own = ownName(name)) {
            field_ = *own == "version"                ? &item.version
                     : *own == "shortVersionString"   ? &item.shortVersion
                     : *own == "channel"              ? &item.channel
                     : *own == "minimumSystemVersion" ? &item.minimumSystemVersion
                                                      : nullptr;
        }
        if (field_ != nullptr) {
            field_->clear();
        }
    }

    static void readEnclosure(AppcastItem& item, const XML_Char** attributes) {
        AppcastItem::Enclosure& enclosure = item.enclosure.emplace();
        for (; *attributes != nullptr; attributes += 2) {
            const std::string_view name = attributes[0];
            const auto own = ownName(name);
            const auto added = nameIn(tavrin::updateNamespace, name);
            std::string* const field = name == "url"                 ? &enclosure.url
                                       : name == "type"              ? &enclosure.type
                                       : name == "length"            ? &enclosure.length
                                       : own == "edSignature"        ? &enclosure.signature
                                       : added == "sha256"           ? &enclosure.sha256
                                       : added == "itemSignature"    ? &enclosure.itemSignature
                                       : own == "os"                 ? &enclosure.system
                                       : own == "arch"               ? &enclosure.architecture
                                       : own == "version"            ? &item.version
                                       : own == "shortVersionString" ? &item.shortVersion
                                                                     : nullptr;
            // The item's own value takes precedence, in any order.
            if (field != nullptr && field->empty()) {
                *field = std::string_view(attributes[1]).substr(0, roomOf(false));
            }
        }
    }

    Parser parser_;
    std::vector<AppcastItem> items_;
    std::optional<UpdateError::Case> refusal_;
    std::size_t elements_ = 0;
    std::size_t depth_ = 0;
    /// How many of the open elements are on `pathToItem`.
    std::size_t depthOnPath_ = 0;
    /// The field that receives the current text.
    std::string* field_ = nullptr;
};

} // namespace

std::vector<AppcastItem> parseAppcast(std::string_view text) {
    if (text.size() > maximumAppcastBytes) {
        throw UpdateError(UpdateError::FeedTooLong());
    }
    if (!tavrin::isValidUTF8(text)) {
        throw UpdateError(UpdateError::FeedNotUTF8());
    }
    std::vector<AppcastItem> items = Reader().read(text);
    for (AppcastItem& item : items) {
        for (std::string* field :
             {&item.version,
              &item.shortVersion,
              &item.description,
              &item.channel,
              &item.minimumSystemVersion}) {
            *field = std::string(tavrin::trimmed(*field));
        }
    }
    return items;
}

} // namespace orvel
