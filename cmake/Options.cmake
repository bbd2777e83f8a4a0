option(ORVEL_BUILD_TESTS "Build the tests" ON)
option(ORVEL_WARNINGS_ARE_ERRORS "Let warnings fail the build" ON)
option(ORVEL_BUILD_BENCHMARKS "Build the benchmarks" OFF)
option(ORVEL_BUILD_FUZZERS "Build the libFuzzer programs (needs clang)" OFF)
option(ORVEL_COVERAGE "Let the programs write which lines they execute (needs clang)" OFF)

# Deployment values: they fill resources/Info.plist.in.
set(ORVEL_API_HOST "api.orvel.example" CACHE STRING "Host name of the service")
set(ORVEL_WEB_HOST "www.orvel.example" CACHE STRING "Host name of the web site")
set(ORVEL_BUNDLE_IDENTIFIER "app.orvel.OrvelAgent" CACHE STRING "Identifier of the application")
set(ORVEL_DISPLAY_NAME "Orvel Agent" CACHE STRING "Name shown to the user")
set(ORVEL_FIREBASE_API_KEY "" CACHE STRING "Web API key of the identity provider")
set(ORVEL_IDENTITY_TOOLKIT_URL
    "https://identitytoolkit.googleapis.com/v1/"
    CACHE STRING "Base URL of the identity provider's sign-in")
set(ORVEL_SECURE_TOKEN_URL
    "https://securetoken.googleapis.com/v1/token"
    CACHE STRING "URL of the identity provider's token refresh")
set(ORVEL_UPDATE_FEED_URL "" CACHE STRING "HTTPS URL of the update feed")
set(ORVEL_UPDATE_PUBLIC_KEY "" CACHE STRING "Base64 Ed25519 public key of updates")
set(ORVEL_TLS_EXTRA_CA
    ""
    CACHE STRING "PEM file of further trusted certificates; empty in releases")

set(ORVEL_SOURCE_REVISION
    ""
    CACHE STRING "Name of the source revision; that of the repository when empty")
