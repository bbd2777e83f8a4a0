// SPDX-License-Identifier: Apache-2.0
#include "core/PropertyListScreens.h"

#include <cstddef>
#include <cstdint>

namespace tavrin {

namespace {

using PropertyListScreens::binaryMagic;

class BinaryScreen final {
public:
    BinaryScreen(std::string& bytes, const PropertyListLimits& limits)
        : bytes_(bytes), limits_(limits) {}

    [[nodiscard]] bool passes() {
        // Adjust first: the bytes must not change after the walk has accepted them.
        return readTrailer() && adjustTexts() && walk(root_, 1);
    }

private:
    enum class Type : std::uint8_t {
        Simple = 0x0,
        Integer = 0x1,
        Real = 0x2,
        Date = 0x3,
        Data = 0x4,
        ASCIIText = 0x5,
        UTF16Text = 0x6,
        UID = 0x8,
        Array = 0xA,
        Set = 0xC,
        Dictionary = 0xD,
    };

    struct Object {
        Type type;
        std::size_t marker;
        /// The content ends before the offset table.
        std::size_t content;
        std::size_t contentSize;
        std::size_t count;
    };

    static constexpr std::size_t trailerSize = 32;

    [[nodiscard]] std::uint8_t byteAt(std::size_t position) const {
        return static_cast<std::uint8_t>(bytes_[position]);
    }

    [[nodiscard]] std::uint64_t integerAt(std::size_t position, std::size_t width) const {
        std::uint64_t value = 0;
        for (std::size_t i = 0; i < width; ++i) {
            value = value << 8U | byteAt(position + i);
        }
        return value;
    }

    [[nodiscard]] bool readTrailer() {
        if (bytes_.size() < binaryMagic.size() + trailerSize) {
            return false;
        }
        const std::size_t trailer = bytes_.size() - trailerSize;
        offsetWidth_ = byteAt(trailer + 6);
        referenceWidth_ = byteAt(trailer + 7);
        objectCount_ = integerAt(trailer + 8, 8);
        root_ = integerAt(trailer + 16, 8);
        offsetTable_ = integerAt(trailer + 24, 8);
        return offsetWidth_ >= 1 && offsetWidth_ <= 8 && referenceWidth_ >= 1 &&
               referenceWidth_ <= 8 && objectCount_ <= limits_.objectCount &&
               offsetTable_ >= binaryMagic.size() && offsetTable_ <= trailer &&
               objectCount_ <= (trailer - offsetTable_) / offsetWidth_;
    }

    [[nodiscard]] std::optional<Object> objectAt(std::uint64_t index) const {
        if (index >= objectCount_) {
            return std::nullopt;
        }
        const std::uint64_t marker = integerAt(offsetTable_ + index * offsetWidth_, offsetWidth_);
        if (marker < binaryMagic.size() || marker >= offsetTable_) {
            return std::nullopt;
        }
        const auto type = static_cast<Type>(byteAt(marker) >> 4U);
        std::uint64_t count = byteAt(marker) & 0xFU;
        std::size_t content = marker + 1;
        std::size_t unit = 1;
        switch (type) {
        case Type::Simple:
            // Null, false and true.
            if (count != 0 && count != 8 && count != 9) {
                return std::nullopt;
            }
            count = 0;
            break;
        case Type::Integer:
            if (count > 4) {
                return std::nullopt;
            }
            count = std::uint64_t{1} << count;
            break;
        case Type::Real:
            if (count != 2 && count != 3) {
                return std::nullopt;
            }
            count = std::uint64_t{1} << count;
            break;
        case Type::Date:
            if (count != 3) {
                return std::nullopt;
            }
            count = 8;
            break;
        case Type::UID:
            ++count;
            break;
        case Type::Data:
        case Type::ASCIIText:
        case Type::UTF16Text:
        case Type::Array:
        case Type::Set:
        case Type::Dictionary:
            if (count == 0xF) {
                // The count follows as an integer object.
                const unsigned integer = content < offsetTable_ ? byteAt(content) : 0U;
                if (integer < 0x10 || integer > 0x13) {
                    return std::nullopt;
                }
                const std::size_t width = std::size_t{1} << (integer & 0xFU);
                ++content;
                if (width > offsetTable_ - content) {
                    return std::nullopt;
                }
                count = integerAt(content, width);
                content += width;
            }
            if (type == Type::UTF16Text) {
                unit = 2;
            } else if (type == Type::Array || type == Type::Set) {
                unit = referenceWidth_;
            } else if (type == Type::Dictionary) {
                unit = 2 * referenceWidth_;
            }
            break;
        default:
            return std::nullopt;
        }
        if (count > (offsetTable_ - content) / unit) {
            return std::nullopt;
        }
        return Object{type, marker, content, count * unit, count};
    }

