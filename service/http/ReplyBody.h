// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/FileDescriptor.h"

#include <boost/asio/buffer.hpp>
#include <boost/beast/core/error.hpp>
#include <boost/beast/http/error.hpp>
#include <boost/beast/http/message.hpp>
#include <boost/optional/optional.hpp>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>

namespace orvel::service {

/// A body for Beast: a text, or a file that is read in pieces while it is sent.
struct ReplyBody {
    struct value_type {
        std::string text;
        /// Sent in place of the text, if not null.
        std::shared_ptr<const tavrin::FileDescriptor> file;
        /// How many bytes of the text or the file are sent.
        std::uint64_t length = 0;
    };

    class writer;

    static std::uint64_t size(const value_type& body) { return body.length; }
};

/// The names are Beast's.
class ReplyBody::writer final {
public:
    using const_buffers_type = boost::asio::const_buffer;
    using Error = boost::beast::error_code;

    template <bool IsRequest, class Fields>
    writer(const boost::beast::http::header<IsRequest, Fields>& /*head*/, const value_type& body)
        : body_(body) {}

    static void init(Error& error) { error = {}; }

    /// The next piece, and whether there are more.
    boost::optional<std::pair<const_buffers_type, bool>> get(Error& error) {
        error = {};
        const std::uint64_t remaining = body_.length - sent_;
        if (remaining == 0) {
            return boost::none;
        }
        if (body_.file == nullptr) {
            sent_ = body_.length;
            return std::pair(
                const_buffers_type(body_.text.data(), static_cast<std::size_t>(remaining)), false);
        }
        const auto wanted = std::min<std::uint64_t>(piece_.size(), remaining);
        const auto count = pread(
            body_.file->get(),
            piece_.data(),
            static_cast<std::size_t>(wanted),
            static_cast<off_t>(sent_));
        if (count <= 0) {
            // The file is shorter now, or cannot be read. The client must see an incomplete reply.
            error = boost::beast::http::make_error_code(boost::beast::http::error::partial_message);
            return boost::none;
        }
        sent_ += static_cast<std::uint64_t>(count);
        return std::pair(
            const_buffers_type(piece_.data(), static_cast<std::size_t>(count)),
            sent_ < body_.length);
    }

private:
    const value_type& body_;
    std::uint64_t sent_ = 0;
    std::array<char, std::size_t{16} * 1024> piece_{};
};

} // namespace orvel::service
