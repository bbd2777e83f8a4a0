// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/linux/support/LazyLibrary.h"

#include <curl/curl.h>

namespace orvel {

/// The functions used of libcurl, which is loaded at the first request.
struct Curl {
    /// Throws `tavrin::PlatformError` when libcurl cannot be loaded. Thread-safe.
    static const Curl& get();

    LazyLibrary library;
    decltype(&curl_global_init) globalInit = library.symbol("curl_global_init");
    decltype(&curl_global_cleanup) globalCleanup = library.symbol("curl_global_cleanup");
    decltype(&curl_easy_init) easyInit = library.symbol("curl_easy_init");
    decltype(&curl_easy_cleanup) easyCleanup = library.symbol("curl_easy_cleanup");
    decltype(&curl_easy_setopt) easySetopt = library.symbol("curl_easy_setopt");
    decltype(&curl_easy_getinfo) easyGetinfo = library.symbol("curl_easy_getinfo");
    decltype(&curl_easy_header) easyHeader = library.symbol("curl_easy_header");
    decltype(&curl_easy_strerror) easyStrerror = library.symbol("curl_easy_strerror");
    decltype(&curl_multi_init) multiInit = library.symbol("curl_multi_init");
    decltype(&curl_multi_cleanup) multiCleanup = library.symbol("curl_multi_cleanup");
    decltype(&curl_multi_add_handle) multiAddHandle = library.symbol("curl_multi_add_handle");
    decltype(&curl_multi_remove_handle) multiRemoveHandle =
        library.symbol("curl_multi_remove_handle");
    decltype(&curl_multi_perform) multiPerform = library.symbol("curl_multi_perform");
    decltype(&curl_multi_poll) multiPoll = library.symbol("curl_multi_poll");
    decltype(&curl_multi_wakeup) multiWakeup = library.symbol("curl_multi_wakeup");
    decltype(&curl_multi_info_read) multiInfoRead = library.symbol("curl_multi_info_read");
    decltype(&curl_slist_append) slistAppend = library.symbol("curl_slist_append");
    decltype(&curl_slist_free_all) slistFreeAll = library.symbol("curl_slist_free_all");
    decltype(&curl_url) url = library.symbol("curl_url");
    decltype(&curl_url_cleanup) urlCleanup = library.symbol("curl_url_cleanup");
    decltype(&curl_url_set) urlSet = library.symbol("curl_url_set");
};

} // namespace orvel
