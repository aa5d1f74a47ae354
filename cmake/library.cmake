# SPDX-License-Identifier: MIT
# The library, shared and static from the same objects.

list(APPEND CMAKE_MODULE_PATH "${CMAKE_CURRENT_LIST_DIR}")
find_package(TinyXML REQUIRED)
find_package(OpenSSL REQUIRED COMPONENTS Crypto)

set(NASUTIL_FAST_MODULES
    util/JSEmit
    util/PropertyList_durable
    util/SuperLoop
    util/Value
    util/base64
    util/escape
    util/strnatcmp
    ticpp/scan)
# In these the XML parser, the C library, the kernel or the caller decides the time.
set(NASUTIL_SMALL_MODULES
    util/Authenticator
    util/EventLoop
    util/MD5Authenticator
    util/NASConfDB
    util/NetworkInterface
    util/PropertyList
    util/PropertyList_encoding
    util/PropertyList_problems
    util/Timer
    util/Value_text
    util/ZEB_GPIO
    util/category
    util/datetime
    util/internal/replace_file
    util/logger
    util/print_str
    util/publisher
    util/system_exception
    ticpp/document
    ticpp/element
    ticpp/tree)

configure_file(util/settings.h.in generated/settings.h @ONLY)

if(NASUTIL_SYSTEM_TICPP)  # Its users link to it and compile against it as well.
  find_library(NASUTIL_TICPP_LIBRARY ticpp REQUIRED)
  find_path(NASUTIL_TICPP_INCLUDE_DIR ticpp.h REQUIRED)
  set(nasutil_ticpp "${NASUTIL_TICPP_LIBRARY}")
  set(nasutil_ticpp_include "${NASUTIL_TICPP_INCLUDE_DIR}")
  list(FILTER NASUTIL_FAST_MODULES EXCLUDE REGEX "^ticpp/")
  list(FILTER NASUTIL_SMALL_MODULES EXCLUDE REGEX "^ticpp/")
else()
  set(nasutil_ticpp_include "$<BUILD_INTERFACE:${CMAKE_SOURCE_DIR}/ticpp>")
endif()

nasutil_sources(nasutil_sources NASUTIL_FAST_MODULES NASUTIL_SMALL_MODULES)

add_library(nasutil_objects OBJECT ${nasutil_sources})
set_target_properties(nasutil_objects PROPERTIES POSITION_INDEPENDENT_CODE ON)
# Each class that is named, though its virtual functions may lie elsewhere: check_abi.sh.
target_compile_options(
  nasutil_objects PRIVATE ${nasutil_object_options}
                     $<$<CXX_COMPILER_ID:GNU>:-fno-reorder-blocks-and-partition>
                     $<$<CXX_COMPILER_ID:GNU>:-femit-class-debug-always>)
target_include_directories(
  nasutil_objects PRIVATE "${CMAKE_SOURCE_DIR}" "${CMAKE_BINARY_DIR}/generated"
                     "${nasutil_ticpp_include}")
target_link_libraries(nasutil_objects PRIVATE nasutil_flags OpenSSL::Crypto TinyXML::TinyXML)

add_library(nasutil SHARED $<TARGET_OBJECTS:nasutil_objects>)
add_library(nasutil_static STATIC $<TARGET_OBJECTS:nasutil_objects>)
foreach(target nasutil nasutil_static)
  add_library(nasutil::${target} ALIAS ${target})
  set_target_properties(${target} PROPERTIES OUTPUT_NAME nasutil VERSION ${PROJECT_VERSION}
                                             SOVERSION ${PROJECT_VERSION_MAJOR})
  target_compile_features(${target} INTERFACE cxx_std_14)
  target_include_directories(
    ${target}
    INTERFACE "$<BUILD_INTERFACE:${CMAKE_SOURCE_DIR}>" "${nasutil_ticpp_include}"
              "$<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/nasutil>")
  target_link_libraries(${target} PUBLIC ${nasutil_ticpp} PRIVATE TinyXML::TinyXML OpenSSL::Crypto)
endforeach()

nasutil_link_shared(nasutil "${CMAKE_SOURCE_DIR}/cmake/nasutil.map")