    [[nodiscard]] bool adjustTexts() {
        std::size_t total = 0;
        for (std::uint64_t i = 0; i < objectCount_; ++i) {
            const auto object = objectAt(i);
            if (!object) {
                return false;
            }
            // A larger total means that objects overlap.
            total += object->contentSize;
            if (total > bytes_.size()) {
                return false;
            }
            if (object->type == Type::ASCIIText) {
                adjustASCIIText(*object);
            } else if (object->type == Type::UTF16Text) {
                adjustUTF16Text(*object);
            }
        }
        return true;
    }

    void adjustASCIIText(const Object& text) {
        const std::string_view content(bytes_.data() + text.content, text.contentSize);
        if (content.find('\0') != std::string_view::npos) {
            bytes_[text.marker] = static_cast<char>(
                static_cast<unsigned>(Type::Data) << 4U | (byteAt(text.marker) & 0xFU));
        }
    }

    void adjustUTF16Text(const Object& text) {
        const auto isLead = [this](std::size_t unit) {
            return (byteAt(unit) & 0xFCU) == 0xD8U;
        };
        const auto isTrail = [this](std::size_t unit) {
            return (byteAt(unit) & 0xFCU) == 0xDCU;
        };
        const std::size_t end = text.content + text.contentSize;
        for (std::size_t unit = text.content; unit < end; unit += 2) {
            if (isLead(unit) && unit + 2 < end && isTrail(unit + 2)) {
                unit += 2;
            } else if (isLead(unit) || isTrail(unit)) {
                bytes_.replace(unit, 2, "\xFF\xFD");
            }
        }
    }

    /// Visits objects in the same order as libplist, so the counts equal its allocations. The depth
    /// limit ends circular references.
    [[nodiscard]] bool walk(std::uint64_t index, std::size_t depth) {
        const auto object = objectAt(index);
        if (!object || depth > limits_.depth || ++walkedObjects_ > limits_.objectCount) {
            return false;
        }
        walkedSize_ += object->contentSize;
        if (walkedSize_ > limits_.size) {
            return false;
        }
        if (object->type != Type::Array && object->type != Type::Set &&
            object->type != Type::Dictionary) {
            return true;
        }
        for (std::size_t i = 0; i < object->contentSize / referenceWidth_; ++i) {
            // A dictionary's keys come before its values.
            const bool isKey = object->type == Type::Dictionary && i < object->count;
            const std::uint64_t child =
                integerAt(object->content + i * referenceWidth_, referenceWidth_);
            if ((isKey && !isKeyText(child)) || !walk(child, depth + 1)) {
                return false;
            }
        }
        return true;
    }

    /// libplist ends the process when it is asked for a key that contains NUL.
    [[nodiscard]] bool isKeyText(std::uint64_t index) const {
        const auto object = objectAt(index);
        return object && (object->type == Type::ASCIIText ||
                          (object->type == Type::UTF16Text && !hasNUL(*object)));
    }

    [[nodiscard]] bool hasNUL(const Object& text) const {
        for (std::size_t unit = 0; unit < text.contentSize; unit += 2) {
            if (integerAt(text.content + unit, 2) == 0) {
                return true;
            }
        }
        return false;
    }

    std::string& bytes_;
    const PropertyListLimits& limits_;
    std::size_t offsetWidth_ = 0;
    std::size_t referenceWidth_ = 0;
    std::uint64_t objectCount_ = 0;
    std::uint64_t root_ = 0;
    std::uint64_t offsetTable_ = 0;
    std::size_t walkedObjects_ = 0;
    std::size_t walkedSize_ = 0;
};

} // namespace

bool PropertyListScreens::passesBinary(std::string& bytes, const PropertyListLimits& limits) {
    return BinaryScreen(bytes, limits).passes();
}

} // namespace tavrin
