# SPDX-License-Identifier: MIT
# The library, shared and static from the same objects.

list(APPEND CMAKE_MODULE_PATH "${CMAKE_CURRENT_LIST_DIR}")
find_package(TinyXML REQUIRED)
find_package(OpenSSL REQUIRED COMPONENTS Crypto)

set(NASUTIL_MODULES
    Authenticator
    EventLoop
    JSEmit
    MD5Authenticator
    NASConfDB
    NetworkInterface
    PropertyList
    PropertyList_durable
    PropertyList_encoding
    PropertyList_problems
    SuperLoop
    Timer
    Value
    ZEB_GPIO
    base64
    category
    datetime
    escape
    internal/replace_file
    logger
    print_str
    publisher
    strnatcmp
    system_exception)

configure_file(util/settings.h.in generated/settings.h @ONLY)

add_library(nasutil_objects OBJECT)
foreach(module IN LISTS NASUTIL_MODULES)
  target_sources(nasutil_objects PRIVATE util/${module}.cc)
endforeach()
# Small where the XML parser, the kernel or the caller decides the time.
set_source_files_properties(
  util/Authenticator.cc util/EventLoop.cc util/MD5Authenticator.cc util/NASConfDB.cc util/category.cc
  util/NetworkInterface.cc util/PropertyList.cc util/PropertyList_encoding.cc util/PropertyList_problems.cc util/ZEB_GPIO.cc
  util/datetime.cc util/internal/replace_file.cc util/print_str.cc util/system_exception.cc
  ticpp/document.cc ticpp/element.cc ticpp/tree.cc
  PROPERTIES COMPILE_OPTIONS "$<$<NOT:$<CONFIG:Debug>>:-Os>")
target_compile_options(nasutil_objects PRIVATE
  $<$<CXX_COMPILER_ID:GNU>:-fno-reorder-blocks-and-partition>)
set_target_properties(nasutil_objects PROPERTIES POSITION_INDEPENDENT_CODE ON)
# Each class that is named, though its virtual functions may lie elsewhere: tests/install/check_abi.sh.
target_compile_options(nasutil_objects
                       PRIVATE $<$<CXX_COMPILER_ID:GNU>:-femit-class-debug-always>)
target_include_directories(nasutil_objects PRIVATE "${CMAKE_SOURCE_DIR}"
                                                   "${CMAKE_BINARY_DIR}/generated")
target_link_libraries(nasutil_objects PRIVATE nasutil_flags OpenSSL::Crypto TinyXML::TinyXML)

if(NASUTIL_SYSTEM_TICPP)  # Its users link to it and compile against it as well.
  find_library(NASUTIL_TICPP_LIBRARY ticpp REQUIRED)
  find_path(NASUTIL_TICPP_INCLUDE_DIR ticpp.h REQUIRED)
  set(nasutil_ticpp "${NASUTIL_TICPP_LIBRARY}")
  set(nasutil_ticpp_include "${NASUTIL_TICPP_INCLUDE_DIR}")
else()
  target_sources(nasutil_objects PRIVATE ticpp/document.cc ticpp/element.cc ticpp/scan.cc
                                         ticpp/tree.cc)
  set(nasutil_ticpp_include "$<BUILD_INTERFACE:${CMAKE_SOURCE_DIR}/ticpp>")
endif()
target_include_directories(nasutil_objects PRIVATE "${nasutil_ticpp_include}")

foreach(kind shared static)
  string(REPLACE shared nasutil target "${kind}")
  string(REPLACE static nasutil_static target "${target}")
  string(TOUPPER ${kind} type)
  add_library(${target} ${type} $<TARGET_OBJECTS:nasutil_objects>)
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

set(symbols "${CMAKE_SOURCE_DIR}/cmake/nasutil.map")
set_target_properties(nasutil PROPERTIES LINK_DEPENDS "${symbols}")
target_link_libraries(nasutil PRIVATE nasutil_flags)
# The library's calls of its own functions are bound when it is linked, those of others at start.
target_link_options(nasutil PRIVATE "-Wl,--version-script=${symbols}" -Wl,-Bsymbolic-functions)
