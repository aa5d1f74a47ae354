# SPDX-License-Identifier: MIT
# What a deployment sets for itself; util/settings.h.in carries it into the code.

set(NASUTIL_INTERNAL_SHARE_ROOT "/shares/internal" CACHE STRING
    "Folder below which internal shares live")
set(NASUTIL_EXTERNAL_SHARE_ROOT "/shares/external" CACHE STRING
    "Folder below which external shares live")
set(NASUTIL_MD5_KEY "development-key" CACHE STRING "Secret that MD5Authenticator mixes in")
set(NASUTIL_MD5_ID "MD5" CACHE STRING "Scheme name of MD5Authenticator")

if(NASUTIL_MD5_KEY MATCHES "^(development-key)?$")
  message(WARNING "NASUTIL_MD5_KEY is empty or the development key: everybody can forge signatures. \
Configure with -DNASUTIL_MD5_KEY=<secret> before anything is delivered.")
endif()

foreach(setting INTERNAL_SHARE_ROOT EXTERNAL_SHARE_ROOT MD5_KEY MD5_ID)
  # As the text of a C++ string literal.
  string(REGEX REPLACE "([\\\\\"])" "\\\\\\1" NASUTIL_${setting}_LITERAL "${NASUTIL_${setting}}")
endforeach()
