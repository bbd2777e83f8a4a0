// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/network/Curl.h"

#include "platform/linux/support/LazyLibrary.h"

namespace orvel {

Curl::Curl(const LazyLibrary& library)
    : globalInit(library.symbol("curl_global_init")),
      globalCleanup(library.symbol("curl_global_cleanup")),
      easyInit(library.symbol("curl_easy_init")),
      easyCleanup(library.symbol("curl_easy_cleanup")),
      easySetopt(library.symbol("curl_easy_setopt")),
      easyGetinfo(library.symbol("curl_easy_getinfo")),
      easyHeader(library.symbol("curl_easy_header")),
      easyStrerror(library.symbol("curl_easy_strerror")),
      multiInit(library.symbol("curl_multi_init")),
      multiCleanup(library.symbol("curl_multi_cleanup")),
      multiAddHandle(library.symbol("curl_multi_add_handle")),
      multiRemoveHandle(library.symbol("curl_multi_remove_handle")),
      multiPerform(library.symbol("curl_multi_perform")),
      multiPoll(library.symbol("curl_multi_poll")),
      multiWakeup(library.symbol("curl_multi_wakeup")),
      multiInfoRead(library.symbol("curl_multi_info_read")),
      slistAppend(library.symbol("curl_slist_append")),
      slistFreeAll(library.symbol("curl_slist_free_all")),
      url(library.symbol("curl_url")),
      urlCleanup(library.symbol("curl_url_cleanup")),
      urlSet(library.symbol("curl_url_set")) {}

const Curl& Curl::get() {
    static const Curl curl{LazyLibrary(ORVEL_CURL_LIBRARY)};
    return curl;
}

} // namespace orvel
