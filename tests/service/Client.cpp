// SPDX-License-Identifier: Apache-2.0
#include "tests/service/Client.h"

#include <boost/json.hpp>

#include <array>
#include <memory>
#include <stdexcept>

namespace orvel::test {

namespace {

std::size_t append(char* bytes, std::size_t, std::size_t count, void* text) {
    static_cast<std::string*>(text)->append(bytes, count);
    return count;
}

class HeaderList final {
public:
    HeaderList() = default;
    ~HeaderList() { curl_slist_free_all(list_); }
    HeaderList(const HeaderList&) = delete;
    HeaderList& operator=(const HeaderList&) = delete;

    void add(const std::string& header) { list_ = curl_slist_append(list_, header.c_str()); }
    [[nodiscard]] curl_slist* list() const { return list_; }

private:
    curl_slist* list_ = nullptr;
};

} // namespace

boost::json::object ClientReply::json() const {
    return boost::json::parse(body).as_object();
}

boost::json::object ClientReply::data() const {
    return json().at("data").as_object();
}

std::string ClientReply::code() const {
    return boost::json::value_to<std::string>(json().at("code"));
}

ClientReply Client::get(const std::string& path) const {
    return send("GET", path, {});
}

ClientReply Client::post(const std::string& path, const std::string& body) const {
    return send("POST", path, {"Content-Type: application/json"}, body);
}

ClientReply Client::send(
    const std::string& method,
    const std::string& path,
    const std::vector<std::string>& headers,
    const std::optional<std::string>& body) const {
    const std::unique_ptr<CURL, decltype(&curl_easy_cleanup)> handle(
        curl_easy_init(), curl_easy_cleanup);
    CURL* curl = handle.get();
    if (curl == nullptr) {
        throw std::runtime_error("curl_easy_init failed");
    }
    HeaderList list;
    if (!token.empty()) {
        list.add("Authorization: Bearer " + token);
    }
    if (!cookie.empty()) {
        list.add("Cookie: " + cookie);
    }
    for (const auto& header : headers) {
        list.add(header);
    }
    ClientReply reply;
    std::array<char, CURL_ERROR_SIZE> problem{};
    curl_easy_setopt(curl, CURLOPT_URL, (url + path).c_str());
    curl_easy_setopt(curl, CURLOPT_PATH_AS_IS, 1L);
    curl_easy_setopt(curl, CURLOPT_CAINFO, caFile.c_str());
    curl_easy_setopt(curl, CURLOPT_NOPROXY, "*");
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl, CURLOPT_TIMEOUT_MS, static_cast<long>(timeout.count()));
    curl_easy_setopt(curl, CURLOPT_CUSTOMREQUEST, method.c_str());
    curl_easy_setopt(curl, CURLOPT_HTTPHEADER, list.list());
    if (body) {
        curl_easy_setopt(curl, CURLOPT_POSTFIELDS, body->data());
        curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body->size()));
    }
    curl_easy_setopt(curl, CURLOPT_ERRORBUFFER, problem.data());
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, append);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, &reply.body);
    curl_easy_setopt(curl, CURLOPT_HEADERFUNCTION, append);
    curl_easy_setopt(curl, CURLOPT_HEADERDATA, &reply.headers);
    reply.outcome = curl_easy_perform(curl);
    reply.problem = problem.data();
    curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &reply.status);
    return reply;
}

} // namespace orvel::test
