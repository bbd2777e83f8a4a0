// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <curl/curl.h>

namespace orvel {

class LazyLibrary;

/// The functions used of libcurl, which is loaded at the first request.
struct Curl {
    /// Throws `tavrin::PlatformError` when libcurl cannot be loaded. Thread-safe.
    static const Curl& get();

    decltype(&curl_global_init) globalInit;
    decltype(&curl_global_cleanup) globalCleanup;
    decltype(&curl_easy_init) easyInit;
    decltype(&curl_easy_cleanup) easyCleanup;
    decltype(&curl_easy_setopt) easySetopt;
    decltype(&curl_easy_getinfo) easyGetinfo;
    decltype(&curl_easy_header) easyHeader;
    decltype(&curl_easy_strerror) easyStrerror;
    decltype(&curl_multi_init) multiInit;
    decltype(&curl_multi_cleanup) multiCleanup;
    decltype(&curl_multi_add_handle) multiAddHandle;
    decltype(&curl_multi_remove_handle) multiRemoveHandle;
    decltype(&curl_multi_perform) multiPerform;
    decltype(&curl_multi_poll) multiPoll;
    decltype(&curl_multi_wakeup) multiWakeup;
    decltype(&curl_multi_info_read) multiInfoRead;
    decltype(&curl_slist_append) slistAppend;
    decltype(&curl_slist_free_all) slistFreeAll;
    decltype(&curl_url) url;
    decltype(&curl_url_cleanup) urlCleanup;
    decltype(&curl_url_set) urlSet;

private:
    explicit Curl(const LazyLibrary& library);
};

/// A deleter for `std::unique_ptr` that calls this libcurl function.
template <auto function>
struct CurlRelease {
    template <typename T>
    void operator()(T* object) const {
        (Curl::get().*function)(object);
    }
};

} // namespace orvel
