// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>

/// The environment variables that libcurl, libssl and libcrypto read. A test compares these lists
/// with the installed libraries.
namespace orvel::library_variables {

/// Removed before the libraries are loaded, because they record secrets or load code.
inline constexpr std::array removed{
    // A file for the keys of every connection.
    "SSLKEYLOGFILE",
    // A configuration, which can name libraries to load, and the folders of such libraries.
    "OPENSSL_CONF",
    "OPENSSL_CONF_INCLUDE",
    "OPENSSL_ENGINES",
    "OPENSSL_MODULES",
    // Files that the agent does not need: logs of certificates, and a random seed.
    "CTLOG_FILE",
    "RANDFILE",
    // Output for the developers of OpenSSL.
    "OPENSSL_TRACE",
    "OPENSSL_MALLOC_FAILURES",
    "OPENSSL_MALLOC_FD",
    "QLOGDIR",
    "OSSL_QFILTER",
    // Another TLS library of libcurl, and output for its developers.
    "CURL_SSL_BACKEND",
    "CURL_DEBUG",
    "CURL_MEMDEBUG",
    "CURL_TRACE",
    // A file with names and passwords.
    "NETRC",
};

/// Settings of the user, which stay.
inline constexpr std::array kept{
    "http_proxy",
    "https_proxy",
    "HTTPS_PROXY",
    "all_proxy",
    "ALL_PROXY",
    "no_proxy",
    "NO_PROXY",
    // libcrypto reads the upper case for requests of its own, which the agent does not make.
    "HTTP_PROXY",
    // Certificates of the system. They have no effect while libcurl is given a file.
    "SSL_CERT_DIR",
    "SSL_CERT_FILE",
    // A way to write files that the agent does not write.
    "LEGACY_GOST_PKCS12",
    // Switches off instructions of the processor.
    "OPENSSL_ia32cap",
    "OPENSSL_armcap",
    // The home folder, and the user's name for a proxy that asks for it.
    "HOME",
    "LOGNAME",
    "NTLMUSER",
    "USER",
};

} // namespace orvel::library_variables
